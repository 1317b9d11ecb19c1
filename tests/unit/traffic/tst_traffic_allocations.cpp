// SPDX-License-Identifier: MIT
#include <BusLinkDesk/traffic/can_message_transmitter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include "support/allocation_count.h"
#include "support/delivered_frame.h"
#include "support/fake_adapter.h"

#include <QtTest/QtTest>

#include <cstdlib>
#include <functional>

namespace {

constexpr int Deliveries = 100000;
constexpr int WarmUp = 10;

/// What a call allocates on this thread.
template <typename Call>
qint64 allocationsOf(Call call)
{
    const qint64 before = allocationsOfThisThread();
    call();
    return allocationsOfThisThread() - before;
}

/// Takes what the adapter and the senders deliver.
struct Receiver : QObject
{
    qint64 frames = 0;
    quint64 idSum = 0;

    void takePointer(CAN::CanRxMessage *frame) { take(*frame); }
    void takeValue(CAN::CanRxMessage frame) { take(frame); }
    void take(const CAN::CanRxMessage &frame)
    {
        ++frames;
        idSum += frame.message.id;
    }
};

/// An adapter whose write keeps nothing.
struct CountingAdapter : FakeAdapter
{
    int writes = 0;

    CAN::RetType write(CAN::CanMessage *) override
    {
        ++writes;
        return CAN::RetOk;
    }
};

void deliver(FakeAdapter &adapter, const CAN::CanRxMessage &frame, int times)
{
    for (int delivery = 0; delivery < times; ++delivery)
        adapter.handleNewCanMessage(frame);
}

// The compiler may take away an allocation whose result it sees unused.
void *volatile sink = nullptr;

} // namespace

Q_DECLARE_METATYPE(std::function<void()>)

class TestTrafficAllocations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyWayToAllocateIsCounted_data()
    {
        QTest::addColumn<std::function<void()>>("allocate");
        QTest::newRow("malloc") << std::function([] {
            sink = std::malloc(100);
            std::free(sink);
        });
        QTest::newRow("calloc") << std::function([] {
            sink = std::calloc(10, 10);
            std::free(sink);
        });
        QTest::newRow("realloc") << std::function([] {
            sink = std::realloc(nullptr, 100);
            std::free(sink);
        });
        QTest::newRow("aligned_alloc") << std::function([] {
            sink = std::aligned_alloc(64, 128);
            std::free(sink);
        });
        QTest::newRow("posix_memalign") << std::function([] {
            void *memory = nullptr;
            sink = ::posix_memalign(&memory, 64, 128) == 0 ? memory : nullptr;
            std::free(sink);
        });
        QTest::newRow("new") << std::function([] {
            auto *const made = new int(1);
            sink = made;
            delete made;
        });
        QTest::newRow("new[]") << std::function([] {
            auto *const made = new char[100];
            sink = made;
            delete[] made;
        });
        QTest::newRow("aligned new") << std::function([] {
            struct alignas(64) Wide
            {
                char bytes[64];
            };
            auto *const made = new Wide;
            sink = made;
            delete made;
        });
        QTest::newRow("inside Qt") << std::function([] {
            QByteArray bytes;
            bytes.resize(100);
            sink = bytes.data();
        });
    }
    void everyWayToAllocateIsCounted()
    {
        QFETCH(std::function<void()>, allocate);
        QVERIFY(allocationsOf(allocate) >= 1);
    }

    void directDeliveryAllocatesNothing()
    {
        FakeAdapter adapter;
        Receiver receiver;
        connect(&adapter, &AbstractCanAdapter::newCanMessage, &receiver, &Receiver::takePointer, Qt::DirectConnection);
        connect(&adapter, &AbstractCanAdapter::newCanMessageByValue, &receiver, &Receiver::takeValue,
                Qt::DirectConnection);
        const CAN::CanRxMessage frame = deliveredFrame(0x123);
        deliver(adapter, frame, WarmUp);
        QCOMPARE(allocationsOf([&] { deliver(adapter, frame, Deliveries); }), qint64(0));
        QCOMPARE(receiver.frames, 2 * qint64(WarmUp + Deliveries));
        QCOMPARE(receiver.idSum, 0x123U * static_cast<quint64>(receiver.frames));
    }

    void dispatchToADirectSlotAllocatesNothing()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        Receiver receiver;
        for (const QPointer<CanSender> &sender : scheduler.registerCanIdRange(0x100, 0x1FF))
            connect(sender, QOverload<CAN::CanRxMessage>::of(&CanSender::received), &receiver, &Receiver::takeValue,
                    Qt::DirectConnection);
        scheduler.connectToAdapter(true);
        const CAN::CanRxMessage frame = deliveredFrame(0x123);
        deliver(adapter, frame, WarmUp);
        QCOMPARE(allocationsOf([&] { deliver(adapter, frame, Deliveries); }), qint64(0));
        QCOMPARE(receiver.frames, qint64(WarmUp + Deliveries));
        QCOMPARE(receiver.idSum, 0x123U * static_cast<quint64>(receiver.frames));
    }

    void dispatchOfAnUnregisteredFrameAllocatesNothing()
    {
        FakeAdapter adapter;
        CanScheduler scheduler(&adapter);
        scheduler.registerCanId(0x123);
        scheduler.connectToAdapter(true);
        const CAN::CanRxMessage frame = deliveredFrame(0x124);
        deliver(adapter, frame, WarmUp);
        QCOMPARE(allocationsOf([&] { deliver(adapter, frame, Deliveries); }), qint64(0));
    }

    void transmitLoopAllocatesNothing()
    {
        CountingAdapter adapter;
        CMTWorker worker(1);
        unsigned int lastLeft = 1;
        connect(
            &worker, &CMTWorker::sigMsgsLeft, this, [&](unsigned short, unsigned int left) { lastLeft = left; },
            Qt::DirectConnection);
        worker.setCanApdater(&adapter);
        worker.setSyncValues(true, 240);
        worker.setTranmissionParameter(makeFrame(0x80, "x"), 0, WarmUp);
        worker.doWork();
        worker.setTranmissionParameter(makeFrame(0x80, "x"), 0, 2000);
        QCOMPARE(allocationsOf([&] { worker.doWork(); }), qint64(0));
        QCOMPARE(adapter.writes, WarmUp + 2000);
        QCOMPARE(lastLeft, 0U);
    }
};

QTEST_GUILESS_MAIN(TestTrafficAllocations)
#include "tst_traffic_allocations.moc"
