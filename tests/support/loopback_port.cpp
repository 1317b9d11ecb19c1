// SPDX-License-Identifier: MIT
#include "support/loopback_port.h"

#include <QtCore/QtGlobal>

#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in loopback(quint16 port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

} // namespace

LoopbackPort::LoopbackPort() : mListener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (::bind(mListener, reinterpret_cast<sockaddr *>(&address), length) != 0
        || ::getsockname(mListener, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        qFatal("no free TCP port");
    mNumber = ntohs(address.sin_port);
}

LoopbackPort::~LoopbackPort()
{
    for (const int descriptor : qAsConst(mOthers))
        ::close(descriptor);
    ::close(mListener);
}

void LoopbackPort::listen()
{
    if (::listen(mListener, 5) != 0)
        qFatal("no listening TCP port");
}

bool LoopbackPort::stopAnswering()
{
    if (::listen(mListener, 0) != 0)
        return false;
    const sockaddr_in address = loopback(mNumber);
    for (int attempt = 0; attempt < 10; ++attempt) {
        mOthers.append(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (::connect(mOthers.constLast(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0
            && errno != EINPROGRESS)
            return false;
        pollfd waiting{mOthers.constLast(), POLLOUT, 0};
        if (::poll(&waiting, 1, 300) == 0)
            return true;
    }
    return false;
}

int LoopbackPort::accept()
{
    mOthers.append(::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC));
    return mOthers.constLast();
}
