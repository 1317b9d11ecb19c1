// SPDX-License-Identifier: MIT
// What it costs to hand a frame from an adapter's loop to its receivers, beside an object that does nothing but
// stamp the frame, note its time and emit the two signals. The two run in turn, so that both meet the same machine.
#include "support/fake_adapter.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>

#include <atomic>

namespace {

/// What delivers frames at the least.
class BareSource : public QObject
{
    Q_OBJECT

public:
    void deliver(CAN::CanRxMessage frame)
    {
        frame.adapterId = mId;
        mLast = frame.timeStamp;
        Q_EMIT newFrame(&frame);
        Q_EMIT newFrameByValue(frame);
    }

Q_SIGNALS:
    void newFrame(CAN::CanRxMessage *frame);
    void newFrameByValue(CAN::CanRxMessage frame);

private:
    decltype(CAN::CanRxMessage::adapterId) mId = 1;
    decltype(CAN::CanRxMessage::timeStamp) mLast{};
};

/// Takes the frames, so that a delivery is a whole one.
struct Receiver : QObject
{
    std::atomic<int> frames = 0;

    void takeDirectly(CAN::CanRxMessage *) { takeOne(); }
    void takeQueued(const CAN::CanRxMessage &) { takeOne(); }

private:
    // One thread at a time counts, so that no locked instruction is needed.
    void takeOne() { frames.store(frames.load(std::memory_order_relaxed) + 1, std::memory_order_release); }
};

/// Nanoseconds a frame until the receiver has had all of them.
template <typename Deliver>
double nanosecondsPerFrame(int frames, const Receiver &receiver, Deliver deliver)
{
    const int before = receiver.frames;
    CAN::CanRxMessage frame;
    frame.message.length = 8;
    const double seconds = secondsOf([&] {
        for (int count = 0; count < frames; ++count) {
            frame.message.id = static_cast<quint32>(count);
            deliver(frame);
        }
        while (receiver.frames.load(std::memory_order_acquire) - before < frames)
            QThread::yieldCurrentThread();
    });
    return seconds * 1e9 / frames;
}

void reportDelivery(const Report &report, const QString &what, int frames, FakeAdapter &adapter, BareSource &bare,
                    const Receiver &receiver)
{
    const auto [ours, limit] = mediansInTurn(
        report.quick() ? 1 : 15,
        [&] {
            return nanosecondsPerFrame(frames, receiver,
                                       [&](const CAN::CanRxMessage &frame) { adapter.handleNewCanMessage(frame); });
        },
        [&] {
            return nanosecondsPerFrame(frames, receiver, [&](const CAN::CanRxMessage &frame) { bare.deliver(frame); });
        });
    report.compare(what, ours, QStringLiteral("ns"), Report::Better::Less, QStringLiteral("bare signals"), limit);
}

void reportDirect(const Report &report)
{
    FakeAdapter adapter(nullptr);
    BareSource bare;
    Receiver receiver;
    QObject::connect(&adapter, &AbstractCanAdapter::newCanMessage, &receiver, &Receiver::takeDirectly,
                     Qt::DirectConnection);
    QObject::connect(&bare, &BareSource::newFrame, &receiver, &Receiver::takeDirectly, Qt::DirectConnection);
    reportDelivery(report, QStringLiteral("to a directly connected slot"), report.quick() ? 10000 : 1000000, adapter,
                   bare, receiver);
}

void reportQueued(const Report &report)
{
    FakeAdapter adapter(nullptr);
    BareSource bare;
    Receiver receiver;
    QThread thread;
    receiver.moveToThread(&thread);
    QObject::connect(&adapter, &AbstractCanAdapter::newCanMessageByValue, &receiver, &Receiver::takeQueued);
    QObject::connect(&bare, &BareSource::newFrameByValue, &receiver, &Receiver::takeQueued);
    thread.start();
    reportDelivery(report, QStringLiteral("to a queued slot on another thread"), report.quick() ? 1000 : 100000,
                   adapter, bare, receiver);
    thread.quit();
    thread.wait();
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("delivery of a frame"));
    const QCoreApplication application(argc, argv);
    reportDirect(report);
    reportQueued(report);
    return 0;
}

#include "bench_delivery.moc"
