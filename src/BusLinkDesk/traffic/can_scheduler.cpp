// SPDX-License-Identifier: MIT
#include <BusLinkDesk/traffic/can_scheduler.h>

#include <QtCore/QDebug>
#include <QtCore/QMutexLocker>

namespace {

// A registration must not hold up the adapter's thread for longer than this.
constexpr int DispatchLockTimeoutMs = 2;

} // namespace

CanSender::CanSender(unsigned int canId) : mCanId(canId) {}

CanSender::~CanSender() = default;

CanScheduler::CanScheduler(AbstractCanAdapter *adapter) : mAdapter(adapter) {}

CanScheduler::~CanScheduler()
{
    qDeleteAll(mSenders.values());
}

void CanScheduler::connectToAdapter(bool connectIt)
{
    if (connectIt) {
        // Directly, since the record lives only as long as the emission.
        connect(mAdapter, &AbstractCanAdapter::newCanMessage, this, &CanScheduler::newRawCanMessage,
                Qt::DirectConnection);
        return;
    }
    QObject::disconnect(mAdapter, nullptr, this, nullptr);
    QObject::disconnect(this, nullptr, this, SLOT(newRawCanMessage(CAN::CanRxMessage *)));
}

AbstractCanAdapter *CanScheduler::canAdapter() const
{
    return mAdapter;
}

QPointer<CanSender> CanScheduler::registerCanId(unsigned int canId)
{
    const auto known = mSenders.constFind(canId);
    if (known != mSenders.constEnd())
        return known.value();
    auto *sender = new CanSender(canId);
    const QMutexLocker lock(&mSendersMutex);
    mSenders.insert(canId, sender);
    return sender;
}

QList<QPointer<CanSender>> CanScheduler::registerCanIdRange(unsigned int first, unsigned int last)
{
    QList<QPointer<CanSender>> senders;
    if (last < first)
        return senders;
    const QMutexLocker lock(&mSendersMutex);
    for (unsigned int canId = first; canId <= last; ++canId) {
        CanSender *&sender = mSenders[canId];
        if (!sender)
            sender = new CanSender(canId);
        senders.append(sender);
    }
    return senders;
}

void CanScheduler::unregisterCan(QPointer<CanSender> sender, QObject *receiver)
{
    if (!sender) {
        qDebug() << "Invalid CANSender should be disconnect, check, were this comes from";
        return;
    }
    QObject::disconnect(sender, nullptr, receiver, nullptr);
}

void CanScheduler::newRawCanMessage(CAN::CanRxMessage *pMessage)
{
    if (!mSendersMutex.tryLock(DispatchLockTimeoutMs)) {
        qDebug() << "void CanScheduler::newRawCanMessage(CAN::CanRxMessage*)"
                 << "1: Message Lost" << pMessage->message.id;
        return;
    }
    const auto sender = mSenders.constFind(pMessage->message.id);
    if (sender != mSenders.constEnd())
        Q_EMIT sender.value()->received(*pMessage);
    mSendersMutex.unlock();
}
