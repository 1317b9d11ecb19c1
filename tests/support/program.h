// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QStringList>

/// A program that a test runs as a process of its own, in a plain locale, killed at the end if it still
/// runs then.
class Program
{
public:
    /// Prepares the process; does not start it.
    Program(const QString &path, const QStringList &arguments);
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    /// For redirections, before the start.
    QProcess &process() { return mProcess; }
    /// Starts the program. Standard input stays open for `write`.
    void start();
    /// Writes to the program's standard input.
    void write(const QByteArray &text) { mProcess.write(text); }
    /// Ends the program's standard input.
    void endInput() { mProcess.closeWriteChannel(); }
    /// Sends a signal.
    void sendSignal(int signal) const;
    /// Waits until the program has ended. Returns its exit status, -1 if a signal killed it or if it still
    /// runs after a minute.
    int waitForStatus();
    /// Standard output so far.
    QByteArray output();
    /// Standard error so far.
    QByteArray errors();

private:
    QProcess mProcess;
    QByteArray mOutput;
    QByteArray mErrors;
};
