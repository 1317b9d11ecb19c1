// SPDX-License-Identifier: MIT
#pragma once

#include "common/candump_log.h"

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QString>

namespace buslink {

/// The stamp of a frame in µs; the epoch is the adapter's.
qint64 timeUs(const CAN::CanRxMessage &frame);
/// A stamp in seconds, to the microsecond.
QString timeText(qint64 timeUs);
/// 3 hexadecimal digits, 8 for an extended identifier.
QString identifierText(const CAN::CanMessage &message);
/// Classic, remote or FD, with the flags of the latter.
QString kindText(const CAN::CanMessage &message);
/// The payload, a pair of hexadecimal digits a byte; empty for a remote frame.
QString payloadText(const CAN::CanMessage &message);
/// A line of the candump log form, with the adapter's number as the interface.
QString logText(const CAN::CanRxMessage &frame);
/// What such a line says. The form has no place for which way a frame went; all of them count as received.
CAN::CanRxMessage recordOf(const LogFrame &frame);

} // namespace buslink
