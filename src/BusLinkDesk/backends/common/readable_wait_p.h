// SPDX-License-Identifier: MIT
#pragma once

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
    Result wait(int descriptor, int timeoutUs);

private:
    std::vector<fd_set> mSets;
};

} // namespace buslink
