// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>
#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>
#include <BusLinkDesk/factory/can_adapter_factory.h>
#include <BusLinkDesk/manager/multi_can_adapter_handler.h>
#include <BusLinkDesk/traffic/can_message_transmitter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QSettings>
#include <QtCore/QTimer>

#include <cstdio>

// What fragments of the documentation stand among: each becomes a function of its own behind these.

/// The transport of a packet bridge: packets that it sends come back at once.
class Peer : public QObject
{
    Q_OBJECT

public:
    void send(const PxrFdTypes::UnionPacket::StructCanMsg &packet)
    {
        PxrFdTypes::UnionPacket arrived;
        arrived.stcCanMsg = packet;
        Q_EMIT packetsArrived({arrived});
    }

Q_SIGNALS:
    void packetsArrived(const QList<PxrFdTypes::UnionPacket> &packets);
};

/// Runs all of them, in the order of the pages.
void runFragments();

/// The names below, anew for each fragment.
struct Context
{
    Context();
    ~Context();
    Q_DISABLE_COPY_MOVE(Context)

    AbstractCanAdapter *adapter;              ///< Open, alone on its bus.
    Peer peer;                                ///< The packet peer.
    MultiCanAdapterHandler adapters;          ///< A set with one adapter, which is not open.
    const unsigned short id;                  ///< The identifier of that one.
    QPointer<AbstractCanAdapter> replacement; ///< An adapter that the set does not know.
};
