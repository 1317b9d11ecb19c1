// SPDX-License-Identifier: MIT
#include "common/echo_counter.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <utility>

namespace buslink {

EchoCounter::EchoCounter(int timeoutMs)
{
    mWatch.setInterval(timeoutMs);
    connect(&mWatch, &QTimer::timeout, this, [this] { checkProgress(); });
}

void EchoCounter::setAdapter(AbstractCanAdapter *adapter)
{
    adapter->setEcho(true);
    connect(
        adapter, &AbstractCanAdapter::newCanMessage, this,
        [this](CAN::CanRxMessage *message) {
            if (message->isTx)
                echoArrived();
        },
        Qt::DirectConnection);
    mWatch.start();
}

QString EchoCounter::lateText() const
{
    return QStringLiteral("no sign that a frame was sent for %1 ms").arg(mWatch.interval());
}

// Runs on the adapter's thread.
void EchoCounter::echoArrived()
{
    ++mEchoes;
    if (!mNoticed.exchange(true))
        QMetaObject::invokeMethod(
            this,
            [this] {
                mNoticed = false;
                Q_EMIT arrived();
            },
            Qt::QueuedConnection);
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
