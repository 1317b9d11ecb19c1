// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>

#include <BusLinkDesk/backends/packet_bridge/can_packet_p.h>

#include <QtCore/QDateTime>

#include <cstring>

PXRDummyAdapter::PXRDummyAdapter(QObject *parent)
    : AbstractCanAdapter(parent), mCreationSeconds(QDateTime::currentSecsSinceEpoch())
{}

PXRDummyAdapter::~PXRDummyAdapter() = default;

CAN::RetType PXRDummyAdapter::open()
{
    return CAN::RetOk;
}

void PXRDummyAdapter::closeAdapter() {}

CAN::RetType PXRDummyAdapter::setBitrate(unsigned short)
{
    return CAN::RetOk;
}

void PXRDummyAdapter::resetDriver() {}

CAN::CanState PXRDummyAdapter::getState()
{
    return CAN::CanStateNone;
}

void PXRDummyAdapter::prepareToTerminate() {}

PxrFdTypes::UnionPacket::StructCanMsg PXRDummyAdapter::convertCanMessage(CAN::CanMessage const &message)
{
    return buslink::encodeCanPacket(message, QDateTime::currentMSecsSinceEpoch());
}

CAN::RetType PXRDummyAdapter::write(CAN::CanMessage *pMessage)
{
    PxrFdTypes::UnionPacket::StructCanMsg packet = convertCanMessage(*pMessage);
    Q_EMIT sigSendCanMessage(packet);
    return CAN::RetOk;
}

void PXRDummyAdapter::onCanMessageReceived(const QList<PxrFdTypes::UnionPacket> &packets)
{
    CAN::CanRxMessage record;
    // A receiver of a frame may change the caller's list.
    const QList<PxrFdTypes::UnionPacket> kept = packets; // NOLINT(performance-unnecessary-copy-initialization)
    for (const PxrFdTypes::UnionPacket &packet : kept) {
        // The bytes, since the peer may have put in a packet of another type.
        buslink::CanPacket canPacket;
        std::memcpy(static_cast<void *>(&canPacket), &packet, sizeof canPacket);
        if (buslink::takeCanPacket(canPacket, record))
            handleNewCanMessage(record);
    }
}
