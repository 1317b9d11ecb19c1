// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QDir>

/// How many descriptors this process has open, one for the look at them included.
inline int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}

/// How many threads this process has. One that was waited for may still count for a moment.
inline int threadCount()
{
    return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}
