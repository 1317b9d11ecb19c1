// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include "support/allocation_count.h"

#include <atomic>

/// Counts how often the loop of an adapter allocates from one received frame to a later one.
class LoopAllocations
{
public:
    /// Counts from the frame of the first number, which starts at 1, to that of the last.
    LoopAllocations(AbstractCanAdapter *adapter, int first, int last)
    {
        QObject::connect(
            adapter, &AbstractCanAdapter::newCanMessage, adapter,
            [this, first, last](CAN::CanRxMessage *) {
                ++mFrames;
                if (mFrames == first)
                    mBefore = allocationsOfThisThread();
                if (mFrames == last)
                    mCount = allocationsOfThisThread() - mBefore;
            },
            Qt::DirectConnection);
    }
    Q_DISABLE_COPY_MOVE(LoopAllocations)

    /// -1 until the last frame has come.
    qint64 count() const { return mCount; }

private:
    int mFrames = 0; // This and the next belong to the adapter's thread.
    qint64 mBefore = 0;
    std::atomic<qint64> mCount = -1;
};
