// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

class QCommandLineParser;

namespace buslink {

/// Exit statuses that all programs have. Ended by a signal, they exit with 128 and its number.
enum ExitStatus : int {
    ExitDone = 0,       ///< Everything was done.
    ExitFailed = 1,     ///< Something outside failed; a message tells what.
    ExitUsage = 2,      ///< The arguments make no sense.
    ExitDamaged = 3,    ///< Done, but damaged lines were skipped.
    ExitBySignal = 128, ///< To this the number of the signal is added.
};

/// Writes a message for the user to standard error, behind the name of the program.
void complain(const QString &message);

/// Writes text to standard output and does not return before it is there.
/// *Fails:* false, after a message.
bool print(const QString &text);

/// Prepares the process: a reader that goes away shows in the result of a write, and standard input,
/// output and error are open, so that no other file gets their numbers.
void prepareProcess();

/// Gives the application its name and version.
void nameApplication(const QString &name);

/// Reads the arguments; answers `--help` and `--version` by ending the process.
/// *Fails:* false, after a message.
bool parseArguments(QCommandLineParser &parser, int positionalMax);

} // namespace buslink
