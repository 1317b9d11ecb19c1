// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <BusLinkDesk/adapter/stored_value_p.h>

#include <QtCore/QDataStream>
#include <QtCore/QIODevice>

namespace {

constexpr int StoredFormVersion = QDataStream::Qt_5_12;
static_assert(StoredFormVersion == 18);

// Type numbers without a name here that bring settings of their own into the comparison.
constexpr qint32 TypeSerialFamily = 13;
constexpr qint32 TypePeakFamily = 16;
constexpr qint32 TypeSystecFamily = 21;

// Equality as stored configurations know it: the timing's prescaler and validity and the flags do not count.
bool sameFdBusParameters(const CAN::CANFDBusParameter &a, const CAN::CANFDBusParameter &b)
{
    return a.busValue == b.busValue && a.timing.tSeg1 == b.timing.tSeg1 && a.timing.tSeg2 == b.timing.tSeg2
           && a.busText == b.busText && a.busOffset == b.busOffset && a.timing.sjw == b.timing.sjw;
}

bool sameClassicBusParameters(const CAN::CANClassicBusParameter &a, const CAN::CANClassicBusParameter &b)
{
    return a.busValue == b.busValue && a.timing.tSeg1 == b.timing.tSeg1 && a.timing.tSeg2 == b.timing.tSeg2
           && a.busText == b.busText && a.busRatio == b.busRatio && a.timing.sjw == b.timing.sjw;
}

bool samePeakValues(const AbstractCanAdapter::PeakAdvValues &a, const AbstractCanAdapter::PeakAdvValues &b)
{
    if (a.enabled != b.enabled)
        return false;
    return !a.enabled
           || (a.value == b.value && a.param0 == b.param0 && a.param1 == b.param1 && a.param2 == b.param2
               && a.param3 == b.param3);
}

bool sameSystecValues(const AbstractCanAdapter::SystecXM3AdvValues &a, const AbstractCanAdapter::SystecXM3AdvValues &b)
{
    return a.flag == b.flag && a.param0 == b.param0 && a.param1 == b.param1 && a.param2 == b.param2
           && a.param3 == b.param3 && a.param4 == b.param4 && a.param5 == b.param5;
}

} // namespace

QByteArray AbstractCanAdapter::getValuesAsByteArray()
{
    QByteArray data;
    QDataStream stream(&data, QIODevice::WriteOnly);
    stream.setVersion(StoredFormVersion);
    for (int number = 0; number < option_lastEnum; ++number)
        stream << getCanAdapterOption(static_cast<AdapterOption>(number));
    return data;
}

void AbstractCanAdapter::setValuesFromByteArray(QByteArray data)
{
    // A stored descriptor ends the restoring only if its type name is known, so that has to be so from
    // the first call in a process on.
    qRegisterMetaType<CAN::CANBitrateDesc>();
    QDataStream stream(data);
    stream.setVersion(StoredFormVersion);
    for (int number = 0; number < option_lastEnum; ++number) {
        if (stream.atEnd() || stream.status() != QDataStream::Ok)
            return;
        const QVariant value = buslink::readStoredValue(stream);
        const auto option = static_cast<AdapterOption>(number);
        if (!getSkippedOptions().contains(option))
            setCanAdapterOption(option, value);
    }
}

bool AbstractCanAdapter::operator==(AbstractCanAdapter const &other)
{
    if (mAdapterType == CanAdapterTypeSocketCan && other.mAdapterType == CanAdapterTypeSocketCan) {
        return mAdapterName == other.mAdapterName && mContinuousTimestamp == other.mContinuousTimestamp
               && mCanFd == other.mCanFd && mSystemTime == other.mSystemTime;
    }
    // Device names count only where both adapters have one.
    const bool sameDevice = mAdapterDeviceName.isEmpty() || other.mAdapterDeviceName.isEmpty()
                            || mAdapterDeviceName == other.mAdapterDeviceName;
    return sameComparedOptions(other) && sameFdBusParameters(mFdBusParams, other.mFdBusParams)
           && sameClassicBusParameters(mClassicBusParams, other.mClassicBusParams) && sameTypeSpecificSettings(other)
           && sameDevice;
}

bool AbstractCanAdapter::sameComparedOptions(const AbstractCanAdapter &other) const
{
    const QList<AdapterOption> ignored =
        getSkippedOptions()
        + QList<AdapterOption>{
            option_uniqueId,        option_activeAdapter,  option_primaryAdapter,      option_peakAdvValues,
            option_systecXm3Values, option_deviceName,     option_canClassicBusParams, option_canFDBusParams,
            option_forceEcho,       option_adapterFeatures};
    for (int number = 0; number < option_lastEnum; ++number) {
        const auto option = static_cast<AdapterOption>(number);
        if (ignored.contains(option) || (option == option_canfdBitrateDesc && !mCanFd && !other.mCanFd))
            continue;
        const QVariant mine = getCanAdapterOption(option);
        const QVariant theirs = other.getCanAdapterOption(option);
        if (mine.isValid() && theirs.isValid() && mine != theirs)
            return false;
    }
    return true;
}

bool AbstractCanAdapter::sameTypeSpecificSettings(const AbstractCanAdapter &other) const
{
    switch (static_cast<qint32>(mAdapterType)) {
    case TypeSerialFamily:
    case CanAdapterTypeUsb:
        return mInternExtern == other.mInternExtern && mFlowControl == other.mFlowControl && mParity == other.mParity
               && mBaudrate == other.mBaudrate && mDataBits == other.mDataBits && mStopBits == other.mStopBits
               && mReset == other.mReset && mHalfDuplex == other.mHalfDuplex;
    case TypePeakFamily:
        return samePeakValues(mPeakAdvValues, other.mPeakAdvValues);
    case TypeSystecFamily:
        return sameSystecValues(mSystecXm3Values, other.mSystecXm3Values);
    default:
        return true;
    }
}
