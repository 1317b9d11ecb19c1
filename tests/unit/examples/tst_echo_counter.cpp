// SPDX-License-Identifier: MIT
#include "common/echo_counter.h"
#include "support/fake_adapter.h"
#include "support/fake_serial_adapter.h"
#include "support/frame_recorder.h"

#include <QtTest/QtTest>

using buslink::EchoCounter;

namespace {

// A counter at an adapter without a transport.
struct Bench
{
    explicit Bench(int timeoutMs = 60000) : counter(timeoutMs)
    {
        QObject::connect(&counter, &EchoCounter::arrived, &counter, [this] { ++arrived; });
        QObject::connect(&counter, &EchoCounter::late, &counter, [this] { ++late; });
        counter.setAdapter(&adapter);
    }

    void accept(qint64 frames)
    {
        for (qint64 i = 0; i < frames; ++i)
            counter.frameAccepted();
    }
    void echo(qint64 frames)
    {
        for (qint64 i = 0; i < frames; ++i)
            adapter.handleNewTxCanMessage(CAN::CanRxMessage());
    }

    EchoCounter counter;
    FakeAdapter adapter;
    int arrived = 0;
    int late = 0;
};

} // namespace

class TestEchoCounter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void echoIsOnBeforeTheFirstFrame()
    {
        const Bench bench;
        QVERIFY(bench.adapter.mEcho);
    }

    void acceptedAndSentFramesAreCounted()
    {
        Bench bench;
        QVERIFY(bench.counter.allHaveLeft());
        bench.accept(3);
        QVERIFY(!bench.counter.allHaveLeft());
        bench.echo(2);
        QCOMPARE(bench.counter.acceptedFrames(), qint64(3));
        QCOMPARE(bench.counter.sentFrames(), qint64(2));
        QVERIFY(!bench.counter.allHaveLeft());
        bench.echo(1);
        QVERIFY(bench.counter.allHaveLeft());
    }

    void receivedFramesAreNoEchoes()
    {
        Bench bench;
        bench.accept(1);
        bench.adapter.handleNewCanMessage(CAN::CanRxMessage());
        QCOMPARE(bench.counter.sentFrames(), qint64(0));
    }

    void aWindowOfFramesHasRoom()
    {
        Bench bench;
        bench.accept(EchoCounter::Window - 1);
        QVERIFY(bench.counter.hasRoom());
        bench.accept(1);
        QVERIFY(!bench.counter.hasRoom());
        bench.echo(1);
        QVERIFY(bench.counter.hasRoom());
    }

    void oneSignalStandsForAllEchoesUntilItIsHandled()
    {
        Bench bench;
        bench.accept(10);
        bench.echo(4);
        QCOMPARE(bench.arrived, 0);
        QTRY_COMPARE(bench.arrived, 1);
        bench.echo(1);
        QTRY_COMPARE(bench.arrived, 2);
        QCoreApplication::processEvents();
        QCOMPARE(bench.arrived, 2);
    }

    void missingEchoesAreLate()
    {
        Bench bench(30);
        bench.accept(2);
        bench.echo(1);
        QTRY_VERIFY(bench.late > 0);
        QCOMPARE(bench.counter.lateText(), QStringLiteral("no sign that a frame was sent for 30 ms"));
    }

    void nothingIsLateWhereNothingIsMissing()
    {
        Bench bench(5);
        bench.accept(2);
        bench.echo(2);
        QTest::qWait(100);
        QCOMPARE(bench.late, 0);
    }

    void framesOnASerialLineHaveLeftWhenTheLineHasCarriedThem()
    {
        EchoCounter counter(60000);
        FakeSerialAdapter adapter(7 * 11 * 2); // half a second for the shortest frame
        counter.setAdapter(&adapter);
        QVERIFY(counter.allHaveLeft());
        int arrived = 0;
        bool hadLeft = false;
        connect(&counter, &EchoCounter::arrived, this, [&] {
            ++arrived;
            hadLeft = counter.allHaveLeft();
        });
        QElapsedTimer timer;
        timer.start();
        CAN::CanMessage frame = makeFrame(0x123, {});
        while (counter.hasRoom()) {
            counter.frameAccepted();
            adapter.write(&frame);
        }
        QVERIFY(counter.sentFrames() >= 3);
        QVERIFY(!counter.allHaveLeft());
        // It tells by itself when there is room and when all have left.
        QTRY_VERIFY_WITH_TIMEOUT(hadLeft, 20000);
        QVERIFY(timer.elapsed() >= 1500);
        const int last = arrived;
        QVERIFY(last >= 2);
        QTest::qWait(200);
        QCOMPARE(arrived, last);
    }

    void nothingIsLateAfterAStop()
    {
        Bench bench(5);
        bench.accept(1);
        bench.counter.stop();
        QTest::qWait(100);
        QCOMPARE(bench.late, 0);
    }
};

QTEST_GUILESS_MAIN(TestEchoCounter)
#include "tst_echo_counter.moc"
