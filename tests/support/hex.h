// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

/// The bytes that a text of hexadecimal digits stands for; blanks between them do not count.
inline QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}
