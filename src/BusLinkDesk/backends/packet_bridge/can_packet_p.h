// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/packet_bridge/pxr_fd_types.h>
#include <BusLinkDesk/types/can_frames.h>

// The packet of a CAN frame and the frame record, one from the other.
namespace buslink {

using CanPacket = PxrFdTypes::UnionPacket::StructCanMsg;

/// The packet that goes out for a frame, stamped with a time in milliseconds since the epoch. A length above
/// 64 is told as it is and takes 64 bytes along; a remote frame becomes a data frame.
CanPacket encodeCanPacket(const CAN::CanMessage &message, qint64 msSinceEpoch);

/// Takes a received packet over into a record, of which everything stays that the packet does not tell: the
/// three CAN FD flags where it is of another format, and the payload behind the length. A length above 64
/// is told as it is and takes 64 bytes along.
/// *Fails:* false for a packet of another type; the record is not touched.
bool takeCanPacket(const CanPacket &packet, CAN::CanRxMessage &record);

} // namespace buslink
