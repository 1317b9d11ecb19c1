// SPDX-License-Identifier: MIT
// The SocketCAN adapter beside other ways to a CAN interface, each in a process of its own on the same
// virtual interface: rates, processor time and times on the way.
#include "support/can_peers.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>

namespace {

/// The runs of one peer.
struct Series
{
    std::vector<double> processor; ///< Microseconds a frame.
    std::vector<double> rate;      ///< Frames a second.
    double lost = 0.0;
    int runs = 0; ///< 0 where the peer is not installed.
};

using Run = std::function<std::optional<PeerResult>(const CanPeer &)>;

/// Runs the peers in turn, so that what else the machine does meets all of them. Peers that cannot run stay
/// without runs.
std::vector<Series> runInTurn(const std::vector<CanPeer> &peers, int rounds, int frames, const Run &run)
{
    std::vector<Series> all(peers.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t index = 0; index < peers.size(); ++index) {
            const std::optional<PeerResult> result = run(peers[index]);
            if (!result)
                continue;
            ++all[index].runs;
            all[index].lost += frames - result->frames;
            if (result->frames < 1)
                continue;
            all[index].processor.push_back(result->processorSeconds / result->frames * 1e6);
            all[index].rate.push_back(result->frames / result->seconds);
        }
    }
    return all;
}

void reportSeries(const Report &report, const QString &what, const std::vector<CanPeer> &peers,
                  const std::vector<Series> &all)
{
    if (all[0].rate.empty() || all[1].rate.empty())
        qFatal("the adapter or the bare loop got no frame");
    for (std::size_t index = 1; index < all.size(); ++index) {
        if (all[index].rate.empty()) {
            report.note(
                QStringLiteral("%1: %2 not measured, it %3")
                    .arg(what, peers[index].name,
                         all[index].runs == 0 ? QStringLiteral("is not installed") : QStringLiteral("got no frame")));
            continue;
        }
        report.compare(what + QStringLiteral(", processor time a frame"), medianOf(all[0].processor),
                       QStringLiteral("µs"), Report::Better::Less, peers[index].name, medianOf(all[index].processor));
        report.compare(what + QStringLiteral(", frames a second"), medianOf(all[0].rate), QStringLiteral("1/s"),
                       Report::Better::More, peers[index].name, medianOf(all[index].rate));
    }
}

void reportReceiving(const Report &report, const QString &what, const QString &bus, int rounds, int frames,
                     double framesPerSecond)
{
    const std::vector<CanPeer> peers = canPeers(bus);
    const std::vector<Series> all = runInTurn(
        peers, rounds, frames, [&](const CanPeer &peer) { return runReceiver(peer, bus, frames, framesPerSecond); });
    reportSeries(report, what, peers, all);
    const auto lost = [frames](const Series &one) {
        return 100.0 * one.lost / (static_cast<double>(frames) * one.runs);
    };
    for (std::size_t index = 1; index < all.size(); ++index) {
        if (all[index].runs > 0)
            report.beside(what + QStringLiteral(", lost"), lost(all[0]), QStringLiteral("%"), peers[index].name,
                          lost(all[index]));
    }
}

void reportSending(const Report &report, const QString &what, const QString &bus, int rounds, int frames)
{
    const auto run = [&](const CanPeer &peer) { return runSender(peer, frames); };
    const std::vector<CanPeer> peers = canPeers(bus);
    reportSeries(report, what, peers, runInTurn(peers, rounds, frames, run));
    const std::vector<CanPeer> silent = peersWithoutEcho(bus);
    reportSeries(report, what + QStringLiteral(" without echo"), silent, runInTurn(silent, rounds, frames, run));
}

void reportTimesOf(const Report &report, const QString &what, const QString &verb, int frames)
{
    std::optional<PeerTimes> ours;
    for (const CanPeer &peer : canPeers()) {
        const QStringList command = peer.command(verb, frames);
        if (command.isEmpty())
            continue;
        const std::optional<PeerTimes> times = timesOf(command);
        if (!ours) {
            ours = times.value();
        } else if (!times) {
            report.note(QStringLiteral("%1: %2 not measured, it is not installed").arg(what, peer.name));
        } else {
            reportTimes(report, what, *ours, peer.name, *times);
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("SocketCAN beside others"));
    const QCoreApplication application(argc, argv);
    if (!hasPeerInterface(report))
        return 0;
    const int rounds = report.quick() ? 1 : 5;
    const int frames = report.quick() ? 1000 : 20000;
    const int burst = report.quick() ? 1000 : 100000;
    reportReceiving(report, QStringLiteral("receiving a full bus"), peerInterface, rounds, frames, FullBusRate);
    reportReceiving(report, QStringLiteral("receiving a burst"), peerInterface, rounds, burst, 0.0);
    reportSending(report, QStringLiteral("sending"), peerInterface, rounds, burst);
    reportReceiving(report, QStringLiteral("receiving CAN FD at that pace"), fdBus(), rounds, frames, FullBusRate);
    reportReceiving(report, QStringLiteral("receiving a burst of CAN FD"), fdBus(), rounds, burst, 0.0);
    reportSending(report, QStringLiteral("sending CAN FD"), fdBus(), rounds, burst);
    const int trips = report.quick() ? 20 : 2000;
    reportTimesOf(report, QStringLiteral("from a bare socket"), QStringLiteral("arrivals"), trips);
    reportTimesOf(report, QStringLiteral("round trip"), QStringLiteral("trips"), trips);
    return 0;
}
