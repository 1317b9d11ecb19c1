// SPDX-License-Identifier: MIT
// What a running adapter receives, announces and sends.
#include "running_can4linux.h"
#include "support/delivered_frame.h"
#include "support/taken_descriptors.h"

#include <cerrno>
#include <limits>
#include <sys/select.h>
#include <thread>

namespace {

constexpr int WaitMs = 20000;
constexpr quint32 ReportId = 0xFFFFFFFF;
const QByteArray eight = QByteArray::fromHex("1122334455667788");

/// An adapter with what it delivers and announces.
struct Traffic : Can4linuxFixture
{
    FrameRecorder frames{adapter.get()};
    QVector<int> states; ///< Touched by the adapter's thread until it has ended.

    Traffic()
    {
        QObject::connect(
            adapter.get(), &AbstractCanAdapter::newCanState, adapter.get(),
            [this](CAN::CanState state) { states.append(state); }, Qt::DirectConnection);
    }
    /// Ends the loop before what it delivers to goes.
    ~Traffic() { adapter.reset(); }
    /// Waits for so many frames in all.
    bool hasFrames(int count)
    {
        return QTest::qWaitFor([&] { return frames.count() >= count; }, WaitMs) && frames.count() == count;
    }
    CAN::CanRxMessage last() const { return frames.frames().constLast(); }
};

CAN::CanRxMessage receivedFrame(const CAN::CanMessage &message, int seconds = 0, int microseconds = 0)
{
    CAN::CanRxMessage record;
    record.message = message;
    record.timeStamp.seconds = seconds;
    record.timeStamp.microseconds = microseconds;
    return record;
}

} // namespace

class TestCan4linuxTraffic : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<CAN::CanState>(); }

    void frameArrivesWithAdapterAndStamp()
    {
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 40000);
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0x00C, 0x12345678, 3, 1'700'000'000, 654'321}, eight));
        QVERIFY(can.hasFrames(1));
        CAN::CanRxMessage expected = receivedFrame(makeFrame(0x12345678, eight.left(3)), 1'700'000'000, 654'321);
        expected.message.isExtended = true;
        expected.isTx = true;
        expected.adapterId = 40000;
        QCOMPARE(textOf(can.last()), textOf(expected));
        QCOMPARE(can.frames.lastThread(), static_cast<QThread *>(can.adapter.get()));
        QVERIFY(can.close());
        QCOMPARE(can.driver.lastWait(), QStringLiteral("poll(0xc1, 1 ms)"));
        QCOMPARE(can.driver.lastRead(), QStringLiteral("read(1)"));
    }

    void systemTimeReplacesTheStampOfTheDriver_data()
    {
        QTest::addColumn<bool>("continuous");
        QTest::newRow("time of day") << false;
        QTest::newRow("continuous") << true;
    }

    void systemTimeReplacesTheStampOfTheDriver()
    {
        QFETCH(bool, continuous);
        Traffic can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_systemTime, true);
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, continuous);
        QVERIFY(can.open());
        const int before = QTime::currentTime().msecsSinceStartOfDay() / 1000;
        can.driver.arrive(driverBytes({0, 1, 0, 1'700'000'000, 654'321}));
        QVERIFY(can.hasFrames(1));
        const int after = QTime::currentTime().msecsSinceStartOfDay() / 1000;
        const CanTimeStamp stamp = can.last().timeStamp;
        QCOMPARE(stamp.microseconds % 1000, 0);
        // The continuous count is behind by the age that the first adapter of the process had when this one was
        // made. Over midnight the time of day begins anew while the other count goes on.
        const int behind = continuous ? 300 : 1;
        if (before <= after)
            QVERIFY(stamp.seconds >= before - behind && stamp.seconds <= after + 1);
        else
            QVERIFY(stamp.seconds <= 2 * 86400);
    }

    void classicFrameKeepsTheFlagsOfTheFdFrameBefore()
    {
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0x310, 1, 12}, QByteArray(12, 'f')));
        can.driver.arrive(driverBytes({0, 2, 2}, "ab"));
        QVERIFY(can.hasFrames(2));
        CAN::CanMessage expected = makeFrame(1, QByteArray(12, 'f'));
        expected.isFd = expected.isBrs = expected.isEsi = true;
        QCOMPARE(textOf(can.frames.frames().constFirst()), textOf(receivedFrame(expected)));
        expected = makeFrame(2, "ab" + QByteArray(10, 'f'));
        expected.length = 2;
        expected.isBrs = expected.isEsi = true;
        QCOMPARE(textOf(can.last()), textOf(receivedFrame(expected)));
    }

    void everyRunBeginsWithAnEmptyRecord()
    {
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0x310, 1, 12, 7, 8}, QByteArray(12, 'f')));
        QVERIFY(can.hasFrames(1));
        QVERIFY(can.close());
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0, 2, 0}));
        QVERIFY(can.hasFrames(2));
        QCOMPARE(textOf(can.last()), textOf(receivedFrame(makeFrame(2, {}))));
    }

    void lengthAboveThatOfAFrameIsDeliveredAsItStands()
    {
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0x100, 1, 0xFFFFFFFF}, QByteArray(64, 'f')));
        QVERIFY(can.hasFrames(1));
        CAN::CanMessage expected = makeFrame(1, QByteArray(64, 'f'));
        expected.length = 255;
        expected.isFd = true;
        QCOMPARE(textOf(can.last()), textOf(receivedFrame(expected)));
    }

    void failedReadDeliversTheFrameBeforeOnceMore()
    {
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0x004, 5, 8, 3, 4}, eight));
        can.driver.arriveNothing(EAGAIN);
        can.driver.arrive(driverBytes({0, 6, 0}));
        QVERIFY(can.hasFrames(3));
        CAN::CanMessage expected = makeFrame(5, eight);
        expected.isExtended = true;
        QCOMPARE(textOf(can.frames.frames().at(0)), textOf(receivedFrame(expected, 3, 4)));
        QCOMPARE(textOf(can.frames.frames().at(1)), textOf(receivedFrame(expected, 3, 4)));
        QCOMPARE(can.last().message.id, 6U);
        QCOMPARE(can.complaints(), QByteArray());
    }

    void failedReadAtTheBeginningOfARunDeliversZeros()
    {
        Traffic can;
        for (int run = 1; run <= 2; ++run) {
            QVERIFY(can.open());
            can.driver.arriveNothing(EIO);
            QVERIFY(can.hasFrames(2 * run - 1));
            QCOMPARE(textOf(can.last()), textOf(CAN::CanRxMessage()));
            can.driver.arrive(driverBytes({0x30C, 5, 8, 3, 4}, eight));
            QVERIFY(can.hasFrames(2 * run));
            QVERIFY(can.close());
        }
        QCOMPARE(can.states, QVector<int>{CAN::CanStateErrorActive});
    }

    void failedReadRepeatsAReportedStateAsWell()
    {
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0x30, ReportId, 0}));
        can.driver.arriveNothing(EAGAIN);
        QVERIFY(can.hasFrames(2));
        QVERIFY(can.close());
        QCOMPARE(can.states, (QVector<int>{1, 2, 3, 2, 3}));
    }

    void endOfTheDeviceEndsTheLoopSilently()
    {
        Traffic can;
        QSignalSpy errors(can.adapter.get(), &AbstractCanAdapter::interfaceError);
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0, 5, 8}, eight));
        can.driver.arriveNothing();
        can.driver.arrive(driverBytes({0, 6, 8}, eight));
        QVERIFY(can.adapter->wait(WaitMs));
        QVERIFY(!can.adapter->getRunning());
        QCOMPARE(can.frames.count(), 1);
        QVERIFY(errors.isEmpty());
        QCOMPARE(can.states, QVector<int>{CAN::CanStateErrorActive});
        QCOMPARE(can.adapter->getState(), CAN::CanStateErrorActive);
        QCOMPARE(can.complaints(), QByteArray());
        QCOMPARE(can.driver.pauses(), QVector<qint64>());
        QCOMPARE(can.adapter->write(CAN::CanMessage()), CAN::RetOk); // The device is still open.
    }

    void failedWaitEndsTheLoopSilently()
    {
        Traffic can;
        QSignalSpy errors(can.adapter.get(), &AbstractCanAdapter::interfaceError);
        QVERIFY(can.open());
        can.driver.fail("poll", EINTR);
        QVERIFY(can.adapter->wait(WaitMs));
        QVERIFY(!can.adapter->getRunning());
        QVERIFY(errors.isEmpty());
        QCOMPARE(can.driver.pauses(), QVector<qint64>{10});
        QCOMPARE(can.states, QVector<int>{CAN::CanStateErrorActive});
        QCOMPARE(can.complaints(), QByteArray());
    }

    void loopWithoutADeviceEnds()
    {
        Can4linuxFixture can;
        can.adapter->start();
        QVERIFY(can.adapter->wait(WaitMs));
        QVERIFY(!can.adapter->getRunning());
        QCOMPARE(can.driver.pauses(), QVector<qint64>{10});
    }

    void highDescriptorsAreServed()
    {
        const TakenDescriptors taken(FD_SETSIZE);
        if (!taken.all())
            QSKIP("this machine allows too few descriptors");
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0, 1, 8}, eight));
        QVERIFY(can.hasFrames(1));
        QVERIFY(can.driver.descriptor() >= FD_SETSIZE);
    }

    void reportChangesTheStateAndIsAFrameToo_data()
    {
        QTest::addColumn<quint32>("before");
        QTest::addColumn<quint32>("flags");
        QTest::addColumn<QVector<int>>("states");
        const auto row = [](const char *name, quint32 before, quint32 flags, const QVector<int> &states) {
            QTest::newRow(name) << before << flags << states;
        };
        const quint32 passive = 0x10;
        row("active", passive, 0, {1, 2, 1});
        row("active already", 0, 0, {1});
        row("active with other flags", passive, 0xFFFFFF0D & ~0xF2U, {1, 2, 1});
        row("passive", 0, 0x10, {1, 2});
        row("passive already", passive, 0x10, {1, 2});
        row("bus off", 0, 0x20, {1, 3});
        row("passive and bus off", 0, 0x30, {1, 2, 3});
        row("all", 0, 0xFFFFFFFF, {1, 2, 3});
        row("bit 0x02", passive, 0x02, {1, 2});
        row("bit 0x40", passive, 0x40, {1, 2});
        row("bit 0x80", passive, 0x80, {1, 2});
    }

    void reportChangesTheStateAndIsAFrameToo()
    {
        QFETCH(quint32, before);
        QFETCH(quint32, flags);
        QFETCH(QVector<int>, states);
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({before, ReportId, 0}));
        can.driver.arrive(driverBytes({flags, ReportId, 8, 11, 12}, eight));
        QVERIFY(can.hasFrames(2));
        QVERIFY(can.close());
        QCOMPARE(can.states, states);
        QCOMPARE(int(can.adapter->getState()), states.constLast());
        QStringList records;
        for (int state = 0; state < states.size(); ++state)
            records.append(QStringLiteral("newState:  %1").arg(state == 0 ? 0 : states.at(state - 1)));
        QCOMPARE(can.log.texts(), records);
        QCOMPARE(can.last().message.id, ReportId);
        QCOMPARE(can.last().message.isRtr, (flags & 0x001) != 0);
        QCOMPARE(can.last().message.length, quint8(8));
        QCOMPARE(can.last().timeStamp.seconds, 11);
    }

    void stateIsStoredWhenItIsAnnouncedWithAnEmptyStamp()
    {
        Traffic can;
        QVERIFY(can.open());
        QVector<QVector<int>> announced;
        QVector<QThread *> threads;
        connect(
            can.adapter.get(), &AbstractCanAdapter::newCanState, can.adapter.get(),
            [&](CAN::CanState state, CanTimeStamp stamp) {
                announced.append(
                    {state, can.adapter->getState(), stamp.seconds, stamp.microseconds, can.frames.count()});
                threads.append(QThread::currentThread());
            },
            Qt::DirectConnection);
        can.driver.arrive(driverBytes({0x30, ReportId, 0, 11, 12}));
        QVERIFY(can.hasFrames(1));
        QVERIFY(can.close());
        QCOMPARE(announced, (QVector<QVector<int>>{{2, 2, 0, 0, 0}, {3, 3, 0, 0, 0}}));
        QCOMPARE(threads, QVector<QThread *>(2, can.adapter.get()));
    }

    void frameThatIsNoReportChangesNoState()
    {
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0x30, 0x7FFFFFFF, 0}));
        can.driver.arrive(driverBytes({0x30, 0xFFFFFFFE, 0}));
        QVERIFY(can.hasFrames(2));
        QVERIFY(can.close());
        QCOMPARE(can.states, QVector<int>{CAN::CanStateErrorActive});
    }

    void reopenedAdapterIsErrorActiveAgain()
    {
        Traffic can;
        QVERIFY(can.open());
        can.driver.arrive(driverBytes({0x20, ReportId, 0}));
        QVERIFY(can.hasFrames(1));
        QVERIFY(can.close());
        QCOMPARE(can.adapter->getState(), CAN::CanStateBusOff);
        QVERIFY(can.open());
        QCOMPARE(can.adapter->getState(), CAN::CanStateErrorActive);
        QCOMPARE(can.states, (QVector<int>{1, 3, 1}));
    }

    void adapterThatAReceiverOfTheStateClosesDeliversNothingMore()
    {
        Traffic can;
        QVERIFY(can.open());
        connect(
            can.adapter.get(), &AbstractCanAdapter::newCanState, can.adapter.get(),
            [&] { can.adapter->closeAdapter(); }, Qt::DirectConnection);
        can.driver.arrive(driverBytes({0x20, ReportId, 0}));
        QVERIFY(can.adapter->wait(WaitMs));
        QCOMPARE(can.frames.count(), 0);
        QCOMPARE(can.adapter->getState(), CAN::CanStateBusOff);
    }

    void adapterThatAReceiverOfAFrameClosesDeliversNothingMore()
    {
        Traffic can;
        QVERIFY(can.open());
        connect(
            can.adapter.get(), &AbstractCanAdapter::newCanMessage, can.adapter.get(),
            [&] { can.adapter->closeAdapter(); }, Qt::DirectConnection);
        can.driver.arrive(driverBytes({0, 1, 0}));
        QVERIFY(can.adapter->wait(WaitMs));
        QCOMPARE(can.frames.count(), 1);
        QCOMPARE(can.driver.pauses(), QVector<qint64>());
    }

    void frameGoesOutAsOneRecordAndTheCallersStays_data()
    {
        QTest::addColumn<CAN::CanMessage>("message");
        QTest::addColumn<QByteArray>("frame");
        const auto row = [](const char *name, const CAN::CanMessage &message, const DriverFrame &frame,
                            const QByteArray &payload) {
            QTest::newRow(name) << message << driverBytes(frame, payload);
        };
        CAN::CanMessage message = makeFrame(0x123, eight);
        row("classic of length 8", message, {0, 0x123, 8}, eight);
        message.isRtr = true;
        row("remote", message, {0x001, 0x123, 8}, {});
        message.isFd = true;
        row("FD remote", message, {0x100, 0x123, 8}, {});
        message = makeFrame(0x123, QByteArray(64, 'n'));
        message.length = 9;
        message.isFd = true;
        row("FD of length 9", message, {0x100, 0x123, 12}, QByteArray(9, 'n'));
        message.isBrs = message.isEsi = message.isExtended = true;
        row("FD with all flags", message, {0x304, 0x123, 12}, QByteArray(9, 'n'));
        message.length = 255;
        row("FD of length 255", message, {0x304, 0x123, 64}, QByteArray(64, 'n'));
    }

    void frameGoesOutAsOneRecordAndTheCallersStays()
    {
        QFETCH(CAN::CanMessage, message);
        QFETCH(QByteArray, frame);
        Traffic can;
        QVERIFY(can.open());
        can.driver.forgetCalls();
        const QByteArray before = bytesOf(message);
        QCOMPARE(can.adapter->write(&message), CAN::RetOk);
        QCOMPARE(bytesOf(message), before);
        QCOMPARE(can.driver.calls(), QStringList{QStringLiteral("write(1)")});
        const QVector<QByteArray> written = can.driver.takeWritten();
        QCOMPARE(written.size(), 1);
        QCOMPARE(written.constFirst().toHex(' '), frame.toHex(' '));
        QCOMPARE(can.frames.count(), 0); // An echo comes from the driver.
    }

    void failedWriteIsTold_data()
    {
        QTest::addColumn<int>("error");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("no room") << EAGAIN << QByteArray("write: Resource temporarily unavailable\n");
        QTest::newRow("refused") << EINVAL << QByteArray("write: Invalid argument\n");
        QTest::newRow("gone") << ENODEV << QByteArray("write: No such device\n");
    }

    void failedWriteIsTold()
    {
        QFETCH(int, error);
        QFETCH(QByteArray, text);
        Traffic can;
        QVERIFY(can.open());
        can.driver.fail("write", error);
        QCOMPARE(can.adapter->write(makeFrame(1, eight)), CAN::RetError);
        QCOMPARE(can.complaints(), text);
        can.driver.mend();
        QCOMPARE(can.adapter->write(makeFrame(1, eight)), CAN::RetOk);
        QVERIFY(can.adapter->getRunning());
        QCOMPARE(can.complaints(), text);
    }

    void writeWithoutADeviceFails()
    {
        Can4linuxFixture can;
        QCOMPARE(can.adapter->write(makeFrame(1, eight)), CAN::RetError);
        QCOMPARE(can.errors.text(), QByteArray("write: Bad file descriptor\n"));
    }

    void writeAndLoopShareTheDeviceWithoutLoss()
    {
        constexpr quint32 count = 500;
        Traffic can;
        QVERIFY(can.open());
        int failed = 0;
        std::thread writer([&] {
            for (quint32 id = 0; id < count; ++id)
                failed += can.adapter->write(makeFrame(id, "thread")) == CAN::RetOk ? 0 : 1;
        });
        for (quint32 id = 0; id < count; ++id)
            can.driver.arrive(driverBytes({0, id, 8}, eight));
        writer.join();
        QVERIFY(can.hasFrames(int(count)));
        const QVector<QByteArray> written = can.driver.takeWritten();
        QCOMPARE(failed, 0);
        QCOMPARE(written.size(), int(count));
        for (quint32 id = 0; id < count; ++id) {
            QCOMPARE(can.frames.frames().at(int(id)).message.id, id);
            QCOMPARE(written.at(int(id)), driverBytes({0, id, 6}, "thread"));
        }
    }
};

QTEST_GUILESS_MAIN(TestCan4linuxTraffic)
#include "tst_can4linux_traffic.moc"
