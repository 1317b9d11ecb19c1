// SPDX-License-Identifier: MIT
#pragma once

#include "common/candump_log.h"
#include "common/descriptor.h"
#include "common/line_splitter.h"

#include <QtCore/QObject>
#include <QtCore/QSocketNotifier>
#include <QtCore/QString>

namespace buslink {

/// Reads the frames of a recording from a file, a pipe or a terminal as they come, and no further ahead
/// than a block.
class LineSource : public QObject
{
    Q_OBJECT

public:
    enum class Next {
        Frame, ///< Here is one.
        Wait,  ///< `ready` will tell when to ask again.
        End,   ///< There are no more.
        Error, ///< Reading failed: see `error`.
    };

    /// Reads from a descriptor. `name` stands before the line number of damaged lines.
    LineSource(Descriptor descriptor, QString name);

    /// Takes the next frame, passing over blank lines, and over damaged ones with a message each.
    Next take(LogFrame &frame);
    /// How many lines were damaged so far.
    int damagedLines() const { return mDamagedLines; }
    /// What went wrong.
    QString error() const { return mError; }

Q_SIGNALS:
    /// There is something new after `Next::Wait`.
    void ready();

private:
    void readBlock();
    bool isFrame(const LineSplitter::Line &line, LogFrame &frame);

    Descriptor mDescriptor;
    QSocketNotifier mNotifier;
    QString mName;
    LineSplitter mSplitter;
    qint64 mLineNumber = 0;
    int mDamagedLines = 0;
    bool mEnded = false;
    QString mError;
};

} // namespace buslink
