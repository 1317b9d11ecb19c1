// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

/// The back end for character devices of the can4linux driver: one descriptor and one receive loop an adapter.
///
/// Rates and echo are settings of the driver. The echo is the driver's own reception of what it sent, so it comes
/// on the adapter's thread with the stamp of its transmission; `open()` switches it on. The driver reports the
/// state of the bus as a frame with the identifier 0xFFFFFFFF, which is delivered too. Options with an effect
/// here: `option_systemTime`, `option_continuousTimestamp`, `option_uniqueId`. The rates in options do not reach
/// the driver: `setBitrate(unsigned short)` and `setFdBitrate(unsigned int)` do. Whether a frame goes out as CAN FD
/// depends on the frame alone.
///
/// System calls that fail are reported on standard error.
///
/// `open()` returns before the loop has begun, and stopping only reaches a loop that has: a program
/// that may stop an adapter right after opening it waits for `getRunning()` first, and one that opens
/// it again waits for the end of the thread. Otherwise the loop runs on, or does not begin.
///
/// *Thread:* `write(CAN::CanMessage*)` from any thread; received frames, echoes and states on the adapter's own.
///
/// *Kept on purpose:* a closed adapter keeps the number of its descriptor. What would use it fails as on a closed
/// descriptor, a second `closeAdapter()` and the destructor included, with its line on standard error.
class BUSLINKDESK_EXPORT Can4linuxCanAdapter : public AbstractCanAdapter
{
    Q_OBJECT

public:
    /// Creates an adapter for a device, such as "/dev/can0", with 500 kbit/s nominal and 2000 kbit/s in the data
    /// phase. Its thread will have a stack of 60,000 bytes, on which direct receivers run.
    explicit Can4linuxCanAdapter(QString name, QObject *parent = nullptr);
    /// Closes the device. The thread must have ended.
    ~Can4linuxCanAdapter() override;

    using AbstractCanAdapter::setBitrate;
    using AbstractCanAdapter::write;

protected:
    /// The receive loop.
    void run() override;

public:
    /// Opens the device, resets the driver, sets both rates, announces `CAN::CanStateErrorActive` unless that is the
    /// state already, starts the adapter's thread and switches the echo on. Settings that the driver refuses are no
    /// failure. Writes "Open() can4linuxCanAdapter" to standard error each time. The device of an earlier `open()` is
    /// closed.
    /// *Fails:* `CAN::RetError` if the device cannot be opened.
    CAN::RetType open() override;
    /// Ends reception within a pass of the loop, which is about 1 ms, and closes the device. It does so without a lock
    /// and at once, so that the loop may be at the device just then; what that reads is not delivered. A file that
    /// another thread opens at that moment may get the number of the device, and lose to the loop what it reads.
    void closeAdapter() override;
    /// Sets the nominal rate in kbit/s: at once on an open device, between a stop and a start of the controller,
    /// else at the next `open()`. The data rate is a multiple of this one and has to be set again after it.
    /// *Fails:* `CAN::RetDriverConfigFailed` if the driver refuses; the rate is kept for the next `open()`.
    CAN::RetType setBitrate(unsigned short bitrate) override;
    /// Sets the data rate in kbit/s like `setBitrate(unsigned short)`, as a whole multiple of the nominal rate.
    /// *Fails:* `CAN::RetDriverConfigFailed` if the driver refuses; the rate is kept for the next `open()`.
    /// *Kept on purpose:* the multiple is cut to 8 bits; one below 1, or with a nominal rate of 0, is 0.
    CAN::RetType setFdBitrate(unsigned int bitrate) override;
    /// Resets the driver.
    void resetDriver() override;
    /// Returns the state that was announced last, `CAN::CanStateNone` before the first `open()`.
    CAN::CanState getState() override;
    /// Ends reception; the device stays open.
    /// *Blocks:* 200 ms if the loop ran.
    void prepareToTerminate() override;
    /// Returns 0x98.
    unsigned int getCanFeatures() override;
    /// Switches the driver's reception of its own frames. `echoChanged` is not emitted.
    void setEcho(bool echo) override;
    /// Returns the twelve options without a meaning here.
    QList<AdapterOption> getSkippedOptions() const override;
    /// Hands a frame to the driver. Its length goes out rounded up to one that CAN FD has; bytes behind the given
    /// length are 0.
    /// *Thread:* any.
    /// *Fails:* `CAN::RetError`.
    /// *Kept on purpose:* the length of a classic frame is rounded up, too. `isEsi` does not go out, and a remote
    /// frame with `isFd` becomes a CAN FD frame without its payload.
    CAN::RetType write(CAN::CanMessage *message) override;

    /// Returns 0 and touches nothing; frames wait in the driver alone.
    int clearTxQueue();
    /// Returns 0 and touches nothing; frames wait in the driver alone.
    int clearRxQueue();
    /// Returns 0; frames wait in the driver alone.
    int getTxQueueCount();
    /// Returns 0; frames wait in the driver alone.
    int getRxQueueCount();
    /// Returns true.
    static bool isBaudrateChangeable();
    /// Returns four usual names, whether or not there are such devices.
    static QStringList getDeviceList();
    /// Returns the selectable classic rates of the driver (kbit/s, sample point in percent), or with `shortList`
    /// the nominal rates that go with CAN FD.
    static QList<CAN::CANBitrateDesc> getSupportedBitrates(bool shortList);
    /// Returns the selectable data-phase rates of the driver (kbit/s, sample point in percent).
    static QList<CAN::CANBitrateDesc> getSupportedFDBitrates();

protected:
    /// Stores and announces a state that differs from the one before.
    void setState(CAN::CanState state);

private:
    struct Q_DECL_HIDDEN Reception;

    Q_DECL_HIDDEN int device() const;
    Q_DECL_HIDDEN bool openDevice();
    Q_DECL_HIDDEN void closeDevice();
    Q_DECL_HIDDEN void receiveOne(Reception &reception);
    Q_DECL_HIDDEN void signalState(quint32 flags);

    QString mDeviceName;
    quint16 mNominalBitrate = 500;
    quint32 mDataBitrate = 2000;
    qint32 mDeviceFd = -1;
    quint32 mCreationSeconds = 0;
    CAN::CanState mBusState = CAN::CanStateNone;
    bool mDeviceClosed = false;
};
