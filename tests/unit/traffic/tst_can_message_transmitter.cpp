// SPDX-License-Identifier: MIT
#include <BusLinkDesk/traffic/can_message_transmitter.h>

#include "support/frame_recorder.h"
#include "support/log_recorder.h"
#include "support/transmission_records.h"

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <atomic>
#include <chrono>
#include <memory>
#include <sys/prctl.h>
#include <unistd.h>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int TimeoutMs = 60000;

/// A transmitter with its adapter and the signals that arrive on the test's thread.
struct Job
{
    FakeAdapter adapter;
    std::unique_ptr<CanMessageTransmitter> transmitter = std::make_unique<CanMessageTransmitter>(JobId);
    QStringList signalLines;
    QVector<Clock::time_point> writes; ///< When each write began. Read it while the worker is idle.
    CAN::CanMessage frame = makeFrame(0x123, QByteArray::fromHex("00112233"));

    Job()
    {
        recordSignals(transmitter.get(), signalLines);
        adapter.onWrite = [this](CAN::CanMessage *) {
            writes << Clock::now();
            return CAN::RetOk;
        };
        transmitter->setCanAdapter(&adapter);
    }
    // The worker writes into what stands here.
    ~Job() { transmitter.reset(); }

    void start(unsigned int interval, unsigned int count)
    {
        transmitter->setTranmissionParameter(frame, interval, count);
        transmitter->startTransmission();
    }

    int count() const { return adapter.written().size(); }

    /// Waits until the worker's thread, which has to have written before, is back in its event loop and
    /// all its signals have arrived.
    void settle() const
    {
        QObject *const loop = QAbstractEventDispatcher::instance(adapter.lastWriter());
        QMetaObject::invokeMethod(
            loop, [] {}, Qt::BlockingQueuedConnection);
        QCoreApplication::sendPostedEvents();
    }

    Clock::duration shortestPeriod() const
    {
        Clock::duration shortest = Clock::duration::max();
        for (int index = 1; index < writes.size(); ++index)
            shortest = std::min(shortest, writes[index] - writes[index - 1]);
        return shortest;
    }
};

/// Whether a thread of this process sleeps, as the system sees it.
bool threadSleeps(pid_t thread)
{
    QFile file(QStringLiteral("/proc/self/task/%1/stat").arg(thread));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no state of a thread");
    const QByteArray line = file.readAll();
    return line.mid(line.lastIndexOf(')')).startsWith(") S ");
}

} // namespace

class TestCanMessageTransmitter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The worker's thread

    void framesLeaveFromOneTimeCriticalThreadWithItsOwnTimerSlack()
    {
        Job job;
        const int ownSlack = ::prctl(PR_GET_TIMERSLACK);
        QVector<QThread::Priority> priorities;
        QVector<int> slacks;
        job.adapter.onWrite = [&](CAN::CanMessage *) {
            priorities << QThread::currentThread()->priority();
            slacks << ::prctl(PR_GET_TIMERSLACK);
            return CAN::RetOk;
        };
        job.start(0, 2);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(1), TimeoutMs);
        job.settle();
        QVERIFY(job.adapter.lastWriter() != QThread::currentThread());
        QCOMPARE(priorities, QVector<QThread::Priority>(2, QThread::TimeCriticalPriority));
        QCOMPARE(slacks, QVector<int>(2, 1));
        QCOMPARE(::prctl(PR_GET_TIMERSLACK), ownSlack);
    }

    void countedJobSendsAllFramesNeverEarly_data()
    {
        QTest::addColumn<int>("interval");
        QTest::addColumn<int>("count");
        QTest::newRow("1 ms") << 1 << 100;
        QTest::newRow("10 ms") << 10 << 3;
        QTest::newRow("no pause") << 0 << 2000;
    }
    void countedJobSendsAllFramesNeverEarly()
    {
        QFETCH(int, interval);
        QFETCH(int, count);
        Job job;
        QThread *signalledOn = nullptr;
        connect(
            job.transmitter.get(), &CanMessageTransmitter::sigFinished, this,
            [&] { signalledOn = QThread::currentThread(); }, Qt::DirectConnection);
        QVERIFY(!job.transmitter->isRunning());
        job.start(static_cast<unsigned int>(interval), static_cast<unsigned int>(count));
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(static_cast<unsigned int>(count) - 1), TimeoutMs);
        QVERIFY(!job.transmitter->isRunning());
        job.settle();
        QCOMPARE(signalledOn, QThread::currentThread());
        QVERIFY(job.shortestPeriod() >= std::chrono::milliseconds(interval));
        QCOMPARE(job.count(), count);
        for (const CAN::CanMessage &written : job.adapter.written())
            QCOMPARE(bytesOf(written), bytesOf(job.frame));
    }

    void endlessJobSignalsNothingAlsoAtItsStop()
    {
        Job job;
        job.start(1, 0);
        QTRY_VERIFY_WITH_TIMEOUT(job.count() >= 20, TimeoutMs);
        QVERIFY(job.transmitter->isRunning());
        job.transmitter->stopTransmission();
        QVERIFY(!job.transmitter->isRunning());
        job.settle();
        QCOMPARE(job.signalLines, QStringList());
    }

    void errorEndsTheJobWithOneSignal()
    {
        Job job;
        int writes = 0;
        job.adapter.onWrite = [&](CAN::CanMessage *) { return ++writes == 2 ? CAN::RetError : CAN::RetOk; };
        job.start(1, 5);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(4, 4) << QStringLiteral("error"), TimeoutMs);
        job.settle();
        QCOMPARE(job.count(), 2);
        QVERIFY(!job.transmitter->isRunning());
        job.signalLines.clear();
        job.transmitter->startTransmission();
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(3), TimeoutMs);
        QCOMPARE(job.count(), 6);
    }

    void startWithoutAdapterEndsSilently()
    {
        Job job;
        job.start(0, 1);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(0), TimeoutMs);
        job.settle();
        job.transmitter->setCanAdapter(nullptr);
        job.signalLines.clear();
        job.start(60000, 3);
        job.settle();
        QVERIFY(!job.transmitter->isRunning());
        QCOMPARE(job.signalLines, QStringList());
        QCOMPARE(job.count(), 1);
    }

    void adapterDeletedWhileIdleEndsTheNextStartSilently()
    {
        Job job;
        auto second = std::make_unique<FakeAdapter>();
        job.start(0, 1);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(0), TimeoutMs);
        job.settle();
        job.signalLines.clear();
        job.transmitter->setCanAdapter(second.get());
        second.reset();
        job.start(60000, 3);
        job.settle();
        QVERIFY(!job.transmitter->isRunning());
        QCOMPARE(job.signalLines, QStringList());
        job.transmitter->setCanAdapter(&job.adapter);
        job.start(0, 3);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(2), TimeoutMs);
    }

    // Start, stop and the pause

    void stopCountsAfterThePause()
    {
        Job job;
        job.start(300, 4);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(3, 3), TimeoutMs);
        job.transmitter->stopTransmission();
        QVERIFY(!job.transmitter->isRunning());
        job.settle();
        QVERIFY(Clock::now() - job.writes[0] >= 300ms);
        QCOMPARE(job.count(), 1);
        QCOMPARE(job.signalLines, countedSignals(3, 3));
    }

    void startAfterAStopSendsTheRest()
    {
        Job job;
        job.transmitter->setSyncValues(true, 9);
        job.adapter.onWrite = [&, writes = 0](CAN::CanMessage *) mutable {
            if (++writes == 2)
                job.transmitter->stopTransmission();
            return CAN::RetOk;
        };
        job.start(1, 5);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(4, 3), TimeoutMs);
        job.settle();
        QCOMPARE(job.count(), 2);
        job.signalLines.clear();
        job.transmitter->startTransmission();
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(2), TimeoutMs);
        QCOMPARE(counterBytes(job.adapter), (QVector<int>{1, 2, 1, 2, 3}));
    }

    void startAfterTheLastFrameRunsWithoutEnd()
    {
        Job job;
        job.start(0, 2);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(1), TimeoutMs);
        job.settle();
        job.transmitter->startTransmission();
        QTRY_VERIFY_WITH_TIMEOUT(job.count() >= 50, TimeoutMs);
        QVERIFY(job.transmitter->isRunning());
        job.transmitter->stopTransmission();
        job.settle();
        QCOMPARE(job.signalLines, countedSignals(1));
    }

    void newParametersAfterTheLastFrameMakeANewJob()
    {
        Job job;
        job.start(0, 2);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(1), TimeoutMs);
        job.settle();
        job.frame.id = 0x321;
        job.start(0, 3);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(1) + countedSignals(2), TimeoutMs);
        QVector<quint32> ids;
        for (const CAN::CanMessage &frame : job.adapter.written())
            ids << frame.id;
        QCOMPARE(ids, (QVector<quint32>{0x123, 0x123, 0x321, 0x321, 0x321}));
    }

    void startDuringARunIsServedAfterIt()
    {
        Job job;
        job.transmitter->setSyncValues(true, 9);
        job.start(2, 3);
        job.transmitter->startTransmission();
        // The second run finds 0 frames left, so it has no end.
        QTRY_VERIFY_WITH_TIMEOUT(job.count() >= 6, TimeoutMs);
        job.transmitter->stopTransmission();
        job.settle();
        QCOMPARE(job.signalLines, countedSignals(2));
        QCOMPARE(counterBytes(job.adapter).mid(0, 6), (QVector<int>{1, 2, 3, 1, 2, 3}));
        QVERIFY(job.shortestPeriod() >= 2ms);
    }

    void startFromASlotOfFinishedIsServedAfterTheLastPause()
    {
        Job job;
        connect(job.transmitter.get(), &CanMessageTransmitter::sigFinished, this, [&, again = true]() mutable {
            if (std::exchange(again, false))
                job.start(0, 1);
        });
        // The slot's new interval is 0, so only the pause that is under way can keep the frames apart.
        job.start(200, 1);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(0) + countedSignals(0), TimeoutMs);
        job.settle();
        QCOMPARE(job.writes.size(), 2);
        QVERIFY(job.writes[1] - job.writes[0] >= 200ms);
    }

    void newIntervalCountsAfterTheCurrentPause()
    {
        Job job;
        std::atomic<pid_t> thread{0};
        job.adapter.onWrite = [&](CAN::CanMessage *) {
            thread = ::gettid();
            job.writes << Clock::now();
            return CAN::RetOk;
        };
        job.start(300, 100);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(99, 99), TimeoutMs);
        QTRY_VERIFY_WITH_TIMEOUT(threadSleeps(thread), TimeoutMs);
        QElapsedTimer sinceFirst;
        sinceFirst.start();
        job.transmitter->updateInterval(1);
        QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(99), TimeoutMs);
        QVERIFY2(sinceFirst.elapsed() < 20000, "100 frames at the old interval take 30 s");
        job.settle();
        QVERIFY(job.writes[1] - job.writes[0] >= 300ms);
        QVERIFY(job.shortestPeriod() >= 1ms);
    }

    // End of a transmitter

    void endDuringAPauseWaitsForThePauseAndSendsNoMore()
    {
        Job job;
        job.start(400, 0);
        QTRY_COMPARE_WITH_TIMEOUT(job.count(), 1, TimeoutMs);
        job.transmitter.reset();
        QVERIFY(Clock::now() - job.writes[0] >= 400ms);
        QVERIFY(Clock::now() - job.writes[0] < 20s);
        QCOMPARE(job.count(), 1);
    }

    void endOvertakesAStartThatTheThreadHasNotTakenUp()
    {
        for (int round = 0; round < 200; ++round) {
            Job job;
            job.start(0, 0);
            if (round % 2 != 0)
                job.transmitter->startTransmission();
        }
    }

    void endOfAnIdleTransmitterIsQuick()
    {
        QElapsedTimer timer;
        timer.start();
        for (int round = 0; round < 20; ++round)
            CanMessageTransmitter transmitter(JobId);
        QVERIFY(timer.elapsed() < 20000);
    }

    void transmitterGoesWithItsParent()
    {
        QObject parent;
        const QPointer<CanMessageTransmitter> transmitter = new CanMessageTransmitter(JobId, &parent);
        QCOMPARE(transmitter->parent(), &parent);
        delete transmitter.data();
        QCOMPARE(parent.children().size(), 0);
    }

    void slotForCallersReportsAnError()
    {
        CanMessageTransmitter transmitter(JobId);
        QStringList lines;
        recordSignals(&transmitter, lines);
        transmitter.transmitErrorOccured();
        QCOMPARE(lines, QStringList{QStringLiteral("error")});
    }

    void nothingIsLogged()
    {
        const LogRecorder log;
        {
            Job job;
            job.start(0, 2);
            QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(1), TimeoutMs);
            job.settle();
            job.adapter.onWrite = [](CAN::CanMessage *) { return CAN::RetError; };
            job.transmitter->startTransmission();
            QTRY_COMPARE_WITH_TIMEOUT(job.signalLines, countedSignals(1) << QStringLiteral("error"), TimeoutMs);
            job.settle();
            job.transmitter->setCanAdapter(nullptr);
            job.transmitter->startTransmission();
            job.settle();
        }
        QCOMPARE(log.records(), QList<LogRecord>());
    }
};

QTEST_GUILESS_MAIN(TestCanMessageTransmitter)
#include "tst_can_message_transmitter.moc"
