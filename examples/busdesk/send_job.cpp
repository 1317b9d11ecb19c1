// SPDX-License-Identifier: MIT
#include "busdesk/send_job.h"

#include <QtCore/QTimer>

#include <algorithm>
#include <utility>

namespace buslink {

namespace {

// Beyond its pause, what a thread needs for its end.
constexpr int EndMarginMs = 100;

} // namespace

void JobGate::setTarget(AbstractCanAdapter *target)
{
    const std::lock_guard lock(mMutex);
    mTarget = target;
}

CAN::RetType JobGate::write(CAN::CanMessage *message)
{
    const std::lock_guard lock(mMutex);
    if (!mTarget)
        return CAN::RetError;
    const CAN::RetType result = mTarget->write(message);
    if (result == CAN::RetOk)
        ++mSent;
    return result;
}

// Each start has a transmitter of its own, since one that ends its pause still reads what it was told.
void SendJob::start(AbstractCanAdapter *adapter, const Settings &settings)
{
    stop();
    mRun = std::make_unique<Run>();
    mAdapter = adapter;
    mIntervalMs = settings.intervalMs;
    const Run *const run = mRun.get();
    CanMessageTransmitter &transmitter = mRun->transmitter;
    connect(
        &transmitter, &CanMessageTransmitter::sigFinished, this, [this, run] { end(run, {}); }, Qt::QueuedConnection);
    connect(
        &transmitter, &CanMessageTransmitter::transmitError, this,
        [this, run] { end(run, tr("the adapter refused the frame")); }, Qt::QueuedConnection);
    mRun->gate.setTarget(adapter);
    transmitter.setCanAdapter(&mRun->gate);
    transmitter.setTranmissionParameter(settings.frame, settings.intervalMs, settings.count);
    transmitter.startTransmission();
}

// The end of a transmitter waits for its pause. It comes when that is over, so that nobody waits.
void SendJob::stop()
{
    if (!mRun)
        return;
    mRun->gate.setTarget(nullptr);
    mRun->transmitter.stopTransmission();
    mSentBefore = mRun->gate.sentFrames();
    mAdapter = nullptr;
    const Run *const run = mRun.get();
    mEnding.push_back(std::move(mRun));
    QTimer::singleShot(static_cast<int>(mIntervalMs) + EndMarginMs, this, [this, run] {
        mEnding.erase(
            std::remove_if(mEnding.begin(), mEnding.end(), [run](const auto &one) { return one.get() == run; }),
            mEnding.end());
    });
}

// A signal may come from a run that was stopped meanwhile.
void SendJob::end(const Run *run, const QString &error)
{
    if (run != mRun.get())
        return;
    stop();
    Q_EMIT ended(error);
}

} // namespace buslink
