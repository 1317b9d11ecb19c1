// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/socket_can_socket_p.h>

#include <BusLinkDesk/adapter/relaxed_p.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace buslink {

namespace {

constexpr int ReceiveBufferBytes = 500'000;

std::optional<int> receiveBufferSize(int socket)
{
    int bytes = 0;
    socklen_t length = sizeof bytes;
    if (::getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, &length) < 0)
        return std::nullopt;
    return bytes;
}

bool wroteAll(int socket, const void *frame, std::size_t size)
{
    // A short write leaves it alone, and must not be told with the reason of an earlier call: it has none.
    errno = 0;
    return ::write(socket, frame, size) == static_cast<ssize_t>(size);
}

} // namespace

void replaceDescriptor(int &field, int fresh)
{
    const int stale = relaxedLoad(field);
    if (stale >= 0 && fresh >= 0 && ::dup3(fresh, stale, O_CLOEXEC) >= 0) {
        ::close(fresh);
        return;
    }
    relaxedStore(field, fresh);
    if (stale >= 0)
        ::close(stale);
}

bool bindToInterface(int socket, const QByteArray &name)
{
    ifreq request{};
    const std::size_t length = std::strlen(name.constData());
    // The caller's mistake must neither write past the field nor reach an interface with a similar name.
    if (length >= sizeof request.ifr_name)
        std::abort();
    std::memcpy(request.ifr_name, name.constData(), length + 1);
    if (::ioctl(socket, SIOCGIFINDEX, &request) < 0) {
        std::perror("SIOCGIFINDEX");
        return false;
    }

    const int enable = 1;
    if (::setsockopt(socket, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &enable, sizeof enable) != 0)
        std::fputs("error when enabling CAN FD support\n", stderr);

    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = request.ifr_ifindex;
    if (::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
        std::perror("bind");
        return false;
    }
    return true;
}

std::optional<int> enlargeReceiveBuffer(int socket)
{
    const int bytes = ReceiveBufferBytes;
    // The first form is not bounded by net.core.rmem_max but needs a privilege.
    if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) < 0) {
        if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes) < 0)
            std::perror("setsockopt SO_RCVBUF");
        else if (!receiveBufferSize(socket))
            std::perror("getsockopt SO_RCVBUF");
    }
    return receiveBufferSize(socket);
}

void requestErrorFrames(int socket)
{
    const can_err_mask_t mask = CAN_ERR_FLAG | CAN_ERR_BUSOFF | CAN_ERR_PROT | CAN_ERR_CRTL;
    if (::setsockopt(socket, SOL_CAN_RAW, CAN_RAW_ERR_FILTER, &mask, sizeof mask) < 0)
        std::perror("no error messages possible\n");
}

qint64 receiveFrame(int socket, std::size_t capacity, KernelFrame &frame)
{
    // Nothing looks at the sender's address and the control messages.
    sockaddr_can sender;
    alignas(cmsghdr) std::array<unsigned char, 56> control;
    iovec buffer{frame.bytes.data(), std::min(capacity, frame.bytes.size())};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &buffer;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    return ::recvmsg(socket, &message, 0);
}

CAN::RetType sendFrame(int socket, const can_frame &frame)
{
    if (wroteAll(socket, &frame, sizeof frame))
        return CAN::RetOk;
    return errno == ENOBUFS ? CAN::RetTxBufferFull : CAN::RetError;
}

CAN::RetType sendFrame(int socket, const canfd_frame &frame)
{
    if (wroteAll(socket, &frame, sizeof frame))
        return CAN::RetOk;
    if (errno != EINTR)
        std::perror("write");
    return CAN::RetError;
}

} // namespace buslink
