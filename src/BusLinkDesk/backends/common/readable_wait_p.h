// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>

namespace buslink {

/// What a wait ended with.
enum class WaitResult { Readable, TimedOut, Failed };

/// Waits for a descriptor to become readable, or to have an error or an end to tell by a read.
/// *Blocks:* up to `timeoutMs` milliseconds. *Fails:* `Failed`; the wait was interrupted or the descriptor is not
/// valid.
inline WaitResult waitUntilReadable(int descriptor, int timeoutMs)
{
    if (descriptor < 0)
        return WaitResult::Failed; // The system would sit the time out.
    pollfd entry{descriptor, POLLIN | POLLRDNORM | POLLRDBAND, 0};
    const int ready = ::poll(&entry, 1, timeoutMs);
    if (ready < 0 || (entry.revents & POLLNVAL) != 0)
        return WaitResult::Failed;
    return ready > 0 ? WaitResult::Readable : WaitResult::TimedOut;
}

} // namespace buslink
