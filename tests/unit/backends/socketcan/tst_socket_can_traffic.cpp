// SPDX-License-Identifier: MIT
// What a running adapter receives, announces and sends.
#include "kernel_frames.h"
#include "running_socket_can.h"
#include "support/frame_recorder.h"
#include "support/stderr_recorder.h"
#include "support/taken_descriptors.h"

#include <cerrno>
#include <linux/can/error.h>
#include <thread>

namespace {

constexpr int WaitMs = 20000;
const QByteArray eight = QByteArray::fromHex("1122334455667788");

/// An open adapter with what it delivers.
struct Traffic : SocketCanFixture
{
    FrameRecorder frames{adapter.get()};

    void setOption(AbstractCanAdapter::AdapterOption option) { adapter->setCanAdapterOption(option, true); }
    /// Waits for so many frames in all.
    bool hasFrames(int count)
    {
        return QTest::qWaitFor([&] { return frames.count() >= count; }, WaitMs) && frames.count() == count;
    }
    CAN::CanRxMessage last() const { return frames.frames().constLast(); }
    /// Lets everything that has arrived pass the loop, by a frame at its end.
    bool passed(int framesBefore)
    {
        sockets.arrive(classicBytes(0x7EE, 0, {}));
        return hasFrames(framesBefore + 1);
    }
};

QPair<int, int> stampOf(const CAN::CanRxMessage &record)
{
    return {record.timeStamp.seconds, record.timeStamp.microseconds};
}

CAN::CanMessage fdMessage(quint32 id, const QByteArray &payload)
{
    CAN::CanMessage message = makeFrame(id, payload);
    message.isFd = true;
    return message;
}

/// What a delivered record holds that no receiver may find changed.
void compareRest(const CAN::CanRxMessage &record, bool isTx, quint16 adapterId)
{
    QCOMPARE(record.isTx, isTx);
    QCOMPARE(record.adapterId, adapterId);
    QCOMPARE(record.packetWord, 0U);
}

} // namespace

class TestSocketCanTraffic : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<CAN::CanState>(); }

    void frameArrivesWithAdapterAndStamp_data() { loops(); }
    void frameArrivesWithAdapterAndStamp()
    {
        QFETCH(bool, canFd);
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, canFd);
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 40000);
        QVERIFY(can.open());
        can.sockets.setClock(1'000'005, 123456);
        can.sockets.arrive(classicBytes(CAN_EFF_FLAG | 0x12345678, 3, eight));
        QVERIFY(can.hasFrames(1));
        CAN::CanMessage expected = makeFrame(0x12345678, eight.left(3));
        expected.isExtended = true;
        QCOMPARE(bytesOf(can.last().message), bytesOf(expected));
        QCOMPARE(stampOf(can.last()), qMakePair(5, 123456));
        compareRest(can.last(), false, 40000);
        QCOMPARE(can.frames.lastThread(), static_cast<QThread *>(can.adapter.get()));
        QVERIFY(can.close());
        QCOMPARE(can.sockets.lastWait(), QStringLiteral("poll(0xc1, 100 ms)"));
        QCOMPARE(can.sockets.lastReception(),
                 QStringLiteral("recvmsg(1 x %1 bytes, name 24, control 56, flags 0)").arg(canFd ? 72 : 16));
    }

    void classicLoopCutsCanFdFrames()
    {
        Traffic can;
        QVERIFY(can.open());
        can.sockets.arrive(fdBytes(0x1, 12, CANFD_BRS | CANFD_ESI, QByteArray(12, 'f')));
        can.sockets.arrive(classicBytes(0x2, 1, eight));
        QVERIFY(can.hasFrames(2));
        QCOMPARE(bytesOf(can.frames.frames().constFirst().message), bytesOf(makeFrame(0x1, QByteArray(8, 'f'))));
        QCOMPARE(can.last().message.id, 0x2U);
    }

    void fdLoopTellsFramesApart()
    {
        Traffic can;
        can.setOption(AbstractCanAdapter::option_CANFD);
        QVERIFY(can.open());
        can.sockets.arrive(fdBytes(0x1, 12, CANFD_BRS | CANFD_ESI, QByteArray(12, 'f')));
        can.sockets.arrive(classicBytes(CAN_RTR_FLAG | 0x2, 4, {}));
        QVERIFY(can.hasFrames(2));
        CAN::CanMessage first = fdMessage(0x1, QByteArray(12, 'f'));
        first.isBrs = first.isEsi = true;
        QCOMPARE(bytesOf(can.frames.frames().constFirst().message), bytesOf(first));
        CAN::CanMessage second = makeFrame(0x2, QByteArray(12, 'f'));
        second.isRtr = true;
        second.length = 4;
        QCOMPARE(bytesOf(can.last().message), bytesOf(second));
    }

    void payloadBehindTheLengthIsThatOfEarlierFrames_data() { loops(); }
    void payloadBehindTheLengthIsThatOfEarlierFrames()
    {
        QFETCH(bool, canFd);
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, canFd);
        QVERIFY(can.open());
        can.sockets.arrive(classicBytes(0x1, 8, eight));
        can.sockets.arrive(classicBytes(0x2, 2, "ab"));
        QVERIFY(can.hasFrames(2));
        CAN::CanMessage expected = makeFrame(0x2, "ab" + eight.mid(2));
        expected.length = 2;
        QCOMPARE(bytesOf(can.last().message), bytesOf(expected));
    }

    void badSizeEndsTheLoopWithASignal_data()
    {
        QTest::addColumn<bool>("canFd");
        QTest::addColumn<int>("size");
        for (const int size : {0, 1, 15})
            QTest::addRow("classic, %d bytes", size) << false << size;
        for (const int size : {0, 15, 17, 71})
            QTest::addRow("FD, %d bytes", size) << true << size;
        QTest::newRow("classic, failed") << false << -1;
        QTest::newRow("FD, failed") << true << -1;
    }

    void badSizeEndsTheLoopWithASignal()
    {
        QFETCH(bool, canFd);
        QFETCH(int, size);
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, canFd);
        std::atomic<int> signalled = 0;
        std::atomic<bool> runningThen = false;
        connect(
            can.adapter.get(), &AbstractCanAdapter::interfaceError, can.adapter.get(),
            [&] {
                ++signalled;
                runningThen = can.adapter->getRunning();
            },
            Qt::DirectConnection);
        QVERIFY(can.open());
        if (size < 0)
            can.sockets.fail("recvmsg", ENETDOWN);
        can.sockets.arrive(QByteArray(std::max(size, 0), '\1'));
        QVERIFY(can.adapter->wait(WaitMs));
        QVERIFY(!can.adapter->getRunning());
        QCOMPARE(signalled.load(), 1);
        QVERIFY(runningThen);
        QCOMPARE(can.frames.count(), 0);
        can.sockets.mend();
        QCOMPARE(can.adapter->write(CAN::CanMessage()), CAN::RetOk); // The socket is still open.
    }

    void failedWaitEndsTheLoopSilently_data() { loops(); }
    void failedWaitEndsTheLoopSilently()
    {
        QFETCH(bool, canFd);
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, canFd);
        QSignalSpy errors(can.adapter.get(), &AbstractCanAdapter::interfaceError);
        const StderrRecorder text;
        QVERIFY(can.open());
        can.sockets.fail("poll", EINTR);
        QVERIFY(can.adapter->wait(WaitMs));
        QVERIFY(!can.adapter->getRunning());
        QVERIFY(errors.isEmpty());
        QCOMPARE(can.sockets.pauses(), QVector<qint64>{10});
        QCOMPARE(text.text(), QByteArray());
    }

    void loopWithoutASocketEnds()
    {
        SocketCanFixture can;
        QSignalSpy errors(can.adapter.get(), &AbstractCanAdapter::interfaceError);
        can.adapter->start();
        QVERIFY(can.adapter->wait(WaitMs));
        QVERIFY(!can.adapter->getRunning());
        QVERIFY(errors.isEmpty());
    }

    void highDescriptorsAreServed()
    {
        const TakenDescriptors taken(2100);
        if (!taken.all())
            QSKIP("this machine allows too few descriptors");
        Traffic can;
        QVERIFY(can.open());
        can.sockets.arrive(classicBytes(0x1, 8, eight));
        QVERIFY(can.hasFrames(1));
    }

    void statesFollowErrorFrames_data() { loops(); }
    void statesFollowErrorFrames()
    {
        QFETCH(bool, canFd);
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, canFd);
        QVector<QVector<int>> states; // Touched by the adapter's thread until it has ended.
        connect(
            can.adapter.get(), &AbstractCanAdapter::newCanState, can.adapter.get(),
            [&](CAN::CanState state, CanTimeStamp stamp) {
                states.append({state, can.adapter->getState(), stamp.seconds, stamp.microseconds});
            },
            Qt::DirectConnection);
        QVERIFY(can.open());
        const QByteArray passive = errorBytes(CAN_ERR_CRTL | CAN_ERR_BUSOFF, QByteArray::fromHex("0010"));
        const QByteArray active = errorBytes(CAN_ERR_PROT, QByteArray::fromHex("000040"));
        const QByteArray busOff = errorBytes(CAN_ERR_BUSOFF, {});
        const QByteArray warning = errorBytes(CAN_ERR_CRTL, QByteArray::fromHex("000C"));
        for (const QByteArray &frame : {active, passive, passive, warning, active, busOff, busOff, active})
            can.sockets.arrive(frame);
        QVERIFY(can.passed(0));
        QVERIFY(can.close());
        const QVector<QVector<int>> expected{{1, 1, 0, 0}, {2, 2, 0, 0}, {1, 1, 0, 0}, {3, 3, 0, 0}, {1, 1, 0, 0}};
        QCOMPARE(states, expected);
        QCOMPARE(can.adapter->getState(), CAN::CanStateErrorActive);
        QList<LogRecord> records = can.log.records();
        records.removeFirst(); // That of open.
        QCOMPARE(records, (QList<LogRecord>{defaultLogRecord(QtDebugMsg, "newState:  \"0\""),
                                            defaultLogRecord(QtDebugMsg, "newState:  \"1\""),
                                            defaultLogRecord(QtDebugMsg, "newState:  \"2\""),
                                            defaultLogRecord(QtDebugMsg, "newState:  \"1\""),
                                            defaultLogRecord(QtDebugMsg, "newState:  \"3\"")}));
    }

    void reopenedAdapterAnnouncesItsStateOnlyWhereItChanged()
    {
        Traffic can;
        QVERIFY(can.open());
        QVERIFY(can.close());
        QVERIFY(can.open());
        can.sockets.arrive(errorBytes(CAN_ERR_BUSOFF, {}));
        QVERIFY(can.passed(0));
        QVERIFY(can.close());
        QVERIFY(can.open());
        QVERIFY(can.passed(1));
        QStringList texts = can.log.texts().filter(QStringLiteral("newState"));
        QCOMPARE(texts, (QStringList{QStringLiteral("newState:  \"0\""), QStringLiteral("newState:  \"1\""),
                                     QStringLiteral("newState:  \"3\"")}));
    }

    void errorFrameBetweenFramesDoesNotStopTheLoop_data() { loops(); }
    void errorFrameBetweenFramesDoesNotStopTheLoop()
    {
        QFETCH(bool, canFd);
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, canFd);
        QVERIFY(can.open());
        for (int index = 0; index < 20; ++index) {
            can.sockets.arrive(canFd ? fdBytes(0x1, 8, 0, eight) : classicBytes(0x1, 8, eight));
            can.sockets.arrive(errorBytes(CAN_ERR_CRTL, QByteArray::fromHex("0010")));
            QVERIFY(can.hasFrames(index + 1));
        }
        QVERIFY(can.adapter->getRunning());
    }

    void firstFrameAfterATransmissionWaitsForItsEcho()
    {
        Traffic can;
        QVERIFY(can.open());
        can.sockets.arrive(classicBytes(0x1, 8, eight));
        QVERIFY(can.hasFrames(1));
        QCOMPARE(can.sockets.pauses(), QVector<qint64>());
        QCOMPARE(can.adapter->write(makeFrame(0x2, "sent")), CAN::RetOk);
        QCOMPARE(can.adapter->write(makeFrame(0x2, "sent")), CAN::RetOk);
        can.sockets.arrive(errorBytes(CAN_ERR_CRTL, {}));
        can.sockets.arrive(errorBytes(CAN_ERR_BUSOFF, {}));
        QTRY_COMPARE_WITH_TIMEOUT(can.adapter->getState(), CAN::CanStateBusOff, WaitMs);
        QCOMPARE(can.sockets.pauses(), QVector<qint64>());
        for (int index = 0; index < 600; ++index)
            can.sockets.arrive(classicBytes(0x3, 8, eight));
        QVERIFY(can.hasFrames(603));
        QCOMPARE(can.sockets.pauses(), QVector<qint64>{10000});
    }

    void refusedTransmissionCountsForThePauseToo()
    {
        Traffic can;
        QVERIFY(can.open());
        can.sockets.fail("write", ENOBUFS);
        QCOMPARE(can.adapter->write(makeFrame(0x2, "sent")), CAN::RetTxBufferFull);
        can.sockets.arrive(classicBytes(0x1, 8, eight));
        QVERIFY(can.hasFrames(1));
        QCOMPARE(can.sockets.pauses(), QVector<qint64>{10000});
    }

    void messageGoesOutAndComesBackAsEcho_data()
    {
        QTest::addColumn<CAN::CanMessage>("message");
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<int>("lengthAfterwards");
        const auto row = [](const char *name, const CAN::CanMessage &message, const QByteArray &frame, int length) {
            QTest::newRow(name) << message << frame << length;
        };
        CAN::CanMessage message = makeFrame(0x123, "abc");
        row("classic", message, classicBytes(0x123, 3, "abc"), 3);
        message.isRtr = true;
        row("remote", message, classicBytes(0x40000123, 3, {}), 3);
        message.isExtended = true;
        row("extended remote", message, classicBytes(0xC0000123, 3, {}), 3);
        message.isFd = true;
        row("FD remote", message, fdBytes(0x80000123, 3, 0, {}), 3);
        message.length = 9;
        row("FD remote of length 9", message, fdBytes(0x80000123, 12, 0, {}), 12);
        message = fdMessage(0x123, QByteArray(9, 'n'));
        row("FD of length 9", message, fdBytes(0x123, 12, 0, QByteArray(9, 'n')), 12);
        message.isBrs = message.isEsi = true;
        row("FD with bit-rate switch", message, fdBytes(0x123, 12, CANFD_BRS, QByteArray(9, 'n')), 12);
        message = fdMessage(0x123, QByteArray(64, 'n'));
        message.length = 255;
        row("FD of length 255", message, fdBytes(0x123, 64, 0, QByteArray(64, 'n')), 64);
        message = makeFrame(0x123, "12345678ninth");
        row("classic of length 13", message, classicBytes(0x123, 13, "12345678"), 13);
    }

    void messageGoesOutAndComesBackAsEcho()
    {
        QFETCH(CAN::CanMessage, message);
        QFETCH(QByteArray, frame);
        QFETCH(int, lengthAfterwards);
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 7);
        QVERIFY(can.open());
        can.sockets.setClock(1'000'002, 7);
        can.sockets.setSecondsPerWrite(100);
        CAN::CanMessage expected = message;
        expected.length = static_cast<quint8>(lengthAfterwards);
        QCOMPARE(can.adapter->write(&message), CAN::RetOk);
        QCOMPARE(bytesOf(message), bytesOf(expected));
        QCOMPARE(can.sockets.takeWritten().toHex(' '), frame.toHex(' '));
        QCOMPARE(can.frames.count(), 1);
        QCOMPARE(bytesOf(can.last().message), bytesOf(expected));
        QCOMPARE(stampOf(can.last()), qMakePair(2, 7)); // Taken before the frame was sent.
        compareRest(can.last(), true, 7);
        QCOMPARE(can.frames.lastThread(), QThread::currentThread());
    }

    void canFdOptionDoesNotDecideHowFramesGoOut()
    {
        Traffic can;
        can.setOption(AbstractCanAdapter::option_CANFD);
        QVERIFY(can.open());
        QCOMPARE(can.adapter->write(makeFrame(1, "a")), CAN::RetOk);
        QCOMPARE(can.sockets.takeWritten().size(), 16);
        QVERIFY(can.close());
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, false);
        QCOMPARE(can.adapter->write(fdMessage(1, "a")), CAN::RetOk);
        QCOMPARE(can.sockets.takeWritten().size(), 72);
    }

    void failedWriteTellsWhyAndGivesNoEcho_data()
    {
        QTest::addColumn<bool>("isFd");
        QTest::addColumn<int>("error");
        QTest::addColumn<int>("result");
        QTest::addColumn<QByteArray>("text");
        const auto row = [](const char *name, bool isFd, int error, int result, const char *text) {
            QTest::newRow(name) << isFd << error << result << QByteArray(text);
        };
        row("classic, no room", false, ENOBUFS, CAN::RetTxBufferFull, "");
        row("classic, interface down", false, ENETDOWN, CAN::RetError, "");
        row("classic, refused", false, EINVAL, CAN::RetError, "");
        row("classic, interrupted", false, EINTR, CAN::RetError, "");
        row("classic, short", false, 0, CAN::RetError, "");
        row("FD, no room", true, ENOBUFS, CAN::RetError, "write: No buffer space available\n");
        row("FD, interface down", true, ENETDOWN, CAN::RetError, "write: Network is down\n");
        row("FD, refused", true, EINVAL, CAN::RetError, "write: Invalid argument\n");
        row("FD, interrupted", true, EINTR, CAN::RetError, "");
        row("FD, short", true, 0, CAN::RetError, "write: Success\n");
    }

    void failedWriteTellsWhyAndGivesNoEcho()
    {
        QFETCH(bool, isFd);
        QFETCH(int, error);
        QFETCH(int, result);
        QFETCH(QByteArray, text);
        Traffic can;
        QVERIFY(can.open());
        if (error != 0)
            can.sockets.fail("write", error);
        else
            can.sockets.shortenWrites();
        CAN::CanMessage message = makeFrame(1, "a");
        message.isFd = isFd;
        {
            const StderrRecorder errors;
            errno = ENOBUFS;
            QCOMPARE(int(can.adapter->write(&message)), result);
            QCOMPARE(errors.text(), text);
        }
        QCOMPARE(can.frames.count(), 0);
        can.sockets.mend();
        QCOMPARE(can.adapter->write(&message), CAN::RetOk);
        QCOMPARE(can.frames.count(), 1);
        QVERIFY(can.adapter->getRunning());
    }

    void writeWithoutASocketFails()
    {
        const StderrRecorder errors;
        SocketCanAdapter adapter(QStringLiteral("can0"));
        const FrameRecorder frames(&adapter);
        QCOMPARE(adapter.write(makeFrame(1, "a")), CAN::RetError);
        QCOMPARE(errors.text(), QByteArray());
        QCOMPARE(adapter.write(fdMessage(1, "a")), CAN::RetError);
        QCOMPARE(errors.text(), QByteArray("write: Bad file descriptor\n"));
        QCOMPARE(frames.count(), 0);
    }

    void echoIsOnUntilItIsSwitchedOff()
    {
        Traffic can;
        QVERIFY(can.open());
        can.adapter->write(makeFrame(1, "a"));
        QCOMPARE(can.frames.count(), 1);
        can.adapter->setEcho(false);
        can.adapter->write(makeFrame(2, "a"));
        QCOMPARE(can.frames.count(), 1);
        can.adapter->setEcho(true);
        can.adapter->write(makeFrame(3, "a"));
        QCOMPARE(can.frames.count(), 2);
    }

    void secondsAreThoseSinceCreationCutTo32Bits()
    {
        Traffic can;
        QVERIFY(can.open());
        const auto stampAt = [&can](qint64 seconds) {
            can.sockets.setClock(seconds, 999999);
            can.adapter->write(makeFrame(1, "a"));
            return stampOf(can.last());
        };
        QCOMPARE(stampAt(1'000'000), qMakePair(0, 999999));
        QCOMPARE(stampAt(999'999), qMakePair(-1, 999999)); // The clock was set back.
        QCOMPARE(stampAt(1'000'000 + (qint64(1) << 31)), qMakePair(std::numeric_limits<int>::min(), 999999));
        QCOMPARE(stampAt(1'000'005 + (qint64(1) << 32)), qMakePair(5, 999999));
    }

    void adapterMadeAfter2038CountsFromItsCreation()
    {
        const LogRecorder log;
        FakeCanSockets sockets;
        sockets.setClock((qint64(1) << 32) + 50, 0);
        const AdapterPointer<SocketCanAdapter> adapter(new SocketCanAdapter(QStringLiteral("can0")));
        const FrameRecorder frames(adapter.get());
        QCOMPARE(adapter->open(), CAN::RetOk);
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
        sockets.setClock((qint64(1) << 32) + 53, 4);
        adapter->write(makeFrame(1, "a"));
        QCOMPARE(stampOf(frames.frames().constLast()), qMakePair(3, 4));
    }

    void systemTimeReplacesTheStampOfTheSocket_data()
    {
        QTest::addColumn<bool>("continuous");
        QTest::newRow("time of day") << false;
        QTest::newRow("continuous") << true;
    }

    void systemTimeReplacesTheStampOfTheSocket()
    {
        QFETCH(bool, continuous);
        Traffic can;
        can.setOption(AbstractCanAdapter::option_systemTime);
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, continuous);
        can.sockets.setClock(1'777'777, 123); // Would give stamps that no time of day has.
        QVERIFY(can.open());
        const int before = QTime::currentTime().msecsSinceStartOfDay() / 1000;
        can.sockets.arrive(classicBytes(1, 0, {}));
        QVERIFY(can.hasFrames(1));
        can.adapter->write(makeFrame(1, "a"));
        const int after = QTime::currentTime().msecsSinceStartOfDay() / 1000;
        for (const CAN::CanRxMessage &record : can.frames.frames()) {
            QCOMPARE(record.timeStamp.microseconds % 1000, 0);
            // The continuous count is behind by the age that the first adapter of the process had when this
            // one was made. Over midnight the time of day begins anew while the other count goes on.
            const int behind = continuous ? 300 : 1;
            if (before <= after)
                QVERIFY(record.timeStamp.seconds >= before - behind && record.timeStamp.seconds <= after + 1);
        }
    }

    void writeAndLoopShareTheSocketWithoutLoss()
    {
        constexpr int frames = 500;
        Traffic can;
        can.adapter->setEcho(false);
        QVERIFY(can.open());
        int written = 0;
        const QDeadlineTimer deadline(WaitMs);
        std::thread writer([&can, deadline] {
            for (quint32 id = 0; id < frames; ++id)
                while (can.adapter->write(makeFrame(id, "thread")) != CAN::RetOk && !deadline.hasExpired())
                    std::this_thread::yield();
        });
        for (int index = 0; index < frames; ++index) {
            can.sockets.arrive(classicBytes(static_cast<canid_t>(index), 8, eight));
            while (!can.sockets.takeWritten().isNull())
                ++written;
        }
        while (written < frames && !deadline.hasExpired())
            written += can.sockets.takeWritten().isNull() ? 0 : 1;
        writer.join();
        QVERIFY(can.hasFrames(frames));
        QCOMPARE(written, frames);
    }

private:
    void loops()
    {
        QTest::addColumn<bool>("canFd");
        QTest::newRow("classic loop") << false;
        QTest::newRow("FD loop") << true;
    }
};

QTEST_GUILESS_MAIN(TestSocketCanTraffic)
#include "tst_socket_can_traffic.moc"
