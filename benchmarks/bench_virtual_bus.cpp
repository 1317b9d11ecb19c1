// SPDX-License-Identifier: MIT
// The virtual bus beside what bare system calls reach on the same loopback broadcast, and beside the virtual buses of
// others, each between two accesses of one process. The bare loops have the same shape as the bus: every side listens,
// the sending one included.
#include "support/bus_load.h"
#include "support/can_peers.h"
#include "support/frame_recorder.h"
#include "support/open_adapter.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QSemaphore>
#include <QtNetwork/QTcpServer>

#include <arpa/inet.h>
#include <atomic>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

/// One side of the bare bus: a socket that listens on the port and one that sends.
class BareSide
{
public:
    explicit BareSide(quint16 port)
        : mReceive(::socket(AF_INET, SOCK_DGRAM, 0)), mSend(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        const int on = 1;
        const int bytes = 8 * 1024 * 1024;
        const timeval second{1, 0};
        ::setsockopt(mReceive, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        ::setsockopt(mReceive, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
        if (::setsockopt(mReceive, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
            ::setsockopt(mReceive, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
        ::setsockopt(mSend, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        mAddress.sin_family = AF_INET;
        mAddress.sin_port = htons(port);
        mAddress.sin_addr.s_addr = INADDR_ANY;
        if (::bind(mReceive, reinterpret_cast<const sockaddr *>(&mAddress), sizeof mAddress) != 0)
            qFatal("bare socket cannot be bound");
        mAddress.sin_addr.s_addr = inet_addr("127.255.255.255");
    }
    ~BareSide()
    {
        ::close(mReceive);
        ::close(mSend);
    }
    BareSide(const BareSide &) = delete;
    BareSide &operator=(const BareSide &) = delete;

    void send(quint32 number)
    {
        CAN::CanMessage message;
        message.id = number;
        ::sendto(mSend, &message, sizeof message, 0, reinterpret_cast<const sockaddr *>(&mAddress), sizeof mAddress);
    }
    /// The number of the next frame, -1 if none is there (or comes, with `wait`, for a second).
    qint64 receive(bool wait)
    {
        CAN::CanMessage message;
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t got = ::recvfrom(mReceive, &message, sizeof message, wait ? 0 : MSG_DONTWAIT,
                                       reinterpret_cast<sockaddr *>(&sender), &length);
        return got < 0 ? -1 : qint64(message.id);
    }

private:
    int mReceive;
    int mSend;
    sockaddr_in mAddress{};
};

struct Burst
{
    double framesPerSecond = 0.0;
    qint64 lost = 0;
};

Burst burstOverAdapters(quint32 frames)
{
    const quint16 port = freeUdpPort();
    std::atomic<qint64> received = 0;
    std::atomic<Clock::time_point> last = Clock::now();
    const auto left = makeVirtualAdapter(port);
    const auto right = makeVirtualAdapter(port);
    QObject::connect(right.get(), &AbstractCanAdapter::newCanMessage, [&](CAN::CanRxMessage *) {
        ++received;
        last = Clock::now();
    });
    openOnBus(right.get());
    openOnBus(left.get());
    const auto start = Clock::now();
    for (quint32 number = 0; number < frames; ++number)
        left->write(makeFrame(number, "12345678"));
    qint64 seen = -1;
    while (received < frames && received != seen) {
        seen = received;
        QTest::qSleep(500);
    }
    const double seconds = std::chrono::duration<double>(last.load() - start).count();
    return {static_cast<double>(received) / seconds, qint64(frames) - received};
}

Burst burstOverBareSockets(quint32 frames)
{
    const quint16 port = freeUdpPort();
    BareSide left(port);
    BareSide right(port);
    qint64 received = 0;
    Clock::time_point last;
    const auto start = Clock::now();
    std::thread receiver([&] {
        while (received < frames && right.receive(true) >= 0) {
            ++received;
            last = Clock::now();
        }
    });
    for (quint32 number = 0; number < frames; ++number) {
        left.send(number);
        left.receive(false);
    }
    receiver.join();
    const double seconds = std::chrono::duration<double>(last - start).count();
    return {static_cast<double>(received) / seconds, qint64(frames) - received};
}

std::vector<double> roundTripsOverAdapters(int count)
{
    const quint16 port = freeUdpPort();
    QSemaphore answers; // not looked at again and again, which would take a processor from the adapters
    Clock::time_point answered;
    const auto left = makeVirtualAdapter(port);
    const auto right = makeVirtualAdapter(port);
    QObject::connect(right.get(), &AbstractCanAdapter::newCanMessage,
                     [&right](CAN::CanRxMessage *message) { right->write(&message->message); });
    QObject::connect(left.get(), &AbstractCanAdapter::newCanMessage, [&](CAN::CanRxMessage *) {
        answered = Clock::now();
        answers.release();
    });
    if (!openOnBus(right.get()) || !openOnBus(left.get()))
        qFatal("the virtual bus cannot be opened");
    std::vector<double> microseconds;
    for (int trip = 0; trip < count; ++trip) {
        const auto start = Clock::now();
        left->write(makeFrame(static_cast<quint32>(trip), "12345678"));
        if (!answers.tryAcquire(1, 20000))
            qFatal("round trip %d did not end", trip);
        microseconds.push_back(std::chrono::duration<double, std::micro>(answered - start).count());
    }
    return microseconds;
}

std::vector<double> roundTripsOverBareSockets(int count)
{
    const quint16 port = freeUdpPort();
    BareSide left(port);
    BareSide right(port);
    // Even numbers ask, odd ones answer, and each side drops its own.
    const auto waitFor = [](BareSide &side, quint32 number) {
        qint64 got = side.receive(true);
        while (got >= 0 && got != number)
            got = side.receive(true);
        if (got < 0)
            qFatal("a bare frame did not come");
    };
    const auto trips = static_cast<quint32>(count);
    std::thread other([&] {
        for (quint32 trip = 0; trip < trips; ++trip) {
            waitFor(right, 2 * trip);
            right.send(2 * trip + 1);
        }
    });
    std::vector<double> microseconds;
    for (quint32 trip = 0; trip < trips; ++trip) {
        const auto start = Clock::now();
        left.send(2 * trip);
        waitFor(left, 2 * trip + 1);
        microseconds.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    other.join();
    return microseconds;
}

quint16 freeTcpPort()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost))
        qFatal("no free TCP port");
    return probe.serverPort();
}

std::vector<CanPeer> virtualPeers()
{
    const auto python = [](const char *bus) {
        return [bus](const QString &verb, int frames) {
            return peerCommand("python_can_peer", verb, QLatin1String(bus), frames);
        };
    };
    const auto serialBus = [](const QString &verb, int frames) {
        return peerCommand("serialbus_can_peer", verb, QStringLiteral("virtual:%1").arg(freeTcpPort()), frames);
    };
    const auto multicast = [python](const QString &verb, int frames) {
        return QStringList(peerProgram("in_own_network")) + python("udp_multicast")(verb, frames);
    };
    return {{QStringLiteral("Qt SerialBus virtualcan"), serialBus},
            {QStringLiteral("python-can virtual"), python("virtual")},
            {QStringLiteral("python-can udp_multicast"), multicast}};
}

/// The frames a second and the percent of frames lost, of one run each.
struct Bursts
{
    std::vector<double> rate;
    std::vector<double> lost;

    void add(double framesPerSecond, double received, double frames)
    {
        rate.push_back(framesPerSecond);
        lost.push_back(100.0 * (frames - received) / frames);
    }
};

void reportBursts(const Report &report)
{
    const int frames = report.quick() ? 2000 : 100000;
    const std::vector<CanPeer> peers = virtualPeers();
    Bursts ours;
    Bursts bare;
    std::vector<Bursts> others(peers.size());
    const auto addBurst = [frames](Bursts &bursts, const Burst &one) {
        bursts.add(one.framesPerSecond, static_cast<double>(frames - one.lost), frames);
    };
    for (int run = 0; run < (report.quick() ? 1 : 5); ++run) {
        addBurst(ours, burstOverAdapters(static_cast<quint32>(frames)));
        addBurst(bare, burstOverBareSockets(static_cast<quint32>(frames)));
        for (std::size_t index = 0; index < peers.size(); ++index) {
            if (const auto result = resultOf(peers[index].command(QStringLiteral("burst"), frames)))
                others[index].add(result->frames / std::max(result->seconds, 1e-9), result->frames, frames);
        }
    }
    const auto compare = [&](const QString &name, const Bursts &other) {
        report.compare(QStringLiteral("burst of %1, frames a second").arg(frames), medianOf(ours.rate),
                       QStringLiteral("1/s"), Report::Better::More, name, medianOf(other.rate));
        report.beside(QStringLiteral("burst of %1, lost").arg(frames), medianOf(ours.lost), QStringLiteral("%"), name,
                      medianOf(other.lost));
    };
    compare(QStringLiteral("bare loop"), bare);
    for (std::size_t index = 0; index < peers.size(); ++index) {
        if (others[index].rate.empty())
            report.note(QStringLiteral("%1 cannot run here").arg(peers[index].name));
        else
            compare(peers[index].name, others[index]);
    }
}

void reportRoundTrips(const Report &report)
{
    const int trips = report.quick() ? 200 : 5000;
    const auto timesIn = [](const std::vector<double> &microseconds) {
        return PeerTimes{quantileOf(microseconds, 0.5), quantileOf(microseconds, 0.99),
                         quantileOf(microseconds, 0.999)};
    };
    const PeerTimes ours = timesIn(roundTripsOverAdapters(trips));
    reportTimes(report, QStringLiteral("round trip"), ours, QStringLiteral("bare loop"),
                timesIn(roundTripsOverBareSockets(trips)));
    for (const CanPeer &peer : virtualPeers()) {
        if (const auto times = timesOf(peer.command(QStringLiteral("trips"), trips)))
            reportTimes(report, QStringLiteral("round trip"), ours, peer.name, *times);
    }
}

void reportPacedProcesses(const Report &report)
{
    const qint64 frames = report.quick() ? 2000 : 90090;
    const PacedResult result = runPacedBus(QCoreApplication::applicationFilePath(), 4, 9009.0, frames);
    qint64 lost = 0;
    for (const qint64 received : result.received)
        lost += result.sent - received;
    report.compare(QStringLiteral("paced to four processes"), result.framesPerSecond, QStringLiteral("1/s"),
                   Report::Better::More, QStringLiteral("asked for"), 9009.0);
    report.figure(QStringLiteral("lost by the four together"), static_cast<double>(lost), QStringLiteral("frames"));
    report.figure(QStringLiteral("out of order"), static_cast<double>(result.outOfOrder), QStringLiteral("frames"));
}

} // namespace

int main(int argc, char **argv)
{
    const int status = runBusReceiver(argc, argv);
    if (status >= 0)
        return status;
    const Report report(argc, argv, QStringLiteral("virtual bus"));
    const QCoreApplication application(argc, argv);
    reportBursts(report);
    reportRoundTrips(report);
    reportPacedProcesses(report);
    return 0;
}
