// SPDX-License-Identifier: MIT
#pragma once

#include "common/write_only_adapter.h"

#include <BusLinkDesk/traffic/can_message_transmitter.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace buslink {

/// Lets a transmitter be cut off from its adapter at once, without the wait for its pause: after that nothing is
/// written any more, so the adapter may go.
class JobGate : public WriteOnlyAdapter
{
public:
    using WriteOnlyAdapter::write;

    /// Sets where frames go; null lets none pass. *Blocks:* while a write is under way.
    void setTarget(AbstractCanAdapter *target);
    /// How many frames the adapter took. *Thread:* any.
    quint64 sentFrames() const { return mSent.load(); }

    /// Hands the frame on. *Fails:* the code of the adapter; `CAN::RetError` without one.
    CAN::RetType write(CAN::CanMessage *message) override;

private:
    std::mutex mMutex;
    AbstractCanAdapter *mTarget = nullptr; // by mMutex
    std::atomic<quint64> mSent = 0;
};

/// Sends one frame again and again through a transmitter of its own.
class SendJob : public QObject
{
    Q_OBJECT

public:
    struct Settings
    {
        CAN::CanMessage frame;
        quint32 intervalMs = 100; ///< Pause after each frame.
        quint32 count = 0;        ///< How many frames to send; 0: without end.
    };

    /// Begins anew. The adapter stays until the job was stopped.
    void start(AbstractCanAdapter *adapter, const Settings &settings);
    /// Writes nothing more.
    void stop();

    bool isRunning() const { return mRun != nullptr; }
    /// The adapter that is written to; null while the job does not run.
    AbstractCanAdapter *adapter() const { return mAdapter; }
    /// How many frames left since the last start.
    quint64 sentFrames() const { return mRun ? mRun->gate.sentFrames() : mSentBefore; }

Q_SIGNALS:
    /// The job has ended; the text tells what went wrong and is empty if nothing did.
    void ended(const QString &error);

private:
    struct Run
    {
        JobGate gate; // outlives the transmitter, which writes to it
        CanMessageTransmitter transmitter{0};
    };

    void end(const Run *run, const QString &error);

    std::unique_ptr<Run> mRun;
    std::vector<std::unique_ptr<Run>> mEnding; // in their last pause
    AbstractCanAdapter *mAdapter = nullptr;
    quint32 mIntervalMs = 0;
    quint64 mSentBefore = 0;
};

} // namespace buslink
