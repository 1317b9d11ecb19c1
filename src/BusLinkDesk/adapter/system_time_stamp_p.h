// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QTime>

namespace buslink {

/// Stamp of a count of milliseconds.
inline CanTimeStamp timeStampFromMilliseconds(qint32 milliseconds)
{
    CanTimeStamp stamp;
    stamp.seconds = milliseconds / 1000;
    stamp.microseconds = milliseconds % 1000 * 1000;
    return stamp;
}

/// Stamp of a time of day, in steps of 1 ms.
inline CanTimeStamp timeStampFromTimeOfDay(QTime time)
{
    CanTimeStamp stamp;
    stamp.seconds = 3600 * time.hour() + 60 * time.minute() + time.second();
    stamp.microseconds = 1000 * time.msec();
    return stamp;
}

} // namespace buslink
