// SPDX-License-Identifier: MIT
// Programs that are already built, and the peers behind them, rely on everything that is written out here.
#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>

#include "support/meta_methods.h"

#include <QtTest/QtTest>

#include <cstddef>

class TestPacketBridgeAbi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalAndSlotsKeepTheirOrder()
    {
        QCOMPARE(
            methodsOf(PXRDummyAdapter::staticMetaObject),
            (QStringList{
                QStringLiteral("public signal sigSendCanMessage(PxrFdTypes::UnionPacket::StructCanMsg&) (stcCanMsg)"),
                QStringLiteral("public slot write(CAN::CanMessage*) (pMessage)"),
                QStringLiteral("public slot onCanMessageReceived(QList<PxrFdTypes::UnionPacket>) (packets)"),
            }));
    }

    void adapterKeepsItsSize() { QCOMPARE(sizeof(PXRDummyAdapter), std::size_t(440)); }

    void packetKeepsItsFields()
    {
        using P = PxrFdTypes::UnionPacket::StructCanMsg;
        QCOMPARE(sizeof(P), std::size_t(92));
        QCOMPARE(alignof(P), std::size_t(4));
        QCOMPARE(sizeof(PxrFdTypes::UnionPacket), std::size_t(92));
        QCOMPARE(offsetof(P, packetHeader), std::size_t(0));
        QCOMPARE(offsetof(P, packetSeconds), std::size_t(4));
        QCOMPARE(offsetof(P, packetNanoseconds), std::size_t(8));
        QCOMPARE(offsetof(P, lengthFormat), std::size_t(12));
        QCOMPARE(offsetof(P, fillWord), std::size_t(14));
        QCOMPARE(offsetof(P, dlc), std::size_t(16));
        QCOMPARE(offsetof(P, fillByte), std::size_t(17));
        QCOMPARE(offsetof(P, frameFlags), std::size_t(18));
        QCOMPARE(offsetof(P, frameFlags2), std::size_t(19));
        QCOMPARE(offsetof(P, canId), std::size_t(20));
        QCOMPARE(offsetof(P, payload), std::size_t(24));
        QCOMPARE(sizeof(P::payload), std::size_t(64));
        QCOMPARE(offsetof(P, packetTail), std::size_t(88));
    }
};

QTEST_APPLESS_MAIN(TestPacketBridgeAbi)
#include "tst_packet_bridge_abi.moc"
