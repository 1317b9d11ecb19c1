// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <BusLinkDesk/adapter/relaxed_p.h>

#include <array>
#include <type_traits>

// One row an option, in the order of the numbers: which field, how it reads, how it is set, and what
// setting returns.
struct AbstractCanAdapter::OptionTable
{
    using A = AbstractCanAdapter;

    enum class Result { False, True, BackEnd };

    struct Row
    {
        AdapterOption option;
        QVariant (*read)(const A &);
        void (*set)(A &, const QVariant &);
        Result result;
    };

    template <auto Field>
    using FieldType = std::remove_cvref_t<decltype(std::declval<A>().*Field)>;

    template <auto Field, typename As = FieldType<Field>>
    static QVariant read(const A &adapter)
    {
        if constexpr (std::is_scalar_v<FieldType<Field>>)
            return QVariant::fromValue(static_cast<As>(buslink::relaxedLoad(adapter.*Field)));
        else
            return QVariant::fromValue(adapter.*Field);
    }

    static QVariant writeOnly(const A &) { return {}; }

    static QVariant askBackEnd(const A &adapter) { return adapter.getSpecificCanAdapterOption(option_isCiA309); }

    template <auto Field>
    static void setFlag(A &adapter, const QVariant &value)
    {
        buslink::relaxedStore(adapter.*Field, value.toBool());
    }

    // Cuts the number to the field's width; there is no range check.
    template <auto Field>
    static void setNumber(A &adapter, const QVariant &value)
    {
        buslink::relaxedStore(adapter.*Field, static_cast<FieldType<Field>>(value.toUInt()));
    }

    // A flag that is set from a number; a text that is no number counts as 0.
    template <auto Field>
    static void setNumberAsFlag(A &adapter, const QVariant &value)
    {
        buslink::relaxedStore(adapter.*Field, value.toUInt() != 0);
    }

    template <auto Field>
    static void setText(A &adapter, const QVariant &value)
    {
        adapter.*Field = value.toString();
    }

    // A value that could be converted but fails to do so clears the field.
    template <auto Field>
    static void setRecord(A &adapter, const QVariant &value)
    {
        using Record = FieldType<Field>;
        if (value.canConvert<Record>())
            adapter.*Field = value.value<Record>();
    }

    template <auto Field>
    static void setRate(A &adapter, const QVariant &value)
    {
        const auto rate = static_cast<quint16>(value.toUInt());
        CAN::CANBitrateDesc description;
        description.label = QStringLiteral("%1 kbit/s").arg(rate, 0, 10, QLatin1Char(' '));
        description.bitrate = rate;
        adapter.*Field = description;
    }

    template <auto Field, auto RateOfInterface>
    static void setDescriptor(A &adapter, const QVariant &value)
    {
        if (value.userType() == qMetaTypeId<CAN::CANBitrateDesc>())
            adapter.*Field = CAN::CANBitrateDesc(value);
        else if (value.userType() == qMetaTypeId<SocketCANProps>())
            (adapter.*Field).bitrate = SocketCANProps(value).*RateOfInterface;
    }

    static void setDisableSleep(A &adapter, const QVariant &value)
    {
        const bool disable = value.toBool();
        buslink::relaxedStore(adapter.mAllowSleep, !disable);
        if (adapter.isRunning())
            adapter.setPriority(disable ? QThread::TimeCriticalPriority : QThread::NormalPriority);
    }

    // Takes 0, 1, 2 and stores the codes of QSerialPort::Parity.
    static void setParity(A &adapter, const QVariant &value)
    {
        constexpr std::array<int, 3> codes{0, 2, 3};
        const uint choice = value.toUInt();
        if (choice < codes.size())
            buslink::relaxedStore(adapter.mParity, codes[choice]);
    }

    static constexpr auto backEnd = nullptr;

    static const std::array<Row, option_lastEnum> rows;

    static const Row *find(AdapterOption option)
    {
        return option >= 0 && option < option_lastEnum ? &rows[static_cast<std::size_t>(option)] : nullptr;
    }
};

// clang-format off
const std::array<AbstractCanAdapter::OptionTable::Row, AbstractCanAdapter::option_lastEnum>
    AbstractCanAdapter::OptionTable::rows{{
    {option_CANFD,               read<&A::mCanFd>,                    setFlag<&A::mCanFd>,                   Result::True},
    {option_adapterType,         read<&A::mAdapterType, int>,         setNumber<&A::mAdapterType>,           Result::False},
    {option_adapterName,         read<&A::mAdapterName>,              setText<&A::mAdapterName>,             Result::False},
    {option_deviceName,          read<&A::mAdapterDeviceName>,        setText<&A::mAdapterDeviceName>,       Result::False},
    {option_adapterFeatures,     read<&A::mAdapterFeatures>,          setNumber<&A::mAdapterFeatures>,       Result::False},
    {option_ipAddress,           read<&A::mIpAddress>,                setText<&A::mIpAddress>,               Result::False},
    {option_portNumber,          read<&A::mPortNumber, int>,          setNumber<&A::mPortNumber>,            Result::False},
    {option_toggleComPort,       writeOnly,                           backEnd,                               Result::BackEnd},
    {option_flowControl,         read<&A::mFlowControl>,              setFlag<&A::mFlowControl>,             Result::False},
    {option_baudrate,            read<&A::mBaudrate>,                 setNumber<&A::mBaudrate>,              Result::False},
    {option_parity,              read<&A::mParity>,                   setParity,                             Result::False},
    {option_databits,            read<&A::mDataBits>,                 setNumber<&A::mDataBits>,              Result::False},
    {option_stopbits,            read<&A::mStopBits>,                 setNumber<&A::mStopBits>,              Result::False},
    {option_internExtern,        read<&A::mInternExtern, int>,        setNumber<&A::mInternExtern>,          Result::False},
    {option_reconnectTimeout,    read<&A::mReconnectTimeout>,         setNumber<&A::mReconnectTimeout>,      Result::False},
    {option_connectTimeout,      read<&A::mConnectTimeout>,           setNumber<&A::mConnectTimeout>,        Result::False},
    {option_disconnectTimeout,   read<&A::mDisconnectTimeout>,        setNumber<&A::mDisconnectTimeout>,     Result::False},
    {option_protocol,            read<&A::mProtocol, int>,            setNumber<&A::mProtocol>,              Result::False},
    {option_disableSleep,        writeOnly,                           setDisableSleep,                       Result::True},
    {option_toggleDTR,           writeOnly,                           backEnd,                               Result::BackEnd},
    {option_toggleRTS,           writeOnly,                           backEnd,                               Result::BackEnd},
    {option_peakAdvValues,       read<&A::mPeakAdvValues>,            setRecord<&A::mPeakAdvValues>,         Result::False},
    {option_Reset,               read<&A::mReset>,                    setFlag<&A::mReset>,                   Result::False},
    {option_halfDuplex,          read<&A::mHalfDuplex>,               setFlag<&A::mHalfDuplex>,              Result::False},
    {option_canLowSpeed,         read<&A::mCanLowSpeed>,              setFlag<&A::mCanLowSpeed>,             Result::True},
    {option_isCiA309,            askBackEnd,                          backEnd,                               Result::BackEnd},
    {option_autoBusOn,           read<&A::mAutoBusOn>,                setNumberAsFlag<&A::mAutoBusOn>,       Result::False},
    {option_errorFrames,         read<&A::mErrorFrames>,              setFlag<&A::mErrorFrames>,             Result::False},
    {option_continuousTimestamp, read<&A::mContinuousTimestamp>,      setFlag<&A::mContinuousTimestamp>,     Result::False},
    {option_systemTime,          read<&A::mSystemTime>,               setFlag<&A::mSystemTime>,              Result::False},
    {option_uniqueId,            read<&A::mUniqueId, int>,            setNumber<&A::mUniqueId>,              Result::False},
    {option_bitrate,             writeOnly,                           setRate<&A::mBitrateDesc>,             Result::False},
    {option_fdbitrate,           writeOnly,                           setRate<&A::mFdBitrateDesc>,           Result::False},
    {option_listenOnly,          read<&A::mListenOnly>,               setNumberAsFlag<&A::mListenOnly>,      Result::False},
    {option_activeAdapter,       read<&A::mActiveAdapter>,            setFlag<&A::mActiveAdapter>,           Result::False},
    {option_primaryAdapter,      read<&A::mPrimaryAdapter>,           setFlag<&A::mPrimaryAdapter>,          Result::False},
    {option_btrExt,              read<&A::mBtrExt>,                   setNumber<&A::mBtrExt>,                Result::False},
    {option_description,         read<&A::mDescription>,              setText<&A::mDescription>,             Result::False},
    {option_usdoId,              read<&A::mUsdoId, int>,              setNumber<&A::mUsdoId>,                Result::False},
    {option_systecXm3Values,     read<&A::mSystecXm3Values>,          setRecord<&A::mSystecXm3Values>,       Result::False},
    {option_linkedAdapter,       read<&A::mLinkedAdapterId, int>,     setNumber<&A::mLinkedAdapterId>,       Result::False},
    {option_canClassicBusParams, read<&A::mClassicBusParams>,         setRecord<&A::mClassicBusParams>,      Result::False},
    {option_canFDBusParams,      read<&A::mFdBusParams>,              setRecord<&A::mFdBusParams>,           Result::False},
    {option_canfdBitrateDesc,    read<&A::mFdBitrateDesc>,            setDescriptor<&A::mFdBitrateDesc, &SocketCANProps::dbitrate>, Result::False},
    {option_canBitrateDesc,      read<&A::mBitrateDesc>,              setDescriptor<&A::mBitrateDesc, &SocketCANProps::bitrate>,    Result::False},
    {option_forceEcho,           read<&A::mForceEcho>,                setFlag<&A::mForceEcho>,               Result::False},
}};
// clang-format on

bool AbstractCanAdapter::setCanAdapterOption(AdapterOption option, QVariant value)
{
    if (!value.isValid())
        return false;
    const OptionTable::Row *row = OptionTable::find(option);
    if (!row || row->result == OptionTable::Result::BackEnd)
        return setSpecificCanAdapterOption(option, value);
    row->set(*this, value);
    return row->result == OptionTable::Result::True;
}

QVariant AbstractCanAdapter::getCanAdapterOption(AdapterOption option) const
{
    const OptionTable::Row *row = OptionTable::find(option);
    return row ? row->read(*this) : QVariant();
}

AbstractCanAdapter::SocketCANProps::SocketCANProps() = default;

AbstractCanAdapter::SocketCANProps::SocketCANProps(QVariant value) : bitrate(0), dbitrate(0)
{
    if (value.canConvert<SocketCANProps>())
        *this = value.value<SocketCANProps>();
    else if (value.canConvert(QMetaType::UShort))
        bitrate = static_cast<quint16>(value.toUInt());
}
