// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

// Sockets that an adapter has replaced while its loop was running. They are kept beside the adapters, whose
// size is fixed.
namespace buslink {

/// Leaves a socket to be closed by the next `closeRetiredSockets()` for the same adapter. *Thread:* any.
void retireSocket(const void *adapter, int socket);

/// Whether any adapter has retired sockets, and the closing of those of one.
inline constinit std::atomic<bool> anySocketIsRetired = false;
void closeThoseRetired(const void *adapter);

/// Closes what was retired of an adapter. Costs next to nothing where no adapter has any. *Thread:* any, as long
/// as no other one is using the sockets.
inline void closeRetiredSockets(const void *adapter)
{
    if (anySocketIsRetired.load(std::memory_order_relaxed))
        closeThoseRetired(adapter);
}

} // namespace buslink
