// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// A serial port without hardware, for a program that was started by umockdev-wrapper: the process, and no
/// other one, finds it among the serial ports and opens it; what is on its far end is up to the test.
///
/// It is a pseudo-terminal and has no modem lines: whatever sets or reads them fails. The lock file of an
/// opened port lies on the real machine, so the name of a port is one that no other process uses.
class MockSerialPort
{
public:
    /// Makes a port. Among those of the process its name is sorted by `mark` first.
    explicit MockSerialPort(const QString &mark = QString());
    /// Takes it away.
    ~MockSerialPort();
    MockSerialPort(const MockSerialPort &) = delete;
    MockSerialPort &operator=(const MockSerialPort &) = delete;

    /// The name as the list of ports has it.
    const QString &name() const { return mName; }
    /// The descriptor on which the far end reads and writes, without waiting.
    int farEnd() const { return mFarEnd; }
    /// Takes the port off the list of ports; an open one goes on.
    void hide();
    /// Pulls the device out: the port is gone, and whoever has it open finds it dead. Nobody may use the far
    /// end any more.
    void unplug();

private:
    QString mName;
    QByteArray mPath;
    int mFarEnd = -1;
    bool mListed = true;
};
