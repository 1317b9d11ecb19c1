// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/packet_bridge/can_packet_p.h>

#include <BusLinkDesk/adapter/payload_length_p.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace buslink {

namespace {

constexpr unsigned PacketTypeShift = 12;
constexpr quint32 PacketTypeMask = 0xF;
constexpr quint32 CanFramePacket = 1;
constexpr unsigned FormatShift = 13;
constexpr unsigned FdFormat = 1;
constexpr quint8 ExtendedFlag = 0x80;
constexpr quint8 EsiFlag = 0x40;
constexpr quint8 BrsFlag = 0x20;
constexpr quint8 TransmittedFlag = 0x80;
constexpr quint32 ExtendedId = 0x80000000;
constexpr quint32 IdMask = 0x1FFFFFFF;
constexpr quint8 NoDlc = 0xFF;

quint8 dlcOf(quint8 length)
{
    return length > sizeof CanPacket::payload ? NoDlc : fdDlcOfLength(length);
}

std::size_t payloadBytes(quint8 length)
{
    return std::min<std::size_t>(length, sizeof CanPacket::payload);
}

} // namespace

CanPacket encodeCanPacket(const CAN::CanMessage &message, qint64 msSinceEpoch)
{
    CanPacket packet;
    packet.packetHeader = CanFramePacket << PacketTypeShift;
    packet.packetSeconds = static_cast<quint32>(msSinceEpoch / 1000);
    packet.packetNanoseconds = static_cast<qint32>(static_cast<double>(msSinceEpoch % 1000) * 1e6);
    packet.lengthFormat = message.length;
    packet.dlc = dlcOf(message.length);
    packet.canId = message.id & IdMask;
    if (message.isExtended) {
        packet.canId |= ExtendedId;
        packet.frameFlags |= ExtendedFlag;
    }
    if (message.isFd) {
        packet.lengthFormat |= FdFormat << FormatShift;
        packet.frameFlags |= message.isEsi ? EsiFlag : 0;
        packet.frameFlags |= message.isBrs ? BrsFlag : 0;
    }
    std::memcpy(packet.payload, message.data, payloadBytes(message.length));
    return packet;
}

bool takeCanPacket(const CanPacket &packet, CAN::CanRxMessage &record)
{
    if ((packet.packetHeader >> PacketTypeShift & PacketTypeMask) != CanFramePacket)
        return false;
    CAN::CanMessage &message = record.message;
    if (packet.lengthFormat >> FormatShift == FdFormat) {
        message.isFd = true;
        message.isBrs = true; // Whatever the packet's own bit says; programs know it so.
        message.isEsi = (packet.frameFlags & EsiFlag) != 0;
    }
    record.isTx = (packet.frameFlags2 & TransmittedFlag) != 0;
    message.length = static_cast<quint8>(packet.lengthFormat);
    message.isExtended = (packet.canId & ExtendedId) != 0;
    message.id = packet.canId & IdMask;
    record.timeStamp.seconds = static_cast<qint32>(packet.packetSeconds);
    record.timeStamp.microseconds = packet.packetNanoseconds / 1000;
    std::memcpy(message.data, packet.payload, payloadBytes(message.length));
    record.packetWord = packet.packetTail;
    return true;
}

// The peer reads and writes these bytes, so a change of layout must not even compile.
static_assert(sizeof(CanPacket) == 92);
static_assert(offsetof(CanPacket, packetSeconds) == 4);
static_assert(offsetof(CanPacket, packetNanoseconds) == 8);
static_assert(offsetof(CanPacket, lengthFormat) == 12);
static_assert(offsetof(CanPacket, fillWord) == 14);
static_assert(offsetof(CanPacket, dlc) == 16);
static_assert(offsetof(CanPacket, fillByte) == 17);
static_assert(offsetof(CanPacket, frameFlags) == 18);
static_assert(offsetof(CanPacket, frameFlags2) == 19);
static_assert(offsetof(CanPacket, canId) == 20);
static_assert(offsetof(CanPacket, payload) == 24);
static_assert(offsetof(CanPacket, packetTail) == 88);
static_assert(std::has_unique_object_representations_v<CanPacket>);
static_assert(std::is_trivially_copyable_v<PxrFdTypes::UnionPacket>);

} // namespace buslink
