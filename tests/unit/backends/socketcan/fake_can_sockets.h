// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QMutex>
#include <QtCore/QPair>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <atomic>

/// While it lives, CAN sockets exist, whatever this machine's kernel has: each is one end of a pair of
/// local sockets that keep the bounds of frames, and the test has the other end. Calls on other
/// descriptors pass. The clock stands still and pauses are only noted. One at a time; a program that uses
/// it wraps the calls at link time.
class FakeCanSockets
{
public:
    FakeCanSockets();
    ~FakeCanSockets();
    FakeCanSockets(const FakeCanSockets &) = delete;
    FakeCanSockets &operator=(const FakeCanSockets &) = delete;

    /// Makes every call fail whose text begins so, with an error number. A call's text is its name and its
    /// arguments as `calls()` has them.
    void fail(const char *callBeginning, int errorNumber);
    /// Makes all calls work again.
    void mend();
    /// Makes writes of frames take fewer bytes than they are given, and none of them arrive.
    void shortenWrites();
    /// The calls so far that set a socket up or close it.
    QStringList calls() const;
    /// Forgets the calls.
    void forgetCalls();
    /// How the last wait and the last reception were called.
    QString lastWait() const;
    QString lastReception() const;
    /// The pauses so far, in microseconds.
    QVector<qint64> pauses() const;

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
    bool refuses(const QString &call, bool keep);
    void closed(int descriptor);
    void setLastWait(const QString &call);
    void setLastReception(const QString &call);
    void pause(qint64 microseconds);
    QPair<qint64, qint64> clock() const;
    bool beginWrite();

private:
    int peer() const;

    mutable QMutex mMutex;
    QVector<int> mDescriptors;
    int mPeer = -1;
    QStringList mCalls;
    QVector<QPair<QString, int>> mFailures;
    QString mLastWait;
    QString mLastReception;
    QVector<qint64> mPauses;
    QPair<qint64, qint64> mClock{1'000'000, 0};
    qint64 mSecondsPerWrite = 0;
    bool mShortWrites = false;
};
