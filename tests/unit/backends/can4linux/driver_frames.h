// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

/// What a frame of the driver holds, beside its payload.
struct DriverFrame
{
    quint32 flags = 0;
    quint32 id = 0;
    quint32 length = 0;
    qint64 seconds = 0;
    qint64 microseconds = 0;
};

/// The 104 bytes of a frame of the driver. The fields are written as they stand, so that frames can be made that no
/// driver would hand out.
inline QByteArray driverBytes(const DriverFrame &frame, const QByteArray &payload = {})
{
    QByteArray bytes(104, '\0');
    const auto put = [&bytes](int offset, const auto &value) {
        bytes.replace(offset, sizeof value, reinterpret_cast<const char *>(&value), sizeof value);
    };
    put(0, frame.flags);
    put(8, frame.id);
    put(16, frame.seconds);
    put(24, frame.microseconds);
    put(32, frame.length);
    return bytes.replace(40, 64, payload.leftJustified(64, '\0', true));
}
