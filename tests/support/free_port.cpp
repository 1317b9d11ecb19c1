// SPDX-License-Identifier: MIT
#include "support/free_port.h"

#include <QtCore/QFile>
#include <QtNetwork/QUdpSocket>

quint16 freeUdpPort()
{
    QUdpSocket probe;
    if (!probe.bind(QHostAddress::AnyIPv4, 0, QAbstractSocket::DontShareAddress))
        qFatal("no free UDP port");
    return probe.localPort();
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
