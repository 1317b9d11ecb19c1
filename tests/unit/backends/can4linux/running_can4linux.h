// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>

#include "driver_frames.h"
#include "fake_can4linux.h"
#include "support/log_recorder.h"
#include "support/open_adapter.h"
#include "support/stderr_recorder.h"

/// An adapter with the log and standard error, and with a faked driver under it.
struct Can4linuxFixture
{
    LogRecorder log;
    StderrRecorder errors;
    FakeCan4linux driver;
    AdapterPointer<Can4linuxCanAdapter> adapter;

    explicit Can4linuxFixture(const char *name = "/dev/can0")
        : adapter(new Can4linuxCanAdapter(QString::fromUtf8(name)))
    {}

    bool open(int timeoutMs = 20000) { return openAndWait(adapter.get(), timeoutMs); }
    /// Stops the adapter and waits for the end of its thread.
    bool close(unsigned long timeoutMs = 20000)
    {
        adapter->closeAdapter();
        return adapter->wait(timeoutMs);
    }
    /// What standard error has, without the lines that an opening begins with.
    QByteArray complaints() const { return errors.text().replace("Open() can4linuxCanAdapter\n", ""); }
};

/// A call that gives the driver a command, as the record of calls has it.
inline QString commandCall(int command, quint64 value = 0)
{
    return QStringLiteral("ioctl(0: %1, 0, %2; 0, 0, 0)").arg(command).arg(value);
}

/// A call that changes one of its settings.
inline QString settingCall(int target, quint64 value)
{
    return QStringLiteral("ioctl(1: %1, %2, %3; 0, 0, 0)").arg(target == 9 ? 1 : 0).arg(target).arg(value);
}

/// The calls with which a rate is set on an open device.
inline QStringList rateCalls(int target, quint64 value)
{
    return {commandCall(2), settingCall(target, value), commandCall(1)};
}

inline const QString openCall = QStringLiteral("open(/dev/can0, 0x802)");
inline const QString closeCall = QStringLiteral("close()");

/// The calls of an opening with the rates that it hands over.
inline QStringList callsOfOpen(quint64 nominalRate = 500, quint64 dataFactor = 4, quint64 flag = 0)
{
    return QStringList{openCall, commandCall(3)} + rateCalls(3, nominalRate) + rateCalls(13, dataFactor)
           + QStringList{commandCall(6, flag), settingCall(9, 1)};
}

/// Texts as strings.
inline QStringList texts(std::initializer_list<const char *> list)
{
    QStringList strings;
    for (const char *text : list)
        strings.append(QString::fromLatin1(text));
    return strings;
}
