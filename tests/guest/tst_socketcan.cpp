// SPDX-License-Identifier: MIT
// What the adapter receives, sends and announces on a real kernel, with peers that share no code with it.
#include "socketcan_guest.h"

#include "support/loop_allocations.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>
#include <QtCore/QSemaphore>

#include <linux/can/error.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr int usualBufferLimit = 212'992;

qint64 microsecondsNow()
{
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return qint64(now.tv_sec) * 1'000'000 + now.tv_usec;
}

qint64 microsecondsOf(const CanTimeStamp &stamp)
{
    return qint64(stamp.seconds) * 1'000'000 + stamp.microseconds;
}

/// Gives the privileges of a user to this thread alone. The library's way of doing it would send a signal to
/// all threads, which ends the wait of a receive loop, and so the loop.
void setUserOfThisThread(uid_t user)
{
    if (::syscall(SYS_setresuid, -1, user, -1) != 0)
        qFatal("no change of user");
}

} // namespace

class TestSocketCan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { mSinceStart.start(); }

    void init() { mLog = std::make_unique<LogRecorder>(); }

    void cleanup() { mLog.reset(); }

    void frameOfAPeerArrives_data()
    {
        QTest::addColumn<bool>("canFd");
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<CAN::CanMessage>("expected");
        const QByteArray sixtyFour(64, 'p');
        CAN::CanMessage extended = message(0x1ABCDEF5, eight);
        extended.isExtended = true;
        CAN::CanMessage remote = message(0x123, {});
        remote.isRtr = true;
        remote.length = 5;
        CAN::CanMessage switched = message(0x1, QByteArray(12, 's'), true);
        switched.isBrs = true;
        CAN::CanMessage passive = message(0x1, eight, true);
        passive.isEsi = true;
        for (const bool canFd : {false, true}) {
            const QByteArray loop = canFd ? "FD loop, " : "classic loop, ";
            const auto row = [&](const char *name, const QByteArray &frame, const CAN::CanMessage &expected) {
                QTest::newRow((loop + name).constData()) << canFd << frame << expected;
            };
            row("empty", classicBytes(0, 0, {}), message(0, {}));
            row("classic", classicBytes(0x7FF, 8, eight), message(0x7FF, eight));
            row("extended", classicBytes(CAN_EFF_FLAG | 0x1ABCDEF5, 8, eight), extended);
            row("remote", classicBytes(CAN_RTR_FLAG | 0x123, 5, {}), remote);
            const auto fdRow = [&](const char *name, int flags, const CAN::CanMessage &expected) {
                const QByteArray payload(reinterpret_cast<const char *>(expected.data), expected.length);
                const QByteArray frame = fdBytes(expected.id, expected.length, flags, payload);
                row(name, frame, canFd ? expected : message(expected.id, payload.left(8)));
            };
            fdRow("FD", 0, message(0x321, sixtyFour, true));
            fdRow("bit-rate switch", CANFD_BRS, switched);
            fdRow("error state", CANFD_ESI, passive);
        }
    }

    void frameOfAPeerArrives()
    {
        QFETCH(bool, canFd);
        QFETCH(QByteArray, frame);
        QFETCH(CAN::CanMessage, expected);
        const Adapter adapter = makeAdapter("vcan0", canFd);
        adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 9);
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        QVERIFY(RawCanSocket("vcan0").send(frame));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        const CAN::CanRxMessage record = frames.frames().constFirst();
        QCOMPARE(bytesOf(record.message), bytesOf(expected));
        QCOMPARE(record.isTx, false);
        QCOMPARE(record.adapterId, quint16(9));
    }

    void messageReachesAPeer_data()
    {
        QTest::addColumn<CAN::CanMessage>("sent");
        QTest::addColumn<QByteArray>("frame");
        const auto row = [](const char *name, const CAN::CanMessage &sent, const QByteArray &frame) {
            QTest::newRow(name) << sent << frame;
        };
        CAN::CanMessage one = message(0x123, eight);
        row("classic", one, classicBytes(0x123, 8, eight));
        one.isExtended = true;
        row("extended", one, classicBytes(CAN_EFF_FLAG | 0x123, 8, eight));
        one.isRtr = true;
        row("remote", one, classicBytes(CAN_EFF_FLAG | CAN_RTR_FLAG | 0x123, 8, {}));
        one.isFd = true;
        row("FD remote", one, fdBytes(CAN_EFF_FLAG | 0x123, 8, CANFD_FDF, {}));
        one = message(0x123, QByteArray(12, 'n'), true);
        one.length = 9;
        row("FD of length 9", one, fdBytes(0x123, 12, CANFD_FDF, QByteArray(12, 'n')));
        one.isBrs = one.isEsi = true;
        row("bit-rate switch", one, fdBytes(0x123, 12, CANFD_FDF | CANFD_BRS, QByteArray(12, 'n')));
        one = message(0x123, QByteArray(64, 'n'), true);
        one.length = 255;
        row("FD of length 255", one, fdBytes(0x123, 64, CANFD_FDF, QByteArray(64, 'n')));
    }

    void messageReachesAPeer()
    {
        QFETCH(CAN::CanMessage, sent);
        QFETCH(QByteArray, frame);
        const RawCanSocket peer("vcan0");
        const Adapter adapter = makeAdapter();
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        QCOMPARE(adapter->write(&sent), CAN::RetOk);
        QByteArray received = peer.receive();
        if (received.size() == int(CANFD_MTU))
            received[5] = static_cast<char>(received[5] | CANFD_FDF); // Which not every kernel sets.
        QCOMPARE(received.toHex(' '), frame.toHex(' '));
        QCOMPARE(frames.count(), 1);
        QCOMPARE(bytesOf(frames.frames().constFirst().message), bytesOf(sent));
        QCOMPARE(frames.frames().constFirst().isTx, true);
    }

    void lengthThatNoClassicFrameHasIsRefused()
    {
        const Adapter adapter = makeAdapter();
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const StderrRecorder errors;
        for (const int length : {9, 64, 65, 255}) {
            CAN::CanMessage sent = message(1, eight);
            sent.length = static_cast<quint8>(length);
            QCOMPARE(adapter->write(&sent), CAN::RetError);
        }
        QCOMPARE(errors.text(), QByteArray());
        QCOMPARE(frames.count(), 0);
    }

    void programsOfOthersUnderstandEachFrame()
    {
        QProcess dump;
        dump.start(QStringLiteral("candump"),
                   {QStringLiteral("-x"), QStringLiteral("-n"), QStringLiteral("4"), QStringLiteral("vcan0")});
        QTRY_VERIFY_WITH_TIMEOUT(
            shell(QStringLiteral("cat /proc/net/can/rcvlist_all")).contains(QLatin1String(" vcan0 ")), WaitMs);
        const Adapter adapter = makeAdapter("vcan0", true);
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        CAN::CanMessage sent = message(0x123, "\x11\x22");
        adapter->write(&sent);
        sent.isExtended = sent.isRtr = true;
        adapter->write(&sent);
        sent = message(0x321, eight + "\x99", true);
        sent.isBrs = true;
        adapter->write(&sent);
        QCOMPARE(shell(QStringLiteral("cansend vcan0 1ABCDEF0##3AABB")), QString());
        QVERIFY(dump.waitForFinished(WaitMs));
        QByteArrayList lines;
        for (const QByteArray &line : dump.readAll().trimmed().split('\n'))
            lines.append(line.simplified());
        QCOMPARE(lines, (QByteArrayList{"vcan0 TX - - 123 [2] 11 22", "vcan0 TX - - 00000123 [2] remote request",
                                        "vcan0 TX B - 321 [12] 11 22 33 44 55 66 77 88 99 00 00 00",
                                        "vcan0 TX B E 1ABCDEF0 [02] AA BB"}));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 4, WaitMs);
        CAN::CanMessage received = message(0x1ABCDEF0, "\xAA\xBB", true);
        received.isExtended = received.isBrs = received.isEsi = true;
        QCOMPARE(bytesOf(frames.frames().constLast().message), bytesOf(received));
    }

    void ownFramesComeBackAsEchoAlone()
    {
        const Adapter adapter = makeAdapter();
        const Adapter other = makeAdapter();
        const FrameRecorder frames(adapter.get());
        const FrameRecorder atOther(other.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        QVERIFY(openAndWait(other.get(), WaitMs));
        adapter->write(message(1, eight));
        adapter->setEcho(false);
        adapter->write(message(2, eight));
        other->setEcho(false);
        QTRY_COMPARE_WITH_TIMEOUT(atOther.count(), 2, WaitMs);
        other->write(message(3, eight));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 2, WaitMs);
        QCOMPARE(frames.frames().constFirst().message.id, 1U);
        QCOMPARE(frames.frames().constLast().message.id, 3U);
    }

    void answerIsDeliveredTenMillisecondsAfterItCame()
    {
        qint64 creation = 0;
        Adapter adapter;
        do {
            creation = microsecondsNow() / 1'000'000;
            adapter = makeAdapter();
        } while (creation != microsecondsNow() / 1'000'000);
        const RawCanSocket peer("vcan0");
        const FrameRecorder frames(adapter.get());
        QVector<qint64> delivered;
        connect(
            adapter.get(), &AbstractCanAdapter::newCanMessage, adapter.get(),
            [&](CAN::CanRxMessage *) { delivered.append(microsecondsNow()); }, Qt::DirectConnection);
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        adapter->write(message(1, "question"));
        QVERIFY(!peer.receive().isNull());
        QVERIFY(peer.send(classicBytes(2, 0, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 2, WaitMs);
        adapter->closeAdapter();
        QVERIFY(adapter->wait(WaitMs));
        QCOMPARE(frames.frames().constFirst().isTx, true);
        QCOMPARE(frames.frames().constLast().isTx, false);
        const qint64 came = creation * 1'000'000 + microsecondsOf(frames.frames().constLast().timeStamp);
        QVERIFY2(delivered.constLast() - came >= 10'000, qPrintable(QString::number(delivered.constLast() - came)));
    }

    void whatArrivesWhileListenersAreSlowIsKept_data()
    {
        QTest::addColumn<bool>("privileged");
        QTest::addColumn<int>("frames");
        QTest::newRow("with privilege") << true << 1303;
        QTest::newRow("without privilege") << false << 555;
    }

    void whatArrivesWhileListenersAreSlowIsKept()
    {
        QFETCH(bool, privileged);
        QFETCH(int, frames);
        QFile limitFile(QStringLiteral("/proc/sys/net/core/rmem_max"));
        if (!limitFile.open(QIODevice::ReadOnly))
            QSKIP("this machine shows net.core.rmem_max in its first network namespace alone");
        const int limit = limitFile.readAll().trimmed().toInt();
        if (!privileged && limit != usualBufferLimit)
            QSKIP("this machine's net.core.rmem_max is not the usual one, for which the frames were counted");
        const Adapter adapter = makeAdapter();
        QSemaphore entered;
        QSemaphore leave;
        connect(
            adapter.get(), &AbstractCanAdapter::newCanMessage, adapter.get(),
            [&](CAN::CanRxMessage *received) {
                if (received->message.id == 0x7FF) {
                    entered.release();
                    leave.acquire();
                }
            },
            Qt::DirectConnection);
        const FrameRecorder recorder(adapter.get());
        if (!privileged)
            setUserOfThisThread(65534);
        const bool running = openAndWait(adapter.get(), WaitMs);
        setUserOfThisThread(0);
        QVERIFY(running);
        const int bytes = privileged ? 500'000 : std::min(500'000, limit);
        QCOMPARE(
            mLog->texts().constFirst(),
            QStringLiteral("virtual CAN::RetType SocketCanAdapter::open() Line: 429 rcvbuf_size %1").arg(2 * bytes));
        const RawCanSocket peer("vcan0");
        QVERIFY(peer.send(classicBytes(0x7FF, 0, {})));
        QVERIFY(entered.tryAcquire(1, WaitMs));
        bool allSent = true;
        for (int index = 0; index < frames; ++index)
            allSent = peer.send(classicBytes(static_cast<canid_t>(index % 0x700), 8, eight)) && allSent;
        leave.release();
        QVERIFY(allSent);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(), frames + 1, WaitMs);
        for (int index = 0; index < frames; ++index)
            QCOMPARE(recorder.frames().at(index + 1).message.id, quint32(index % 0x700));
    }

    void framesBehindThePauseAreAllDelivered_data() { addLoops(); }
    void framesBehindThePauseAreAllDelivered()
    {
        QFETCH(bool, canFd);
        const Adapter adapter = makeAdapter("vcan0", canFd);
        adapter->setEcho(false);
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const RawCanSocket peer("vcan0");
        for (int pass = 1; pass <= 5; ++pass) {
            QCOMPARE(adapter->write(message(1, eight)), CAN::RetOk);
            for (int index = 0; index < 300; ++index)
                QVERIFY(peer.send(classicBytes(2, 8, eight)));
            QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 300 * pass, WaitMs);
        }
    }

    void stampsCountFromTheSecondOfCreation()
    {
        const qint64 before = microsecondsNow() / 1'000'000;
        const Adapter adapter = makeAdapter();
        const qint64 after = microsecondsNow() / 1'000'000;
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const qint64 beforeFrame = microsecondsNow();
        QVERIFY(RawCanSocket("vcan0").send(classicBytes(1, 0, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        const qint64 stamp = microsecondsOf(frames.frames().constFirst().timeStamp);
        QVERIFY(stamp >= beforeFrame - after * 1'000'000);
        QVERIFY(stamp <= microsecondsNow() - before * 1'000'000);
    }

    void stampsOfTheSystemTime_data()
    {
        QTest::addColumn<bool>("continuous");
        QTest::newRow("time of day") << false;
        QTest::newRow("continuous") << true;
    }

    void stampsOfTheSystemTime()
    {
        QFETCH(bool, continuous);
        const Adapter adapter = makeAdapter();
        adapter->setCanAdapterOption(AbstractCanAdapter::option_systemTime, true);
        adapter->setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, continuous);
        const FrameRecorder frames(adapter.get());
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const int before = QTime::currentTime().msecsSinceStartOfDay();
        adapter->write(message(1, {}));
        QVERIFY(RawCanSocket("vcan0").send(classicBytes(1, 0, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 2, WaitMs);
        const int after = QTime::currentTime().msecsSinceStartOfDay();
        if (after < before)
            QSKIP("midnight passed");
        for (const CAN::CanRxMessage &record : frames.frames()) {
            const qint64 ms = microsecondsOf(record.timeStamp) / 1000;
            QCOMPARE(record.timeStamp.microseconds % 1000, 0);
            // The continuous count begins at the time of the process's first adapter, so it is behind by the age
            // that that one had when this one was made; and it goes by another clock.
            const qint64 behind = continuous ? mSinceStart.elapsed() + 100 : 0;
            const qint64 ahead = continuous ? 100 : 0;
            QVERIFY2(ms >= before - behind && ms <= after + ahead,
                     qPrintable(QStringLiteral("%1, from %2 to %3, %4").arg(ms).arg(before).arg(after).arg(behind)));
        }
    }

    void statesFollowInjectedErrorFrames_data() { addLoops(); }
    void statesFollowInjectedErrorFrames()
    {
        QFETCH(bool, canFd);
        const Adapter adapter = makeAdapter("vcan0", canFd);
        const FrameRecorder frames(adapter.get());
        QVector<CAN::CanState> states; // Touched by the adapter's thread until it has ended.
        connect(
            adapter.get(), &AbstractCanAdapter::newCanState, adapter.get(),
            [&](CAN::CanState state) { states.append(state); }, Qt::DirectConnection);
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const RawCanSocket peer("vcan0");
        const QByteArray data = canFd ? fdBytes(7, 64, 0, QByteArray(64, 'd')) : classicBytes(7, 8, eight);
        const QByteArray passive = errorBytes(CAN_ERR_CRTL | CAN_ERR_BUSOFF, QByteArray::fromHex("0020"));
        const QByteArray active = errorBytes(CAN_ERR_PROT, QByteArray::fromHex("000040"));
        const QByteArray busOff = errorBytes(CAN_ERR_BUSOFF, {});
        const QByteArray noAck = errorBytes(CAN_ERR_ACK, {}); // Which the socket has not asked for.
        for (const QByteArray &frame : {data, passive, data, passive, data, noAck, busOff, data, active, data})
            QVERIFY(peer.send(frame));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 5, WaitMs);
        adapter->closeAdapter();
        QVERIFY(adapter->wait(WaitMs));
        QCOMPARE(states, (QVector<CAN::CanState>{CAN::CanStateErrorActive, CAN::CanStateErrorPassive,
                                                 CAN::CanStateBusOff, CAN::CanStateErrorActive}));
    }

    void loopAllocatesNothingForAFrame_data() { addLoops(); }
    void loopAllocatesNothingForAFrame()
    {
        QFETCH(bool, canFd);
        const Adapter adapter = makeAdapter("vcan0", canFd);
        const LoopAllocations allocations(adapter.get(), 10, 200);
        QVERIFY(openAndWait(adapter.get(), WaitMs));
        const RawCanSocket peer("vcan0");
        for (int number = 0; number < 100; ++number) {
            QVERIFY(peer.send(classicBytes(7, 8, eight)));
            QVERIFY(peer.send(canFd ? fdBytes(7, 64, 0, QByteArray(64, 'd')) : classicBytes(8, 8, eight)));
        }
        QTRY_VERIFY_WITH_TIMEOUT(allocations.count() >= 0, WaitMs);
        QCOMPARE(allocations.count(), qint64(0));
    }

private:
    QElapsedTimer mSinceStart;
    std::unique_ptr<LogRecorder> mLog; // Outlives the adapters of a test.
};

QTEST_GUILESS_MAIN(TestSocketCan)
#include "tst_socketcan.moc"
