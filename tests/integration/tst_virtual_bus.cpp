// SPDX-License-Identifier: MIT
#include "support/frame_recorder.h"
#include "support/free_port.h"
#include "support/log_recorder.h"
#include "support/loop_allocations.h"
#include "support/open_adapter.h"

#include <QtCore/QTime>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

#include <thread>

namespace {

constexpr int WaitMs = 8000;

using Adapter = AdapterPointer<DemoCanAdapter>;

QByteArray payloadOf(const CAN::CanRxMessage &message)
{
    return QByteArray(reinterpret_cast<const char *>(message.message.data), sizeof message.message.data);
}

/// Sends bytes to the bus the way another program would.
void broadcast(quint16 port, const QByteArray &bytes)
{
    QUdpSocket socket;
    QCOMPARE(socket.writeDatagram(bytes, QHostAddress(QStringLiteral("127.255.255.255")), port), qint64(bytes.size()));
}

/// A frame as another program would write its bytes.
QByteArray rawFrame(quint32 id, quint8 length, const QByteArray &payload)
{
    return bytesOf([&] {
        CAN::CanMessage message = makeFrame(id, payload);
        message.length = length;
        return message;
    }());
}

} // namespace

class TestVirtualBus : public QObject
{
    Q_OBJECT

private:
    quint16 mPort = 0;

private Q_SLOTS:
    void init() { mPort = freeUdpPort(); }

    void frameReachesAllOthersOnThePortAndNotItsSender()
    {
        const Adapter a = makeVirtualAdapter(mPort, 1);
        const Adapter b = makeVirtualAdapter(mPort, 2);
        const Adapter c = makeVirtualAdapter(mPort, 3);
        const FrameRecorder atA(a.get());
        const FrameRecorder atB(b.get());
        const FrameRecorder atC(c.get());
        for (const Adapter *adapter : {&a, &b, &c})
            QVERIFY(openOnBus(adapter->get()));
        const CAN::CanMessage fromA = makeFrame(0x123, "hello");
        const CAN::CanMessage fromC = makeFrame(0x456, "answer");
        QCOMPARE(a->write(fromA), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(atC.count(), 1, WaitMs);
        QCOMPARE(c->write(fromC), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 2, WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 1, WaitMs);
        QCOMPARE(atC.count(), 1);
        QCOMPARE(bytesOf(atB.frames().at(0).message), bytesOf(fromA));
        QCOMPARE(bytesOf(atB.frames().at(1).message), bytesOf(fromC));
        QCOMPARE(bytesOf(atA.frames().at(0).message), bytesOf(fromC));
        for (const CAN::CanRxMessage &message : atB.frames()) {
            QCOMPARE(message.isTx, false);
            QCOMPARE(message.adapterId, quint16(2));
        }
        QCOMPARE(atB.lastThread(), static_cast<QThread *>(b.get()));
    }

    void datagramHoldsAll76BytesOfTheRecord()
    {
        QUdpSocket listener;
        QVERIFY(listener.bind(QHostAddress::AnyIPv4, mPort,
                              QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint));
        const Adapter a = makeVirtualAdapter(mPort);
        QVERIFY(openOnBus(a.get()));
        CAN::CanMessage message = makeFrame(0x1ABCDEF0, QByteArray(64, 'q'));
        message.length = 9;
        message.isExtended = message.isFd = message.isEsi = message.isBrs = true;
        message.reservedFlag = 0x12;
        message.fillByte = 0x34;
        QCOMPARE(a->write(message), CAN::RetOk);
        QVERIFY(listener.waitForReadyRead(WaitMs));
        QByteArray datagram(200, '\0');
        QHostAddress sender;
        quint16 senderPort = 0;
        datagram.resize(
            static_cast<int>(listener.readDatagram(datagram.data(), datagram.size(), &sender, &senderPort)));
        message.length = 12;
        QCOMPARE(datagram, bytesOf(message));
        QVERIFY(senderPort != mPort);
        QVERIFY(!listener.hasPendingDatagrams());
    }

    void echoHasASystemStampAndComesFromTheAdaptersThread()
    {
        const Adapter a = makeVirtualAdapter(mPort, 7);
        a->setEcho(true);
        const FrameRecorder atA(a.get());
        QVERIFY(openOnBus(a.get()));
        QCOMPARE(a->getCanAdapterOption(AbstractCanAdapter::option_systemTime), QVariant(false));
        CAN::CanMessage message = makeFrame(0x5A5, QByteArray("123456789"));
        message.isEsi = true;
        message.reservedFlag = 3;
        message.fillByte = 4;
        const QTime before = QTime::currentTime();
        a->write(message);
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 1, WaitMs);
        const QTime after = QTime::currentTime();
        const CAN::CanRxMessage echo = atA.frames().constFirst();
        // The echo is the frame as it was sent: rounded up, all else as written.
        message.length = 12;
        QCOMPARE(bytesOf(echo.message), bytesOf(message));
        QCOMPARE(echo.isTx, true);
        QCOMPARE(echo.adapterId, quint16(7));
        QCOMPARE(atA.lastThread(), static_cast<QThread *>(a.get()));
        const int stamp = echo.timeStamp.seconds * 1000 + echo.timeStamp.microseconds / 1000;
        if (after < before)
            QSKIP("midnight passed");
        QVERIFY(stamp >= before.msecsSinceStartOfDay() && stamp <= after.msecsSinceStartOfDay());
    }

    void echoComesInThePassOfItsTransmissionBeforeAnyDatagram()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        a->setEcho(true);
        for (quint32 id = 1; id <= 3; ++id)
            a->write(makeFrame(id, ""));
        QVector<quint32> order;
        connect(
            a.get(), &AbstractCanAdapter::newCanMessage, a.get(),
            [this, &order](CAN::CanRxMessage *message) {
                order.append(message->message.id);
                if (message->message.id == 1)
                    broadcast(mPort, rawFrame(0x99, 0, ""));
            },
            Qt::DirectConnection);
        a->open();
        QTRY_COMPARE_WITH_TIMEOUT(order.size(), 4, WaitMs);
        // One frame is sent in a pass, and what has arrived by then comes before the next one.
        QCOMPARE(order, (QVector<quint32>{1, 0x99, 2, 3}));
    }

    void echoDoesNotTellWhetherTheSystemTookTheFrame()
    {
        const LogRecorder log;
        const Adapter a = makeVirtualAdapter(mPort);
        a->setEcho(true);
        const FrameRecorder atA(a.get());
        QSignalSpy errors(a.get(), &AbstractCanAdapter::interfaceError);
        QVERIFY(openOnBus(a.get()));
        // Nothing can be sent to port 0.
        a->setCanAdapterOption(AbstractCanAdapter::option_portNumber, 0);
        a->write(makeFrame(1, ""));
        a->write(makeFrame(2, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 2, WaitMs);
        QCOMPARE(errors.count(), 0);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void receivedFrameIsStampedWithTheTimeOfDay()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        const FrameRecorder atA(a.get());
        QVERIFY(openOnBus(a.get()));
        const QTime before = QTime::currentTime();
        broadcast(mPort, rawFrame(1, 0, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 1, WaitMs);
        const QTime after = QTime::currentTime();
        if (after < before)
            QSKIP("midnight passed");
        const CanTimeStamp stamp = atA.frames().constFirst().timeStamp;
        const int milliseconds = stamp.seconds * 1000 + stamp.microseconds / 1000;
        QVERIFY(milliseconds >= before.msecsSinceStartOfDay() && milliseconds <= after.msecsSinceStartOfDay());
    }

    void receivedFrameIsStampedFromTheContinuousClockWhereAsked()
    {
        class LateStarter : public DemoCanAdapter
        {
        public:
            using AbstractCanAdapter::mStartTime;
            using DemoCanAdapter::DemoCanAdapter;
        };
        const Adapter a = makeVirtualAdapter(mPort);
        a->setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, true);
        const FrameRecorder atA(a.get());
        const unsigned int start = LateStarter::mStartTime;
        LateStarter::mStartTime = 200'000'000;
        QVERIFY(openOnBus(a.get()));
        broadcast(mPort, rawFrame(1, 0, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 1, WaitMs);
        a->closeAdapter();
        QVERIFY(a->wait(WaitMs));
        LateStarter::mStartTime = start;
        const qint32 seconds = atA.frames().constFirst().timeStamp.seconds;
        QVERIFY2(seconds >= 200'000 && seconds < 200'600, qPrintable(QString::number(seconds)));
    }

    void flagsCrossTheBusExceptEsi_data()
    {
        QTest::addColumn<CAN::CanMessage>("sent");
        const auto row = [](const char *name, bool CAN::CanMessage::*flag) {
            CAN::CanMessage message = makeFrame(0x7FF, "x");
            message.*flag = true;
            QTest::newRow(name) << message;
        };
        row("remote", &CAN::CanMessage::isRtr);
        row("extended", &CAN::CanMessage::isExtended);
        row("fd", &CAN::CanMessage::isFd);
        row("esi", &CAN::CanMessage::isEsi);
        row("brs", &CAN::CanMessage::isBrs);
    }
    void flagsCrossTheBusExceptEsi()
    {
        QFETCH(CAN::CanMessage, sent);
        const Adapter a = makeVirtualAdapter(mPort);
        const Adapter b = makeVirtualAdapter(mPort);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(b.get()));
        a->open();
        a->write(sent);
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
        sent.isEsi = false;
        QCOMPARE(bytesOf(atB.frames().constFirst().message), bytesOf(sent));
    }

    void lengthIsRoundedUpAlsoForClassicFrames_data()
    {
        QTest::addColumn<int>("written");
        QTest::addColumn<int>("delivered");
        QTest::newRow("8") << 8 << 8;
        QTest::newRow("9") << 9 << 12;
        QTest::newRow("13") << 13 << 16;
        QTest::newRow("49") << 49 << 64;
        QTest::newRow("64") << 64 << 64;
        QTest::newRow("65") << 65 << 64;
        QTest::newRow("255") << 255 << 64;
    }
    void lengthIsRoundedUpAlsoForClassicFrames()
    {
        QFETCH(int, written);
        QFETCH(int, delivered);
        const Adapter a = makeVirtualAdapter(mPort);
        const Adapter b = makeVirtualAdapter(mPort);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(b.get()));
        QByteArray payload(64, '\0');
        for (int index = 0; index < payload.size(); ++index)
            payload[index] = static_cast<char>(index + 1);
        CAN::CanMessage message = makeFrame(0x100, payload);
        message.length = static_cast<quint8>(written);
        a->write(message);
        a->open();
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
        const CAN::CanRxMessage got = atB.frames().constFirst();
        QCOMPARE(int(got.message.length), delivered);
        // The bytes that rounding adds are what the record held behind the length.
        QCOMPARE(payloadOf(got), payload.left(delivered).leftJustified(64, '\0'));
    }

    void datagramsOfOtherProgramsAreBounded_data()
    {
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<CAN::CanMessage>("delivered");
        const QByteArray full(64, 'f');
        QTest::newRow("length 200") << rawFrame(5, 200, full) << makeFrame(5, full);
        QTest::newRow("empty") << QByteArray() << CAN::CanMessage();
        QTest::newRow("identifier only") << rawFrame(0x77, 0, "").left(4) << makeFrame(0x77, "");
        CAN::CanMessage cut = makeFrame(0x77, QByteArray("ab").append(6, '\0'));
        QTest::newRow("cut within the payload") << rawFrame(0x77, 8, "abcdefgh").left(7) << cut;
        QTest::newRow("too long") << rawFrame(9, 2, "zz") + QByteArray(500, 'x') << makeFrame(9, "zz");
        CAN::CanMessage flags = makeFrame(3, "f");
        flags.isRtr = flags.isExtended = flags.isFd = flags.isBrs = true;
        QTest::newRow("flags of 0xFF") << rawFrame(3, 1, "f").left(69) + QByteArray(7, '\xFF') << flags;
    }
    void datagramsOfOtherProgramsAreBounded()
    {
        QFETCH(QByteArray, datagram);
        QFETCH(CAN::CanMessage, delivered);
        const Adapter a = makeVirtualAdapter(mPort);
        const FrameRecorder atA(a.get());
        QVERIFY(openOnBus(a.get()));
        // One that fills the receive buffer with other values comes first, so that leftovers would show.
        broadcast(mPort, QByteArray(76, '\x3C'));
        broadcast(mPort, datagram);
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 2, WaitMs);
        QCOMPARE(bytesOf(atA.frames().at(1).message), bytesOf(delivered));
        QCOMPARE(atA.frames().at(1).isTx, false);
    }

    void differentPortsAreDifferentBuses()
    {
        const quint16 otherPort = freeUdpPort();
        const Adapter a = makeVirtualAdapter(mPort);
        const Adapter b = makeVirtualAdapter(otherPort);
        const Adapter c = makeVirtualAdapter(mPort);
        const FrameRecorder atB(b.get());
        const FrameRecorder atC(c.get());
        for (const Adapter *adapter : {&a, &b, &c})
            QVERIFY(openOnBus(adapter->get()));
        a->write(makeFrame(1, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atC.count(), 1, WaitMs);
        QCOMPARE(atB.count(), 0);
        // The port of a transmission is read then; the loop keeps listening where it was bound.
        a->setCanAdapterOption(AbstractCanAdapter::option_portNumber, otherPort);
        a->write(makeFrame(2, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
        QCOMPARE(atB.frames().constFirst().message.id, 2U);
        const FrameRecorder atA(a.get());
        c->write(makeFrame(3, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 1, WaitMs);
        QCOMPARE(atC.count(), 1);
    }

    void framesWrittenWhileClosedGoOutInOrderAfterOpen()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        const Adapter b = makeVirtualAdapter(mPort);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(b.get()));
        for (quint32 id = 0; id < 20; ++id)
            QCOMPARE(a->write(makeFrame(id, "")), CAN::RetOk);
        a->open();
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 20, WaitMs);
        a->closeAdapter();
        QVERIFY(a->wait(WaitMs));
        for (quint32 id = 20; id < 40; ++id)
            QCOMPARE(a->write(makeFrame(id, "")), CAN::RetOk);
        QCOMPARE(atB.count(), 20);
        a->open();
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 40, WaitMs);
        for (int index = 0; index < 40; ++index)
            QCOMPARE(atB.frames().at(index).message.id, quint32(index));
    }

    void framesQueuedWhenTheLoopEndsWaitForTheNextOpen()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        const Adapter b = makeVirtualAdapter(mPort);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(b.get()));
        a->setEcho(true);
        // Also shows that a close returns on the adapter's own thread.
        const auto closing = connect(
            a.get(), &AbstractCanAdapter::newCanMessage, a.get(), [&a](CAN::CanRxMessage *) { a->closeAdapter(); },
            Qt::DirectConnection);
        for (quint32 id = 0; id < 20; ++id)
            a->write(makeFrame(id, ""));
        a->open();
        QVERIFY(a->wait(WaitMs));
        QVERIFY(atB.count() < 20);
        disconnect(closing);
        a->open();
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 20, WaitMs);
        for (int index = 0; index < 20; ++index)
            QCOMPARE(atB.frames().at(index).message.id, quint32(index));
    }

    void loopAllocatesNothingForAReceivedFrame()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        const Adapter b = makeVirtualAdapter(mPort);
        const LoopAllocations allocations(b.get(), 10, 200);
        QVERIFY(openOnBus(a.get()));
        QVERIFY(openOnBus(b.get()));
        for (quint32 index = 0; index < 200; ++index)
            a->write(makeFrame(index, "12345678"));
        QTRY_VERIFY_WITH_TIMEOUT(allocations.count() >= 0, WaitMs);
        QCOMPARE(allocations.count(), qint64(0));
    }

    void framesOfSeveralThreadsAllGoOutEachInItsOrder()
    {
        constexpr quint32 perThread = 500;
        const Adapter a = makeVirtualAdapter(mPort);
        // Echoes tell what went out; a receiver without the privilege of a large buffer may lose some.
        a->setEcho(true);
        const FrameRecorder atA(a.get());
        QVERIFY(openOnBus(a.get()));
        std::vector<std::thread> threads;
        for (quint32 number = 0; number < 4; ++number) {
            threads.emplace_back([&a, number] {
                for (quint32 index = 0; index < perThread; ++index)
                    a->write(makeFrame(number * 1000 + index, ""));
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), int(4 * perThread), WaitMs);
        QVector<quint32> next(4, 0);
        for (const CAN::CanRxMessage &message : atA.frames()) {
            const auto number = static_cast<int>(message.message.id / 1000);
            QCOMPARE(message.message.id % 1000, next[number]++);
        }
    }
};

QTEST_GUILESS_MAIN(TestVirtualBus)
#include "tst_virtual_bus.moc"
