// SPDX-License-Identifier: MIT
// The limit: a loop of the system calls that a frame cannot do without, and nothing around them.
#include "peer.h"

#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

int boundSocket(const char *interface)
{
    const int bytes = 500'000;
    const int socket = ::socket(PF_CAN, SOCK_RAW, CAN_RAW);
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(::if_nametoindex(interface));
    if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    if (address.can_ifindex == 0 || ::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        std::perror(interface);
        std::exit(StatusNotHere);
    }
    return socket;
}

int receive(const Order &order)
{
    FrameMeter meter(order.frames);
    const int socket = boundSocket(order.interface);
    can_frame frame{};
    iovec buffer{&frame, sizeof frame};
    msghdr message{};
    message.msg_iov = &buffer;
    message.msg_iovlen = 1;
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(socket, &readable);
        timeval timeout{0, FrameMeter::PollMilliseconds * 1000L};
        if (::select(socket + 1, &readable, nullptr, nullptr, &timeout) <= 0) {
            if (meter.over())
                break;
        } else if (::recvmsg(socket, &message, 0) == sizeof frame && meter.count()) {
            break;
        }
    }
    return meter.print();
}

int send(const Order &order)
{
    const int socket = boundSocket(order.interface);
    can_frame frame{};
    frame.len = CAN_MAX_DLEN;
    return sendAll(order, [&](long number, unsigned int identifier) {
        const auto value = static_cast<unsigned int>(number);
        frame.can_id = identifier;
        std::memcpy(frame.data, &value, sizeof value);
        return ::write(socket, &frame, sizeof frame) == sizeof frame;
    });
}

} // namespace

int main(int argc, char **argv)
{
    const Order order = orderOf(argc, argv);
    return order.receive ? receive(order) : send(order);
}
