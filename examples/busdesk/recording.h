// SPDX-License-Identifier: MIT
#pragma once

#include "busplay/play_schedule.h"
#include "common/line_splitter.h"

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QFile>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QTimer>

#include <memory>
#include <vector>

namespace buslink {

/// A recording that was read as a whole.
struct Recording
{
    struct Frame
    {
        CAN::CanRxMessage record; ///< With the recorded stamp, and the adapter's number where the desk recorded it.
        qint64 dueUs = 0;         ///< When it is due, in µs after the first.
        qint64 line = 0;          ///< Where it stands, from 1 on.
    };

    QString path;
    std::vector<Frame> frames;
    qint64 damagedLines = 0; ///< How many lines were passed over since they are no frames.
    QStringList damages;     ///< What is wrong with the first of them, with path and number.

    /// How long it takes, in µs.
    qint64 durationUs() const { return frames.empty() ? 0 : frames.back().dueUs; }
};

/// Reads a recording in the candump log form a piece at a time from the event loop, so that a window stays awake
/// meanwhile.
class RecordingReader : public QObject
{
    Q_OBJECT

public:
    /// How many of the damaged lines are told.
    static constexpr int DamagesToldMax = 5;

    explicit RecordingReader(std::size_t framesMax = 5000000);

    /// Begins to read, in the place of what was being read. Returns why not; empty if it has begun.
    QString start(const QString &path);
    /// Reads no further, and tells nothing more.
    void stop();
    bool isReading() const { return mTimer.isActive(); }

Q_SIGNALS:
    /// So many bytes of all were read.
    void progressed(qint64 bytes, qint64 size);
    /// All was read, or the text tells why not; then there is no recording.
    void finished(std::shared_ptr<const buslink::Recording> recording, const QString &error);

private:
    void readPiece();
    void takeLines();
    void takeLine(const LineSplitter::Line &line);
    void finish(const QString &error);

    const std::size_t mFramesMax;
    QTimer mTimer;
    QFile mFile;
    LineSplitter mSplitter;
    PlaySchedule mSchedule;
    qint64 mLine = 0;
    std::shared_ptr<Recording> mRecording;
};

} // namespace buslink
