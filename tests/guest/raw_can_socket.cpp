// SPDX-License-Identifier: MIT
#include "raw_can_socket.h"

#include <QtCore/QProcess>

#include <array>
#include <cerrno>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

RawCanSocket::RawCanSocket(const char *interface) : mSocket(::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW))
{
    const int enable = 1;
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(::if_nametoindex(interface));
    if (mSocket < 0 || address.can_ifindex == 0
        || ::setsockopt(mSocket, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &enable, sizeof enable) != 0
        || ::bind(mSocket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        qFatal("no peer on %s", interface);
}

RawCanSocket::~RawCanSocket()
{
    ::close(mSocket);
}

bool RawCanSocket::send(const QByteArray &frame) const
{
    ssize_t sent = -1;
    do {
        sent = ::write(mSocket, frame.constData(), static_cast<std::size_t>(frame.size()));
    } while (sent < 0 && (errno == ENOBUFS || errno == EINTR));
    return sent == frame.size();
}

QByteArray RawCanSocket::receive(int timeoutMs) const
{
    pollfd ready{mSocket, POLLIN, 0};
    if (::poll(&ready, 1, timeoutMs) <= 0)
        return {};
    std::array<char, CANFD_MTU> bytes{};
    const ssize_t size = ::read(mSocket, bytes.data(), bytes.size());
    return size < 0 ? QByteArray() : QByteArray(bytes.data(), static_cast<int>(size));
}

QString shell(const QString &command)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
    const bool good =
        process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    const QString output = QString::fromUtf8(process.readAll());
    return good ? output : QStringLiteral("failed: ") + output;
}
