// SPDX-License-Identifier: MIT
// The adapter and its interface: full, down, gone, none at all, shared and joined.
#include "socketcan_guest.h"

#include "support/process_level.h"

#include <QtCore/QProcess>

#include <cstdio>
#include <cstring>

namespace {

/// The peer process of a test: answers each frame that it receives with the next identifier.
int runAnsweringProcess(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const Adapter adapter = makeAdapter();
    QObject::connect(
        adapter.get(), &AbstractCanAdapter::newCanMessage, adapter.get(),
        [&](CAN::CanRxMessage *received) {
            if (!received->isTx)
                adapter->write(makeFrame(received->message.id + 1, "answer"));
        },
        Qt::DirectConnection);
    if (!openAndWait(adapter.get(), WaitMs))
        return 1;
    std::puts("open");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}

} // namespace

class TestSocketCanInterfaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { mLog = std::make_unique<LogRecorder>(); }

    void cleanup()
    {
        mLog.reset();
        if (mInterfacesChanged)
            QCOMPARE(shell(QFINDTESTDATA("set_up_interfaces")), QString());
        mInterfacesChanged = false;
    }

    void fullQueueIsToldAtOnce()
    {
        mInterfacesChanged = true;
        QCOMPARE(shell(QStringLiteral("tc qdisc add dev vcan1 root netem delay 60s limit 7")), QString());
        const Adapter adapter = makeAdapter("vcan1");
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const StderrRecorder errors;
        for (int index = 0; index < 7; ++index)
            QCOMPARE(adapter->write(message(1, eight)), CAN::RetOk);
        QCOMPARE(adapter->write(message(2, eight)), CAN::RetTxBufferFull);
        QCOMPARE(errors.text(), QByteArray());
        QCOMPARE(adapter->write(message(3, eight, true)), CAN::RetError);
        QCOMPARE(errors.text(), QByteArray("write: No buffer space available\n"));
        QCOMPARE(frames.count(), 7);
        QVERIFY(adapter->getRunning());
    }

    void interfaceThatGoesDownEndsTheLoop_data() { addLoops(); }
    void interfaceThatGoesDownEndsTheLoop()
    {
        QFETCH(bool, canFd);
        mInterfacesChanged = true;
        const Adapter adapter = makeAdapter("vcan1", canFd);
        const FrameRecorder frames(adapter.get());
        QSignalSpy errors(adapter.get(), &AbstractCanAdapter::interfaceError);
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        QCOMPARE(shell(QStringLiteral("ip link set vcan1 down")), QString());
        QVERIFY(adapter->wait(WaitMs));
        QVERIFY(!adapter->getRunning());
        QCOMPARE(errors.count(), 1);
        {
            const StderrRecorder text;
            QCOMPARE(adapter->write(message(1, eight)), CAN::RetError);
            QCOMPARE(text.text(), QByteArray());
            QCOMPARE(adapter->write(message(1, eight, true)), CAN::RetError);
            QCOMPARE(text.text(), QByteArray("write: Network is down\n"));
        }
        QCOMPARE(frames.count(), 0);

        // Opening takes no notice of it; the first reception does.
        QCOMPARE(adapter->open(), CAN::RetOk);
        QVERIFY(adapter->wait(WaitMs));
        QCOMPARE(errors.count(), 2);
        QCOMPARE(shell(QStringLiteral("ip link set vcan1 up")), QString());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        QVERIFY(RawCanSocket("vcan1").send(classicBytes(5, 0, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
    }

    void interfaceThatVanishesEndsTheLoop_data() { addLoops(); }
    void interfaceThatVanishesEndsTheLoop()
    {
        QFETCH(bool, canFd);
        mInterfacesChanged = true;
        const Adapter adapter = makeAdapter("vcan1", canFd);
        QSignalSpy errors(adapter.get(), &AbstractCanAdapter::interfaceError);
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        QCOMPARE(shell(QStringLiteral("ip link del vcan1")), QString());
        QVERIFY(adapter->wait(WaitMs));
        QVERIFY(!adapter->getRunning());
        QCOMPARE(errors.count(), 1);
        const StderrRecorder text;
        QCOMPARE(adapter->write(message(1, eight)), CAN::RetError);
        QCOMPARE(adapter->open(), CAN::RetError);
        QCOMPARE(text.text(), QByteArray("SIOCGIFINDEX: No such device\n"));

        // Under its name it is another interface, and the same adapter opens it.
        QCOMPARE(shell(QStringLiteral("ip link add dev vcan1 type vcan && ip link set vcan1 mtu 72 up")), QString());
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        QVERIFY(RawCanSocket("vcan1").send(classicBytes(5, 0, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        QCOMPARE(adapter->write(message(1, eight)), CAN::RetOk);
    }

    void interfaceThatIsNoneOfCanIsRefused_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("lo") << QByteArray("bind: No such device\n");
        QTest::newRow("nothing0") << QByteArray("SIOCGIFINDEX: No such device\n");
        QTest::newRow(" vcan0x | PEAK") << QByteArray("SIOCGIFINDEX: No such device\n");
    }

    void interfaceThatIsNoneOfCanIsRefused()
    {
        QFETCH(QByteArray, text);
        const StderrRecorder errors;
        const Adapter adapter = makeAdapter(QTest::currentDataTag());
        QCOMPARE(adapter->open(), CAN::RetError);
        QCOMPARE(errors.text(), text);
        QVERIFY(mLog->records().isEmpty());
        QVERIFY(!adapter->isRunning());
    }

    void labelOfADeviceStringDoesNotMatter()
    {
        const Adapter adapter = makeAdapter("  vcan0 | PEAK ");
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        QVERIFY(RawCanSocket("vcan0").send(classicBytes(5, 0, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
    }

    void reopeningAHundredTimesLeavesNothingBehind()
    {
        const RawCanSocket peer("vcan0");
        const Adapter adapter = makeAdapter();
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const int before = openDescriptors();
        for (int pass = 1; pass <= 100; ++pass) {
            adapter->closeAdapter();
            QVERIFY(peer.send(classicBytes(1, 0, {}))); // Ends the wait for one.
            QVERIFY(adapter->wait(WaitMs));
            QVERIFY(openAndWait(adapter.get(), WaitMs));
        }
        QCOMPARE(openDescriptors(), before);
        const int received = frames.count();
        QVERIFY(peer.send(classicBytes(2, 0, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), received + 1, WaitMs);
    }

    void openingAgainWhileTheLoopRunsMovesItToTheNewSocket_data() { addLoops(); }
    void openingAgainWhileTheLoopRunsMovesItToTheNewSocket()
    {
        QFETCH(bool, canFd);
        const RawCanSocket peer("vcan0");
        const Adapter adapter = makeAdapter("vcan0", canFd);
        const FrameRecorder frames(adapter.get());
        QSignalSpy errors(adapter.get(), &AbstractCanAdapter::interfaceError);
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const int before = openDescriptors();
        for (quint32 pass = 1; pass <= 20; ++pass) {
            QCOMPARE(adapter->open(), CAN::RetOk);
            // The socket before may deliver it as well, while the loop's last pass with it is on.
            QVERIFY(peer.send(classicBytes(pass, 0, {})));
            QTRY_VERIFY_WITH_TIMEOUT(frames.count() > 0 && frames.frames().constLast().message.id == pass, WaitMs);
        }
        QTRY_COMPARE_WITH_TIMEOUT(openDescriptors(), before, WaitMs);
        QVERIFY(peer.send(classicBytes(0x100, 0, {})));
        QVERIFY(peer.send(classicBytes(0x101, 0, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.frames().constLast().message.id, 0x101U, WaitMs);
        QCOMPARE(frames.frames().at(frames.count() - 2).message.id, 0x100U);
        QCOMPARE(adapter->write(message(0x102, eight)), CAN::RetOk);
        QVERIFY(!peer.receive().isNull());
        QVERIFY(adapter->getRunning());
        QVERIFY(errors.isEmpty());
    }

    void controllersCarryFramesToEachOther()
    {
        const Adapter left = makeAdapter("can0");
        const Adapter right = makeAdapter("can1", true);
        left->setEcho(false);
        right->setEcho(false);
        const FrameRecorder atLeft(left.get());
        const FrameRecorder atRight(right.get());
        QVERIFY(openAndWait(left.get(), WaitMs));
        QVERIFY(openAndWait(right.get(), WaitMs));
        CAN::CanMessage there = message(0x1ABCDEF5, eight);
        there.isExtended = true;
        const CAN::CanMessage back = message(0x7FF, "abc");
        QCOMPARE(left->write(there), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(atRight.count(), 1, WaitMs);
        QCOMPARE(right->write(back), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(atLeft.count(), 1, WaitMs);
        QCOMPARE(bytesOf(atRight.frames().constFirst().message), bytesOf(there));
        QCOMPARE(bytesOf(atLeft.frames().constFirst().message), bytesOf(back));
        // What the hardware cannot carry, the kernel refuses.
        const StderrRecorder errors;
        QCOMPARE(left->write(message(1, eight, true)), CAN::RetError);
        QCOMPARE(errors.text(), QByteArray("write: Invalid argument\n"));
    }

    void linkedAdaptersJoinTwoInterfaces()
    {
        const Adapter left = makeAdapter("vcan0", true);
        const Adapter right = makeAdapter("vcan1", true);
        left->setLinkedAdapter(right.get());
        right->setLinkedAdapter(left.get());
        QVERIFY(openAndWait(left.get(), WaitMs));
        QVERIFY(openAndWait(right.get(), WaitMs));
        const RawCanSocket peer("vcan0");
        const RawCanSocket far("vcan1");
        const QByteArray there = fdBytes(0x111, 64, CANFD_BRS, QByteArray(64, 't'));
        QVERIFY(peer.send(there));
        QByteArray received = far.receive();
        QCOMPARE(received.size(), int(CANFD_MTU));
        received[5] = static_cast<char>(received[5] & ~CANFD_FDF);
        QCOMPARE(received.toHex(' '), there.toHex(' '));
        QVERIFY(far.send(classicBytes(0x222, 8, eight)));
        QCOMPARE(peer.receive().toHex(' '), classicBytes(0x222, 8, eight).toHex(' '));
        QCOMPARE(peer.receive(300), QByteArray()); // Nothing goes round.
        left->setLinkedAdapter(nullptr);
        right->setLinkedAdapter(nullptr);
    }

    void adaptersOfTwoProcessesTalk()
    {
        QProcess other;
        other.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        other.start(QCoreApplication::applicationFilePath(), {QStringLiteral("answer-frames")});
        QVERIFY(other.waitForReadyRead(WaitMs));
        const Adapter adapter = makeAdapter();
        adapter->setEcho(false);
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        for (int pass = 1; pass <= 20; ++pass) {
            QCOMPARE(adapter->write(message(quint32(2 * pass), "question")), CAN::RetOk);
            QTRY_COMPARE_WITH_TIMEOUT(frames.count(), pass, WaitMs);
            QCOMPARE(bytesOf(frames.frames().constLast().message), bytesOf(message(quint32(2 * pass + 1), "answer")));
        }
        other.closeWriteChannel();
        QVERIFY(other.waitForFinished(WaitMs));
        QCOMPARE(other.exitCode(), 0);
    }

private:
    std::unique_ptr<LogRecorder> mLog; // Outlives the adapters of a test.
    bool mInterfacesChanged = false;
};

int main(int argc, char **argv)
{
    if (argc == 2 && std::strcmp(argv[1], "answer-frames") == 0)
        return runAnsweringProcess(argc, argv);
    const QCoreApplication application(argc, argv);
    TestSocketCanInterfaces test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_socketcan_interfaces.moc"
