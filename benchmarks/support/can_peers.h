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

/// A program that takes part in the traffic on a CAN interface.
struct CanPeer
{
    QString name;
    /// The command lines for a number of frames.
    std::function<QStringList(int frames)> receive;
    std::function<QStringList(int frames)> send;
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

/// The sender that all receivers get their frames from, as fast as it can or at a pace.
QStringList bareSender(int frames, double framesPerSecond = 0.0);

/// Ours first, the bare loop next, then the others. What is not installed is among them.
std::vector<CanPeer> canPeers();

/// Our adapter with echo turned off, for sending.
CanPeer adapterWithoutEcho();

/// What the peer received of the frames that the bare sender sent; nothing if it cannot run here.
std::optional<PeerResult> runReceiver(const CanPeer &peer, int frames, double framesPerSecond);

/// How the peer sent frames; nothing if it cannot run here.
std::optional<PeerResult> runSender(const CanPeer &peer, int frames);
