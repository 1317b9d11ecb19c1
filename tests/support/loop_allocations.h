// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include "support/allocation_count.h"

#include <atomic>
#include <memory>

/// Counts how often the loop of an adapter allocates from one received frame to a later one.
class LoopAllocations
{
public:
    /// Counts from the frame of the first number, which starts at 1, to that of the last.
    LoopAllocations(AbstractCanAdapter *adapter, int first, int last)
    {
        QObject::connect(
            adapter, &AbstractCanAdapter::newCanMessage, adapter,
            [counts = mCounts, first, last](CAN::CanRxMessage *) {
                ++counts->frames;
                if (counts->frames == first)
                    counts->before = allocationsOfThisThread();
                if (counts->frames == last)
                    counts->between = allocationsOfThisThread() - counts->before;
            },
            Qt::DirectConnection);
    }

    /// -1 until the last frame has come.
    qint64 count() const { return mCounts->between; }

private:
    struct Counts
    {
        int frames = 0; // This and the next belong to the adapter's thread.
        qint64 before = 0;
        std::atomic<qint64> between = -1;
    };

    // Shared with the loop, which may run on when the test is over.
    std::shared_ptr<Counts> mCounts = std::make_shared<Counts>();
};
