// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTimer>
#include <QtSerialPort/QSerialPort>

/// Base of the back ends whose device hangs on a serial port: the port's name, the buffers between the
/// threads that write and the thread that owns the port, opening, text commands. What travels over the
/// port, and the loop that drives it, are the derived class's.
///
/// Options with an effect here: `option_Reset`, `option_toggleComPort`. The serial settings
/// (`option_baudrate`, whose default of 0 no port takes, `option_databits`, `option_parity`,
/// `option_flowControl`, `option_stopbits`) are read when the loop sets up its port.
///
/// `open()`, text commands and `option_toggleComPort` with true process the caller's events while they wait.
///
/// *Thread:* the port lives on the adapter's own thread and is used there alone.
class BUSLINKDESK_EXPORT serialPortAdapter : public AbstractCanAdapter
{
    Q_OBJECT

public:
    /// Creates an adapter for a port. `name` is the port's system name ("ttyUSB0"), possibly behind a
    /// label and a dash ("Workbench - ttyUSB0").
    /// *Kept on purpose:* everything up to the last dash is cut, so a port name with a dash is too.
    explicit serialPortAdapter(QString name, QObject *parent = nullptr);
    /// Releases the buffers. The thread must have ended.
    ~serialPortAdapter() override;

    using AbstractCanAdapter::setBitrate;
    using AbstractCanAdapter::write;

    /// Makes sure that the port can be opened, starts the adapter's thread and waits until it has
    /// opened and set up the port.
    /// *Blocks:* up to 500 ms after the thread was started, processing the caller's events.
    /// *Fails:* `CAN::RetError` if the adapter runs, if the port is missing or busy (a debug record names
    /// its error), or if the port was not set up in time.
    /// *Kept on purpose:* a port that takes longer is not given up; the adapter may run although this
    /// failed, as `getRunning()` tells.
    CAN::RetType open() override;
    /// Ends the loop after the pass at hand.
    void closeAdapter() override;
    /// Sends a text command: a blank and a carriage return first and, once the device has answered these,
    /// the text and a carriage return.
    /// *Blocks:* until the device answers, up to 5000 ms, processing the caller's events.
    /// *Fails:* `CAN::RetError` without an open port or without an answer.
    /// *Kept on purpose:* a command ends the adapter's thread. The text leaves if the loop comes to its
    /// transmit buffer before it sees that, else it stays there for the next run. The answer to the blank
    /// is dropped with all that came in one piece with it. After a failure it is still awaited, in later runs too:
    /// the next piece with a carriage return is dropped. The 5000 ms of an answered command go on and end the
    /// wait of a later one.
    CAN::RetType write(QString text) override;
    /// Stores the rate; the device does not learn of it. Returns `CAN::RetOk`.
    CAN::RetType setBitrate(unsigned short rate) override;
    /// Does nothing.
    void resetDriver() override;
    /// Returns `CAN::CanStateNone`: devices behind serial ports tell no state.
    CAN::CanState getState() override;
    /// Ends the loop.
    /// *Blocks:* 300 ms.
    void prepareToTerminate() override;
    /// `option_toggleComPort` with true opens the adapter as `open()` does, without the reset of
    /// `option_Reset`, and returns whether that worked; false if there is no such port. With false it
    /// takes RTS and DTR away, ends the thread and returns whether the port is still open, so false;
    /// nothing happens without an open port. All other options are not known here: false.
    /// *Blocks:* with true as `open()` does; with false, without processing events, up to 500 ms for RTS and DTR,
    /// which stay as they are if the loop is held for so long, then until the thread has ended and 600 ms more.
    bool setSpecificCanAdapterOption(AdapterOption option, QVariant value) override;
    /// Returns the sixteen options without a meaning here.
    QList<AdapterOption> getSkippedOptions() const override;

    /// Queues bytes for the port. *Thread:* any.
    void addToBuffer(QByteArray bytes);
    /// Starts the thread; the identifiers do not matter, since no device here knows a reset.
    void resetDevice(quint16 vendorId, quint16 productId);
    /// Returns 0 and touches nothing; there is no view of the queues.
    int clearTxQueue();
    /// Returns 0 and touches nothing; there is no view of the queues.
    int clearRxQueue();
    /// Returns 0; there is no view of the queues.
    int getTxQueueCount();
    /// Returns 0; there is no view of the queues.
    int getRxQueueCount();
    /// Returns false: the rate is set in the device.
    static bool isBaudrateChangeable();
    /// Returns the names of all serial ports of the machine, sorted without regard to case. *Thread:* any.
    static QStringList getDeviceList();
    /// Returns the names of all serial ports of the machine, each with 0. *Thread:* any.
    static QMap<QString, unsigned int> getAdvDeviceList();

Q_SIGNALS:
    /// The port could not be opened or set up, or was gone when the loop began.
    void serialPortError();

public Q_SLOTS:
    /// Takes an error of the port into the debug log; the adapter goes on.
    void serialError(QSerialPort::SerialPortError error);
    /// Gives up waiting for the answer that a text command needs first.
    void errorSendingString();
    /// Takes over what the port has received; returns whether that was anything.
    /// *Thread:* the adapter's own.
    bool readResponse();

protected:
    /// Starts the clock of all serial adapters unless it runs.
    Q_DECL_HIDDEN static void startClock();
    /// Stamps a record with the system's clock or the clock of all serial adapters; the latter is at 0
    /// until the first port was opened.
    Q_DECL_HIDDEN void stamp(CAN::CanRxMessage &record);

    QString mPortName;             ///< System name of the port.
    unsigned short mBitrate = 0;   ///< What `setBitrate` was given.
    QPointer<QSerialPort> mPort;   ///< The port during a run.
    QPointer<QTimer> mResendTimer; ///< Time-out of a frame's return during a run.
    QByteArray mReceiveBuffer;     ///< Received bytes that were not taken yet.
    QByteArray mTransmitBuffer;    ///< Bytes that wait for the port.
    QMutex mReceiveMutex;          ///< Guards appending to and taking from `mReceiveBuffer`.
    qint64 mReceivedBytes = 0;     ///< Bytes that went into `mReceiveBuffer` in this run.
    bool mResponseReceived = true; ///< The device has answered the last text command, if there was one.
    bool mSendingFailed = false;   ///< The last text command was given up.
    QMutex mTransmitMutex;         ///< Guards `mTransmitBuffer`, and `mPort` against its end.

    static QElapsedTimer mElapsedTimer; ///< Time base of all serial adapters; started by the first run.

private:
    Q_DECL_HIDDEN void startAfterReset(quint16 vendorId, quint16 productId);
    Q_DECL_HIDDEN bool sendProbe();
    Q_DECL_HIDDEN bool connectPort();
    Q_DECL_HIDDEN bool disconnectPort();
};
