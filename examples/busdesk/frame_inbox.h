// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <cstddef>
#include <mutex>
#include <vector>

namespace buslink {

/// Where the adapters' threads leave frames for the window, which fetches them a few times a second: an event for
/// each frame would keep it busy with nothing else. It is bounded, since nobody else can stop a bus.
class FrameInbox
{
public:
    explicit FrameInbox(std::size_t capacity = 1U << 16U);

    /// Takes a frame, or counts it as lost where the inbox is full. *Thread:* any.
    void push(const CAN::CanRxMessage &frame);
    /// Puts what has come in since the last call in the place of `frames`, the memory of which is used further.
    void take(std::vector<CAN::CanRxMessage> &frames);
    /// How many frames found no room so far. *Thread:* any.
    qint64 lostFrames() const;

private:
    const std::size_t mCapacity;
    mutable std::mutex mMutex;
    std::vector<CAN::CanRxMessage> mFrames; // by mMutex, as the one below
    qint64 mLost = 0;
};

} // namespace buslink
