// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/retired_sockets_p.h>

#include <algorithm>
#include <mutex>
#include <unistd.h>
#include <vector>

namespace buslink {

namespace {

struct RetiredSocket
{
    const void *adapter;
    int socket;
};

struct RetiredSockets
{
    std::mutex mutex;
    std::vector<RetiredSocket> list;
};

// Never deleted, since adapters may be as static as this.
RetiredSockets &retired()
{
    static auto *const sockets = new RetiredSockets;
    return *sockets;
}

} // namespace

void retireSocket(const void *adapter, int socket)
{
    RetiredSockets &sockets = retired();
    const std::lock_guard lock(sockets.mutex);
    sockets.list.push_back({adapter, socket});
    anySocketIsRetired = true;
}

void closeThoseRetired(const void *adapter)
{
    RetiredSockets &sockets = retired();
    const std::lock_guard lock(sockets.mutex);
    const auto others = std::partition(sockets.list.begin(), sockets.list.end(),
                                       [adapter](const RetiredSocket &one) { return one.adapter != adapter; });
    std::for_each(others, sockets.list.end(), [](const RetiredSocket &one) { ::close(one.socket); });
    sockets.list.erase(others, sockets.list.end());
    anySocketIsRetired = !sockets.list.empty();
}

} // namespace buslink
