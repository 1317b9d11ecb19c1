// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMutex>
#include <QtCore/QStringList>

#include <utility>

/// What happened, in order: one line each for calls, signals and whatever else a test compares as one
/// sequence. *Thread:* any.
class Journal
{
public:
    /// Appends a line.
    void add(const QString &line)
    {
        const QMutexLocker lock(&mMutex);
        mLines.append(line);
    }
    /// Returns the lines since the last call and forgets them.
    QStringList take()
    {
        const QMutexLocker lock(&mMutex);
        return std::exchange(mLines, {});
    }

private:
    QMutex mMutex;
    QStringList mLines;
};
