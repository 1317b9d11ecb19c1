// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <BusLinkDesk/adapter/option_meta_types_p.h>
#include <BusLinkDesk/adapter/payload_length_p.h>
#include <BusLinkDesk/adapter/relaxed_p.h>
#include <BusLinkDesk/adapter/system_time_stamp_p.h>

#include <QtCore/QTime>

using buslink::relaxedLoad;
using buslink::relaxedStore;

namespace {

// Marks a frame that is delivered but never forwarded to a linked adapter; no valid CAN identifier.
constexpr quint32 LinkFilteredCanId = 0xFFFF00EF;

} // namespace

unsigned int AbstractCanAdapter::mStartTime = 0;

AbstractCanAdapter::AbstractCanAdapter(QObject *parent) : QThread(parent)
{
    // Adapters may be made on several threads. Where two come first at once, either time will do.
    if (relaxedLoad(mStartTime) == 0)
        relaxedStore(mStartTime, static_cast<unsigned int>(QTime::currentTime().msecsSinceStartOfDay()));
    mAdapterTimer.start();
    connect(this, &AbstractCanAdapter::echoChanged, this, &AbstractCanAdapter::echoModeChanged);
    buslink::registerOptionMetaTypes();
}

AbstractCanAdapter::~AbstractCanAdapter() = default;

CAN::RetType AbstractCanAdapter::write(QString)
{
    return CAN::RetError;
}

CAN::RetType AbstractCanAdapter::write(QString, short &)
{
    return CAN::RetError;
}

CAN::RetType AbstractCanAdapter::setBitrate(unsigned short)
{
    return CAN::RetError;
}

CAN::RetType AbstractCanAdapter::setFdBitrate(unsigned int)
{
    return CAN::RetError;
}

CAN::RetType AbstractCanAdapter::setBitrate(unsigned int)
{
    return CAN::RetError;
}

void AbstractCanAdapter::setAutoBusOn(bool enable)
{
    relaxedStore(mAutoBusOn, enable);
}

unsigned int AbstractCanAdapter::getCanFeatures()
{
    return 0;
}

CAN::RetType AbstractCanAdapter::startCyclic(unsigned char, unsigned short, CAN::CanMessage *)
{
    return CAN::RetError;
}

CAN::RetType AbstractCanAdapter::stopCyclic(unsigned char)
{
    return CAN::RetError;
}

bool AbstractCanAdapter::setSpecificCanAdapterOption(AdapterOption, QVariant)
{
    return false;
}

QVariant AbstractCanAdapter::getSpecificCanAdapterOption(AdapterOption option) const
{
    return option != option_isCiA309;
}

void AbstractCanAdapter::setEcho(bool echo)
{
    relaxedStore(mEcho, echo);
    Q_EMIT echoChanged(echo, QPrivateSignal());
}

unsigned short AbstractCanAdapter::getBitRate()
{
    return mBitRate;
}

CAN::RetType AbstractCanAdapter::getBitrateSettings(bool &, unsigned short &, unsigned short &)
{
    return CAN::RetError;
}

QList<AbstractCanAdapter::AdapterOption> AbstractCanAdapter::getSkippedOptions() const
{
    return {};
}

CAN::CANBitTimingThresholds AbstractCanAdapter::getTimingThresholds(bool)
{
    return {};
}

void AbstractCanAdapter::echoModeChanged(bool) {}

CAN::RetType AbstractCanAdapter::write(CAN::CanMessage const &message)
{
    CAN::CanMessage copy = message;
    return write(&copy);
}

bool AbstractCanAdapter::getRunning() const
{
    return mRunningFlag.load();
}

unsigned short AbstractCanAdapter::getId()
{
    return relaxedLoad(mUniqueId);
}

bool AbstractCanAdapter::isActiveAdapter()
{
    return relaxedLoad(mActiveAdapter);
}

bool AbstractCanAdapter::isPrimaryAdapter()
{
    return relaxedLoad(mPrimaryAdapter);
}

void AbstractCanAdapter::hold()
{
    if (relaxedLoad(mAllowSleep))
        QThread::usleep(10);
}

void AbstractCanAdapter::setLinkedAdapter(QPointer<AbstractCanAdapter> target)
{
    if (mLinkedAdapter)
        QObject::disconnect(this, nullptr, mLinkedAdapter, nullptr);
    mLinkedAdapter = target;
    relink();
}

void AbstractCanAdapter::relink()
{
    if (!mLinkedAdapter)
        return;
    connect(this, &AbstractCanAdapter::newCanMessage, mLinkedAdapter.data(), &AbstractCanAdapter::writeLinkedMessage,
            static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection));
}

void AbstractCanAdapter::writeLinkedMessage(CAN::CanRxMessage *pRxMsg)
{
    if (pRxMsg->isTx || pRxMsg->message.id == LinkFilteredCanId)
        return;
    CAN::CanMessage copy = pRxMsg->message;
    write(&copy);
}

void AbstractCanAdapter::handleNewCanMessage(CAN::CanRxMessage msg)
{
    deliver(msg);
}

void AbstractCanAdapter::handleNewTxCanMessage(CAN::CanRxMessage msg)
{
    msg.isTx = true;
    if (relaxedLoad(mSystemTime))
        setSystemtimestampInCanMsg(msg);
    deliver(msg);
}

void AbstractCanAdapter::deliver(CAN::CanRxMessage &msg)
{
    msg.adapterId = relaxedLoad(mUniqueId);
    // The receive loop and threads that echo from a write may both be here.
    relaxedStore(mLastTimeStamp.seconds, msg.timeStamp.seconds);
    relaxedStore(mLastTimeStamp.microseconds, msg.timeStamp.microseconds);
    Q_EMIT newCanMessage(&msg);
    Q_EMIT newCanMessageByValue(msg);
}

void AbstractCanAdapter::setSystemtimestampInCanMsg(CAN::CanRxMessage &msg)
{
    if (relaxedLoad(mContinuousTimestamp)) {
        const auto total = static_cast<quint32>(mAdapterTimer.elapsed()) + relaxedLoad(mStartTime);
        msg.timeStamp = buslink::timeStampFromMilliseconds(static_cast<qint32>(total));
    } else {
        msg.timeStamp = buslink::timeStampOfLocalTime();
    }
}

unsigned char AbstractCanAdapter::len2dlc(unsigned char length)
{
    return buslink::fdDlcOfLength(length);
}

unsigned char AbstractCanAdapter::dlcToBytesFD(unsigned char dlc)
{
    return buslink::fdLengthOfDlc(dlc);
}
