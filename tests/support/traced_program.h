// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

/// What became of a program that a signal was to end at one of its system calls.
enum class TracedEnd {
    Signalled, ///< The signal ended it.
    Finished,  ///< It had saved before, and ended with status 0.
    Failed     ///< Something else.
};

/// Runs a program and sends it a signal at the stop `stop` after it has begun to create a file: each system call
/// from there on has two, one before it and one behind it. The last one is behind the call that renames the file.
TracedEnd signalWhileSaving(const QString &program, const QStringList &arguments, int stop, int signal);
