// SPDX-License-Identifier: MIT
#include "busplay/line_source.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace buslink {

LineSource::LineSource(Descriptor descriptor, QString name)
    : mDescriptor(std::move(descriptor)), mNotifier(mDescriptor.get(), QSocketNotifier::Read), mName(std::move(name))
{
    mNotifier.setEnabled(false);
    connect(&mNotifier, &QSocketNotifier::activated, this, [this] { readBlock(); });
}

LineSource::Next LineSource::take(LogFrame &frame)
{
    while (const std::optional<LineSplitter::Line> line = mSplitter.next()) {
        ++mLineNumber;
        if (isFrame(*line, frame))
            return Next::Frame;
    }
    if (!mError.isEmpty())
        return Next::Error;
    if (mEnded)
        return Next::End;
    mNotifier.setEnabled(true);
    return Next::Wait;
}

bool LineSource::isFrame(const LineSplitter::Line &line, LogFrame &frame)
{
    const LogLine read = parseLogLine(line);
    if (read.kind == LogLine::Kind::Damaged) {
        ++mDamagedLines;
        std::fprintf(stderr, "%s:%lld: %s\n", mName.toLocal8Bit().constData(), mLineNumber, read.error.c_str());
    }
    frame = read.frame;
    return read.kind == LogLine::Kind::Frame;
}

void LineSource::readBlock()
{
    std::array<char, 16384> block;
    const ssize_t size = ::read(mDescriptor.get(), block.data(), block.size());
    if (size < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    mNotifier.setEnabled(false);
    if (size > 0) {
        mSplitter.add({block.data(), static_cast<std::size_t>(size)});
    } else {
        mSplitter.end();
        mEnded = true;
        if (size < 0)
            mError = QStringLiteral("cannot read %1: %2").arg(mName, qt_error_string(errno));
    }
    Q_EMIT ready();
}

} // namespace buslink
