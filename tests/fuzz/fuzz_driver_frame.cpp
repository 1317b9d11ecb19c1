// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <BusLinkDesk/backends/can4linux/can4linux_record_p.h>

#include <algorithm>
#include <cstring>

// Takes any bytes for what a driver delivered, and for what a careless caller sends. Nothing behind a payload is
// touched, nothing without a meaning goes out, and a record that came from a frame goes out as that frame.

namespace {

using buslink::canmsg_t;

constexpr std::size_t MaxPayload = 64;

CAN::CanRxMessage usedRecord()
{
    CAN::CanRxMessage record;
    std::fill(std::begin(record.message.data), std::end(record.message.data), quint8(0xEE));
    record.message.isBrs = record.message.isEsi = true;
    record.adapterId = 7;
    record.packetWord = 8;
    return record;
}

std::size_t copiedBytes(const CAN::CanMessage &message)
{
    return message.isRtr ? 0 : std::min<std::size_t>(message.length, MaxPayload);
}

void requireTaken(const canmsg_t &frame, const CAN::CanRxMessage &record)
{
    const CAN::CanMessage &message = record.message;
    require(message.id == frame.id && message.length == (frame.length & 0xFF));
    require(message.isFd == ((frame.flags & 0x100) != 0) && message.isRtr == ((frame.flags & 0x001) != 0));
    require(message.isFd || (message.isBrs && message.isEsi));
    const std::size_t copied = copiedBytes(message);
    require(std::equal(message.data, message.data + copied, frame.data));
    require(std::all_of(message.data + copied, std::end(message.data), [](quint8 byte) { return byte == 0xEE; }));
    require(record.adapterId == 7 && record.packetWord == 8);
    require(record.timeStamp.seconds == 0 && record.timeStamp.microseconds == 0);
}

void requireSent(const CAN::CanMessage &message)
{
    const canmsg_t frame = buslink::driverFrameOf(message);
    require((frame.flags & ~0x305U) == 0 && (frame.flags & 0x101) != 0x101);
    require(frame.length <= MaxPayload && frame.length >= std::min<std::size_t>(message.length, MaxPayload));
    const std::size_t copied = copiedBytes(message);
    require(std::equal(frame.data, frame.data + copied, message.data));
    require(std::all_of(frame.data + copied, std::end(frame.data), [](quint8 byte) { return byte == 0; }));
    require(frame.fillWord == 0 && frame.stampFillWord == 0 && frame.dataFillWord == 0);
    require(frame.timestamp.tv_sec == 0 && frame.timestamp.tv_usec == 0);
    // A remote CAN FD frame goes out as one without that mark.
    CAN::CanRxMessage again = usedRecord();
    buslink::takeDriverFrame(frame, again);
    require(again.message.id == message.id && again.message.isFd == message.isFd);
    require(again.message.isExtended == message.isExtended && !again.isTx);
    require(again.message.isRtr == (message.isRtr && !message.isFd));
    require(!message.isFd || (again.message.isBrs == message.isBrs && !again.message.isEsi));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    canmsg_t frame;
    if (size > 0)
        std::memcpy(static_cast<void *>(&frame), data, std::min(size, sizeof frame));
    CAN::CanRxMessage record = usedRecord();
    buslink::takeDriverFrame(frame, record);
    requireTaken(frame, record);
    requireSent(record.message);
    const CanTimeStamp stamp = buslink::stampOf(frame);
    require(static_cast<quint32>(stamp.seconds) == static_cast<quint32>(frame.timestamp.tv_sec));
    require(static_cast<quint32>(stamp.microseconds) == static_cast<quint32>(frame.timestamp.tv_usec));
    return 0;
}
