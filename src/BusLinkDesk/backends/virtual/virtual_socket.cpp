// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/virtual/virtual_socket_p.h>

#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

namespace buslink {

namespace {

constexpr int ReceiveBufferBytes = 8 * 1024 * 1024;

} // namespace

void enlargeReceiveBuffer(qintptr descriptor)
{
    const int socket = static_cast<int>(descriptor);
    const int bytes = ReceiveBufferBytes;
    // The first form is not bounded by net.core.rmem_max but needs a privilege.
    if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

bool receiveDatagram(qintptr descriptor, VirtualDatagram &datagram, quint16 &senderPort)
{
    sockaddr_in sender{};
    ssize_t received = -1;
    do {
        socklen_t senderLength = sizeof sender;
        received = ::recvfrom(static_cast<int>(descriptor), datagram.data(), datagram.size(), MSG_DONTWAIT,
                              reinterpret_cast<sockaddr *>(&sender), &senderLength);
    } while (received < 0 && errno == EINTR);
    if (received < 0)
        return false;
    senderPort = ntohs(sender.sin_port);
    return true;
}

} // namespace buslink
