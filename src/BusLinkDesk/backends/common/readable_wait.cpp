// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/common/readable_wait_p.h>

#include <cstddef>

namespace buslink {

ReadableWait::Result ReadableWait::wait(int descriptor, int timeoutUs)
{
    if (descriptor < 0)
        return Result::Failed;
    // One set ends at descriptor 1023, but the system takes a row of them.
    const auto bit = static_cast<std::size_t>(descriptor) % FD_SETSIZE;
    const auto set = static_cast<std::size_t>(descriptor) / FD_SETSIZE;
    mSets.assign(set + 1, fd_set{});
    FD_SET(bit, &mSets[set]);
    timeval timeout{0, timeoutUs};
    if (::select(descriptor + 1, mSets.data(), nullptr, nullptr, &timeout) < 0)
        return Result::Failed;
    return FD_ISSET(bit, &mSets[set]) ? Result::Readable : Result::TimedOut;
}

} // namespace buslink
