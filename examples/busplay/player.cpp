// SPDX-License-Identifier: MIT
#include "busplay/player.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

namespace buslink {

Player::Player(LineSource *source, Settings settings)
    : mSource(source), mSettings(settings), mEchoes(settings.echoTimeoutMs)
{
    connect(&mEchoes, &EchoCounter::arrived, this, [this] { proceed(); });
    connect(&mEchoes, &EchoCounter::late, this, [this] { echoesAreLate(); });
    connect(&mTimer, &DeadlineTimer::expired, this, [this] { proceed(); });
    connect(mSource, &LineSource::ready, this, [this] { proceed(); });
}

void Player::setAdapter(AbstractCanAdapter *adapter)
{
    mAdapter = adapter;
    mEchoes.setAdapter(adapter);
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
    while (!mEnding && mEchoes.hasRoom() && takeFrame() && frameIsDue() && writeFrame()) {
    }
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
        mEchoes.frameAccepted();
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

void Player::echoesAreLate()
{
    fail(mEchoes.lateText());
    finish();
}

void Player::finishWhenAllHaveLeft()
{
    if (!mFinished && mEnding && mEchoes.allHaveLeft())
        finish();
}

void Player::finish()
{
    mFinished = true;
    mEnding = true;
    mTimer.stop();
    mEchoes.stop();
    Q_EMIT finished();
}

} // namespace buslink
