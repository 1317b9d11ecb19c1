// SPDX-License-Identifier: MIT
#include "common/serial_line.h"

#include <BusLinkDesk/backends/serial/serial_port_adapter.h>

#include <algorithm>

namespace buslink {

namespace {

// One more than a byte has there: the clocks of the two ends differ, and what is reckoned too short adds up.
constexpr double BitsPerByte = 11;
// What the adapter's thread, the drivers and the device may take beyond that, on a machine that is busy as well: a port
// that is closed throws away what its driver still holds.
constexpr std::chrono::milliseconds Margin{1000};

// Head, type, identifier and control byte, payload, a byte for every seven behind the head, checksum.
int bytesOnTheLine(const CAN::CanMessage &frame)
{
    const int payload = frame.isRtr ? 0 : std::min<int>(frame.length, sizeof frame.data);
    const int message = (frame.isExtended ? 7 : 5) + payload;
    return message + (message - 1 + 6) / 7 + 1;
}

} // namespace

void SerialLine::setAdapter(const AbstractCanAdapter &adapter)
{
    if (qobject_cast<const serialPortAdapter *>(&adapter))
        mBitsPerSecond = adapter.getCanAdapterOption(AbstractCanAdapter::option_baudrate).toDouble();
}

void SerialLine::frameQueued(const CAN::CanMessage &frame, Clock::time_point now)
{
    if (mBitsPerSecond <= 0)
        return;
    const std::chrono::duration<double> time(bytesOnTheLine(frame) * BitsPerByte / mBitsPerSecond);
    const std::lock_guard lock(mMutex);
    mFree = std::max(mFree, now) + std::chrono::duration_cast<Clock::duration>(time);
}

bool SerialLine::hasRoom(Clock::time_point now) const
{
    if (mBitsPerSecond <= 0)
        return true;
    const std::lock_guard lock(mMutex);
    return mFree <= now + Ahead;
}

bool SerialLine::isFree(Clock::time_point now) const
{
    if (mBitsPerSecond <= 0)
        return true;
    const std::lock_guard lock(mMutex);
    return mFree + Margin <= now;
}

} // namespace buslink
