// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/cia309/cia309_adapter.h>

#include <QtTest/QtTest>

/// Points an adapter to a port of the loopback address.
inline void setGateway(AbstractCanAdapter &adapter, quint16 port)
{
    adapter.setCanAdapterOption(AbstractCanAdapter::option_ipAddress, QStringLiteral("127.0.0.1"));
    adapter.setCanAdapterOption(AbstractCanAdapter::option_portNumber, port);
}

/// An adapter for a port of the loopback address, with what it tells.
struct GatewayClient
{
    explicit GatewayClient(quint16 port)
        : adapter(QString())
        , requests(&adapter, &AbstractCanAdapter::newCiA309RequestSent)
        , responses(&adapter, &AbstractCanAdapter::newCiA309Response)
        , errors(&adapter, &AbstractCanAdapter::interfaceError)
    {
        setGateway(adapter, port);
    }

    /// The number under which a command went out, -1 if it did not.
    int send(const QString &command)
    {
        short sequence = -1;
        return adapter.write(command, sequence) == CAN::RetOk ? sequence : -1;
    }

    CiA309Adapter adapter;
    QSignalSpy requests;
    QSignalSpy responses;
    QSignalSpy errors;
};

/// The texts that a signal carried, in order.
inline QStringList textsOf(const QSignalSpy &spy)
{
    QStringList texts;
    for (const QVariantList &arguments : spy)
        texts << arguments.constFirst().toString();
    return texts;
}
