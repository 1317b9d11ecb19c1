// SPDX-License-Identifier: MIT
#pragma once

#include "support/faked_calls.h"

#include <QtCore/QByteArray>

/// While it lives, "/dev/can0" to "/dev/can3" exist and a driver answers what is called on them: it counts frames,
/// not bytes. Calls on other files pass. Openings, closings, settings and writings are kept.
class FakeCan4linux : public FakedCalls
{
public:
    FakeCan4linux();
    ~FakeCan4linux();

    /// Gives the next reads a frame of 104 bytes, one each.
    void arrive(const QByteArray &frame);
    /// Gives a read the result 0 or, with an error number, -1. The frame of the reader is left alone.
    void arriveNothing(int errorNumber = 0);
    /// Takes the bytes of all frames that were written, oldest first.
    QVector<QByteArray> takeWritten();
    /// How the last wait and the last read were called.
    QString lastWait() const;
    QString lastRead() const;
    /// The descriptor that was opened last.
    int descriptor() const;
    /// How many descriptors of it are open.
    int openDescriptors() const;

    /// The rest is for the calls that stand in.
    bool knows(int descriptor) const;
    int open(const QString &call);
    void closed(int descriptor);
    qint64 read(const QString &call, int descriptor, void *frame);
    void written(const void *frame);
    void setLastWait(const QString &call);

private:
    struct Arrival
    {
        QByteArray frame;
        int errorNumber;
    };

    void announce();

    QVector<int> mDescriptors;
    int mLast = -1;
    QVector<Arrival> mArrivals;
    QVector<QByteArray> mWritten;
    QString mLastWait;
    QString mLastRead;
};
