// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <cstddef>

// Frames as the driver exchanges them, and frame records.
namespace buslink {

/// The driver's frame, as a 64-bit system lays it out. Every byte has a name and a value, so that none of what
/// memory held before reaches a driver.
struct canmsg_t
{
    quint32 flags = 0;
    quint32 fillWord = 0;
    quint32 id = 0;
    quint32 stampFillWord = 0;
    struct
    {
        qint64 tv_sec = 0;
        qint64 tv_usec = 0;
    } timestamp;
    quint32 length = 0;
    quint32 dataFillWord = 0;
    quint8 data[64] = {};
};
static_assert(sizeof(canmsg_t) == 104);
static_assert(offsetof(canmsg_t, id) == 8 && offsetof(canmsg_t, timestamp) == 16);
static_assert(offsetof(canmsg_t, length) == 32 && offsetof(canmsg_t, data) == 40);

/// The identifier with which the driver reports the state of the bus.
constexpr quint32 StateReportId = 0xFFFFFFFF;

/// Bits of the flags in a state report.
constexpr quint32 ReportPassive = 0x10;
constexpr quint32 ReportBusOff = 0x20;
/// A report in which none of these bits stands tells that the controller is error active.
constexpr quint32 ReportTrouble = 0xF2;

/// The driver's frame for a record. Of a payload that is longer than a frame's, its beginning is taken.
canmsg_t driverFrameOf(const CAN::CanMessage &message);

/// When the driver saw a frame.
CanTimeStamp stampOf(const canmsg_t &frame);

/// Puts all of a driver's frame but for its stamp into a record. Of the payload only what lies within the length,
/// and at most 64 bytes, changes; `isBrs` and `isEsi` change with a CAN FD frame alone.
void takeDriverFrame(const canmsg_t &frame, CAN::CanRxMessage &record);

} // namespace buslink
