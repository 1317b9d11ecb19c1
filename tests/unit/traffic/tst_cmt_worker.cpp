// SPDX-License-Identifier: MIT
#include <BusLinkDesk/traffic/can_message_transmitter.h>

#include "support/frame_recorder.h"
#include "support/transmission_records.h"

#include <QtTest/QtTest>

#include <chrono>
#include <memory>
#include <numeric>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

/// A worker on the test's own thread, where a run is one call.
struct DirectWorker
{
    FakeAdapter adapter;
    CMTWorker worker{JobId};
    QStringList signalLines;

    DirectWorker()
    {
        recordSignals(&worker, signalLines);
        worker.setCanApdater(&adapter);
    }

    void run(unsigned int interval, unsigned int count)
    {
        worker.setTranmissionParameter(makeFrame(0x80, QByteArray(8, 'x')), interval, count);
        worker.doWork();
    }
};

} // namespace

class TestCmtWorker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void countedRunReportsEachFrameAndThenItsEnd()
    {
        DirectWorker direct;
        QVector<bool> running;
        QObject::connect(&direct.worker, &CMTWorker::sigMsgsLeft, [&] { running << direct.worker.isRunning(); });
        QObject::connect(&direct.worker, &CMTWorker::sigFinished, [&] { running << direct.worker.isRunning(); });
        QVERIFY(!direct.worker.isRunning());
        direct.run(0, 3);
        QCOMPARE(direct.adapter.written().size(), 3);
        QCOMPARE(direct.signalLines, countedSignals(2));
        QCOMPARE(running, (QVector<bool>{true, true, true, false}));
        QVERIFY(!direct.worker.isRunning());
    }

    void everyWriteGetsTheOneRecord()
    {
        DirectWorker direct;
        QVector<CAN::CanMessage *> addresses;
        direct.adapter.onWrite = [&](CAN::CanMessage *frame) {
            addresses << frame;
            ++frame->length;
            return CAN::RetOk;
        };
        direct.run(0, 3);
        QCOMPARE(addresses, QVector<CAN::CanMessage *>(3, addresses.value(0)));
        QCOMPARE(direct.adapter.written()[2].length, quint8(10));
    }

    void workerStartsWithADefaultFrameAndNoEnd()
    {
        DirectWorker direct;
        direct.adapter.onWrite = [&](CAN::CanMessage *) {
            direct.worker.stop();
            return CAN::RetOk;
        };
        direct.worker.doWork();
        QCOMPARE(direct.adapter.written().size(), 1);
        QCOMPARE(bytesOf(direct.adapter.written()[0]), bytesOf(CAN::CanMessage()));
        QCOMPARE(direct.signalLines, QStringList());
    }

    void onlyErrorStopsTheLoop_data()
    {
        QTest::addColumn<CAN::RetType>("result");
        QTest::newRow("driver configuration failed") << CAN::RetDriverConfigFailed;
        QTest::newRow("transmit buffer full") << CAN::RetTxBufferFull;
    }
    void onlyErrorStopsTheLoop()
    {
        QFETCH(CAN::RetType, result);
        DirectWorker direct;
        direct.adapter.onWrite = [&](CAN::CanMessage *) { return result; };
        direct.run(0, 4);
        QCOMPARE(direct.adapter.written().size(), 4);
        QCOMPARE(direct.signalLines, countedSignals(3));
    }

    void failedFrameIsNotCountedAndTheRestRemains()
    {
        DirectWorker direct;
        bool runningAtError = true;
        QObject::connect(&direct.worker, &CMTWorker::transmitError,
                         [&] { runningAtError = direct.worker.isRunning(); });
        int writes = 0;
        direct.adapter.onWrite = [&](CAN::CanMessage *) { return ++writes == 2 ? CAN::RetError : CAN::RetOk; };
        direct.run(0, 5);
        QCOMPARE(direct.signalLines, countedSignals(4, 4) << QStringLiteral("error"));
        QVERIFY(!runningAtError);
        QVERIFY(!direct.worker.isRunning());
        direct.signalLines.clear();
        direct.worker.doWork();
        QCOMPARE(direct.signalLines, countedSignals(3));
        QCOMPARE(writes, 6);
    }

    void firstFrameLeavesAtOnceAndAFailedOneIsNotFollowedByAPause()
    {
        DirectWorker direct;
        direct.adapter.onWrite = [](CAN::CanMessage *) { return CAN::RetError; };
        const Clock::time_point start = Clock::now();
        direct.run(60000, 1);
        QVERIFY(Clock::now() - start < 30s);
        QCOMPARE(direct.signalLines, QStringList{QStringLiteral("error")});
    }

    void workerWithoutAdapterEndsWithoutASignal()
    {
        CMTWorker worker(JobId);
        QStringList lines;
        recordSignals(&worker, lines);
        worker.setTranmissionParameter(CAN::CanMessage(), 60000, 3);
        worker.doWork();
        QVERIFY(!worker.isRunning());
        QCOMPARE(lines, QStringList());
    }

    void runOnAnInterruptedThreadEndsWithoutASignal()
    {
        DirectWorker direct;
        bool interrupted = false;
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            QThread::currentThread()->requestInterruption();
            interrupted = QThread::currentThread()->isInterruptionRequested();
            direct.run(0, 3);
        }));
        thread->start();
        thread->wait();
        QVERIFY(interrupted);
        QVERIFY(!direct.worker.isRunning());
        QCOMPARE(direct.adapter.written().size(), 0);
        QCOMPARE(direct.signalLines, QStringList());
    }

    void adapterDeletedDuringARunEndsItSilentlyAtTheNextFrame()
    {
        auto adapter = std::make_unique<FakeAdapter>();
        CMTWorker worker(JobId);
        QStringList lines;
        recordSignals(&worker, lines);
        QObject::connect(&worker, &CMTWorker::sigMsgsLeft, [&](unsigned short, unsigned int left) {
            if (left == 2)
                adapter.reset();
        });
        worker.setCanApdater(adapter.get());
        worker.setTranmissionParameter(CAN::CanMessage(), 0, 4);
        worker.doWork();
        QCOMPARE(lines, countedSignals(3, 2));
        QVERIFY(!worker.isRunning());
    }

    void syncCounterRunsUpToItsLimit_data()
    {
        QTest::addColumn<int>("max");
        QTest::addColumn<QVector<int>>("bytes");
        QVector<int> upTo255(255);
        std::iota(upTo255.begin(), upTo255.end(), 1);
        QTest::newRow("0") << 0 << QVector<int>{1, 1, 1, 1, 1};
        QTest::newRow("1") << 1 << QVector<int>{1, 1, 1, 1, 1};
        QTest::newRow("3") << 3 << QVector<int>{1, 2, 3, 1, 2};
        QTest::newRow("255") << 255 << upTo255 + QVector<int>{0, 1, 2};
    }
    void syncCounterRunsUpToItsLimit()
    {
        QFETCH(int, max);
        QFETCH(QVector<int>, bytes);
        DirectWorker direct;
        direct.worker.setSyncValues(true, static_cast<unsigned char>(max));
        direct.run(0, static_cast<unsigned int>(bytes.size()));
        QCOMPARE(counterBytes(direct.adapter), bytes);
        direct.run(0, 2);
        QCOMPARE(counterBytes(direct.adapter), bytes + bytes.mid(0, 2));
    }

    void syncCounterWritesByteZeroAlone()
    {
        DirectWorker direct;
        direct.worker.setSyncValues(true, 240);
        CAN::CanMessage expected = makeFrame(0x80, QByteArray());
        direct.worker.setTranmissionParameter(expected, 0, 1);
        direct.worker.doWork();
        expected.data[0] = 1;
        QCOMPARE(bytesOf(direct.adapter.written()[0]), bytesOf(expected));
    }

    void frameStaysAsGivenWithoutSync()
    {
        DirectWorker direct;
        direct.worker.setSyncValues(false, 3);
        CAN::CanMessage frame = makeFrame(0x1ABCDEF, QByteArray(64, '\x7F'));
        frame.isExtended = true;
        frame.isFd = true;
        frame.reservedFlag = 0x5A;
        frame.fillByte = 0xA5;
        direct.worker.setTranmissionParameter(frame, 0, 2);
        direct.worker.doWork();
        for (const CAN::CanMessage &written : direct.adapter.written())
            QCOMPARE(bytesOf(written), bytesOf(frame));
    }

    void pauseFollowsTheLastFrame()
    {
        DirectWorker direct;
        Clock::time_point finished;
        QObject::connect(&direct.worker, &CMTWorker::sigFinished, [&] { finished = Clock::now(); });
        direct.run(40, 1);
        QVERIFY(Clock::now() - finished >= 40ms);
    }

    void intervalIsReadAnewForEachPause()
    {
        DirectWorker direct;
        Clock::time_point first;
        Clock::time_point second;
        direct.adapter.onWrite = [&](CAN::CanMessage *) {
            if (first == Clock::time_point()) {
                direct.worker.setInterval(40);
                first = Clock::now();
            } else {
                direct.worker.setInterval(0);
                second = Clock::now();
            }
            return CAN::RetOk;
        };
        direct.run(0, 2);
        QVERIFY(second - first >= 40ms);
    }
};

QTEST_GUILESS_MAIN(TestCmtWorker)
#include "tst_cmt_worker.moc"
