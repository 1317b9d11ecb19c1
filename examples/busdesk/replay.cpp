// SPDX-License-Identifier: MIT
#include "busdesk/replay.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <algorithm>
#include <utility>

namespace buslink {

namespace {

// Frames without pauses between them must not keep the window from its other work.
constexpr int BatchMax = 200;

} // namespace

Replay::Replay()
{
    connect(&mTimer, &DeadlineTimer::expired, this, &Replay::proceed);
}

void Replay::setRecording(std::shared_ptr<const Recording> recording)
{
    stop();
    mRecording = std::move(recording);
    mNext = 0;
    mPositionUs = 0;
}

void Replay::start(AbstractCanAdapter *adapter)
{
    stop();
    if (!mRecording)
        return;
    mAdapter = adapter;
    // What an earlier replay has queued is still to be carried.
    if (mLineOf != adapter)
        mLine.emplace();
    mLineOf = adapter;
    mLine->setAdapter(*adapter);
    mNext = 0;
    mPaused = false;
    mStartUs = monotonicUs();
    proceed();
}

void Replay::setPaused(bool paused)
{
    if (!isRunning() || paused == mPaused)
        return;
    if (paused) {
        mPositionUs = positionUs();
        mPaused = true;
        mTimer.stop();
        return;
    }
    mPaused = false;
    mStartUs = monotonicUs() - mPositionUs;
    proceed();
}

void Replay::stop()
{
    mPositionUs = positionUs();
    mTimer.stop();
    mAdapter = nullptr;
    mPaused = false;
}

qint64 Replay::positionUs() const
{
    if (!isRunning() || mPaused)
        return mPositionUs;
    return std::clamp<qint64>(monotonicUs() - mStartUs, 0, mRecording->durationUs());
}

void Replay::proceed()
{
    const std::vector<Recording::Frame> &frames = mRecording->frames;
    for (int written = 0; mNext < frames.size(); ++written) {
        const qint64 now = monotonicUs();
        const qint64 due = mStartUs + frames[mNext].dueUs;
        if (due > now || written == BatchMax) {
            mTimer.startAt(due);
            return;
        }
        if (!writeNext())
            return;
    }
    end({});
}

bool Replay::writeNext()
{
    if (!mLine->hasRoom()) {
        mTimer.startAt(monotonicUs() + std::chrono::microseconds(SerialLine::AskAgain).count());
        return false;
    }
    const Recording::Frame &frame = mRecording->frames[mNext];
    CAN::CanMessage message = frame.record.message;
    switch (mAdapter->write(&message)) {
    case CAN::RetOk:
        mLine->frameQueued(message);
        ++mNext;
        return true;
    case CAN::RetTxBufferFull:
        mTimer.startAt(monotonicUs() + RetryPauseUs);
        return false;
    default:
        end(tr("the adapter refused the frame of line %1").arg(frame.line));
        return false;
    }
}

void Replay::end(const QString &error)
{
    stop();
    Q_EMIT ended(error);
}

} // namespace buslink
