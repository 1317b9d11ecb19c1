// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

/// The far end, as the descriptor of a device that is nothing but bytes.
inline int openFarEnd()
{
    const int descriptor = ::open("/dev/ttyUSB1", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    termios settings{};
    if (descriptor < 0 || ::tcgetattr(descriptor, &settings) != 0)
        qFatal("no /dev/ttyUSB1");
    ::cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    ::tcsetattr(descriptor, TCSANOW, &settings);
    return descriptor;
}
