// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

#include <linux/can.h>

/// The bytes of a classic frame as the kernel hands it out. The fields beside the payload are written
/// as they stand, so that frames can be made that no kernel would hand out.
inline QByteArray classicBytes(canid_t word, int length, const QByteArray &payload)
{
    QByteArray bytes(reinterpret_cast<const char *>(&word), sizeof word);
    bytes.append(static_cast<char>(length)).append(3, '\0');
    return bytes + payload.leftJustified(8, '\0', true);
}

/// The bytes of a CAN FD frame as the kernel hands it out.
inline QByteArray fdBytes(canid_t word, int length, int flags, const QByteArray &payload)
{
    QByteArray bytes(reinterpret_cast<const char *>(&word), sizeof word);
    bytes.append(static_cast<char>(length)).append(static_cast<char>(flags)).append(2, '\0');
    return bytes + payload.leftJustified(64, '\0', true);
}

/// The bytes of an error frame of eight data bytes.
inline QByteArray errorBytes(canid_t classes, const QByteArray &data)
{
    return classicBytes(CAN_ERR_FLAG | classes, 8, data);
}
