// SPDX-License-Identifier: MIT
#include "support/two_hosts.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void writeFile(const char *path, const QByteArray &text)
{
    QFile file(QString::fromLatin1(path));
    if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        file.write(text);
}

// Who is not root may be so in a user namespace, where the system allows one.
bool leaveTheMachine()
{
    const QByteArray user = QByteArray::number(::geteuid());
    const QByteArray group = QByteArray::number(::getegid());
    if (::unshare(CLONE_NEWNET) == 0)
        return true;
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", "0 " + user + " 1");
    writeFile("/proc/self/gid_map", "0 " + group + " 1");
    return true;
}

WireDatagram datagramOf(const QByteArray &packet)
{
    iphdr ip{};
    udphdr udp{};
    if (packet.size() < int(sizeof ip + sizeof udp))
        return {};
    std::memcpy(&ip, packet.constData(), sizeof ip);
    const int header = int(ip.ihl) * 4;
    std::memcpy(&udp, packet.constData() + header, sizeof udp);
    return {QHostAddress(ntohl(ip.daddr)), ntohs(udp.dest),
            packet.mid(header + int(sizeof udp), ntohs(udp.len) - int(sizeof udp))};
}

} // namespace

TwoHosts::TwoHosts()
{
    if (!leaveTheMachine()) {
        mError = QStringLiteral("no network namespace: ") + qt_error_string(errno);
        return;
    }
    mHome = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    mOther = makeNamespace();
    mLone = makeNamespace();
    mError = connectHosts();
}

TwoHosts::~TwoHosts()
{
    for (const int descriptor : {mHome, mOther, mLone}) {
        if (descriptor >= 0)
            ::close(descriptor);
    }
}

int TwoHosts::makeNamespace()
{
    ::unshare(CLONE_NEWNET);
    const int descriptor = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    ::setns(mHome, CLONE_NEWNET);
    return descriptor;
}

void TwoHosts::inNamespace(int descriptor, const std::function<void()> &action) const
{
    ::setns(descriptor, CLONE_NEWNET);
    action();
    ::setns(mHome, CLONE_NEWNET);
}

// The other host has no loopback network, so that it can be made to send its addresses over the wire.
QString TwoHosts::connectHosts() const
{
    const QString peer = QStringLiteral("/proc/%1/fd/%2").arg(::getpid()).arg(mOther);
    QString error = run(QStringLiteral("ip link set lo up"));
    error += run(QStringLiteral("ip link add here type veth peer name there netns ") + peer);
    error += run(QStringLiteral("ip addr add 10.88.0.1/24 brd + dev here"));
    error += run(QStringLiteral("ip link set here up addrgenmode none"));
    onOtherHost([&] {
        error += run(QStringLiteral("ip addr add 10.88.0.2/24 brd + dev there"));
        error += run(QStringLiteral("ip link set there up addrgenmode none"));
        error += run(QStringLiteral("ip route add default via 10.88.0.1 dev there"));
    });
    onLoneHost([&] { error += run(QStringLiteral("ip link set lo up")); });
    return error;
}

QString TwoHosts::run(const QString &commandLine)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("/bin/sh"),
                  {QStringLiteral("-c"), QStringLiteral("PATH=$PATH:/usr/sbin:/sbin; ") + commandLine});
    process.waitForFinished();
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return {};
    return commandLine + QStringLiteral(": ") + QString::fromLocal8Bit(process.readAll()).simplified()
           + QLatin1Char(' ');
}

WireTap::WireTap(const char *interfaceName)
    : mSocket(::socket(AF_PACKET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(ETH_P_IP)))
{
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(::if_nametoindex(interfaceName));
    // A tap that hears nothing fails whoever asks it.
    static_cast<void>(::bind(mSocket, reinterpret_cast<const sockaddr *>(&address), sizeof address));
}

WireTap::~WireTap()
{
    ::close(mSocket);
}

const QVector<WireDatagram> &WireTap::datagrams()
{
    for (;;) {
        std::array<char, 2048> packet;
        sockaddr_ll sender{};
        socklen_t size = sizeof sender;
        const ssize_t received =
            ::recvfrom(mSocket, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr *>(&sender), &size);
        if (received < 0)
            return mDatagrams;
        if (sender.sll_pkttype != PACKET_OUTGOING)
            mDatagrams.append(datagramOf(QByteArray(packet.data(), static_cast<int>(received))));
    }
}
