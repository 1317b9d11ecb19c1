// SPDX-License-Identifier: MIT
#include "common/echo_counter.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <utility>

namespace buslink {

EchoCounter::EchoCounter(int timeoutMs)
{
    mWatch.setInterval(timeoutMs);
    connect(&mWatch, &QTimer::timeout, this, [this] { checkProgress(); });
    mLineWatch.setSingleShot(true);
    mLineWatch.setInterval(SerialLine::AskAgain);
    connect(&mLineWatch, &QTimer::timeout, this, [this] { tell(); });
}

void EchoCounter::setAdapter(AbstractCanAdapter *adapter)
{
    adapter->setEcho(true);
    mLine.setAdapter(*adapter);
    connect(
        adapter, &AbstractCanAdapter::newCanMessage, this,
        [this](CAN::CanRxMessage *message) {
            if (message->isTx)
                echoArrived(message->message);
        },
        Qt::DirectConnection);
    mWatch.start();
}

QString EchoCounter::lateText() const
{
    return QStringLiteral("no sign that a frame was sent for %1 ms").arg(mWatch.interval());
}

void EchoCounter::stop()
{
    mWatch.stop();
    mLineWatch.stop();
}

// Runs on the adapter's thread.
void EchoCounter::echoArrived(const CAN::CanMessage &frame)
{
    mLine.frameQueued(frame);
    ++mEchoes;
    if (!mNoticed.exchange(true))
        QMetaObject::invokeMethod(
            this, [this] { tell(); }, Qt::QueuedConnection);
}

void EchoCounter::tell()
{
    mNoticed = false;
    Q_EMIT arrived();
    if (mWatch.isActive() && !mLine.isFree())
        mLineWatch.start();
}

// A frame that was accepted since the check before has not had the whole time yet.
void EchoCounter::checkProgress()
{
    const qint64 echoes = sentFrames();
    const qint64 echoesBefore = std::exchange(mEchoesBefore, echoes);
    const qint64 acceptedBefore = std::exchange(mAcceptedBefore, acceptedFrames());
    if (echoes == echoesBefore && echoes < acceptedBefore)
        Q_EMIT late();
}

} // namespace buslink
