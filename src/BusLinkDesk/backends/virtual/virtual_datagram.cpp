// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/virtual/virtual_datagram_p.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace buslink {

VirtualDatagram encodeVirtualDatagram(const CAN::CanMessage &message)
{
    VirtualDatagram datagram;
    std::memcpy(datagram.data(), &message, datagram.size());
    return datagram;
}

CAN::CanMessage decodeVirtualDatagram(const VirtualDatagram &datagram)
{
    // Field by field from raw bytes: a foreign byte in a bool would be no valid value of it.
    using M = CAN::CanMessage;
    CAN::CanMessage message;
    std::memcpy(&message.id, datagram.data() + offsetof(M, id), sizeof message.id);
    message.length = std::min<quint8>(datagram[offsetof(M, length)], sizeof message.data);
    std::memcpy(message.data, datagram.data() + offsetof(M, data), message.length);
    message.isRtr = datagram[offsetof(M, isRtr)] != 0;
    message.isExtended = datagram[offsetof(M, isExtended)] != 0;
    message.isFd = datagram[offsetof(M, isFd)] != 0;
    message.isBrs = datagram[offsetof(M, isBrs)] != 0;
    return message;
}

} // namespace buslink
