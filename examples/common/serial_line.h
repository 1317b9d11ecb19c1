// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <chrono>
#include <mutex>

class AbstractCanAdapter;

namespace buslink {

/// Reckons how long the line behind a serial port is busy with the frames that its adapter queued. The adapter
/// takes any number of them at once and keeps in its queue, when it stops, what the line has not carried yet.
/// Other adapters have no such line, and theirs is always free. *Thread:* any, once the adapter is set.
class SerialLine
{
public:
    using Clock = std::chrono::steady_clock;

    /// How far the queue may run ahead of the line: the longest wait at the end, but for one frame and for the second
    /// that drivers get behind it.
    static constexpr std::chrono::milliseconds Ahead{1000};
    /// When to ask again whether there is room: well below what the line may be behind, so that it does not run empty.
    static constexpr std::chrono::milliseconds AskAgain{50};

    /// Takes over the rate at which the adapter will open its port.
    void setAdapter(const AbstractCanAdapter &adapter);
    /// Says that a frame was queued.
    void frameQueued(const CAN::CanMessage &frame, Clock::time_point now = Clock::now());
    /// Whether another frame should be queued.
    bool hasRoom(Clock::time_point now = Clock::now()) const;
    /// Whether all frames have been carried.
    bool isFree(Clock::time_point now = Clock::now()) const;

private:
    double mBitsPerSecond = 0; // 0: no line
    mutable std::mutex mMutex;
    Clock::time_point mFree = Clock::time_point::min(); // by mMutex
};

} // namespace buslink
