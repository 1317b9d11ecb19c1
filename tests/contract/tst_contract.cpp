// SPDX-License-Identifier: MIT
// What every back end with a receive loop does in the same way.
#include "back_ends.h"

#include "support/frame_recorder.h"

#include <QtTest/QtTest>

#include <thread>

namespace {

constexpr int WaitMs = 60000;
using Adapter = AdapterPointer<AbstractCanAdapter>;

} // namespace

class TestContract : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestBus> mBus;
    BackEnd mBackEnd;

private Q_SLOTS:
    void initTestCase_data()
    {
        QTest::addColumn<BackEnd>("backEnd");
        for (const BackEnd &backEnd : backEnds())
            QTest::newRow(backEnd.name) << backEnd;
    }

    void init()
    {
        QFETCH_GLOBAL(BackEnd, backEnd);
        mBackEnd = backEnd;
        mBus = backEnd.makeBus();
    }

    void cleanup() { mBus.reset(); }

    void newAdapterDoesNotRun()
    {
        const Adapter adapter = mBus->makeAdapter(1);
        QVERIFY(!adapter->isRunning());
        QVERIFY(!adapter->getRunning());
        QCOMPARE(adapter->getId(), static_cast<unsigned short>(1));
    }

    void openRunsTheLoopAndCloseEndsIt()
    {
        const Adapter adapter = mBus->makeAdapter(1);
        QVERIFY(mBus->open(adapter.get()));
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
        QVERIFY(adapter->isRunning());
        adapter->closeAdapter();
        QVERIFY(!adapter->getRunning());
        QVERIFY(adapter->wait(WaitMs));
        QVERIFY(!adapter->getRunning());
    }

    void stopInItsOrderEndsTheThread()
    {
        const Adapter adapter = mBus->makeAdapter(1);
        QVERIFY(mBus->open(adapter.get()));
        QElapsedTimer timer;
        timer.start();
        adapter->prepareToTerminate();
        QVERIFY(!mBackEnd.waitsBeforeTermination || timer.elapsed() >= 199);
        QVERIFY(!adapter->getRunning());
        QVERIFY(adapter->wait(WaitMs));
        QVERIFY(adapter->isFinished());
    }

    void reopenedAdapterReceivesAndTransmitsAgain()
    {
        const Adapter left = mBus->makeAdapter(1);
        const Adapter right = mBus->makeAdapter(2);
        left->setEcho(false);
        right->setEcho(false);
        const FrameRecorder atLeft(left.get());
        const FrameRecorder atRight(right.get());
        QVERIFY(mBus->open(right.get()));
        for (int pass = 1; pass <= 3; ++pass) {
            QVERIFY(mBus->open(left.get()));
            const CAN::CanMessage message = makeFrame(static_cast<quint32>(pass), "again");
            QCOMPARE(left->write(message), CAN::RetOk);
            QTRY_COMPARE_WITH_TIMEOUT(atRight.count(), pass, WaitMs);
            QCOMPARE(bytesOf(atRight.frames().constLast().message), bytesOf(message));
            QCOMPARE(right->write(message), CAN::RetOk);
            QTRY_COMPARE_WITH_TIMEOUT(atLeft.count(), pass, WaitMs);
            left->closeAdapter();
            QVERIFY(left->wait(WaitMs));
        }
    }

    void receivedFrameIsMarkedAndDeliveredOnTheAdaptersThread()
    {
        const Adapter left = mBus->makeAdapter(1);
        const Adapter right = mBus->makeAdapter(40000);
        const FrameRecorder atRight(right.get());
        QVERIFY(mBus->open(right.get()));
        QVERIFY(mBus->open(left.get()));
        left->write(makeFrame(0x7FF, "12345678"));
        QTRY_COMPARE_WITH_TIMEOUT(atRight.count(), 1, WaitMs);
        QCOMPARE(atRight.frames().constFirst().isTx, false);
        QCOMPARE(atRight.frames().constFirst().adapterId, quint16(40000));
        QCOMPARE(atRight.lastThread(), static_cast<QThread *>(right.get()));
    }

    void echoFollowsItsSwitch()
    {
        const Adapter left = mBus->makeAdapter(3);
        const Adapter right = mBus->makeAdapter(4);
        const FrameRecorder atLeft(left.get());
        const FrameRecorder atRight(right.get());
        QVERIFY(mBus->open(right.get()));
        QVERIFY(mBus->open(left.get()));
        right->setEcho(false);
        // An answer comes after any echo of what it answers.
        left->write(makeFrame(1, "start"));
        QTRY_COMPARE_WITH_TIMEOUT(atRight.count(), 1, WaitMs);
        right->write(makeFrame(0x11, "answer"));
        QTRY_COMPARE_WITH_TIMEOUT(atLeft.count(), mBackEnd.echoesFromTheStart ? 2 : 1, WaitMs);
        QCOMPARE(atLeft.frames().constFirst().isTx, mBackEnd.echoesFromTheStart);
        left->setEcho(true);
        const int before = atLeft.count();
        const CAN::CanMessage message = makeFrame(2, "echo");
        left->write(message);
        QTRY_COMPARE_WITH_TIMEOUT(atLeft.count(), before + 1, WaitMs);
        const CAN::CanRxMessage echo = atLeft.frames().constLast();
        QCOMPARE(bytesOf(echo.message), bytesOf(message));
        QCOMPARE(echo.isTx, true);
        QCOMPARE(echo.adapterId, quint16(3));
        left->setEcho(false);
        left->write(makeFrame(3, "none"));
        QTRY_COMPARE_WITH_TIMEOUT(atRight.count(), 3, WaitMs);
        right->write(makeFrame(0x33, "answer"));
        QTRY_COMPARE_WITH_TIMEOUT(atLeft.count(), before + 2, WaitMs);
        QCOMPARE(atLeft.frames().constLast().message.id, 0x33U);
    }

    void writeIsSafeFromAnotherThread()
    {
        constexpr quint32 frames = 200;
        const Adapter left = mBus->makeAdapter(1);
        const Adapter right = mBus->makeAdapter(2);
        const FrameRecorder atRight(right.get());
        QVERIFY(mBus->open(right.get()));
        QVERIFY(mBus->open(left.get()));
        std::thread writer([&left] {
            for (quint32 id = 0; id < frames; ++id)
                left->write(makeFrame(id, "thread"));
        });
        writer.join();
        QTRY_COMPARE_WITH_TIMEOUT(atRight.count(), int(frames), WaitMs);
        for (quint32 id = 0; id < frames; ++id)
            QCOMPARE(atRight.frames().at(int(id)).message.id, id);
    }

    void linkedAdaptersForwardWhatTheyReceiveAndNoEcho()
    {
        const std::unique_ptr<TestBus> otherBus = mBackEnd.makeBus();
        const Adapter sender = mBus->makeAdapter(1);
        const Adapter left = mBus->makeAdapter(2);
        const Adapter right = otherBus->makeAdapter(3);
        const Adapter receiver = otherBus->makeAdapter(4);
        left->setEcho(true);
        right->setEcho(true);
        left->setLinkedAdapter(right.get());
        right->setLinkedAdapter(left.get());
        const FrameRecorder atReceiver(receiver.get());
        const FrameRecorder atSender(sender.get());
        QVERIFY(mBus->open(sender.get()));
        QVERIFY(mBus->open(left.get()));
        QVERIFY(otherBus->open(right.get()));
        QVERIFY(otherBus->open(receiver.get()));
        sender->setEcho(false);
        receiver->setEcho(false);
        const CAN::CanMessage there = makeFrame(0x111, "there");
        const CAN::CanMessage back = makeFrame(0x222, "back");
        sender->write(there);
        QTRY_COMPARE_WITH_TIMEOUT(atReceiver.count(), 1, WaitMs);
        receiver->write(back);
        QTRY_COMPARE_WITH_TIMEOUT(atSender.count(), 1, WaitMs);
        QCOMPARE(bytesOf(atReceiver.frames().constFirst().message), bytesOf(there));
        QCOMPARE(bytesOf(atSender.frames().constFirst().message), bytesOf(back));
        QCOMPARE(atReceiver.count(), 1);
        QCOMPARE(atSender.count(), 1);
        left->setLinkedAdapter(nullptr);
        right->setLinkedAdapter(nullptr);
        // The loop of either may still be at its echo in the other one.
        for (const Adapter *const adapter : {&left, &right}) {
            (*adapter)->closeAdapter();
            QVERIFY((*adapter)->wait(WaitMs));
        }
    }

    void adaptersAreDeletedInAnyOrderAndLeaveNoThread()
    {
        for (const bool firstFirst : {true, false}) {
            Adapter first = mBus->makeAdapter(1);
            Adapter second = mBus->makeAdapter(2);
            QVERIFY(mBus->open(first.get()));
            QVERIFY(mBus->open(second.get()));
            QPointer<AbstractCanAdapter> watched = first.get();
            (firstFirst ? first : second).reset();
            QCOMPARE(watched.isNull(), firstFirst);
        }
    }
};

QTEST_GUILESS_MAIN(TestContract)
#include "tst_contract.moc"
