// SPDX-License-Identifier: MIT
#pragma once

#include "support/fake_adapter.h"

#include <QtCore/QStringList>

/// The identifier of the jobs in tests.
constexpr unsigned short JobId = 51966;

/// Keeps the signals of a transmitter or a worker, in order.
template <typename Source>
void recordSignals(const Source *source, QStringList &lines)
{
    QObject::connect(source, &Source::transmitError, [&lines] { lines << QStringLiteral("error"); });
    QObject::connect(source, &Source::sigFinished,
                     [&lines](unsigned short id) { lines << QStringLiteral("finished %1").arg(id); });
    QObject::connect(source, &Source::sigMsgsLeft, [&lines](unsigned short id, unsigned int left) {
        lines << QStringLiteral("left %1 %2").arg(id).arg(left);
    });
}

/// The signals of a counted run from `first` frames left down to `last`, with its end at 0.
inline QStringList countedSignals(unsigned int first, unsigned int last = 0)
{
    QStringList lines;
    for (unsigned int left = first + 1; left-- > last;)
        lines << QStringLiteral("left %1 %2").arg(JobId).arg(left);
    if (last == 0)
        lines << QStringLiteral("finished %1").arg(JobId);
    return lines;
}

/// Byte 0 of each written frame.
inline QVector<int> counterBytes(const FakeAdapter &adapter)
{
    QVector<int> bytes;
    for (const CAN::CanMessage &frame : adapter.written())
        bytes << frame.data[0];
    return bytes;
}
