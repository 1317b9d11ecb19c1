// SPDX-License-Identifier: MIT
#include "busdesk/recording.h"

#include "busdesk/frame_texts.h"
#include "common/candump_log.h"

#include <QtCore/QFileInfo>

#include <utility>

namespace buslink {

namespace {

// Some thousand lines, a few milliseconds.
constexpr qint64 PieceSize = 131072;

} // namespace

RecordingReader::RecordingReader(std::size_t framesMax) : mFramesMax(framesMax)
{
    connect(&mTimer, &QTimer::timeout, this, &RecordingReader::readPiece);
}

// Opening a named pipe would wait for its writer.
QString RecordingReader::start(const QString &path)
{
    stop();
    const QFileInfo info(path);
    if (info.exists() && !info.isFile())
        return tr("%1: not a file").arg(path);
    mFile.setFileName(path);
    if (!mFile.open(QIODevice::ReadOnly))
        return tr("%1: %2").arg(path, mFile.errorString());
    mSplitter = {};
    mSchedule = {};
    mLine = 0;
    mRecording = std::make_shared<Recording>();
    mRecording->path = path;
    mTimer.start(0);
    return {};
}

void RecordingReader::stop()
{
    mTimer.stop();
    mFile.close();
    mRecording.reset();
}

void RecordingReader::readPiece()
{
    const QByteArray piece = mFile.read(PieceSize);
    if (piece.isEmpty() && mFile.error() != QFileDevice::NoError) {
        finish(tr("%1: %2").arg(mRecording->path, mFile.errorString()));
        return;
    }
    if (piece.isEmpty())
        mSplitter.end();
    else
        mSplitter.add({piece.constData(), static_cast<std::size_t>(piece.size())});
    takeLines();
    if (mRecording->frames.size() > mFramesMax)
        finish(tr("%1: more than %2 frames").arg(mRecording->path).arg(mFramesMax));
    else if (piece.isEmpty())
        finish({});
    else
        Q_EMIT progressed(mFile.pos(), mFile.size());
}

void RecordingReader::takeLines()
{
    while (const std::optional<LineSplitter::Line> line = mSplitter.next()) {
        ++mLine;
        takeLine(*line);
    }
}

void RecordingReader::takeLine(const LineSplitter::Line &line)
{
    const LogLine read = parseLogLine(line);
    if (read.kind == LogLine::Kind::Frame) {
        mRecording->frames.push_back({recordOf(read.frame), mSchedule.nextDueUs(read.frame.timeUs), mLine});
    } else if (read.kind == LogLine::Kind::Damaged && ++mRecording->damagedLines <= DamagesToldMax) {
        mRecording->damages.append(
            QStringLiteral("%1:%2: %3").arg(mRecording->path).arg(mLine).arg(QString::fromStdString(read.error)));
    }
}

void RecordingReader::finish(const QString &error)
{
    const std::shared_ptr<const Recording> recording = error.isEmpty() ? mRecording : nullptr;
    stop();
    Q_EMIT finished(recording, error);
}

} // namespace buslink
