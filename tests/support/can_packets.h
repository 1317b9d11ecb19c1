// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/packet_bridge/pxr_fd_types.h>

#include <QtCore/QByteArray>

#include <algorithm>
#include <cstring>

/// All bytes of a packet, so that comparisons leave nothing out.
inline QByteArray bytesOf(const PxrFdTypes::UnionPacket::StructCanMsg &packet)
{
    return QByteArray(reinterpret_cast<const char *>(&packet), sizeof packet);
}

/// The packet that begins with these bytes; the rest is zero.
inline PxrFdTypes::UnionPacket packetOf(const QByteArray &bytes)
{
    PxrFdTypes::UnionPacket packet;
    std::memcpy(static_cast<void *>(&packet), bytes.constData(), std::min<std::size_t>(std::size_t(bytes.size()), 92));
    return packet;
}
