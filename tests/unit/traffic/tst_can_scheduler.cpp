// SPDX-License-Identifier: MIT
#include <BusLinkDesk/traffic/can_scheduler.h>

#include "support/delivered_frame.h"
#include "support/fake_adapter.h"
#include "support/log_recorder.h"

#include <QtCore/QSemaphore>
#include <QtTest/QtTest>

#include <csignal>
#include <memory>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

const auto receivedFrame = QOverload<CAN::CanRxMessage>::of(&CanSender::received);
const auto receivedId = QOverload<unsigned short>::of(&CanSender::received);

/// Counts the frames of a sender on whatever thread they come.
struct Counter : QObject
{
    std::atomic<int> frames{0};

    void countDirectly(CanSender *sender)
    {
        connect(
            sender, receivedFrame, this, [this] { ++frames; }, Qt::DirectConnection);
    }
};

void dispatch(CanScheduler &scheduler, quint32 id)
{
    CAN::CanRxMessage frame = deliveredFrame(id);
    scheduler.newRawCanMessage(&frame);
}

/// Keeps the scheduler locked: a directly connected slot of identifier 0x7FF that does not return.
class LockHolder
{
public:
    explicit LockHolder(CanScheduler &scheduler)
    {
        mConnection = QObject::connect(scheduler.registerCanId(0x7FF), receivedFrame, [this] {
            mEntered.release();
            mLeave.acquire();
        });
        mThread = std::thread([&scheduler] { dispatch(scheduler, 0x7FF); });
        mEntered.acquire();
    }
    ~LockHolder() { letGo(); }
    void letGo()
    {
        if (!mThread.joinable())
            return;
        mLeave.release();
        mThread.join();
        QObject::disconnect(mConnection);
    }

private:
    QSemaphore mEntered;
    QSemaphore mLeave;
    QMetaObject::Connection mConnection;
    std::thread mThread;
};

} // namespace

class TestCanScheduler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newSchedulerHasItsAdapterAndNoParentAndIsNotConnected()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        QCOMPARE(scheduler.canAdapter(), &adapter);
        QCOMPARE(scheduler.parent(), nullptr);
        Counter counter;
        counter.countDirectly(scheduler.registerCanId(0x10));
        adapter.handleNewCanMessage(deliveredFrame(0x10));
        QCOMPARE(counter.frames.load(), 0);
    }

    // Registration

    void registeringTwiceGivesTheSameSender()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QPointer<CanSender> first = scheduler.registerCanId(0x123);
        const QPointer<CanSender> second = scheduler.registerCanId(0x123);
        QVERIFY(first);
        QCOMPARE(second.data(), first.data());
        QCOMPARE(first->parent(), nullptr);
        Counter counter;
        counter.countDirectly(first);
        dispatch(scheduler, 0x123);
        QCOMPARE(counter.frames.load(), 1);
    }

    void rangeFromHighToLowIsEmptyAndInsertsNothing()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        // An insertion would wait here for ever.
        const LockHolder holder(scheduler);
        QCOMPARE(scheduler.registerCanIdRange(5, 4).size(), 0);
        QCOMPARE(scheduler.registerCanIdRange(4294967295U, 0).size(), 0);
    }

    void knownIdentifierIsFoundWithoutTheLockAndNotInsertedAgain()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QPointer<CanSender> known = scheduler.registerCanId(5);
        // An insertion would wait here for ever.
        const LockHolder holder(scheduler);
        QCOMPARE(scheduler.registerCanId(5).data(), known.data());
    }

    void rangeOfOneHasOneSender()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QList<QPointer<CanSender>> senders = scheduler.registerCanIdRange(5, 5);
        QCOMPARE(senders.size(), 1);
        QCOMPARE(scheduler.registerCanId(5).data(), senders[0].data());
    }

    void rangeTakesUpSendersThatStand()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QPointer<CanSender> two = scheduler.registerCanId(2);
        const QList<QPointer<CanSender>> range = scheduler.registerCanIdRange(1, 3);
        QCOMPARE(range.size(), 3);
        QCOMPARE(range[1].data(), two.data());
        const QList<QPointer<CanSender>> overlap = scheduler.registerCanIdRange(3, 5);
        QCOMPARE(overlap.size(), 3);
        QCOMPARE(overlap[0].data(), range[2].data());
        QCOMPARE(scheduler.registerCanId(1).data(), range[0].data());
        QCOMPARE(scheduler.registerCanId(5).data(), overlap[2].data());
    }

    void rangeHasASenderOfItsOwnForEachIdentifierInAscendingOrder()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QList<QPointer<CanSender>> senders = scheduler.registerCanIdRange(0x7FE, 0x802);
        QCOMPARE(senders.size(), 5);
        QVector<quint32> ids;
        for (int index = 0; index < senders.size(); ++index)
            connect(senders[index], receivedFrame, this,
                    [&ids, index](CAN::CanRxMessage frame) { ids << frame.message.id << static_cast<quint32>(index); });
        for (quint32 id = 0x7FD; id <= 0x803; ++id)
            dispatch(scheduler, id);
        QCOMPARE(ids, (QVector<quint32>{0x7FE, 0, 0x7FF, 1, 0x800, 2, 0x801, 3, 0x802, 4}));
    }

    void rangeThatEndsAtTheLastNumberNeverEnds()
    {
        // The child has a quarter of a second of processor time, a million times what one entry takes.
        const pid_t child = ::fork();
        if (child == 0) {
            std::signal(SIGVTALRM, SIG_DFL);
            const itimerval limit{{0, 0}, {0, 250000}};
            ::setitimer(ITIMER_VIRTUAL, &limit, nullptr);
            FakeAdapter adapter;
            CanScheduler scheduler(&adapter);
            scheduler.registerCanIdRange(4294967295U, 4294967295U);
            ::_exit(0);
        }
        QVERIFY(child > 0);
        int status = 0;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QVERIFY2(WIFSIGNALED(status), "the call returned");
        QCOMPARE(WTERMSIG(status), SIGVTALRM);
    }

    void newIdentifierWaitsForARunningReceiver_data()
    {
        QTest::addColumn<bool>("range");
        QTest::newRow("one") << false;
        QTest::newRow("range") << true;
    }
    void newIdentifierWaitsForARunningReceiver()
    {
        QFETCH(bool, range);
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        LockHolder holder(scheduler);
        std::atomic<bool> letGo{false};
        bool waited = false;
        std::thread registering([&] {
            if (range)
                scheduler.registerCanIdRange(0x20, 0x21);
            else
                scheduler.registerCanId(0x20);
            waited = letGo.load();
        });
        // Gives a registration that does not wait the time to show it.
        QThread::msleep(50);
        letGo = true;
        holder.letGo();
        registering.join();
        QVERIFY(waited);
    }

    // Dispatch

    void senderGivesTheWholeRecordAndLeavesTheOriginalAlone()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        QStringList got;
        connect(scheduler.registerCanId(0x1ABCDEF), receivedFrame, this, [&](CAN::CanRxMessage frame) {
            got << textOf(frame);
            frame.message.id = 0;
        });
        CAN::CanRxMessage frame = deliveredFrame(0x1ABCDEF);
        scheduler.newRawCanMessage(&frame);
        QCOMPARE(got, QStringList{textOf(deliveredFrame(0x1ABCDEF))});
        QCOMPARE(textOf(frame), textOf(deliveredFrame(0x1ABCDEF)));
    }

    void standardAndExtendedFramesOfANumberShareASender()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        Counter counter;
        counter.countDirectly(scheduler.registerCanId(0x123));
        CAN::CanRxMessage frame = deliveredFrame(0x123);
        scheduler.newRawCanMessage(&frame);
        frame.message.isExtended = false;
        scheduler.newRawCanMessage(&frame);
        QCOMPARE(counter.frames.load(), 2);
    }

    void identifierIsTakenWithoutMasking()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        Counter low;
        Counter high;
        low.countDirectly(scheduler.registerCanId(0x123));
        high.countDirectly(scheduler.registerCanId(0x80000123));
        dispatch(scheduler, 0x80000123);
        QCOMPARE(low.frames.load(), 0);
        QCOMPARE(high.frames.load(), 1);
        Counter last;
        last.countDirectly(scheduler.registerCanId(0xFFFFFFFF));
        dispatch(scheduler, 0xFFFFFFFF);
        QCOMPARE(last.frames.load(), 1);
    }

    void unregisteredIdentifierLeavesNoTrace()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        Counter counter;
        counter.countDirectly(scheduler.registerCanId(0x123));
        scheduler.connectToAdapter(true);
        const LogRecorder log;
        adapter.handleNewCanMessage(deliveredFrame(0x124));
        QCOMPARE(counter.frames.load(), 0);
        QCOMPARE(log.records(), QList<LogRecord>());
        adapter.handleNewCanMessage(deliveredFrame(0x123));
        QCOMPARE(counter.frames.load(), 1);
    }

    void sixteenBitSignalNeverFires()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QPointer<CanSender> sender = scheduler.registerCanId(0x123);
        int fired = 0;
        Counter counter;
        counter.countDirectly(sender);
        connect(sender, receivedId, this, [&] { ++fired; });
        scheduler.connectToAdapter(true);
        for (const quint32 id : {0x123U, 0x124U, 0x123U})
            adapter.handleNewCanMessage(deliveredFrame(id));
        scheduler.unregisterCan(sender, &counter);
        scheduler.connectToAdapter(false);
        QCOMPARE(counter.frames.load(), 2);
        QCOMPARE(fired, 0);
    }

    void frameIsLostAfterTwoMillisecondsOfABusyLock_data()
    {
        QTest::addColumn<quint32>("id");
        QTest::addColumn<QByteArray>("number");
        QTest::newRow("registered") << 291U << QByteArray("291");
        QTest::newRow("not registered") << 292U << QByteArray("292");
        QTest::newRow("unsigned") << 4294967295U << QByteArray("4294967295");
    }
    void frameIsLostAfterTwoMillisecondsOfABusyLock()
    {
        QFETCH(quint32, id);
        QFETCH(QByteArray, number);
        const QByteArray line = "void CanScheduler::newRawCanMessage(CAN::CanRxMessage*) 1: Message Lost " + number;
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        Counter counter;
        counter.countDirectly(scheduler.registerCanId(291));
        scheduler.connectToAdapter(true);
        LockHolder holder(scheduler);
        {
            const LogRecorder log;
            QElapsedTimer timer;
            timer.start();
            adapter.handleNewCanMessage(deliveredFrame(id));
            QVERIFY(timer.nsecsElapsed() >= 2000000);
            QCOMPARE(log.records(), QList<LogRecord>{defaultLogRecord(QtDebugMsg, line.constData())});
        }
        QCOMPARE(counter.frames.load(), 0);
        holder.letGo();
        const LogRecorder log;
        adapter.handleNewCanMessage(deliveredFrame(291));
        QCOMPARE(counter.frames.load(), 1);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void receiverOnAnotherThreadGetsACopyOnItsOwn()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QPointer<CanSender> sender = scheduler.registerCanId(0x55);
        QCOMPARE(sender->thread(), QThread::currentThread());
        QStringList got;
        QThread *queuedOn = nullptr;
        QThread *directOn = nullptr;
        connect(sender, receivedFrame, this, [&](CAN::CanRxMessage frame) {
            got << textOf(frame);
            queuedOn = QThread::currentThread();
        });
        connect(
            sender, receivedFrame, this, [&] { directOn = QThread::currentThread(); }, Qt::DirectConnection);
        const std::unique_ptr<QThread> dispatching(QThread::create([&] {
            CAN::CanRxMessage frame = deliveredFrame(0x55);
            scheduler.newRawCanMessage(&frame);
            frame = deliveredFrame(0x99, "gone");
        }));
        dispatching->start();
        dispatching->wait();
        QCOMPARE(directOn, dispatching.get());
        QCOMPARE(got, QStringList());
        QTRY_COMPARE_WITH_TIMEOUT(got, QStringList{textOf(deliveredFrame(0x55))}, 60000);
        QCOMPARE(queuedOn, QThread::currentThread());
    }

    // Detaching receivers

    void otherReceiversOfASenderStay()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QPointer<CanSender> sender = scheduler.registerCanId(0x123);
        Counter a;
        Counter b;
        a.countDirectly(sender);
        b.countDirectly(sender);
        scheduler.unregisterCan(sender, &a);
        dispatch(scheduler, 0x123);
        QCOMPARE(a.frames.load(), 0);
        QCOMPARE(b.frames.load(), 1);
        QCOMPARE(scheduler.registerCanId(0x123).data(), sender.data());
    }

    void nullReceiverStandsForAll()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        const QPointer<CanSender> sender = scheduler.registerCanId(0x123);
        Counter a;
        Counter b;
        Counter other;
        a.countDirectly(sender);
        b.countDirectly(sender);
        other.countDirectly(scheduler.registerCanId(0x124));
        const LogRecorder log;
        scheduler.unregisterCan(sender, nullptr);
        dispatch(scheduler, 0x123);
        dispatch(scheduler, 0x124);
        QCOMPARE(a.frames.load(), 0);
        QCOMPARE(b.frames.load(), 0);
        QCOMPARE(other.frames.load(), 1);
        QVERIFY(sender);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void deadSenderIsReported_data()
    {
        QTest::addColumn<bool>("hasLived");
        QTest::newRow("null") << false;
        QTest::newRow("dead") << true;
    }
    void deadSenderIsReported()
    {
        QFETCH(bool, hasLived);
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        auto gone = std::make_unique<CanScheduler>(&adapter);
        const QPointer<CanSender> sender = hasLived ? gone->registerCanId(1) : QPointer<CanSender>();
        gone.reset();
        const LogRecorder log;
        scheduler.unregisterCan(sender, this);
        QCOMPARE(log.records(),
                 QList<LogRecord>{defaultLogRecord(
                     QtDebugMsg, "Invalid CANSender should be disconnect, check, were this comes from")});
    }

    // Connection and end

    void connectingTwiceDispatchesTwiceUntilOneDisconnect()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        Counter counter;
        counter.countDirectly(scheduler.registerCanId(0x123));
        scheduler.connectToAdapter(true);
        adapter.handleNewCanMessage(deliveredFrame(0x123));
        QCOMPARE(counter.frames.load(), 1);
        scheduler.connectToAdapter(true);
        adapter.handleNewCanMessage(deliveredFrame(0x123));
        QCOMPARE(counter.frames.load(), 3);
        scheduler.connectToAdapter(false);
        adapter.handleNewCanMessage(deliveredFrame(0x123));
        QCOMPARE(counter.frames.load(), 3);
    }

    void disconnectingWithoutAConnectionChangesNothing()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        CanScheduler neighbour(&adapter);
        Counter counter;
        Counter neighbourCounter;
        counter.countDirectly(scheduler.registerCanId(0x123));
        neighbourCounter.countDirectly(neighbour.registerCanId(0x123));
        neighbour.connectToAdapter(true);
        const LogRecorder log;
        scheduler.connectToAdapter(false);
        adapter.handleNewCanMessage(deliveredFrame(0x123));
        QCOMPARE(counter.frames.load(), 0);
        QCOMPARE(neighbourCounter.frames.load(), 1);
        scheduler.connectToAdapter(true);
        adapter.handleNewCanMessage(deliveredFrame(0x123));
        QCOMPARE(counter.frames.load(), 1);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void disconnectingSeversEveryConnectionFromTheAdapter()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        int echoChanges = 0;
        connect(&adapter, &AbstractCanAdapter::echoChanged, &scheduler, [&] { ++echoChanges; });
        adapter.setEcho(true);
        scheduler.connectToAdapter(false);
        adapter.setEcho(true);
        QCOMPARE(echoChanges, 1);
    }

    void frameIsDispatchedOnTheDeliveringThreadBeforeTheCallReturns()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        Counter counter;
        counter.countDirectly(scheduler.registerCanId(0x123));
        scheduler.connectToAdapter(true);
        int atOnce = 0;
        std::thread([&] {
            adapter.handleNewCanMessage(deliveredFrame(0x123));
            atOnce = counter.frames.load();
        }).join();
        QCOMPARE(atOnce, 1);
    }

    void endOfASchedulerEndsItsSendersAndItsConnection()
    {
        FakeAdapter adapter;
        auto scheduler = std::make_unique<CanScheduler>(&adapter);
        QList<QPointer<CanSender>> senders = scheduler->registerCanIdRange(1, 3);
        senders << scheduler->registerCanId(9);
        for (const QPointer<CanSender> &sender : senders)
            QVERIFY(sender);
        scheduler->connectToAdapter(true);
        scheduler.reset();
        for (const QPointer<CanSender> &sender : senders)
            QVERIFY(!sender);
        const LogRecorder log;
        adapter.handleNewCanMessage(deliveredFrame(1));
        QCOMPARE(log.records(), QList<LogRecord>());
    }
};

QTEST_GUILESS_MAIN(TestCanScheduler)
#include "tst_can_scheduler.moc"
