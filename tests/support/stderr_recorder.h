// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

/// Keeps what the process writes to standard error while it lives, instead of printing it. One at a time.
class StderrRecorder
{
public:
    StderrRecorder();
    ~StderrRecorder();
    StderrRecorder(const StderrRecorder &) = delete;
    StderrRecorder &operator=(const StderrRecorder &) = delete;

    /// Everything so far.
    QByteArray text() const;

private:
    int mPrevious = -1;
    int mFile = -1;
};
