// SPDX-License-Identifier: MIT
#include "busdesk/frame_inbox.h"

namespace buslink {

FrameInbox::FrameInbox(std::size_t capacity) : mCapacity(capacity)
{
    mFrames.reserve(capacity);
}

void FrameInbox::push(const CAN::CanRxMessage &frame)
{
    const std::lock_guard lock(mMutex);
    if (mFrames.size() < mCapacity)
        mFrames.push_back(frame);
    else
        ++mLost;
}

// The memory is got before the lock, so that no adapter waits for it.
void FrameInbox::take(std::vector<CAN::CanRxMessage> &frames)
{
    frames.clear();
    frames.reserve(mCapacity);
    const std::lock_guard lock(mMutex);
    mFrames.swap(frames);
}

qint64 FrameInbox::lostFrames() const
{
    const std::lock_guard lock(mMutex);
    return mLost;
}

} // namespace buslink
