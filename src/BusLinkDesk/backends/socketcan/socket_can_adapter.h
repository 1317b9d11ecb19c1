// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

/// The back end for SocketCAN network interfaces: one raw CAN socket and one receive loop an adapter.
///
/// The interface belongs to the operating system: rates, restart behaviour and whether it is up are
/// set there, and the operations for them do nothing here. Frames of other adapters and programs on
/// the same interface are received, the adapter's own are not: they come back as echoes, which are on
/// from the start. Options with an effect here: `option_CANFD` (which loop `open()` starts),
/// `option_systemTime`, `option_continuousTimestamp`, `option_uniqueId`. Whether a frame goes out as
/// CAN FD depends on the frame alone.
///
/// System calls of `open()` and failed transmissions of CAN FD frames are reported on standard error; a loop
/// that ends tells by `getRunning()`, and by `interfaceError` unless the wait for frames was what failed. The
/// bus state follows the error frames of the interface.
///
/// `open()` returns before the loop has begun, and stopping only reaches a loop that has: a program
/// that may stop an adapter right after opening it waits for `getRunning()` first, and one that opens
/// it again waits for the end of the thread. Otherwise the loop runs on, or does not begin. A loop that
/// runs while the adapter is opened again goes over to the new socket within 100 ms.
///
/// *Thread:* `write(CAN::CanMessage*)` from any thread, and it delivers its echo there; received frames
/// and states on the adapter's own.
class BUSLINKDESK_EXPORT SocketCanAdapter : public AbstractCanAdapter
{
    Q_OBJECT

public:
    /// Creates an adapter for an interface, with echo. `name` is an interface name, possibly with a
    /// label behind a `|` as `getDeviceList()` gives it; one of fewer than two characters stands for
    /// "can0". The seconds of the adapter's time stamps count from here.
    explicit SocketCanAdapter(QString name, QObject *parent = nullptr);
    /// Closes the socket. The thread must have ended.
    ~SocketCanAdapter() override;

    using AbstractCanAdapter::setBitrate;
    using AbstractCanAdapter::write;

protected:
    /// The receive loop, that of `run_fd()` with `option_CANFD`.
    void run() override;

public:
    /// Opens and binds a socket and starts the adapter's thread. Refused buffer sizes, error frames and
    /// CAN FD are reported and no failure. The socket of an earlier `open()` is closed, by the loop after its
    /// current pass if one is running; no other thread may be in `write(CAN::CanMessage*)` then.
    /// *Fails:* `CAN::RetError` without CAN support, without such an interface, or if it cannot be bound.
    /// A name of 16 bytes or more, which no interface can have, aborts the process.
    CAN::RetType open() override;
    /// Ends reception within 100 ms; the socket stays open and frames can still be written.
    void closeAdapter() override;
    /// Does nothing, the rate is set in the operating system. Returns `CAN::RetOk`.
    CAN::RetType setBitrate(unsigned short bitrate) override;
    /// Does nothing.
    void resetDriver() override;
    /// Returns the state that the last error frame told. A loop that begins starts from
    /// `CAN::CanStateErrorActive`, also after bus off; before the first loop it is `CAN::CanStateNone`.
    CAN::CanState getState() override;
    /// Ends reception.
    /// *Blocks:* 200 ms if the loop ran.
    void prepareToTerminate() override;
    /// Returns the twelve options without a meaning here.
    QList<AdapterOption> getSkippedOptions() const override;
    /// Sends a frame at once and delivers its echo. The length of a CAN FD frame is rounded up in the
    /// caller's record to one that CAN FD has; bytes behind the given length then go out as they stand.
    /// *Thread:* any.
    /// *Fails:* `CAN::RetTxBufferFull` for a classic frame that the interface has no room for,
    /// `CAN::RetError` otherwise; there is no echo then.
    /// *Kept on purpose:* a CAN FD frame that finds no room gives `CAN::RetError`. `isEsi` does not go
    /// out, and a remote frame with `isFd` becomes a CAN FD frame without its payload.
    CAN::RetType write(CAN::CanMessage *message) override;

    /// Returns 0 and touches nothing; frames wait in the operating system alone.
    int clearTxQueue();
    /// Returns 0 and touches nothing; frames wait in the operating system alone.
    int clearRxQueue();
    /// Returns 0; frames wait in the operating system alone.
    int getTxQueueCount();
    /// Returns 0; frames wait in the operating system alone.
    int getRxQueueCount();
    /// Returns false: the rate is set in the operating system.
    static bool isBaudrateChangeable();

    /// Returns the CAN interfaces that `/sbin/ip` lists, each with its maker's label if it is known:
    /// "can0 | PEAK". `types` narrows the list to SysTec (7), PEAK (16) and Ixxat (17); empty means all. A link
    /// with a peer appears as the program names it, "left@right": only what stands before the `@` is a device
    /// name, and `open()` aborts the process for an entry of 16 bytes or more as for any such name.
    /// *Thread:* any. *Blocks:* up to 1 s for the listing and 1 s more for each interface, each twice that if
    /// the program hangs and cannot be killed.
    /// *Fails:* without any interface, and with an empty `types`, six usual names.
    /// *Kept on purpose:* a list of other types alone, that of SocketCAN included, lets nothing through.
    static QStringList getDeviceList(QList<AbstractCanAdapter::CanAdapterType> types);
    /// Returns what `/sbin/ip` tells of an interface; a label behind a `|` does not matter.
    /// *Thread:* any. *Blocks:* up to 2 s. *Fails:* a record of zeros.
    /// *Kept on purpose:* rates are cut to whole kbit/s and, like the restart time, to 16 bits.
    static AbstractCanAdapter::SocketCANProps getSocketCanProps(QString device);
    /// Returns the nominal rate of an interface in kbit/s as text; a label behind a `|` does not matter.
    /// *Thread:* any. *Blocks:* up to 2 s. *Fails:* an empty text.
    static QString getBitrateOfDevice(QString device);

protected:
    /// The receive loop for CAN FD and classic frames.
    void run_fd();
    /// Stores and announces a state that differs from the one before.
    void setState(CAN::CanState state);

private:
    struct Q_DECL_HIDDEN FrameFormat;

    Q_DECL_HIDDEN void takeSocket(int fresh);
    Q_DECL_HIDDEN void receive(const FrameFormat &format);
    Q_DECL_HIDDEN void receiveOne(int socket, const FrameFormat &format, CAN::CanRxMessage &record);
    Q_DECL_HIDDEN void stamp(CAN::CanRxMessage &record);

    QString mDeviceName;
    qint32 mSocketFd = -1;
    qint32 mCreationSeconds = 0;
    CAN::CanState mBusState = CAN::CanStateNone;
    bool mFrameJustSent = false;
};
