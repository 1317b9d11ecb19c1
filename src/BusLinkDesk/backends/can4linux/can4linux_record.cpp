// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/can4linux/can4linux_record_p.h>

#include <BusLinkDesk/adapter/payload_length_p.h>

#include <algorithm>
#include <cstring>

namespace buslink {

namespace {

constexpr quint32 RemoteFlag = 0x001;
constexpr quint32 ExtendedFlag = 0x004;
constexpr quint32 SelfFlag = 0x008;
constexpr quint32 ErrorStateFlag = 0x010;
constexpr quint32 FdFlag = 0x100;
constexpr quint32 BitrateSwitchFlag = 0x200;

quint32 outgoingFlags(const CAN::CanMessage &message)
{
    const quint32 flags = message.isExtended ? ExtendedFlag : 0;
    // CAN FD has no remote frames, and classic frames have no bit-rate switch.
    if (message.isFd)
        return flags | FdFlag | (message.isBrs ? BitrateSwitchFlag : 0);
    return flags | (message.isRtr ? RemoteFlag : 0);
}

void copyPayload(quint8 *to, const quint8 *from, quint8 length)
{
    std::memcpy(to, from, std::min<std::size_t>(length, sizeof canmsg_t::data));
}

} // namespace

static_assert(sizeof canmsg_t::data == sizeof CAN::CanMessage::data);

canmsg_t driverFrameOf(const CAN::CanMessage &message)
{
    canmsg_t frame;
    frame.id = message.id;
    frame.flags = outgoingFlags(message);
    frame.length = roundUpToFdLength(message.length);
    if (!message.isRtr)
        copyPayload(frame.data, message.data, message.length);
    return frame;
}

CanTimeStamp stampOf(const canmsg_t &frame)
{
    CanTimeStamp stamp;
    stamp.seconds = static_cast<qint32>(frame.timestamp.tv_sec);
    stamp.microseconds = static_cast<qint32>(frame.timestamp.tv_usec);
    return stamp;
}

void takeDriverFrame(const canmsg_t &frame, CAN::CanRxMessage &record)
{
    CAN::CanMessage &message = record.message;
    message.length = static_cast<quint8>(frame.length);
    message.isRtr = (frame.flags & RemoteFlag) != 0;
    if (!message.isRtr)
        copyPayload(message.data, frame.data, message.length);
    message.id = frame.id;
    message.isExtended = (frame.flags & ExtendedFlag) != 0;
    record.isTx = (frame.flags & SelfFlag) != 0;
    message.isFd = (frame.flags & FdFlag) != 0;
    if (message.isFd) {
        message.isBrs = (frame.flags & BitrateSwitchFlag) != 0;
        message.isEsi = (frame.flags & ErrorStateFlag) != 0;
    }
}

} // namespace buslink
