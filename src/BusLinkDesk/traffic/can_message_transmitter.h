// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>
#include <BusLinkDesk/export.h>
#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QThread>

#include <atomic>

/// The loop behind a `CanMessageTransmitter`: writes one frame, pauses, and so on, on the thread it lives
/// on. The loop blocks that thread's event loop for the whole run, holds no lock and allocates nothing.
///
/// *Thread:* `doWork` runs on the worker's thread, everything else is called directly from the
/// application's. `mRunning` synchronises the two. `mInterval`, `mCount`, `mSyncEnabled` and `mSyncMax`
/// are plain fields without a lock that both sides touch as relaxed atomics. The frame, the adapter and
/// the counter byte are touched as they are, so all setters but `setInterval` are for an idle worker. A
/// stop alone does not make it idle, since the current write may still run. The adapter must not be
/// deleted during a run.
class BUSLINKDESK_EXPORT CMTWorker : public QObject
{
    Q_OBJECT

public:
    /// Creates an idle worker for the job `id`, with a default frame and no adapter.
    explicit CMTWorker(unsigned short id, QObject *parent = nullptr);
    /// Releases the fields. The loop must have ended.
    ~CMTWorker() override;

    /// Sets where the frames go. The adapter is neither owned nor kept alive.
    void setCanApdater(QPointer<AbstractCanAdapter> adapter);
    /// Sets the frame, the pause after each frame in ms, and the number of frames, 0 for no end.
    void setTranmissionParameter(CAN::CanMessage message, unsigned int interval, unsigned int count);
    /// Sets whether byte 0 of the frame counts from 1 to `max`. The length of the frame stays as it is.
    void setSyncValues(bool enable, unsigned char max);
    /// Sets the pause in ms, from the next pause on.
    void setInterval(unsigned int interval);
    /// Moves the counter on and writes it into byte 0 of the frame.
    /// *Kept on purpose:* with a limit of 255 the value 0 follows 255; with a limit of 0 it stays 1.
    void updateSyncMessage();
    /// Lets the loop end after the current pause.
    void stop();
    /// Returns whether the loop runs. It turns false at a stop or with the last frame, before the pause
    /// that follows.
    bool isRunning();

public Q_SLOTS:
    /// Runs the loop to its end. A run without an adapter ends without a signal, as does one whose adapter
    /// is gone, and one that begins on a thread whose interruption was requested. Every result of a write
    /// but `CAN::RetError` counts as sent.
    /// *Thread:* the worker's. *Blocks:* for the whole run, the pause after the last frame included.
    /// *Fails:* `CAN::RetError` of a write ends the run with `transmitError`; the frame is not counted.
    /// *Kept on purpose:* the number of frames counts down in place. A start after a stop sends the
    /// rest, and a start after the last frame, when 0 are left, sends without end.
    void doWork();

Q_SIGNALS:
    /// A write failed and the loop has ended.
    void transmitError();
    /// A frame of a counted run was sent; `count` more are left.
    void sigMsgsLeft(unsigned short id, unsigned int count);
    /// A counted run has sent its last frame. It follows the `sigMsgsLeft` with 0.
    void sigFinished(unsigned short id);

private:
    Q_DECL_HIDDEN void countFrame();

    std::atomic<bool> mRunning{false};
    unsigned short mId;
    unsigned int mInterval = 0;
    CAN::CanMessage mMessage;
    QPointer<AbstractCanAdapter> mAdapter;
    unsigned int mCount = 0;
    bool mSyncEnabled = false;
    unsigned char mSyncMax = 0;
    unsigned char mSyncCounter = 0;
};

/// Sends one frame at a fixed pace from a thread of its own: construct, `setCanAdapter`,
/// `setTranmissionParameter`, perhaps `setSyncValues`, then `startTransmission`. The signals carry the
/// job's identifier, which is the caller's.
///
/// The first frame leaves at once and a pause follows each frame, the last one included. The pause is
/// never shorter than the interval; the period is the interval, the excess of the pause and the time of
/// the write, and drift is not corrected.
///
/// The thread lives as long as the transmitter and has `QThread::TimeCriticalPriority`. Under the default
/// scheduling policy of Linux that priority has no effect. What helps there is the timer slack: the
/// thread lowers its own when it starts, which about halves the excess of a pause.
///
/// *Thread:* all operations belong to the application's thread, where the signals arrive as well. They
/// are direct calls on the worker, apart from the start. See `CMTWorker` for the fields that both
/// threads touch: all setters but `updateInterval` are for a stopped job.
class BUSLINKDESK_EXPORT CanMessageTransmitter : public QObject
{
    Q_OBJECT

public:
    /// Creates the worker for the job `id` and starts its thread, which then idles.
    explicit CanMessageTransmitter(unsigned short id, QObject *parent = nullptr);
    /// Stops the job and ends the thread.
    /// *Blocks:* until a write and the pause after it are over.
    ~CanMessageTransmitter() override;

    /// Sets where the frames go. The adapter is neither owned nor kept alive, and must not be deleted
    /// during a run.
    void setCanAdapter(QPointer<AbstractCanAdapter> adapter);
    /// Sets the frame, the pause after each frame in ms, and the number of frames, 0 for no end.
    void setTranmissionParameter(CAN::CanMessage message, unsigned int interval, unsigned int count);
    /// Sets whether byte 0 of the frame counts 1 to `max` and again from 1, as a SYNC does. Each start
    /// begins at 1. The length of the frame stays as it is.
    /// *Kept on purpose:* with a limit of 255 the value 0 follows 255; with a limit of 0 it stays 1.
    void setSyncValues(bool enable, unsigned char max);
    /// Sets the pause in ms, from the next pause on; also during a run.
    void updateInterval(unsigned int interval);
    /// Starts the job; during a run, once more after that run. A job without an adapter ends at once,
    /// without a signal.
    /// *Kept on purpose:* after a stop the rest of the count is sent; after the last frame of a counted
    /// job, a start without new parameters sends without end.
    void startTransmission();
    /// Stops the job after the current pause, without waiting for it and without a signal.
    /// *Kept on purpose:* a start that the thread has not taken up yet is not stopped by it.
    void stopTransmission();
    /// Returns whether the job runs.
    bool isRunning();

Q_SIGNALS:
    /// Starts the worker's loop. `startTransmission` emits it.
    void operate();
    /// A write returned `CAN::RetError` and the job has ended.
    void transmitError();
    /// A counted job has sent its last frame.
    void sigFinished(unsigned short id);
    /// A frame of a counted job was sent.
    void sigMsgsLeft(unsigned short id, unsigned int msgsLeft);

public Q_SLOTS:
    /// Emits `transmitError`; for callers.
    void transmitErrorOccured();

private:
    QPointer<CMTWorker> mWorker;
    QThread mThread;
};
