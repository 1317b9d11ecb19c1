// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// A peer on a CAN interface that is none of ours: a raw socket for classic and CAN FD frames.
class RawCanSocket
{
public:
    /// Binds to an interface. Ends the program where that fails.
    explicit RawCanSocket(const char *interface);
    ~RawCanSocket();
    RawCanSocket(const RawCanSocket &) = delete;
    RawCanSocket &operator=(const RawCanSocket &) = delete;

    /// Sends the bytes of a frame, error frames included; waits where the interface has no room.
    bool send(const QByteArray &frame) const;
    /// The bytes of the next frame; null if none comes within the time.
    QByteArray receive(int timeoutMs = 60000) const;

private:
    int mSocket = -1;
};

/// Runs a shell command to its end and returns what it printed, standard error included.
/// *Fails:* with a status other than 0, the text "failed: " and what was printed.
QString shell(const QString &command);
