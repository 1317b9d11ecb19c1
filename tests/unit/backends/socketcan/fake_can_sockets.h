// SPDX-License-Identifier: MIT
#pragma once

#include "support/faked_calls.h"

#include <QtCore/QByteArray>

/// While it lives, CAN sockets exist, whatever this machine's kernel has: each is one end of a pair of
/// local sockets that keep the bounds of frames, and the test has the other end. Calls on other
/// descriptors pass. The clock stands still. The calls that set a socket up or close it are kept.
class FakeCanSockets : public FakedCalls
{
public:
    FakeCanSockets();
    ~FakeCanSockets();

    /// Makes all calls work again.
    void mend();
    /// Makes writes of frames take fewer bytes than they are given, and none of them arrive.
    void shortenWrites();
    /// How the last wait and the last reception were called.
    QString lastWait() const;
    QString lastReception() const;
    /// What the clock shows.
    void setClock(qint64 seconds, qint64 microseconds);
    /// How much the clock moves on while a frame is written.
    void setSecondsPerWrite(qint64 seconds);

    /// Puts bytes where the socket opened last will read them.
    void arrive(const QByteArray &bytes) const;
    /// Takes what was written to the socket opened last, oldest first; null if there is nothing.
    QByteArray takeWritten() const;

    /// Whether a descriptor is one of these sockets. The rest is for the calls that stand in.
    bool knows(int descriptor) const;
    int open(const QString &call);
    void closed(int descriptor);
    void setLastWait(const QString &call);
    void setLastReception(const QString &call);
    QPair<qint64, qint64> clock() const;
    bool beginWrite();

private:
    int peer() const;

    QVector<int> mDescriptors;
    int mPeer = -1;
    QString mLastWait;
    QString mLastReception;
    QPair<qint64, qint64> mClock{1'000'000, 0};
    qint64 mSecondsPerWrite = 0;
    bool mShortWrites = false;
};
