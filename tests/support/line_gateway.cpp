// SPDX-License-Identifier: MIT
#include "support/line_gateway.h"

#include <QtNetwork/QTcpSocket>

#include <sys/socket.h>

LineGateway::LineGateway()
{
    if (!listen(QHostAddress(QHostAddress::LocalHost)))
        qFatal("no free TCP port");
    connect(this, &QTcpServer::newConnection, this, &LineGateway::takeConnection);
}

LineGateway::~LineGateway()
{
    for (QTcpSocket *peer : qAsConst(mPeers))
        peer->disconnect(this);
}

void LineGateway::takeConnection()
{
    while (QTcpSocket *const peer = nextPendingConnection()) {
        const int connection = mPeers.size();
        // Otherwise the system might join what a test sends apart.
        peer->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        mPeers.append(peer);
        mReceived.append(QByteArray());
        mAnswered.append(0);
        connect(peer, &QTcpSocket::readyRead, this, [this, connection] { take(connection); });
        take(connection);
    }
}

void LineGateway::take(int connection)
{
    mReceived[connection] += mPeers.at(connection)->readAll();
    if (!mAnswering)
        return;
    const QByteArray &bytes = mReceived.at(connection);
    for (int end = bytes.indexOf('\n', int(mAnswered[connection])); end >= 0;
         end = bytes.indexOf('\n', int(mAnswered[connection]))) {
        const auto begin = int(mAnswered[connection]);
        mAnswered[connection] = end + 1;
        answer(bytes.mid(begin, end - begin), connection);
    }
}

void LineGateway::answer(const QByteArray &line, int connection)
{
    const int bracket = line.indexOf("] ");
    bool numbered = false;
    const int number = line.mid(1, bracket - 1).toInt(&numbered);
    numbered = numbered && line.startsWith('[') && number >= 0 && number <= 32767;
    send(numbered ? '[' + QByteArray::number(number) + "] OK\r\n" : QByteArray("[0] ERROR: 100\r\n"), connection);
}

bool LineGateway::isConnected(int connection) const
{
    return mPeers.at(connection)->state() == QAbstractSocket::ConnectedState;
}

void LineGateway::send(const QByteArray &bytes, int connection)
{
    mPeers.at(connection)->write(bytes);
    mPeers.at(connection)->flush();
}

void LineGateway::hangUp(int connection)
{
    mPeers.at(connection)->disconnectFromHost();
}

void LineGateway::reset(int connection)
{
    const linger atOnce{1, 0};
    ::setsockopt(static_cast<int>(mPeers.at(connection)->socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce,
                 sizeof atOnce);
    mPeers.at(connection)->abort();
}
