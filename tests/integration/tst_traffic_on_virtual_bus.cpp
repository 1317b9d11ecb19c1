// SPDX-License-Identifier: MIT
#include <BusLinkDesk/traffic/can_message_transmitter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include "support/delivered_frame.h"
#include "support/log_recorder.h"
#include "support/open_adapter.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <vector>

namespace {

constexpr int TimeoutMs = 60000;
const auto receivedFrame = QOverload<CAN::CanRxMessage>::of(&CanSender::received);

/// Two adapters on a bus of their own that hear each other.
struct Bus
{
    quint16 port = freeUdpPort();
    AdapterPointer<DemoCanAdapter> a = makeVirtualAdapter(port, 1);
    AdapterPointer<DemoCanAdapter> b = makeVirtualAdapter(port, 2);

    bool open() { return openOnBus(a.get()) && openOnBus(b.get()); }
};

/// Ends dispatch before the scheduler goes, while its adapter may still run.
struct ConnectedScheduler : CanScheduler
{
    explicit ConnectedScheduler(AbstractCanAdapter *adapter) : CanScheduler(adapter) {}
    ~ConnectedScheduler() override { connectToAdapter(false); }
};

QVector<int> bytesZeroOf(const QVector<CAN::CanRxMessage> &frames)
{
    QVector<int> bytes;
    for (const CAN::CanRxMessage &frame : frames)
        bytes << frame.message.data[0];
    return bytes;
}

enum class Part { First, Second, Scheduler, Transmitter };

/// The far end of a bus.
struct LongLivedPeer
{
    quint16 port = freeUdpPort();
    AdapterPointer<DemoCanAdapter> adapter = makeVirtualAdapter(port);
    FrameRecorder frames{adapter.get()};
};

/// Two adapters on buses of their own that are linked to each other, a scheduler on the first one and a transmitter
/// for the second. A peer on each bus lives longer than all of them.
class LinkedParts
{
public:
    LinkedParts(LongLivedPeer &firstPeer, LongLivedPeer &secondPeer)
        : mFirstPeer(firstPeer)
        , mSecondPeer(secondPeer)
        , mFirst(makeVirtualAdapter(firstPeer.port, 1))
        , mSecond(makeVirtualAdapter(secondPeer.port, 2))
        , mScheduler(std::make_unique<CanScheduler>(mFirst.get()))
        , mTransmitter(std::make_unique<CanMessageTransmitter>(1))
    {
        for (AbstractCanAdapter *const adapter : {mFirst.get(), mSecond.get()})
            QObject::connect(adapter, &AbstractCanAdapter::newCanMessage, [this] { ++mArrived; });
        mFirst->setLinkedAdapter(mSecond.get());
        mSecond->setLinkedAdapter(mFirst.get());
        QObject::connect(
            mScheduler->registerCanId(0x11), receivedFrame, mScheduler.get(), [this] { ++mDispatched; },
            Qt::DirectConnection);
        mScheduler->connectToAdapter(true);
        mTransmitter->setCanAdapter(mSecond.get());
        QObject::connect(mTransmitter.get(), &CanMessageTransmitter::sigFinished, &mReceiver,
                         [this](unsigned short id) { mJobs << QStringLiteral("finished %1").arg(id); });
        QObject::connect(mTransmitter.get(), &CanMessageTransmitter::transmitError, &mReceiver,
                         [this] { mJobs << QStringLiteral("error"); });
    }

    /// A stopped adapter, an idle transmitter.
    void remove(Part part)
    {
        switch (part) {
        case Part::First:
            mFirst.reset();
            break;
        case Part::Second:
            mSecond.reset();
            break;
        case Part::Scheduler:
            mScheduler.reset();
            break;
        case Part::Transmitter:
            mTransmitter.reset();
            break;
        }
    }

    ~LinkedParts()
    {
        mFirst.reset();
        mSecond.reset();
    }
    LinkedParts(const LinkedParts &) = delete;
    LinkedParts &operator=(const LinkedParts &) = delete;

    /// Whether all that is there does what it can without the rest. Adapters are stopped again at the end.
    bool work()
    {
        if ((mFirst && !openOnBus(mFirst.get())) || (mSecond && !openOnBus(mSecond.get())))
            return false;
        const bool done = carries(mFirst.get(), mFirstPeer, mSecond ? &mSecondPeer : nullptr)
                          && carries(mSecond.get(), mSecondPeer, mFirst ? &mFirstPeer : nullptr) && transmits();
        for (AbstractCanAdapter *const adapter : {mFirst.get(), mSecond.get()}) {
            if (!adapter)
                continue;
            adapter->closeAdapter();
            adapter->wait();
        }
        return done && mDispatched == mExpected && mJobs == mExpectedJobs;
    }

private:
    /// A frame of the peer reaches the adapter, what listens to it and the peer behind its link.
    bool carries(DemoCanAdapter *adapter, LongLivedPeer &peer, LongLivedPeer *behindTheLink)
    {
        if (!adapter)
            return true;
        const int before = mArrived;
        const int forwarded = behindTheLink ? behindTheLink->frames.count() : 0;
        mExpected += adapter == mFirst.get() && mScheduler ? 1 : 0;
        peer.adapter->write(makeFrame(0x11, "part"));
        return QTest::qWaitFor([&] { return mArrived == before + 1; }, TimeoutMs)
               && (!behindTheLink
                   || QTest::qWaitFor([&] { return behindTheLink->frames.count() == forwarded + 1; }, TimeoutMs));
    }

    bool transmits()
    {
        if (!mTransmitter)
            return true;
        const int before = mSecondPeer.frames.count();
        mTransmitter->setTranmissionParameter(makeFrame(0x22, "job"), 1, 2);
        mTransmitter->startTransmission();
        // Without an adapter the job ends at once and in silence.
        if (!mSecond)
            return true;
        mExpectedJobs << QStringLiteral("finished 1");
        const auto sent = [&] { return mSecondPeer.frames.count() == before + 2 && mJobs == mExpectedJobs; };
        return QTest::qWaitFor(sent, TimeoutMs) && !mTransmitter->isRunning();
    }

    LongLivedPeer &mFirstPeer;
    LongLivedPeer &mSecondPeer;
    AdapterPointer<DemoCanAdapter> mFirst;
    AdapterPointer<DemoCanAdapter> mSecond;
    std::unique_ptr<CanScheduler> mScheduler;
    std::unique_ptr<CanMessageTransmitter> mTransmitter;
    std::atomic<int> mArrived = 0;
    std::atomic<int> mDispatched = 0;
    int mExpected = 0;
    // What jobs of the transmitter tell, on the thread of the test.
    QObject mReceiver;
    QStringList mJobs;
    QStringList mExpectedJobs;
};

} // namespace

class TestTrafficOnVirtualBus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void partsAreDeletedInEveryOrder()
    {
        LongLivedPeer firstPeer;
        LongLivedPeer secondPeer;
        QVERIFY(openOnBus(firstPeer.adapter.get()) && openOnBus(secondPeer.adapter.get()));
        std::array order{Part::First, Part::Second, Part::Scheduler, Part::Transmitter};
        int orders = 0;
        do {
            LinkedParts parts(firstPeer, secondPeer);
            QVERIFY(parts.work());
            for (const Part part : order) {
                parts.remove(part);
                QVERIFY2(parts.work(), qPrintable(QStringLiteral("order %1").arg(orders)));
            }
            ++orders;
        } while (std::next_permutation(order.begin(), order.end()));
        QCOMPARE(orders, 24);
    }

    void receiversRunOnTheAdaptersThreadAndOnAnother()
    {
        Bus bus;
        ConnectedScheduler scheduler(bus.b.get());
        const QPointer<CanSender> sender = scheduler.registerCanId(0x321);
        std::atomic<QThread *> directOn{nullptr};
        CAN::CanRxMessage direct;
        connect(
            sender, receivedFrame, this,
            [&](CAN::CanRxMessage frame) {
                direct = frame;
                directOn = QThread::currentThread();
            },
            Qt::DirectConnection);
        QStringList queued;
        QThread *queuedOn = nullptr;
        connect(sender, receivedFrame, this, [&](CAN::CanRxMessage frame) {
            queued << textOf(frame);
            queuedOn = QThread::currentThread();
        });
        scheduler.connectToAdapter(true);
        QVERIFY(bus.open());
        CAN::CanMessage other = makeFrame(0x320, "no");
        CAN::CanMessage frame = makeFrame(0x321, "yes");
        frame.isExtended = true;
        bus.a->write(&other);
        bus.a->write(&frame);
        QTRY_COMPARE_WITH_TIMEOUT(queued.size(), 1, TimeoutMs);
        QCOMPARE(directOn.load(), static_cast<QThread *>(bus.b.get()));
        QCOMPARE(queuedOn, QThread::currentThread());
        QCOMPARE(queued, QStringList{textOf(direct)});
        QCOMPARE(bytesOf(direct.message), bytesOf(frame));
        QCOMPARE(direct.isTx, false);
        QCOMPARE(direct.adapterId, quint16(2));
    }

    void echoIsDispatchedLikeAReceivedFrame()
    {
        Bus bus;
        ConnectedScheduler scheduler(bus.a.get());
        QVector<CAN::CanRxMessage> got;
        connect(scheduler.registerCanId(0x42), receivedFrame, this, [&](CAN::CanRxMessage frame) { got << frame; });
        scheduler.connectToAdapter(true);
        bus.a->setEcho(true);
        QVERIFY(bus.open());
        CAN::CanMessage frame = makeFrame(0x42, "echo");
        bus.a->write(&frame);
        QTRY_COMPARE_WITH_TIMEOUT(got.size(), 1, TimeoutMs);
        QCOMPARE(got[0].isTx, true);
        QCOMPARE(got[0].adapterId, quint16(1));
        QCOMPARE(bytesOf(got[0].message), bytesOf(frame));
    }

    void framesArriveOrAreLoggedAsLostWhileRangesAreRegistered()
    {
        Bus bus;
        const FrameRecorder recorder(bus.b.get());
        ConnectedScheduler scheduler(bus.b.get());
        std::atomic<int> delivered{0};
        connect(
            scheduler.registerCanId(0x100), receivedFrame, this, [&] { ++delivered; }, Qt::DirectConnection);
        scheduler.connectToAdapter(true);
        QVERIFY(bus.open());
        const LogRecord lost =
            defaultLogRecord(QtDebugMsg, "void CanScheduler::newRawCanMessage(CAN::CanRxMessage*) 1: Message Lost 256");
        const LogRecorder log;
        CanMessageTransmitter transmitter(1);
        transmitter.setCanAdapter(bus.a.get());
        transmitter.setTranmissionParameter(makeFrame(0x100, "busy"), 1, 0);
        transmitter.startTransmission();
        QTRY_VERIFY_WITH_TIMEOUT(delivered.load() > 0, TimeoutMs);
        // Each range takes tens of milliseconds, so that sooner or later a frame comes during one.
        unsigned int first = 0x1000;
        const QDeadlineTimer deadline(TimeoutMs);
        while (log.records().isEmpty() && !deadline.hasExpired()) {
            const QList<QPointer<CanSender>> senders = scheduler.registerCanIdRange(first, first + 49999);
            QCOMPARE(senders.size(), 50000);
            first += 50000;
        }
        QVERIFY(!log.records().isEmpty());
        const int deliveredDuringRanges = delivered.load();
        QTRY_VERIFY_WITH_TIMEOUT(delivered.load() > deliveredDuringRanges, TimeoutMs);
        transmitter.stopTransmission();
        bus.b->closeAdapter();
        QVERIFY(bus.b->wait(TimeoutMs));
        QCOMPARE(log.records().count(lost), log.records().size());
        QCOMPARE(delivered.load() + log.records().size(), recorder.count());
    }

    void countedSyncJobArrivesWhole()
    {
        Bus bus;
        const FrameRecorder recorder(bus.b.get());
        QVERIFY(bus.open());
        CanMessageTransmitter transmitter(9);
        QStringList lines;
        connect(&transmitter, &CanMessageTransmitter::sigMsgsLeft, this,
                [&](unsigned short id, unsigned int left) { lines << QStringLiteral("left %1 %2").arg(id).arg(left); });
        connect(&transmitter, &CanMessageTransmitter::sigFinished, this,
                [&](unsigned short id) { lines << QStringLiteral("finished %1").arg(id); });
        connect(&transmitter, &CanMessageTransmitter::transmitError, this, [&] { lines << QStringLiteral("error"); });
        transmitter.setCanAdapter(bus.a.get());
        transmitter.setTranmissionParameter(makeFrame(0x80, QByteArray(1, '\0')), 5, 5);
        transmitter.setSyncValues(true, 3);
        transmitter.startTransmission();
        QTRY_COMPARE_WITH_TIMEOUT(
            lines,
            (QStringList{QStringLiteral("left 9 4"), QStringLiteral("left 9 3"), QStringLiteral("left 9 2"),
                         QStringLiteral("left 9 1"), QStringLiteral("left 9 0"), QStringLiteral("finished 9")}),
            TimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(), 5, TimeoutMs);
        QCOMPARE(bytesZeroOf(recorder.frames()), (QVector<int>{1, 2, 3, 1, 2}));
        for (const CAN::CanRxMessage &frame : recorder.frames())
            QCOMPARE(frame.message.id, 0x80U);
        QVERIFY(!transmitter.isRunning());
    }

    void jobsOfSeveralTransmittersShareAnAdapter()
    {
        Bus bus;
        const FrameRecorder recorder(bus.b.get());
        QVERIFY(bus.open());
        std::vector<std::unique_ptr<CanMessageTransmitter>> transmitters;
        QVector<int> finished;
        for (unsigned short id = 0; id < 4; ++id) {
            transmitters.push_back(std::make_unique<CanMessageTransmitter>(id));
            connect(transmitters.back().get(), &CanMessageTransmitter::sigFinished, this,
                    [&](unsigned short job) { finished << job; });
            transmitters.back()->setCanAdapter(bus.a.get());
            transmitters.back()->setTranmissionParameter(makeFrame(0x200U + id, "abc"), 2, 25);
        }
        for (const auto &transmitter : transmitters)
            transmitter->startTransmission();
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(), 100, TimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 4, TimeoutMs);
        std::sort(finished.begin(), finished.end());
        QCOMPARE(finished, (QVector<int>{0, 1, 2, 3}));
        QVector<int> perJob(4);
        for (const CAN::CanRxMessage &frame : recorder.frames())
            ++perJob[static_cast<int>(frame.message.id - 0x200)];
        QCOMPARE(perJob, QVector<int>(4, 25));
    }

    void endlessJobStopsAndStartsAgain()
    {
        Bus bus;
        const FrameRecorder recorder(bus.b.get());
        QVERIFY(bus.open());
        CanMessageTransmitter transmitter(1);
        transmitter.setCanAdapter(bus.a.get());
        transmitter.setTranmissionParameter(makeFrame(0x7FF, "x"), 1, 0);
        for (int round = 0; round < 3; ++round) {
            const int before = recorder.count();
            transmitter.startTransmission();
            QTRY_VERIFY_WITH_TIMEOUT(recorder.count() >= before + 10, TimeoutMs);
            transmitter.stopTransmission();
            QVERIFY(!transmitter.isRunning());
        }
    }
};

QTEST_GUILESS_MAIN(TestTrafficOnVirtualBus)
#include "tst_traffic_on_virtual_bus.moc"
