// SPDX-License-Identifier: MIT
// The pace of cyclic transmission on a CAN interface, beside a bare loop around clock_nanosleep on a thread of the same
// priority and timer slack, and beside the kernel's own cyclic transmission. The kernel's stamps of the frames count,
// as another socket gets them.
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/traffic/can_message_transmitter.h>

#include "peers/bare_socket.h"
#include "support/can_peers.h"
#include "support/pace.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>

#include <array>
#include <atomic>
#include <ctime>
#include <linux/can/bcm.h>
#include <optional>
#include <sys/prctl.h>

namespace {

constexpr unsigned int CyclicId = 0x321;

/// Hears the cyclic frames.
class Listener
{
public:
    Listener() : mDescriptor(::socket(PF_CAN, SOCK_RAW, CAN_RAW))
    {
        const int on = 1;
        const can_filter filter{CyclicId, CAN_SFF_MASK};
        const timeval patience{20, 0};
        const sockaddr_can address = canAddress(peerInterface.toStdString());
        ::setsockopt(mDescriptor, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
        ::setsockopt(mDescriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ::setsockopt(mDescriptor, SOL_CAN_RAW, CAN_RAW_FILTER, &filter, sizeof filter);
        if (::bind(mDescriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            qFatal("the listener cannot be bound");
    }
    ~Listener() { ::close(mDescriptor); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    /// Microseconds from each of so many frames to the next one. *Blocks:* until they have come.
    std::vector<double> periods(int count) const
    {
        std::vector<double> periods;
        qint64 last = nextStamp();
        while (count-- > 0) {
            const qint64 stamp = nextStamp();
            periods.push_back(static_cast<double>(stamp - last) / 1e3);
            last = stamp;
        }
        return periods;
    }

private:
    // In nanoseconds.
    qint64 nextStamp() const
    {
        can_frame frame;
        iovec buffer{&frame, sizeof frame};
        alignas(cmsghdr) std::array<unsigned char, 64> control;
        msghdr message{};
        message.msg_iov = &buffer;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        if (::recvmsg(mDescriptor, &message, 0) != sizeof frame)
            qFatal("a cyclic frame did not come");
        const cmsghdr *const header = CMSG_FIRSTHDR(&message);
        if (!header || header->cmsg_type != SCM_TIMESTAMPNS)
            qFatal("a frame has no stamp");
        timespec stamp;
        std::memcpy(&stamp, CMSG_DATA(header), sizeof stamp);
        return stamp.tv_sec * Q_INT64_C(1000000000) + stamp.tv_nsec;
    }

    int mDescriptor;
};

Pace paceOfTransmitter(int intervalMs, int frames)
{
    SocketCanAdapter adapter(peerInterface);
    CanMessageTransmitter transmitter(1);
    if (adapter.open() != CAN::RetOk)
        qFatal("no adapter");
    while (!adapter.getRunning())
        QThread::msleep(1);
    const Listener listener;
    CAN::CanMessage message;
    message.id = CyclicId;
    message.length = 8;
    transmitter.setCanAdapter(&adapter);
    transmitter.setTranmissionParameter(message, static_cast<unsigned int>(intervalMs), 0);
    transmitter.startTransmission();
    const Pace pace = paceOf(listener.periods(frames), intervalMs);
    transmitter.stopTransmission();
    adapter.closeAdapter();
    adapter.wait();
    return pace;
}

Pace paceOfBareLoop(int intervalMs, int frames)
{
    const Order order{"send", peerInterface.toStdString()};
    std::atomic<bool> stop = false;
    const Listener listener;
    const std::unique_ptr<QThread> loop(QThread::create([&] {
        BareSocket socket(order);
        ::prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
        const timespec pause{0, intervalMs * 1000000L};
        for (long number = 0; !stop; ++number) {
            socket.send(number, CyclicId);
            ::clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
        }
    }));
    loop->start(QThread::TimeCriticalPriority);
    const Pace pace = paceOf(listener.periods(frames), intervalMs);
    stop = true;
    loop->wait();
    return pace;
}

/// Nothing where the kernel has no broadcast manager.
std::optional<Pace> paceOfKernel(int intervalMs, int frames)
{
    bcm_msg_head order{};
    order.opcode = TX_SETUP;
    order.flags = SETTIMER | STARTTIMER;
    order.ival2.tv_usec = intervalMs * 1000L;
    order.can_id = CyclicId;
    order.nframes = 1;
    can_frame frame{};
    frame.can_id = CyclicId;
    frame.len = CAN_MAX_DLEN;
    const std::array parts{iovec{&order, sizeof order}, iovec{&frame, sizeof frame}};
    const sockaddr_can address = canAddress(peerInterface.toStdString());
    const Listener listener;
    const int socket = ::socket(PF_CAN, SOCK_DGRAM, CAN_BCM);
    std::optional<Pace> pace;
    if (socket >= 0 && ::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0
        && ::writev(socket, parts.data(), parts.size()) == static_cast<ssize_t>(sizeof order + sizeof frame))
        pace = paceOf(listener.periods(frames), intervalMs);
    if (socket >= 0)
        ::close(socket);
    return pace;
}

void reportPace(const Report &report, int intervalMs, int frames)
{
    const Pace ours = paceOfTransmitter(intervalMs, frames);
    const QString name = QStringLiteral("%1 ms: ").arg(intervalMs);
    const QString unit = QStringLiteral("µs");
    for (const auto &[peer, pace] : {std::pair("bare loop", std::optional(paceOfBareLoop(intervalMs, frames))),
                                     std::pair("kernel (BCM)", paceOfKernel(intervalMs, frames))}) {
        const QString peerName = QString::fromLatin1(peer);
        if (!pace) {
            report.note(name + peerName + QStringLiteral(" not measured, the kernel does not have it"));
            continue;
        }
        // The kernel keeps to the interval on the average, which leaves nothing to divide by.
        report.beside(name + QStringLiteral("mean above the interval"), ours.mean - intervalMs * 1000, unit, peerName,
                      pace->mean - intervalMs * 1000);
        report.compare(name + QStringLiteral("standard deviation"), ours.deviation, unit, Report::Better::Less,
                       peerName, pace->deviation);
        report.compare(name + QStringLiteral("worst period"), ours.worst, unit, Report::Better::Less, peerName,
                       pace->worst);
    }
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("pace of cyclic transmission over SocketCAN"));
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.info=false"));
    if (!hasPeerInterface(report))
        return 0;
    for (const auto &[intervalMs, frames] :
         {std::pair(1, 5000), std::pair(5, 2000), std::pair(10, 1000), std::pair(100, 200)})
        reportPace(report, intervalMs, report.quick() ? 3 : frames);
    return 0;
}
