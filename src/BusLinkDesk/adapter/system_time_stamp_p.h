// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

namespace buslink {

/// Stamp of a count of milliseconds.
CanTimeStamp timeStampFromMilliseconds(qint32 milliseconds);

/// Stamp of the local time of day, in steps of 1 ms. *Thread:* any.
CanTimeStamp timeStampOfLocalTime();

} // namespace buslink
