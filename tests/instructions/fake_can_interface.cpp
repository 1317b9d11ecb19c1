// SPDX-License-Identifier: MIT
#include "fake_can_interface.h"

#include <QtCore/qglobal.h>

#include <cstdarg>
#include <dlfcn.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

int farEnd = -1;

template <typename Function>
Function *next(Function *, const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

} // namespace

int farEndOfCanSocket()
{
    return farEnd;
}

// The libraries' calls are bound to these functions of the program. They are those that set a socket up; reading,
// writing and waiting are the system's own.
extern "C" {

Q_DECL_EXPORT int socket(int domain, int type, int protocol) noexcept
{
    if (domain != PF_CAN)
        return next(&::socket, "socket")(domain, type, protocol);
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
        return -1;
    farEnd = ends[1];
    return ends[0];
}

Q_DECL_EXPORT int bind(int descriptor, const sockaddr *address, socklen_t length) noexcept
{
    return address->sa_family == AF_CAN ? 0 : next(&::bind, "bind")(descriptor, address, length);
}

Q_DECL_EXPORT int setsockopt(int descriptor, int level, int name, const void *value, socklen_t length) noexcept
{
    return level == SOL_CAN_RAW ? 0 : next(&::setsockopt, "setsockopt")(descriptor, level, name, value, length);
}

Q_DECL_EXPORT int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (request != SIOCGIFINDEX)
        return next(&::ioctl, "ioctl")(descriptor, request, argument);
    static_cast<ifreq *>(argument)->ifr_ifindex = 1;
    return 0;
}

} // extern "C"
