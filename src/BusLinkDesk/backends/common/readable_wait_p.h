// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <sys/select.h>
#include <vector>

namespace buslink {

/// Waits for a descriptor to become readable.
class ReadableWait
{
public:
    /// What the wait ended with.
    enum class Result { Readable, TimedOut, Failed };

    /// *Blocks:* up to `timeoutUs`, which is below a second. *Fails:* `Failed`; the wait was interrupted or
    /// the descriptor is not valid.
    Result wait(int descriptor, int timeoutUs)
    {
        if (descriptor < 0)
            return Result::Failed;
        const auto bit = static_cast<std::size_t>(descriptor) % FD_SETSIZE;
        const auto set = static_cast<std::size_t>(descriptor) / FD_SETSIZE;
        fd_set *const sets = clearedSets(set + 1);
        FD_SET(bit, &sets[set]);
        timeval timeout{0, timeoutUs};
        if (::select(descriptor + 1, sets, nullptr, nullptr, &timeout) < 0)
            return Result::Failed;
        return FD_ISSET(bit, &sets[set]) ? Result::Readable : Result::TimedOut;
    }

private:
    // One set ends at descriptor 1023, but the system takes a row of them.
    fd_set *clearedSets(std::size_t count)
    {
        if (count > 1) {
            mRow.assign(count, fd_set{});
            return mRow.data();
        }
        FD_ZERO(&mOne);
        return &mOne;
    }

    fd_set mOne;
    std::vector<fd_set> mRow;
};

} // namespace buslink
