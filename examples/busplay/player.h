// SPDX-License-Identifier: MIT
#pragma once

#include "busplay/deadline_timer.h"
#include "busplay/line_source.h"
#include "busplay/play_schedule.h"

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>

#include <atomic>
#include <optional>

class AbstractCanAdapter;

namespace buslink {

/// Writes the frames of a recording to an adapter, and ends only when every frame that the adapter
/// accepted has left: the adapter delivers an echo of each frame that it sent, and these are counted.
class Player : public QObject
{
    Q_OBJECT

public:
    struct Settings
    {
        bool fast = false;        ///< Without the recorded pauses.
        int echoTimeoutMs = 5000; ///< How long to wait for the next echo while some are missing.
    };

    /// How many frames may be on their way through the adapter. More would only fill its queue.
    static constexpr qint64 Window = 256;

    /// Plays what the source has.
    Player(LineSource *source, Settings settings);

    /// Sets where to play to, and turns echo on there. The adapter is not open yet, and it is gone before
    /// the player is, since echoes arrive on a thread of its own.
    void setAdapter(AbstractCanAdapter *adapter);
    /// Begins; the event loop does the rest.
    void start();
    /// Writes nothing more, and finishes when what was accepted has left.
    void interrupt();
    /// Finishes without waiting for echoes, which do not come any more.
    void transportFailed();

    /// How many frames have left.
    qint64 sentFrames() const { return mEchoes.load(); }
    /// How many frames the adapter accepted.
    qint64 acceptedFrames() const { return mAccepted; }
    /// What went wrong; empty if nothing did.
    QString error() const { return mError; }

Q_SIGNALS:
    /// Nothing more will be written and nothing is waited for. Emitted once.
    void finished();

private:
    qint64 outstanding() const { return mAccepted - mEchoes.load(); }
    void proceed();
    bool frameIsDue();
    bool takeFrame();
    bool writeFrame();
    void fail(const QString &error);
    void echoArrived();
    void watchEchoes();
    void echoesAreLate();
    void finish();
    void finishWhenAllHaveLeft();

    AbstractCanAdapter *mAdapter = nullptr;
    LineSource *mSource;
    const Settings mSettings;
    PlaySchedule mSchedule;
    DeadlineTimer mTimer;
    QTimer mEchoTimer;
    std::optional<LogFrame> mFrame;
    qint64 mFrameDueUs = 0;
    std::optional<qint64> mStartUs;
    std::atomic<qint64> mEchoes = 0;
    std::atomic<bool> mEchoNoticed = false;
    qint64 mEchoesSeen = 0;
    qint64 mAccepted = 0;
    bool mEnding = false;
    bool mFinished = false;
    QString mError;
};

} // namespace buslink
