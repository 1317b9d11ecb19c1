// SPDX-License-Identifier: MIT
#include "busplay/player.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

namespace buslink {

namespace {

// A full transmit buffer empties at the speed of the bus.
constexpr qint64 RetryPauseUs = 1000;

} // namespace

Player::Player(LineSource *source, Settings settings) : mSource(source), mSettings(settings)
{
    mEchoTimer.setSingleShot(true);
    connect(&mEchoTimer, &QTimer::timeout, this, [this] { echoesAreLate(); });
    connect(&mTimer, &DeadlineTimer::expired, this, [this] { proceed(); });
    connect(mSource, &LineSource::ready, this, [this] { proceed(); });
}

void Player::setAdapter(AbstractCanAdapter *adapter)
{
    mAdapter = adapter;
    mAdapter->setEcho(true);
    connect(
        mAdapter, &AbstractCanAdapter::newCanMessage, this,
        [this](CAN::CanRxMessage *message) {
            if (message->isTx)
                echoArrived();
        },
        Qt::DirectConnection);
}

void Player::start()
{
    proceed();
}

void Player::interrupt()
{
    mEnding = true;
    mFrame.reset();
    mTimer.stop();
    finishWhenAllHaveLeft();
}

void Player::transportFailed()
{
    if (mFinished)
        return;
    if (mError.isEmpty())
        mError = QStringLiteral("the transport of the adapter failed");
    finish();
}

void Player::proceed()
{
    while (!mEnding && outstanding() < Window && takeFrame() && frameIsDue() && writeFrame()) {
    }
    watchEchoes();
    finishWhenAllHaveLeft();
}

bool Player::takeFrame()
{
    if (mFrame)
        return true;
    LogFrame frame;
    switch (mSource->take(frame)) {
    case LineSource::Next::Frame:
        mFrameDueUs = mSchedule.nextDueUs(frame.timeUs);
        mFrame = frame;
        return true;
    case LineSource::Next::Wait:
        return false;
    case LineSource::Next::Error:
        fail(mSource->error());
        return false;
    case LineSource::Next::End:
        break;
    }
    mEnding = true;
    return false;
}

bool Player::frameIsDue()
{
    const qint64 now = monotonicUs();
    if (!mStartUs)
        mStartUs = now;
    if (mSettings.fast || now - *mStartUs >= mFrameDueUs)
        return true;
    mTimer.startAt(*mStartUs + mFrameDueUs);
    return false;
}

bool Player::writeFrame()
{
    CAN::CanMessage message = mFrame->message;
    const CAN::RetType result = mAdapter->write(&message);
    if (result == CAN::RetOk) {
        ++mAccepted;
        mFrame.reset();
    } else if (result == CAN::RetTxBufferFull) {
        mTimer.startAt(monotonicUs() + RetryPauseUs);
    } else {
        fail(QStringLiteral("the adapter refused a frame (result %1)").arg(result));
    }
    return result == CAN::RetOk;
}

void Player::fail(const QString &error)
{
    mError = error;
    mEnding = true;
    mFrame.reset();
}

// Runs on the adapter's thread.
void Player::echoArrived()
{
    ++mEchoes;
    // One event for all the echoes until it is handled.
    if (!mEchoNoticed.exchange(true))
        QMetaObject::invokeMethod(
            this,
            [this] {
                mEchoNoticed = false;
                proceed();
            },
            Qt::QueuedConnection);
}

void Player::watchEchoes()
{
    const qint64 echoes = mEchoes.load();
    if (mAccepted == echoes)
        mEchoTimer.stop();
    else if (!mEchoTimer.isActive() || echoes != mEchoesSeen)
        mEchoTimer.start(mSettings.echoTimeoutMs);
    mEchoesSeen = echoes;
}

void Player::echoesAreLate()
{
    // After a long sleep of the whole process the timer comes before the echoes that did arrive.
    if (mEchoes.load() != mEchoesSeen) {
        proceed();
        return;
    }
    fail(QStringLiteral("no sign that a frame was sent for %1 ms").arg(mSettings.echoTimeoutMs));
    finish();
}

void Player::finishWhenAllHaveLeft()
{
    if (!mFinished && mEnding && outstanding() == 0)
        finish();
}

void Player::finish()
{
    mFinished = true;
    mEnding = true;
    mTimer.stop();
    mEchoTimer.stop();
    Q_EMIT finished();
}

} // namespace buslink
