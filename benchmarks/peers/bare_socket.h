// SPDX-License-Identifier: MIT
#pragma once

#include "peers/peer.h"

#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

/// The address of an interface; its index is 0 where there is none of that name.
inline sockaddr_can canAddress(const std::string &interface)
{
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
    return address;
}

/// A raw socket on a CAN interface and the system calls that a frame cannot do without, with nothing around them.
class BareSocket
{
public:
    explicit BareSocket(const Order &order) : mDescriptor(::socket(PF_CAN, SOCK_RAW, CAN_RAW)), mFd(order.fd)
    {
        const int bytes = 500'000;
        const int on = mFd;
        const sockaddr_can address = canAddress(order.interface);
        if (::setsockopt(mDescriptor, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
            ::setsockopt(mDescriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
        ::setsockopt(mDescriptor, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &on, sizeof on);
        if (address.can_ifindex == 0
            || ::bind(mDescriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            std::perror(order.interface.c_str());
            std::exit(StatusNotHere);
        }
    }
    ~BareSocket() { ::close(mDescriptor); }
    BareSocket(const BareSocket &) = delete;
    BareSocket &operator=(const BareSocket &) = delete;

    /// Whether a frame comes within the time.
    bool wait(int milliseconds) const
    {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(mDescriptor, &readable);
        timeval timeout{0, milliseconds * 1000L};
        return ::select(mDescriptor + 1, &readable, nullptr, nullptr, &timeout) > 0;
    }
    /// Takes a frame; whether it is a whole one.
    bool receive()
    {
        iovec buffer{&mReceived, size()};
        msghdr message{};
        message.msg_iov = &buffer;
        message.msg_iovlen = 1;
        return ::recvmsg(mDescriptor, &message, 0) == static_cast<ssize_t>(size());
    }
    /// The identifier of the frame that was received last.
    unsigned int identifier() const { return mReceived.can_id; }
    /// Sends a frame; whether it is on its way.
    bool send(long number, unsigned int identifier)
    {
        const auto value = static_cast<unsigned int>(number);
        mSent.can_id = identifier;
        mSent.len = mFd ? CANFD_MAX_DLEN : CAN_MAX_DLEN;
        mSent.flags = mFd ? CANFD_BRS : 0;
        std::memcpy(mSent.data, &value, sizeof value);
        return ::write(mDescriptor, &mSent, size()) == static_cast<ssize_t>(size());
    }

private:
    // A classic frame is the beginning of one of CAN FD.
    std::size_t size() const { return mFd ? CANFD_MTU : CAN_MTU; }

    int mDescriptor;
    bool mFd;
    canfd_frame mReceived{};
    canfd_frame mSent{};
};

/// Sends the frames of arrivals, on a thread that does nothing else, to one that takes them.
inline int sendArrivals(const Order &order, TripMeter &meter)
{
    BareSocket sender(order);
    return meter.run(
        order.frames, [&sender](long number) { sender.send(number, QuestionId); }, TripMeter::nap);
}
