// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <BusLinkDesk/backends/packet_bridge/can_packet_p.h>

#include <algorithm>
#include <cstring>

// Takes any bytes for a packet that was received and for a frame that is sent, with any length. Nothing but
// a packet of a CAN frame changes the record, and no payload goes past 64 bytes in either direction.

namespace {

using buslink::CanPacket;

CAN::CanRxMessage usedRecord()
{
    CAN::CanRxMessage record;
    std::fill(std::begin(record.message.data), std::end(record.message.data), quint8(0xEE));
    record.message.reservedFlag = record.message.fillByte = 0xEE;
    record.adapterId = 0xEEEE;
    return record;
}

void requireValidRecord(const CanPacket &packet)
{
    CAN::CanRxMessage record = usedRecord();
    if (!buslink::takeCanPacket(packet, record)) {
        const CAN::CanRxMessage untouched = usedRecord();
        require((packet.packetHeader & 0xF000) != 0x1000 && std::memcmp(&record, &untouched, sizeof record) == 0);
        return;
    }
    require((packet.packetHeader & 0xF000) == 0x1000);
    const CAN::CanMessage &message = record.message;
    require(message.id <= 0x1FFFFFFF && message.length == (packet.lengthFormat & 0xFF));
    const std::size_t taken = std::min<std::size_t>(message.length, 64);
    require(std::equal(message.data, message.data + taken, packet.payload));
    require(std::all_of(message.data + taken, std::end(message.data), [](quint8 byte) { return byte == 0xEE; }));
    require(message.reservedFlag == 0xEE && message.fillByte == 0xEE && record.adapterId == 0xEEEE);
    require(!message.isRtr && message.isFd == (packet.lengthFormat >> 13 == 1) && message.isBrs == message.isFd);
    require(record.timeStamp.microseconds > -2147484 && record.timeStamp.microseconds < 2147484);
    require(record.packetWord == packet.packetTail);
}

/// Makes a frame of the packet's bytes, as a careless caller may, sends it and takes it back.
void requireBoundedSending(const CanPacket &bytes)
{
    CAN::CanMessage message;
    message.id = bytes.canId;
    message.length = bytes.dlc;
    message.isRtr = (bytes.frameFlags & 1) != 0;
    message.isExtended = (bytes.frameFlags & 2) != 0;
    message.isFd = (bytes.frameFlags & 4) != 0;
    message.isEsi = (bytes.frameFlags & 8) != 0;
    message.isBrs = (bytes.frameFlags & 16) != 0;
    std::copy_n(bytes.payload, sizeof message.data, message.data);
    const CanPacket packet = buslink::encodeCanPacket(message, bytes.packetSeconds);
    require((packet.dlc == 0xFF) == (message.length > 64) && (packet.dlc == 0xFF || packet.dlc <= 15));
    require(packet.fillWord == 0 && packet.fillByte == 0 && packet.frameFlags2 == 0 && packet.packetTail == 0);
    const std::size_t sent = std::min<std::size_t>(message.length, 64);
    require(std::equal(packet.payload, packet.payload + sent, message.data));
    require(std::all_of(packet.payload + sent, std::end(packet.payload), [](quint8 byte) { return byte == 0; }));
    CAN::CanRxMessage record;
    require(buslink::takeCanPacket(packet, record));
    require(record.message.id == (message.id & 0x1FFFFFFF) && record.message.length == message.length);
    require(record.message.isExtended == message.isExtended && record.message.isFd == message.isFd);
    require(record.message.isEsi == (message.isFd && message.isEsi));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    CanPacket packet;
    std::memcpy(static_cast<void *>(&packet), data, std::min(size, sizeof packet));
    requireValidRecord(packet);
    requireBoundedSending(packet);
    return 0;
}
