// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/export.h>
#include <BusLinkDesk/types/can_bitrates.h>
#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtCore/QString>
#include <QtCore/QThread>
#include <QtCore/QVariant>

#include <atomic>
#include <utility>

class QDataStream;

/// One access to a CAN or CAN FD bus: the class that all back ends derive from and the one type that
/// the rest of a program holds. An adapter is a thread of its own, on which it delivers what it
/// receives.
///
/// Life cycle: construct, configure, `open()`; later `prepareToTerminate()`, `QThread::wait()`,
/// delete. `closeAdapter()` ends reception as well; once `QThread::wait()` has returned, the adapter may
/// be opened again.
///
/// *Kept on purpose:* the loop sets its own flag when it begins, so a stop that comes between `open()`
/// and that moment is not heard and the thread runs on. Whoever stops an adapter right after opening it
/// waits for `getRunning()`, or for the thread to end by itself, first.
///
/// *Thread:* Configuration, `open()` and the stopping operations belong to one thread of the
/// application. `write(CAN::CanMessage*)` may be called from any thread. Received frames are delivered on
/// the adapter's own thread; an echo may come on the thread that writes.
///
/// Options are plain fields without a lock, on the understanding that a program configures first and
/// opens then. The numbers and flags among them are written and read as relaxed atomics, so a change
/// during operation (the unique id, echo, the time-stamp flags) is seen by a later frame and is no
/// data race; texts and records have to stay as they are while the adapter runs.
///
/// The order of the virtual operations, of the fields and of the meta-object's methods is fixed:
/// programs that were built against it rely on it.
class BUSLINKDESK_EXPORT AbstractCanAdapter : public QThread
{
    Q_OBJECT

public:
    /// The numbered options. A number is also the position of the value in the stored form, so it
    /// never changes. docs/options.md tells what each one does.
    enum AdapterOption : qint32 {
        option_CANFD = 0,           ///< CAN FD operation.
        option_adapterType,         ///< Kind of back end, a `CanAdapterType`.
        option_adapterName,         ///< Name for display.
        option_deviceName,          ///< Name of the device.
        option_adapterFeatures,     ///< Feature bits, kept for the application.
        option_ipAddress,           ///< Address of a gateway.
        option_portNumber,          ///< UDP or TCP port.
        option_toggleComPort,       ///< Write-only: a back end of its own closes and opens its serial port.
        option_flowControl,         ///< Serial flow control: a number to read, a flag to set.
        option_baudrate,            ///< Serial baud rate in bit/s.
        option_parity,              ///< Serial parity: set as 0, 1, 2 for none, even, odd; reads as 0, 2, 3.
        option_databits,            ///< Serial data bits.
        option_stopbits,            ///< Serial stop bits.
        option_internExtern,        ///< Internal or external port, kept for the application.
        option_reconnectTimeout,    ///< Reconnect time in ms.
        option_connectTimeout,      ///< Connect time in ms.
        option_disconnectTimeout,   ///< Disconnect time in ms.
        option_protocol,            ///< Protocol number.
        option_disableSleep,        ///< Write-only: takes the pauses away and raises the thread's priority.
        option_toggleDTR,           ///< Write-only, for a back end of its own.
        option_toggleRTS,           ///< Write-only, for a back end of its own.
        option_peakAdvValues,       ///< A `PeakAdvValues`.
        option_Reset,               ///< Reset at open.
        option_halfDuplex,          ///< Half-duplex serial line.
        option_canLowSpeed,         ///< Low-speed CAN.
        option_isCiA309,            ///< Read-only: whether the adapter is a CiA 309-3 gateway.
        option_autoBusOn,           ///< Return to the bus after bus off.
        option_errorFrames,         ///< Deliver error frames.
        option_continuousTimestamp, ///< System stamps count on past midnight, in steps of 1 ms.
        option_systemTime,          ///< Stamps are taken from the system's clock.
        option_uniqueId,            ///< Identifier of the adapter, stamped on every delivered frame.
        option_bitrate,             ///< Write-only: nominal rate in kbit/s.
        option_fdbitrate,           ///< Write-only: data-phase rate in kbit/s.
        option_listenOnly,          ///< No acknowledgement, no transmission.
        option_activeAdapter,       ///< Takes part in the next connection of the set.
        option_primaryAdapter,      ///< The one adapter of the set whose rate the application sets directly.
        option_btrExt,              ///< Bit-timing register extension.
        option_description,         ///< The user's description.
        option_usdoId,              ///< USDO identifier.
        option_systecXm3Values,     ///< A `SystecXM3AdvValues`.
        option_linkedAdapter,       ///< Stored id of a linked adapter; makes no link.
        option_canClassicBusParams, ///< A `CAN::CANClassicBusParameter`.
        option_canFDBusParams,      ///< A `CAN::CANFDBusParameter`.
        option_canfdBitrateDesc,    ///< Data-phase rate, a `CAN::CANBitrateDesc`.
        option_canBitrateDesc,      ///< Nominal rate, a `CAN::CANBitrateDesc`.
        option_forceEcho,           ///< Stored flag; no back end reads it.
        option_lastEnum,            ///< End mark, 46.
    };
    Q_ENUM(AdapterOption)

    /// Kinds of back end. 0 means that no type was set; further numbers have no name here.
    enum CanAdapterType : qint32 {
        CanAdapterTypeSocketCan = 1, ///< SocketCAN interface.
        CanAdapterTypeCan4linux = 4, ///< can4linux character device.
        CanAdapterTypeVirtual = 6,   ///< Virtual bus over UDP.
        CanAdapterTypeUsb = 15,      ///< USB-to-CAN device behind a serial port.
        CanAdapterTypeCiA309 = 20,   ///< CiA 309-3 gateway over TCP.
    };

    /// Advanced values for a family of devices without a back end here; kept, streamed and compared.
    struct BUSLINKDESK_EXPORT PeakAdvValues
    {
        bool enabled = false; ///< Whether the values count.
        qint32 value = 0;     ///< Kept for the application.
        qint8 param0 = 0;     ///< Kept for the application.
        qint8 param1 = 0;     ///< Kept for the application.
        qint8 param2 = 0;     ///< Kept for the application.
        qint8 param3 = 0;     ///< Kept for the application.
    };

    /// Advanced values for another family of devices without a back end here; kept, streamed and compared.
    struct BUSLINKDESK_EXPORT SystecXM3AdvValues
    {
        qint8 flag = 0;     ///< Kept for the application.
        qint32 param0 = 0;  ///< Kept for the application.
        qint32 param1 = 0;  ///< Kept for the application.
        qint32 param2 = 0;  ///< Kept for the application.
        qint32 param3 = 0;  ///< Kept for the application.
        qint32 param4 = -1; ///< Kept for the application.
        qint32 param5 = 0;  ///< Kept for the application.
    };

    /// What a SocketCAN interface reports about itself.
    struct BUSLINKDESK_EXPORT SocketCANProps
    {
        /// Creates a classic interface with 500 and 2000 kbit/s that does not restart by itself.
        SocketCANProps();
        /// Takes the record out of a variant that holds or converts to one. A variant that converts
        /// to a 16-bit number stands for a nominal rate in kbit/s; `dbitrate` is 0 then. Of any other
        /// variant both rates are 0. Converts implicitly on purpose.
        SocketCANProps(QVariant value);

        bool isFd = false;       ///< The interface runs CAN FD.
        quint16 bitrate = 500;   ///< Nominal rate in kbit/s.
        quint16 dbitrate = 2000; ///< Data-phase rate in kbit/s.
        quint16 restartMs = 0;   ///< Restart time after bus off in ms.
    };

    /// Gives all options their defaults, starts the adapter's clock and registers the meta-types that
    /// options carry. The thread does not run.
    explicit AbstractCanAdapter(QObject *parent = nullptr);
    /// Releases the fields. The thread must have ended: see the life cycle of the class.
    ~AbstractCanAdapter() override;

    /// Prepares the transport and starts the adapter's thread.
    /// *Blocks:* until the transport is prepared, as each back end says.
    /// *Fails:* `CAN::RetError`; the thread was not started.
    virtual CAN::RetType open() = 0;
    /// Ends reception. `open()` may be called again once `QThread::wait()` has returned.
    virtual void closeAdapter() = 0;
    /// Sends a text command.
    /// *Fails:* `CAN::RetError` from every back end without text commands.
    virtual CAN::RetType write(QString command);
    /// Sends a text command and reports the number under which it went out.
    /// *Fails:* `CAN::RetError` from every back end without numbered commands; the number is not touched.
    virtual CAN::RetType write(QString command, short &number);
    /// Sets the nominal bit rate in kbit/s.
    /// *Fails:* `CAN::RetError` where a back end does not provide it.
    virtual CAN::RetType setBitrate(unsigned short bitrate);
    /// Sets the data-phase bit rate in kbit/s.
    /// *Fails:* `CAN::RetError` where a back end does not provide it.
    virtual CAN::RetType setFdBitrate(unsigned int bitrate);
    /// Sets the bit rate of a back end with rates above 16 bits.
    /// *Fails:* `CAN::RetError`; no back end provides it.
    virtual CAN::RetType setBitrate(unsigned int bitrate);
    /// Stores whether the adapter returns to the bus by itself after bus off.
    virtual void setAutoBusOn(bool enable);
    /// Resets the driver, where a back end can.
    virtual void resetDriver() = 0;
    /// Returns the state of the bus, `CAN::CanStateNone` from a back end that keeps none.
    virtual CAN::CanState getState() = 0;
    /// Ends reception before the adapter is destroyed.
    /// *Blocks:* 200 or 300 ms, until the receive loop can be expected to have noticed.
    virtual void prepareToTerminate() = 0;
    /// Returns feature bits of the driver, 0 where there are none.
    virtual unsigned int getCanFeatures();
    /// Starts cyclic transmission in the device.
    /// *Fails:* `CAN::RetError` where a back end does not provide it.
    virtual CAN::RetType startCyclic(unsigned char slot, unsigned short interval, CAN::CanMessage *pMessage);
    /// Stops cyclic transmission in the device.
    /// *Fails:* `CAN::RetError` where a back end does not provide it.
    virtual CAN::RetType stopCyclic(unsigned char slot);
    /// Gives a back end an option that only it knows.
    /// *Fails:* false from a back end without such options.
    virtual bool setSpecificCanAdapterOption(AdapterOption option, QVariant value);
    /// Asks a back end for an option that only it knows.
    /// *Kept on purpose:* the base answers false to `option_isCiA309` and true to everything else.
    virtual QVariant getSpecificCanAdapterOption(AdapterOption option) const;
    /// Sets whether transmitted frames are delivered back, and emits `echoChanged`, changed or not.
    virtual void setEcho(bool echo);
    /// Returns the field `mBitRate`.
    /// *Kept on purpose:* nothing writes that field, so this is 0; the rate is in `option_canBitrateDesc`.
    virtual unsigned short getBitRate();
    /// Reads timing settings back from the device.
    /// *Fails:* `CAN::RetError` where a back end does not provide it; the arguments are not touched.
    virtual CAN::RetType getBitrateSettings(bool &isFd, unsigned short &first, unsigned short &second);
    /// Returns the options that this back end has no use for. They are not restored from a stored form
    /// and not compared; setting and reading them works all the same.
    virtual QList<AdapterOption> getSkippedOptions() const;
    /// Returns the limits of the controller for the bit-timing calculator.
    /// *Kept on purpose:* the base returns the same limits for both phases.
    virtual CAN::CANBitTimingThresholds getTimingThresholds(bool dataPhase);

public Q_SLOTS:
    /// Accepts a frame for transmission. The adapter may change the frame that is handed over.
    /// *Thread:* any. *Fails:* the code of the back end.
    virtual CAN::RetType write(CAN::CanMessage *pMessage) = 0;

protected Q_SLOTS:
    /// Called when `setEcho` ran; for a back end that has to act on it. The base does nothing.
    virtual void echoModeChanged(bool echoEnabled);

public:
    /// Copies the frame and accepts the copy for transmission. *Thread:* any. *Fails:* as the back end's write.
    CAN::RetType write(CAN::CanMessage const &message);
    /// Returns whether the receive loop runs. *Thread:* any.
    bool getRunning() const;
    /// Returns the adapter's identifier, `option_uniqueId`.
    unsigned short getId();
    /// Returns whether the adapter takes part in the next connection, `option_activeAdapter`.
    bool isActiveAdapter();
    /// Returns whether the adapter is the primary one of its set, `option_primaryAdapter`.
    bool isPrimaryAdapter();
    /// Pauses a caller's polling loop.
    /// *Blocks:* 10 µs, or not at all with `option_disableSleep`.
    void hold();
    /// Forwards every frame that this adapter receives to `target`, instead of to the target before;
    /// null ends forwarding. Echoes are not forwarded, so two adapters may be linked to each other.
    /// *Thread:* the configuring one; forwarding runs on the thread that delivers.
    void setLinkedAdapter(QPointer<AbstractCanAdapter> target);
    /// Makes the connection to the linked adapter once more; nothing happens where it stands.
    void relink();

    /// Stores the value of an option.
    /// *Fails:* an invalid value changes nothing. A number is cut to the width of its field.
    /// *Kept on purpose:* the result is true for `option_CANFD`, `option_disableSleep` and
    /// `option_canLowSpeed`, the back end's own for specific options, and false for all others, stored
    /// or not.
    bool setCanAdapterOption(AdapterOption option, QVariant value);
    /// Returns the value of an option, invalid for one that can only be set and for numbers past the end.
    QVariant getCanAdapterOption(AdapterOption option) const;

    /// Returns the configuration in its stored form.
    QByteArray getValuesAsByteArray();
    /// Restores a configuration from its stored form, as far as the array is readable. Options that
    /// the back end skips and those behind the end of the array keep their values.
    /// *Kept on purpose:* the stored form carries no bit-rate descriptors; unless the back end skips
    /// `option_canfdBitrateDesc`, that one is reset, and restoring ends there.
    void setValuesFromByteArray(QByteArray data);
    /// Returns whether both adapters stand for the same configuration. Asymmetric: the left adapter's
    /// skipped options count.
    bool operator==(AbstractCanAdapter const &other);
    /// The same for two adapters that are not const, so that C++20 finds no second reading of `a == b`.
    bool operator==(AbstractCanAdapter &other) { return *this == std::as_const(other); }

    /// Returns the last timing values settled by `determineTimingParameters`, for the data phase or else
    /// the nominal phase.
    CAN::CANBitTimingParameter getBitTimings(bool dataPhase);
    /// Returns the rate and sample point (a fraction) that those timing values yield.
    CAN::CANBitrateDesc getCalculatedBitrate(bool dataPhase);
    /// Finds timing values for a bit rate: first with the sample point met exactly at the smallest
    /// prescaler, else with the nearest sample point that the limits allow. The rate is met exactly or
    /// not at all. `clock` in MHz, `bitrate` in kbit/s, `samplePoint` in percent.
    /// *Fails:* `ok` is false and the record has no meaning.
    /// *Kept on purpose:* `valid` of the result tells that the second way found it.
    static CAN::CANBitTimingParameter getTimingParameters(quint8 clock, quint16 bitrate, double samplePoint, bool &ok,
                                                          bool dataPhase, CAN::CANBitTimingThresholds thresholds);
    /// Finds timing values like `getTimingParameters` and keeps them for `getBitTimings` and
    /// `getCalculatedBitrate`.
    /// *Fails:* `ok` is false; the kept record keeps its numbers and is no longer `valid`.
    /// *Kept on purpose:* the calculated rate is made with the low 8 bits of the prescaler.
    CAN::CANBitTimingParameter determineTimingParameters(quint8 clock, quint16 bitrate, double samplePoint, bool &ok,
                                                         bool dataPhase, CAN::CANBitTimingThresholds thresholds);
    /// Judges the segments of `timing` against limits, or, with `closest`, moves the sample point to
    /// the place nearest to `wantedFraction` that the limits allow.
    /// *Fails:* false; nothing fits.
    static bool checkTimeQuantas(CAN::CANBitTimingParameter &timing, unsigned short tSeg1Max, unsigned short tSeg2Max,
                                 unsigned short tSeg2Min, bool closest, double wantedFraction, unsigned char clock);
    /// Returns the selectable classic rates (kbit/s, sample point in percent), or with `shortList` the
    /// nominal rates that go with CAN FD.
    static QList<CAN::CANBitrateDesc> getSupportedBitrates(bool shortList);
    /// Returns the selectable data-phase rates of CAN FD (kbit/s, sample point in percent).
    static QList<CAN::CANBitrateDesc> getSupportedFDBitrates();
    /// Returns rate (kbit/s, cut to 16 bits) and sample point (a fraction in single precision) of timing
    /// values; `clock` in MHz.
    /// *Kept on purpose:* the prescaler is 8 bits wide here. One of 0 gives the rate 0.
    static CAN::CANBitrateDesc getBitrateFromTimings(quint16 clock, quint8 prescaler, quint16 tSeg1, quint16 tSeg2);

Q_SIGNALS:
    /// A frame was received (on the adapter's thread) or echoed (on that or the writing thread). The
    /// record lives only as long as the call: connect directly and keep no pointer.
    void newCanMessage(CAN::CanRxMessage *message);
    /// The same frame, right afterwards, for receivers on other threads.
    void newCanMessageByValue(CAN::CanRxMessage message);
    /// The state of the bus changed. The stamp is a default one.
    void newCanState(CAN::CanState state, CanTimeStamp ts = CanTimeStamp());
    /// The transport failed.
    void interfaceError();
    /// Text arrived from a CiA 309-3 gateway.
    void newCiA309Response(QString response);
    /// A line was sent to a CiA 309-3 gateway.
    void newCiA309RequestSent(QString request);
    /// `setEcho` ran. Only the class itself emits it.
    void echoChanged(bool echo, QPrivateSignal);

protected:
    /// Delivers a received frame: stamps the adapter's id and emits `newCanMessage`, then
    /// `newCanMessageByValue`. Allocates nothing and takes no lock of its own.
    void handleNewCanMessage(CAN::CanRxMessage msg);
    /// Delivers the echo of a transmitted frame, stamped from the system's clock with `option_systemTime`.
    void handleNewTxCanMessage(CAN::CanRxMessage msg);
    /// Stamps a record with the local time of day, or with `option_continuousTimestamp` with the
    /// milliseconds since the midnight before the first adapter was made.
    void setSystemtimestampInCanMsg(CAN::CanRxMessage &msg);
    /// Returns the CAN FD DLC of the smallest frame that holds `length` bytes, 15 for all above 48.
    unsigned char len2dlc(unsigned char length);
    /// Returns the payload length of a CAN FD DLC; only the low four bits count.
    unsigned char dlcToBytesFD(unsigned char dlc);

    bool mForceEcho = false;                         ///< `option_forceEcho`.
    bool mEcho = true;                               ///< Whether transmitted frames are delivered back; `setEcho`.
    bool mListenOnly = false;                        ///< `option_listenOnly`.
    bool mDriverConfigFlag = false;                  ///< Handed to the can4linux driver; no option sets it.
    bool mCanFd = false;                             ///< `option_CANFD`.
    bool mCanLowSpeed = false;                       ///< `option_canLowSpeed`.
    bool mErrorFrames = false;                       ///< `option_errorFrames`.
    bool mSystemTime = false;                        ///< `option_systemTime`.
    bool mAutoBusOn = false;                         ///< `option_autoBusOn`, `setAutoBusOn`.
    bool mAllowSleep = true;                         ///< Inverse of `option_disableSleep`.
    bool mContinuousTimestamp = false;               ///< `option_continuousTimestamp`.
    bool mPrimaryAdapter = false;                    ///< `option_primaryAdapter`.
    bool mActiveAdapter = false;                     ///< `option_activeAdapter`.
    std::atomic<bool> mRunningFlag{false};           ///< The receive loop runs while it is set; written by exchange.
    unsigned short mBitRate = 0;                     ///< Read by `getBitRate`, written by nothing.
    unsigned short mUniqueId = 0;                    ///< `option_uniqueId`.
    unsigned int mBtrExt = 0;                        ///< `option_btrExt`.
    unsigned int mAdapterFeatures = 0;               ///< `option_adapterFeatures`.
    CAN::CANBitrateDesc mFdBitrateDesc;              ///< `option_canfdBitrateDesc`, `option_fdbitrate`.
    CAN::CANBitrateDesc mBitrateDesc;                ///< `option_canBitrateDesc`, `option_bitrate`.
    QString mAdapterName;                            ///< `option_adapterName`.
    QString mAdapterDeviceName;                      ///< `option_deviceName`.
    CanAdapterType mAdapterType = CanAdapterType(0); ///< `option_adapterType`.
    QString mIpAddress;                              ///< `option_ipAddress`.
    unsigned short mPortNumber = 45674;              ///< `option_portNumber`.
    unsigned int mConnectTimeout = 0;                ///< `option_connectTimeout`.
    unsigned int mDisconnectTimeout = 0;             ///< `option_disconnectTimeout`.
    unsigned int mReconnectTimeout = 0;              ///< `option_reconnectTimeout`.
    unsigned char mProtocol = 0;                     ///< `option_protocol`.
    unsigned char mInternExtern = 0;                 ///< `option_internExtern`.
    int mFlowControl = 0;                            ///< `option_flowControl`.
    int mParity = 0;                                 ///< `option_parity`, a code of `QSerialPort::Parity`.
    unsigned int mBaudrate = 0;                      ///< `option_baudrate`.
    int mDataBits = 8;                               ///< `option_databits`.
    int mStopBits = 1;                               ///< `option_stopbits`.
    bool mReset = false;                             ///< `option_Reset`.
    bool mHalfDuplex = false;                        ///< `option_halfDuplex`.
    QElapsedTimer mAdapterTimer;                     ///< Time base of the continuous stamp.
    PeakAdvValues mPeakAdvValues;                    ///< `option_peakAdvValues`.
    SystecXM3AdvValues mSystecXm3Values;             ///< `option_systecXm3Values`.
    CAN::CANClassicBusParameter mClassicBusParams;   ///< `option_canClassicBusParams`.
    CAN::CANFDBusParameter mFdBusParams;             ///< `option_canFDBusParams`.
    unsigned short mLinkedAdapterId = 0;             ///< `option_linkedAdapter`.
    QPointer<AbstractCanAdapter> mLinkedAdapter;     ///< Where received frames are forwarded; `setLinkedAdapter`.
    QString mDescription;                            ///< `option_description`.
    unsigned char mUsdoId = 65;                      ///< `option_usdoId`.
    CAN::CANBitTimingParameter mBitTimings;          ///< Last settled timing of the nominal phase.
    CAN::CANBitTimingParameter mFdBitTimings;        ///< Last settled timing of the data phase.
    CAN::CANBitrateDesc mCalculatedBitrate;          ///< What `mBitTimings` yields.
    CAN::CANBitrateDesc mCalculatedFdBitrate;        ///< What `mFdBitTimings` yields.
    CanTimeStamp mLastTimeStamp;                     ///< Stamp of the last delivered frame.

    static unsigned int mStartTime; ///< Milliseconds from midnight to the first construction in the process.

private Q_SLOTS:
    void writeLinkedMessage(CAN::CanRxMessage *pRxMsg);

private:
    struct Q_DECL_HIDDEN OptionTable;

    Q_DECL_HIDDEN void deliver(CAN::CanRxMessage &msg);
    Q_DECL_HIDDEN bool sameComparedOptions(const AbstractCanAdapter &other) const;
    Q_DECL_HIDDEN bool sameTypeSpecificSettings(const AbstractCanAdapter &other) const;
};

/// Writes the 9 bytes of the record.
BUSLINKDESK_EXPORT QDataStream &operator<<(QDataStream &stream, const AbstractCanAdapter::PeakAdvValues &values);
/// Reads the 9 bytes of the record.
BUSLINKDESK_EXPORT QDataStream &operator>>(QDataStream &stream, AbstractCanAdapter::PeakAdvValues &values);
/// Writes the 25 bytes of the record.
BUSLINKDESK_EXPORT QDataStream &operator<<(QDataStream &stream, const AbstractCanAdapter::SystecXM3AdvValues &values);
/// Reads the 25 bytes of the record.
BUSLINKDESK_EXPORT QDataStream &operator>>(QDataStream &stream, AbstractCanAdapter::SystecXM3AdvValues &values);

Q_DECLARE_METATYPE(AbstractCanAdapter::PeakAdvValues)
Q_DECLARE_METATYPE(AbstractCanAdapter::SystecXM3AdvValues)
Q_DECLARE_METATYPE(AbstractCanAdapter::SocketCANProps)
