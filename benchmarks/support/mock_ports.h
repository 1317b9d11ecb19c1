// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QVector>

#include <unistd.h>

/// Mocked serial ports need a library in front of all others: runs the program anew with it, unless it is there.
inline void restartWithMockPorts(char **argv)
{
    if (qgetenv("LD_PRELOAD").contains("umockdev"))
        return;
    QByteArray wrapper(UMOCKDEV_WRAPPER);
    // The wrapper takes the place in front of the program's own name.
    QVector<char *> arguments{wrapper.data()};
    while (*argv)
        arguments.append(*argv++);
    arguments.append(nullptr);
    ::execv(UMOCKDEV_WRAPPER, arguments.data());
    qFatal("%s cannot be run", UMOCKDEV_WRAPPER);
}
