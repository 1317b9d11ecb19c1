// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <array>

// The datagram of the virtual bus: the 76 bytes of a frame record as they stand in memory.
namespace buslink {

/// Bytes of one datagram.
using VirtualDatagram = std::array<unsigned char, sizeof(CAN::CanMessage)>;

/// What a datagram holds where nothing was received: the bytes of a fresh frame record, which are zero.
inline VirtualDatagram emptyVirtualDatagram()
{
    return {};
}

/// The bytes that go out for a frame.
VirtualDatagram encodeVirtualDatagram(const CAN::CanMessage &message);

/// The frame of a received datagram. The bytes may hold anything: lengths above 64 count as 64, flags
/// become 0 or 1, and only the payload within the length is taken over; the error state indicator is not.
CAN::CanMessage decodeVirtualDatagram(const VirtualDatagram &datagram);

} // namespace buslink
