// SPDX-License-Identifier: MIT
#include "support/free_port.h"

#include <QtCore/QFile>
#include <QtCore/QRandomGenerator>
#include <QtNetwork/QUdpSocket>

quint16 freeUdpPort()
{
    // Below the range from which the system takes the ports of sockets that only send: one of those
    // must not get hold of the port before the test does.
    constexpr int first = 10240;
    constexpr int end = 32768;
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const auto port = static_cast<quint16>(QRandomGenerator::system()->bounded(first, end));
        QUdpSocket probe;
        if (probe.bind(QHostAddress::AnyIPv4, port, QAbstractSocket::DontShareAddress))
            return port;
    }
    qFatal("no free UDP port");
}

int udpSocketsOnPort(quint16 port)
{
    QFile table(QStringLiteral("/proc/net/udp"));
    if (!table.open(QIODevice::ReadOnly))
        qFatal("no list of UDP sockets");
    const QByteArray ending = ':' + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    int count = 0;
    const QList<QByteArray> lines = table.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() > 1 && fields[1].endsWith(ending))
            ++count;
    }
    return count;
}
