// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QVector>

/// What came of frames that one process sent at a fixed pace to receivers in processes of their own.
struct PacedResult
{
    bool started = false;         ///< All receivers were listening before the first frame.
    qint64 sent = 0;              ///< Frames sent.
    QVector<qint64> received;     ///< Frames by receiver.
    qint64 outOfOrder = 0;        ///< Frames that came after a later one or twice, over all receivers.
    double framesPerSecond = 0.0; ///< The pace that was reached.
};

/// The receiving side: a program calls it first thing and returns its result if that is not negative.
int runBusReceiver(int argc, char **argv);

/// Sends numbered frames of 8 bytes over the virtual bus to receivers that run `program` again.
PacedResult runPacedBus(const QString &program, int receivers, double framesPerSecond, qint64 frames);
