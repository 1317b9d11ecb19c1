// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/socket_can_frame_p.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <linux/can/error.h>

namespace buslink {

namespace {

// Both structures begin alike, so a frame can be read before its kind is known.
static_assert(sizeof(can_frame) == CAN_MTU && sizeof(canfd_frame) == CANFD_MTU);
static_assert(offsetof(can_frame, len) == offsetof(canfd_frame, len));
static_assert(offsetof(can_frame, data) == offsetof(canfd_frame, data));

constexpr std::size_t LengthOffset = offsetof(canfd_frame, len);
constexpr std::size_t FlagsOffset = offsetof(canfd_frame, flags);
constexpr std::size_t DataOffset = offsetof(canfd_frame, data);
constexpr std::size_t AnyLength = std::numeric_limits<quint8>::max();

canid_t identifierWord(const KernelFrame &frame)
{
    canid_t word = 0;
    std::memcpy(&word, frame.bytes.data(), sizeof word);
    return word;
}

void takeIdentifier(canid_t word, CAN::CanMessage &message)
{
    message.isExtended = (word & CAN_EFF_FLAG) != 0;
    message.id = word & (message.isExtended ? CAN_EFF_MASK : CAN_SFF_MASK);
}

void takePayload(const KernelFrame &frame, std::size_t capacity, bool isRtr, CAN::CanMessage &message)
{
    message.length = static_cast<quint8>(std::min<std::size_t>(frame.bytes[LengthOffset], capacity));
    message.isRtr = isRtr;
    if (!isRtr)
        std::memcpy(message.data, frame.bytes.data() + DataOffset, message.length);
}

template <typename Frame>
void putPayload(const CAN::CanMessage &message, Frame &frame)
{
    frame.len = message.length;
    if (!message.isRtr)
        std::memcpy(frame.data, message.data, std::min<std::size_t>(message.length, sizeof frame.data));
}

canid_t outgoingIdentifier(const CAN::CanMessage &message)
{
    return message.id | (message.isExtended ? CAN_EFF_FLAG : 0U);
}

} // namespace

KernelFrameKind takeClassicFrame(const KernelFrame &frame, qint64 size, CAN::CanMessage &message)
{
    if (size < static_cast<qint64>(CAN_MTU))
        return KernelFrameKind::Bad;
    const canid_t word = identifierWord(frame);
    if ((word & CAN_ERR_FLAG) != 0)
        return KernelFrameKind::Error;
    takePayload(frame, CAN_MAX_DLEN, (word & CAN_RTR_FLAG) != 0, message);
    takeIdentifier(word, message);
    return KernelFrameKind::Frame;
}

KernelFrameKind takeFdOrClassicFrame(const KernelFrame &frame, qint64 size, CAN::CanMessage &message)
{
    const bool isFd = size == static_cast<qint64>(CANFD_MTU);
    if (!isFd && size != static_cast<qint64>(CAN_MTU))
        return KernelFrameKind::Bad;
    const canid_t word = identifierWord(frame);
    if ((word & CAN_ERR_FLAG) != 0)
        return KernelFrameKind::Error;
    message.isFd = isFd;
    message.isBrs = isFd && (frame.bytes[FlagsOffset] & CANFD_BRS) != 0;
    message.isEsi = isFd && (frame.bytes[FlagsOffset] & CANFD_ESI) != 0;
    // CAN FD has no remote frames, so the flag says nothing in one. The length counts as it came, but for what
    // the record has no room for; without a payload there is nothing that it could exceed.
    const bool isRtr = !isFd && (word & CAN_RTR_FLAG) != 0;
    takePayload(frame, isRtr ? AnyLength : CANFD_MAX_DLEN, isRtr, message);
    takeIdentifier(word, message);
    return KernelFrameKind::Frame;
}

std::optional<CAN::CanState> stateOfErrorFrame(const KernelFrame &frame)
{
    const canid_t word = identifierWord(frame);
    const unsigned char *data = frame.bytes.data() + DataOffset;
    if ((word & CAN_ERR_CRTL) != 0 && (data[1] & (CAN_ERR_CRTL_RX_PASSIVE | CAN_ERR_CRTL_TX_PASSIVE)) != 0)
        return CAN::CanStateErrorPassive;
    if ((word & CAN_ERR_PROT) != 0 && (data[2] & CAN_ERR_PROT_ACTIVE) != 0)
        return CAN::CanStateErrorActive;
    if ((word & CAN_ERR_BUSOFF) != 0)
        return CAN::CanStateBusOff;
    return std::nullopt;
}

can_frame classicFrameOf(const CAN::CanMessage &message)
{
    can_frame frame{};
    frame.can_id = outgoingIdentifier(message) | (message.isRtr ? CAN_RTR_FLAG : 0U);
    putPayload(message, frame);
    return frame;
}

canfd_frame fdFrameOf(const CAN::CanMessage &message)
{
    canfd_frame frame{};
    frame.can_id = outgoingIdentifier(message);
    frame.flags = message.isBrs ? CANFD_BRS : 0;
    putPayload(message, frame);
    return frame;
}

} // namespace buslink
