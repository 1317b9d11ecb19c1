// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <BusLinkDesk/backends/socketcan/socket_can_frame_p.h>

#include <algorithm>
#include <cstring>
#include <linux/can/error.h>

// Takes any bytes for what a socket of either kind delivered, with any result of the read. The frame is
// valid whatever the bytes were, nothing but a frame changes the record, and a record that came from a
// frame goes out as that frame.

namespace {

using buslink::KernelFrame;
using buslink::KernelFrameKind;

CAN::CanMessage usedRecord()
{
    CAN::CanMessage message;
    std::fill(std::begin(message.data), std::end(message.data), quint8(0xEE));
    message.isBrs = message.isEsi = true;
    return message;
}

void requireValid(const CAN::CanMessage &message, std::size_t capacity)
{
    require(message.id <= (message.isExtended ? CAN_EFF_MASK : CAN_SFF_MASK));
    require(message.length <= capacity);
    const std::size_t taken = message.isRtr ? 0 : message.length;
    require(std::all_of(message.data + taken, std::end(message.data), [](quint8 byte) { return byte == 0xEE; }));
}

template <typename Frame>
KernelFrame bytesOf(const Frame &frame)
{
    KernelFrame bytes;
    std::memcpy(bytes.bytes.data(), &frame, sizeof frame);
    return bytes;
}

void requireClassic(const KernelFrame &frame, qint64 size)
{
    CAN::CanMessage message = usedRecord();
    if (buslink::takeClassicFrame(frame, size, message) != KernelFrameKind::Frame) {
        require(std::memcmp(message.data, usedRecord().data, sizeof message.data) == 0 && message.length == 0);
        return;
    }
    requireValid(message, CAN_MAX_DLEN);
    CAN::CanMessage again = usedRecord();
    require(buslink::takeClassicFrame(bytesOf(buslink::classicFrameOf(message)), CAN_MTU, again)
            == KernelFrameKind::Frame);
    require(std::memcmp(&again, &message, sizeof message) == 0);
}

void requireFdOrClassic(const KernelFrame &frame, qint64 size)
{
    CAN::CanMessage message = usedRecord();
    const KernelFrameKind kind = buslink::takeFdOrClassicFrame(frame, size, message);
    require((kind == KernelFrameKind::Bad) == (size != 16 && size != 72));
    if (kind != KernelFrameKind::Frame) {
        require(std::memcmp(message.data, usedRecord().data, sizeof message.data) == 0 && message.length == 0);
        return;
    }
    require(message.isFd == (size == 72));
    require(message.isFd || (!message.isBrs && !message.isEsi));
    require(!message.isFd || !message.isRtr);
    requireValid(message, message.isRtr ? 255 : CANFD_MAX_DLEN);
    if (!message.isFd && !message.isRtr && message.length > CAN_MAX_DLEN)
        return; // Holds more than the frame that would go out.
    CAN::CanMessage again = usedRecord();
    const KernelFrame out =
        message.isFd ? bytesOf(buslink::fdFrameOf(message)) : bytesOf(buslink::classicFrameOf(message));
    require(buslink::takeFdOrClassicFrame(out, size, again) == KernelFrameKind::Frame);
    again.isEsi = message.isEsi; // Does not go out.
    require(std::memcmp(&again, &message, sizeof message) == 0);
}

/// Makes a record of any bytes, as a careless caller may, and sends it.
void requireBoundedSending(const KernelFrame &frame)
{
    CAN::CanMessage message;
    std::memcpy(&message.id, frame.bytes.data(), sizeof message.id);
    message.length = frame.bytes[4];
    message.isRtr = (frame.bytes[5] & 1) != 0;
    message.isExtended = (frame.bytes[5] & 2) != 0;
    message.isBrs = (frame.bytes[5] & 4) != 0;
    std::copy_n(frame.bytes.data() + 8, sizeof message.data, message.data);
    const can_frame classic = buslink::classicFrameOf(message);
    require(classic.len == message.length);
    const canfd_frame fd = buslink::fdFrameOf(message);
    require(fd.len == message.length && fd.flags == (message.isBrs ? CANFD_BRS : 0));
    const std::size_t sent = message.isRtr ? 0 : std::min<std::size_t>(message.length, CANFD_MAX_DLEN);
    require(std::equal(fd.data, fd.data + sent, message.data));
    require(std::equal(classic.data, classic.data + std::min<std::size_t>(sent, CAN_MAX_DLEN), message.data));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    KernelFrame frame;
    std::copy_n(data + 1, std::min(size - 1, frame.bytes.size()), frame.bytes.begin());
    const auto received = static_cast<qint64>(data[0] % 80) - 1;
    requireClassic(frame, received);
    requireFdOrClassic(frame, received);
    requireBoundedSending(frame);
    const std::optional<CAN::CanState> state = buslink::stateOfErrorFrame(frame);
    require(!state || (*state >= CAN::CanStateErrorActive && *state <= CAN::CanStateBusOff));
    return 0;
}
