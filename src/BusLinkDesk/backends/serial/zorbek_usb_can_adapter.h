// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/serial/serial_port_adapter.h>

/// The back end for a USB-to-CAN device that shows as a serial port.
///
/// The device has its own bit rate, which this class can neither set nor learn, and it tells neither bus
/// states nor whether a frame got through. Bit-rate switch and error state indicator do not travel.
/// Echoes, on from the start, come when a frame is queued. Options with an effect here, beside those of the
/// base: `option_systemTime`, `option_continuousTimestamp`, `option_uniqueId`, `option_disableSleep` and
/// `option_halfDuplex`.
///
/// With `option_halfDuplex` the device is expected to send every frame back: such a return is not
/// delivered, and a frame that does not return within 10 s of the last transmission is sent once more.
/// *Kept on purpose:* any received frame ends the waiting; one that is no return drops all frames that
/// wait for theirs. A return is recognised by all 64 payload bytes, and a frame with `isBrs` never is.
/// Adapters with this option must not be linked to each other or to themselves: a frame is delivered with the lock
/// held that `write()` takes, and their threads would wait for each other for ever.
///
/// The loop polls: it sleeps 5 µs when there is nothing to do, with `option_disableSleep` only every 255th
/// time, and not at all while part of a message is there. A message of an unknown type stays there for good: it
/// stops reception, and what comes behind it fills the memory.
///
/// *Thread:* `write(CAN::CanMessage*)` from any thread, and it delivers its echo there; received frames on
/// the adapter's own. With `option_halfDuplex` a direct receiver must not write to the same adapter, and
/// resending needs the event loop of the thread that created the adapter.
class BUSLINKDESK_EXPORT ZorbekUSBCanAdapter : public serialPortAdapter
{
    Q_OBJECT

public:
    /// Creates an adapter for a port; `name` as the base takes it.
    explicit ZorbekUSBCanAdapter(QString name, QObject *parent = nullptr);
    /// Ends the loop and waits for the thread.
    ~ZorbekUSBCanAdapter() override;

    using serialPortAdapter::write;

protected:
    /// The loop that owns the port.
    void run() override;

public:
    /// Queues a frame as if written the first time. *Thread:* any. *Fails:* `CAN::RetError` for null.
    CAN::RetType write(CAN::CanMessage *message) override;
    /// Queues a frame and delivers its echo. It stays queued until the port is open. `firstSend` puts it
    /// among those whose return is awaited.
    /// *Thread:* any. *Fails:* `CAN::RetError` for null.
    /// *Kept on purpose:* a classic length above 15 runs into the flags of the message; no more than 64
    /// payload bytes go out whatever the length says.
    CAN::RetType write(CAN::CanMessage *message, bool firstSend);

    /// Returns the names of all serial ports of the machine, each with 128. *Thread:* any.
    static QMap<QString, unsigned int> getAdvDeviceList();

public Q_SLOTS:
    /// Sends the oldest frame that did not return once more and does not wait for it again.
    void resendLastMessage();

private:
    Q_DECL_HIDDEN void openPort();
    Q_DECL_HIDDEN bool applySettings();
    Q_DECL_HIDDEN void closePort();
    Q_DECL_HIDDEN void idle(quint8 &passes);
    Q_DECL_HIDDEN bool flushTransmitBuffer();
    Q_DECL_HIDDEN bool decode(CAN::CanRxMessage &record);
    Q_DECL_HIDDEN void removeMessage(int size);
    Q_DECL_HIDDEN void deliverUnlessReturned(const CAN::CanRxMessage &record);
    Q_DECL_HIDDEN bool takeReturned(const CAN::CanMessage &message);

    QList<CAN::CanMessage> mPendingMessages;
    unsigned short mDiscardCount = 0;
    QMutex mPendingMutex;
    CAN::CanMessage mLastMessage;
};
