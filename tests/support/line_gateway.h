// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtNetwork/QTcpServer>

class QTcpSocket;

/// A CiA 309-3 gateway for tests, on a loopback port of its own: it takes numbered lines and answers each
/// complete one with its number and "OK", or with an error of its own where there is no number. A test can
/// also have it be silent, send anything, and end a connection in every way.
class LineGateway : public QTcpServer
{
public:
    LineGateway();
    ~LineGateway() override;

    /// Whether lines are answered; they are at first.
    void setAnswering(bool answering) { mAnswering = answering; }
    /// How many connections have been taken so far.
    int connectionCount() const { return mPeers.size(); }
    /// Whether the far end of a connection has not gone yet.
    bool isConnected(int connection) const;
    /// All bytes of a connection so far.
    QByteArray received(int connection = 0) const { return mReceived.at(connection); }

    /// Sends bytes at once, in one segment if they are few.
    void send(const QByteArray &bytes, int connection = 0);
    /// Ends a connection in order.
    void hangUp(int connection = 0);
    /// Ends a connection with a reset.
    void reset(int connection = 0);

private:
    void takeConnection();
    void take(int connection);
    void answer(const QByteArray &line, int connection);

    QList<QTcpSocket *> mPeers;
    QList<QByteArray> mReceived;
    QList<qint64> mAnswered;
    bool mAnswering = true;
};
