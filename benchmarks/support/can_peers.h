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

/// A program that takes part in the traffic on a bus.
struct CanPeer
{
    QString name;
    /// The command line for a verb, which peer.h tells, and a number of frames; empty for what it cannot do.
    std::function<QStringList(const QString &verb, int frames)> command;
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

/// A program in the folder peers.
QString peerProgram(const char *name);

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

/// The names of two of them.
inline const QString bareLoopPeer = QStringLiteral("bare loop");
inline const QString serialBusPeer = QStringLiteral("Qt SerialBus");

/// Ours first, the bare loop next, then the others. What is not installed is among them.
std::vector<CanPeer> canPeers(const QString &bus = peerInterface);

/// Those of them that tell of no frame that left, ours with its echo turned off. To be asked to send.
std::vector<CanPeer> peersWithoutEcho(const QString &bus);

/// What the peer received of the frames that the bare sender sent; nothing if it cannot run here.
std::optional<PeerResult> runReceiver(const CanPeer &peer, const QString &bus, int frames, double framesPerSecond);

/// How the peer sent frames; nothing if it cannot run here.
std::optional<PeerResult> runSender(const CanPeer &peer, int frames);

/// What a peer prints of frames or of times; nothing if it cannot run here.
std::optional<PeerResult> resultOf(const QStringList &command);
std::optional<PeerTimes> timesOf(const QStringList &command);

/// Prints our times beside those of a peer.
void reportTimes(const Report &report, const QString &what, const PeerTimes &ours, const QString &peer,
                 const PeerTimes &theirs);
