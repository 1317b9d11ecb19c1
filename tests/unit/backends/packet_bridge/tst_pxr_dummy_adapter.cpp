// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>

#include "support/can_packets.h"
#include "support/delivered_frame.h"
#include "support/hex.h"
#include "support/log_recorder.h"

#include <QtTest/QtTest>

#include <memory>
#include <thread>

using A = AbstractCanAdapter;
using CanPacket = PxrFdTypes::UnionPacket::StructCanMsg;

namespace {

/// Keeps what a bridge sends.
class PacketRecorder
{
public:
    explicit PacketRecorder(PXRDummyAdapter *bridge)
    {
        QObject::connect(
            bridge, &PXRDummyAdapter::sigSendCanMessage, bridge,
            [this](CanPacket &packet) {
                packets.append(packet);
                threads.append(QThread::currentThread());
            },
            Qt::DirectConnection);
    }

    QVector<CanPacket> packets;
    QVector<QThread *> threads;
};

PxrFdTypes::UnionPacket packet(const char *digits)
{
    return packetOf(hex(digits));
}

} // namespace

class TestPxrDummyAdapter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writtenFrameLeavesAsAPacketStampedNow()
    {
        PXRDummyAdapter bridge;
        const PacketRecorder sent(&bridge);
        const FrameRecorder frames(&bridge);
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        QCOMPARE(bridge.write(makeFrame(0x123, "\xAA\xBB")), CAN::RetOk);
        const qint64 after = QDateTime::currentMSecsSinceEpoch();
        QCOMPARE(sent.packets.size(), 1);
        const CanPacket &got = sent.packets.constFirst();
        QCOMPARE(got.packetHeader, 0x00001000U);
        QCOMPARE(got.lengthFormat, quint16(2));
        QCOMPARE(got.dlc, quint8(2));
        QCOMPARE(got.frameFlags, quint8(0));
        QCOMPARE(got.canId, 0x123U);
        QCOMPARE(bytesOf(got).mid(12), hex("02000000 02000000 23010000 aabb").leftJustified(80, '\0'));
        QCOMPARE(got.packetNanoseconds % 1000000, 0);
        const qint64 stamp = qint64(got.packetSeconds) * 1000 + got.packetNanoseconds / 1000000;
        QVERIFY2(before <= stamp && stamp <= after, qPrintable(QString::number(stamp)));
        QCOMPARE(sent.threads, QVector<QThread *>{thread()});
        // Echo is on, but there is none.
        QCOMPARE(frames.count(), 0);
    }

    void packetsAreStampedAtTheirConversion()
    {
        PXRDummyAdapter bridge;
        const CAN::CanMessage message = makeFrame(1, "x");
        const auto msOf = [](const CanPacket &p) {
            return qint64(p.packetSeconds) * 1000 + p.packetNanoseconds / 1000000;
        };
        const CanPacket first = bridge.convertCanMessage(message);
        QTRY_VERIFY(msOf(bridge.convertCanMessage(message)) > msOf(first));
    }

    void conversionAloneSendsNothing()
    {
        PXRDummyAdapter bridge;
        const PacketRecorder sent(&bridge);
        CAN::CanMessage message = makeFrame(0x18FF0001, "\x01");
        message.isExtended = true;
        const CanPacket got = bridge.convertCanMessage(message);
        QCOMPARE(got.canId, 0x98FF0001U);
        QCOMPARE(got.frameFlags, quint8(0x80));
        QCOMPARE(sent.packets.size(), 0);
    }

    void writtenFrameIsNotChanged()
    {
        PXRDummyAdapter bridge;
        CAN::CanMessage message = makeFrame(0xFFFFFFFF, QByteArray(13, 'm'));
        const QByteArray before = bytesOf(message);
        QCOMPARE(bridge.write(&message), CAN::RetOk);
        QCOMPARE(bytesOf(message), before);
    }

    void emptyListDoesNothing()
    {
        PXRDummyAdapter bridge;
        const FrameRecorder frames(&bridge);
        bridge.onCanMessageReceived({});
        QCOMPARE(frames.count(), 0);
    }

    void otherPacketTypesAreSkipped()
    {
        PXRDummyAdapter bridge;
        const FrameRecorder frames(&bridge);
        bridge.onCanMessageReceived({packet("00200000"), packet("00000000"),
                                     packet("00100000 00000000 00000000 00000000 00000000 07000000"),
                                     packet("00f00000")});
        QCOMPARE(frames.count(), 1);
        QCOMPARE(frames.frames().constFirst().message.id, 7U);
    }

    void framesAreDeliveredInOrderWithTheStampsOfTheirPackets()
    {
        PXRDummyAdapter bridge;
        bridge.setCanAdapterOption(A::option_uniqueId, 40000);
        bridge.setCanAdapterOption(A::option_systemTime, true);
        const FrameRecorder frames(&bridge);
        QSignalSpy byValue(&bridge, &A::newCanMessageByValue);
        bridge.onCanMessageReceived({packet("00100000 05000000 3f841e00 02000000 00000080 23010000 aabb"),
                                     packet("00100000 06000000 00000000 01200000 00004000 01000080 cc")});
        CAN::CanRxMessage first;
        first.timeStamp.seconds = 5;
        first.timeStamp.microseconds = 1999;
        first.message = makeFrame(0x123, "\xAA\xBB");
        first.isTx = true;
        first.adapterId = 40000;
        CAN::CanRxMessage second = first;
        second.timeStamp.seconds = 6;
        second.timeStamp.microseconds = 0;
        second.message = makeFrame(1, "\xCC\xBB");
        second.message.length = 1;
        second.message.isExtended = second.message.isFd = second.message.isBrs = second.message.isEsi = true;
        second.isTx = false;
        QCOMPARE(frames.count(), 2);
        QCOMPARE(textOf(frames.frames().at(0)), textOf(first));
        QCOMPARE(textOf(frames.frames().at(1)), textOf(second));
        QCOMPARE(byValue.count(), 2);
        QCOMPARE(textOf(byValue.at(1).at(0).value<CAN::CanRxMessage>()), textOf(second));
    }

    void classicFrameBehindAFdFrameKeepsItsFlagsWithinOneCall()
    {
        PXRDummyAdapter bridge;
        const FrameRecorder frames(&bridge);
        const PxrFdTypes::UnionPacket fd = packet("00100000 00000000 00000000 00200000 00004000");
        const PxrFdTypes::UnionPacket classic = packet("00100000");
        bridge.onCanMessageReceived({classic, fd, classic});
        bridge.onCanMessageReceived({classic});
        QStringList flags;
        for (const CAN::CanRxMessage &frame : frames.frames())
            flags << QStringLiteral("%1%2%3").arg(frame.message.isFd).arg(frame.message.isBrs).arg(frame.message.isEsi);
        QCOMPARE(flags, (QStringList{QStringLiteral("000"), QStringLiteral("111"), QStringLiteral("111"),
                                     QStringLiteral("000")}));
    }

    void lengthAboveSixtyFourIsDeliveredWithSixtyFourBytes()
    {
        PXRDummyAdapter bridge;
        const FrameRecorder frames(&bridge);
        PxrFdTypes::UnionPacket tooLong = packet("00100000 00000000 00000000 ff070000");
        std::fill(std::begin(tooLong.stcCanMsg.payload), std::end(tooLong.stcCanMsg.payload), quint8('p'));
        tooLong.stcCanMsg.packetTail = 0x71717171;
        bridge.onCanMessageReceived({tooLong});
        CAN::CanRxMessage expected;
        expected.message = makeFrame(0, QByteArray(64, 'p'));
        expected.message.length = 255;
        expected.packetWord = 0x71717171;
        QCOMPARE(frames.count(), 1);
        QCOMPARE(textOf(frames.frames().constFirst()), textOf(expected));
    }

    void receiverMayChangeTheListThatItIsCalledFor()
    {
        PXRDummyAdapter bridge;
        const FrameRecorder frames(&bridge);
        QList<PxrFdTypes::UnionPacket> packets{packet("00100000"), packet("00100000"), packet("00100000")};
        connect(&bridge, &A::newCanMessage, &bridge, [&packets] { packets.clear(); });
        bridge.onCanMessageReceived(packets);
        QCOMPARE(frames.count(), 3);
        QCOMPARE(packets.size(), 0);
    }

    void framesSurfaceOnTheCallersThread()
    {
        PXRDummyAdapter bridge;
        const FrameRecorder frames(&bridge);
        const PacketRecorder sent(&bridge);
        QThread *caller = nullptr;
        std::thread peer([&] {
            caller = QThread::currentThread();
            bridge.onCanMessageReceived({packet("00100000")});
            bridge.write(makeFrame(1, ""));
        });
        peer.join();
        QVERIFY(caller != thread());
        QCOMPARE(frames.lastThread(), caller);
        QCOMPARE(sent.threads, QVector<QThread *>{caller});
    }

    void packetsMayComeQueuedByName()
    {
        PXRDummyAdapter bridge;
        const FrameRecorder frames(&bridge);
        QVERIFY(QMetaObject::invokeMethod(
            &bridge, [&bridge] { bridge.onCanMessageReceived({packet("00100000")}); }, Qt::QueuedConnection));
        QTRY_COMPARE(frames.count(), 1);
        qRegisterMetaType<QList<PxrFdTypes::UnionPacket>>("QList<PxrFdTypes::UnionPacket>");
        QVERIFY(QMetaObject::invokeMethod(&bridge, "onCanMessageReceived", Qt::QueuedConnection,
                                          Q_ARG(QList<PxrFdTypes::UnionPacket>, {packet("00100000")})));
        QCOMPARE(frames.count(), 1);
        QTRY_COMPARE(frames.count(), 2);
    }

    void bridgeWorksWithoutOpenAndAfterClose()
    {
        const LogRecorder log;
        PXRDummyAdapter bridge;
        QSignalSpy states(&bridge, SIGNAL(newCanState(CAN::CanState, CanTimeStamp)));
        const FrameRecorder frames(&bridge);
        const PacketRecorder sent(&bridge);
        const auto pass = [&] {
            bridge.write(makeFrame(1, ""));
            bridge.onCanMessageReceived({packet("00100000")});
        };
        pass();
        QCOMPARE(bridge.open(), CAN::RetOk);
        QVERIFY(!bridge.getRunning());
        QVERIFY(!bridge.isRunning());
        QCOMPARE(int(bridge.getState()), 0);
        pass();
        bridge.closeAdapter();
        pass();
        bridge.prepareToTerminate();
        pass();
        QCOMPARE(frames.count(), 4);
        QCOMPARE(sent.packets.size(), 4);
        QCOMPARE(states.count(), 0);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void smallOperationsAnswerAsTheyAlwaysDo()
    {
        PXRDummyAdapter bridge;
        QCOMPARE(bridge.setBitrate(static_cast<unsigned short>(500)), CAN::RetOk);
        QCOMPARE(bridge.setBitrate(500U), CAN::RetError);
        QCOMPARE(bridge.getBitRate(), static_cast<unsigned short>(0));
        bridge.resetDriver();
        QCOMPARE(bridge.write(QStringLiteral("x")), CAN::RetError);
        QVERIFY(bridge.getSkippedOptions().isEmpty());
        QCOMPARE(bridge.getCanAdapterOption(A::option_isCiA309), QVariant(false));
    }

    void twoBridgesMakeALink()
    {
        PXRDummyAdapter left;
        PXRDummyAdapter right;
        connect(
            &left, &PXRDummyAdapter::sigSendCanMessage, &right,
            [&right](CanPacket &sent) {
                PxrFdTypes::UnionPacket received;
                received.stcCanMsg = sent;
                right.onCanMessageReceived({received});
            },
            Qt::DirectConnection);
        const FrameRecorder atRight(&right);
        CAN::CanMessage message = makeFrame(0x1ABCDEF5, QByteArray(64, 'l'));
        message.isExtended = message.isFd = message.isBrs = true;
        left.write(message);
        QCOMPARE(atRight.count(), 1);
        QCOMPARE(bytesOf(atRight.frames().constFirst().message), bytesOf(message));
    }
};

QTEST_GUILESS_MAIN(TestPxrDummyAdapter)
#include "tst_pxr_dummy_adapter.moc"
