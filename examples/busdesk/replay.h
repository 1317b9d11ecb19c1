// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/recording.h"
#include "busplay/deadline_timer.h"
#include "common/serial_line.h"

#include <QtCore/QPointer>

#include <optional>

class AbstractCanAdapter;

namespace buslink {

/// Writes the frames of a recording to an adapter that is open, with the recorded pauses. A frame that comes late is
/// written at once, and what one is late is not carried over to those behind it. The queue of a serial port is kept
/// short: it has no limit, and what waits there is sent after a stop as well.
class Replay : public QObject
{
    Q_OBJECT

public:
    Replay();

    /// Stops, and sets what the next start plays.
    void setRecording(std::shared_ptr<const Recording> recording);
    /// Begins with the first frame. The adapter stays until the replay was stopped or has ended.
    void start(AbstractCanAdapter *adapter);
    /// Holds the recording where it is, or goes on from there.
    void setPaused(bool paused);
    /// Writes nothing more.
    void stop();

    /// Whether it was begun and has not ended; a pause is part of it.
    bool isRunning() const { return mAdapter != nullptr; }
    bool isPaused() const { return mPaused; }
    /// The adapter that is written to; null while the replay does not run.
    AbstractCanAdapter *adapter() const { return mAdapter; }
    /// How many frames the adapter took since the last start.
    std::size_t sentFrames() const { return mNext; }
    /// How far the recording is, in µs.
    qint64 positionUs() const;

Q_SIGNALS:
    /// All frames were written, or the text tells why not.
    void ended(const QString &error);

private:
    void proceed();
    bool writeNext();
    void end(const QString &error);

    AbstractCanAdapter *mAdapter = nullptr;
    std::shared_ptr<const Recording> mRecording;
    std::optional<SerialLine> mLine;
    QPointer<AbstractCanAdapter> mLineOf; // the adapter behind mLine
    DeadlineTimer mTimer;
    std::size_t mNext = 0;
    bool mPaused = false;
    qint64 mStartUs = 0;    // when the first frame was due; shifted by pauses
    qint64 mPositionUs = 0; // while it does not move
};

} // namespace buslink
