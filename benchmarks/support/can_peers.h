// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringList>

#include <functional>
#include <optional>
#include <vector>

class Report;

/// What a peer did with a row of frames.
struct PeerResult
{
    double frames = 0.0;
    double seconds = 0.0;          ///< From the first frame to the last.
    double processorSeconds = 0.0; ///< Of the peer alone, meanwhile.
};

/// How long frames took on their way, in microseconds.
struct PeerTimes
{
    double median = 0.0;
    double percentile99 = 0.0;
    double percentile999 = 0.0;
};

/// A program that takes part in the traffic on a CAN interface.
struct CanPeer
{
    QString name;
    /// The command lines for a number of frames.
    std::function<QStringList(int frames)> receive;
    std::function<QStringList(int frames)> send;
    /// Where it can measure times: peer.h tells the verbs.
    std::function<QStringList(const QString &verb, int frames)> times = {};
    /// Whether it measures itself and prints the result. Of one that does not, all its output is lines of a
    /// received frame each, and what it needs to start and to end is taken off.
    bool measuresItself = true;
};

/// The interface that the peers use.
inline const QString peerInterface = QStringLiteral("vcan0");

/// The most frames a second that classic CAN at 1 Mbit/s carries with 8 bytes each.
inline constexpr double FullBusRate = 9009.0;

/// Whether this machine has that interface; the report tells if not.
bool hasPeerInterface(const Report &report);

/// A command line for one of the programs in the folder peers; peer.h tells the verbs. Of those with frames of CAN FD
/// the bus is `fdBus()`.
QStringList peerCommand(const char *program, const QString &verb, const QString &bus, int frames);

/// The bus of a peer that uses CAN FD.
inline QString fdBus()
{
    return peerInterface + QStringLiteral(":fd");
}

/// The sender that all receivers get their frames from, as fast as it can or at a pace.
QStringList bareSender(const QString &bus, int frames, double framesPerSecond = 0.0);

/// Ours first, the bare loop next, then the others. What is not installed is among them.
std::vector<CanPeer> canPeers(const QString &bus = peerInterface);

/// Our adapter with echo turned off, for sending.
CanPeer adapterWithoutEcho(const QString &bus);

/// What the peer received of the frames that the bare sender sent; nothing if it cannot run here.
std::optional<PeerResult> runReceiver(const CanPeer &peer, const QString &bus, int frames, double framesPerSecond);

/// How the peer sent frames; nothing if it cannot run here.
std::optional<PeerResult> runSender(const CanPeer &peer, int frames);

/// What a peer prints of frames or of times; nothing if it cannot run here.
std::optional<PeerResult> resultOf(const QStringList &command);
std::optional<PeerTimes> timesOf(const QStringList &command);
