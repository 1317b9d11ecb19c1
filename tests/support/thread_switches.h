// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QFile>
#include <QtCore/QString>

/// How often a thread of this process has gone to sleep so far, -1 if there is none of that number.
inline qint64 voluntarySwitches(const QString &thread)
{
    QFile status(QStringLiteral("/proc/self/task/%1/status").arg(thread));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("voluntary_ctxt_switches:"))
            return line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
    }
    return -1;
}
