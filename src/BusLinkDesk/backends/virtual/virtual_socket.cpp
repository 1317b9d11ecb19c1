// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/virtual/virtual_socket_p.h>

#include <QtCore/QThread>

#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace buslink {

namespace {

constexpr int ReceiveBufferBytes = 8 * 1024 * 1024;
constexpr long ShortestPauseNs = 1000;
// Short for a loop that is told to end by its flag alone.
constexpr long LongestPauseNs = 10'000'000;

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

int openPauseEnd()
{
    return ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

void endPause(int pauseEnd)
{
    static_cast<void>(::eventfd_write(pauseEnd, 1));
}

void pauseUnlessReadable(qintptr descriptor, int pauseEnd)
{
    std::array<pollfd, 2> awaited{{{static_cast<int>(descriptor), POLLIN, 0}, {pauseEnd, POLLIN, 0}}};
    const timespec longest{0, pauseEnd < 0 ? ShortestPauseNs : LongestPauseNs};
    const int ready = ::ppoll(awaited.data(), awaited.size(), &longest, nullptr);
    if ((awaited[1].revents & POLLIN) != 0) {
        eventfd_t count = 0;
        static_cast<void>(::eventfd_read(pauseEnd, &count));
    } else if (ready != 0 && (awaited[0].revents & POLLIN) == 0) {
        // Whatever has ended it at once would do so each time.
        QThread::usleep(1);
    }
}

} // namespace buslink
