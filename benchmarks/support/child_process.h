// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringList>
#include <QtCore/QTemporaryFile>

/// A program that runs beside a benchmark. It is ended with this object.
class ChildProcess
{
public:
    /// How a program ended.
    struct End
    {
        int status = 0;                ///< Its exit status, 127 if it could not be started; negative: a signal.
        double processorSeconds = 0.0; ///< What it took in all.
        double lastOutput = 0.0;       ///< When it last wrote, as `secondsNow()` counts.
        QByteArray output;             ///< What it printed.
    };

    /// Starts a program, given with its arguments.
    explicit ChildProcess(const QStringList &command);
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    bool isRunning() const;
    /// The processor time it has taken so far.
    double processorSeconds() const;
    /// *Blocks:* until the program ends by itself.
    End wait();

    /// The seconds of the clock that files are stamped with.
    static double secondsNow();

private:
    QTemporaryFile mOutput;
    int mPid = -1;
};
