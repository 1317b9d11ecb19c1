// SPDX-License-Identifier: MIT
// The cost of handing one frame to the sender of its identifier, beside a bare table look-up with a
// direct emission under a lock of the same kind, which registering meanwhile needs. The two run in turn, so that both
// meet the same machine.
#include <BusLinkDesk/traffic/can_scheduler.h>

#include "support/report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QHash>
#include <QtCore/QMutex>

#include <algorithm>
#include <memory>
#include <numeric>
#include <random>

namespace {

constexpr int FirstId = 0x100;

/// Takes the frames, so that an emission is a whole one.
struct Receiver : QObject
{
    quint64 sum = 0;

    void take(CAN::CanRxMessage frame) { sum += frame.message.id; }
};

/// What a sender is at the least.
class BareSender : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void received(CAN::CanRxMessage message);
};

class BareDispatch
{
public:
    BareDispatch(int identifiers, Receiver &receiver)
    {
        for (int index = 0; index < identifiers; ++index) {
            mSenders.push_back(std::make_unique<BareSender>());
            QObject::connect(mSenders.back().get(), &BareSender::received, &receiver, &Receiver::take,
                             Qt::DirectConnection);
            mTable.insert(static_cast<unsigned int>(FirstId + index), mSenders.back().get());
        }
    }

    void dispatch(CAN::CanRxMessage *frame)
    {
        if (!mMutex.tryLock(2))
            return;
        const auto sender = mTable.constFind(frame->message.id);
        if (sender != mTable.constEnd())
            Q_EMIT sender.value()->received(*frame);
        mMutex.unlock();
    }

private:
    std::vector<std::unique_ptr<BareSender>> mSenders;
    QHash<unsigned int, BareSender *> mTable;
    QMutex mMutex;
};

struct Cost
{
    double scheduler = 0.0;
    double bare = 0.0;
};

/// Nanoseconds a frame when the identifiers come in the order given, over and over.
template <typename Dispatch>
double nanosecondsPerFrame(const std::vector<quint32> &ids, int frames, Dispatch dispatch)
{
    CAN::CanRxMessage frame;
    frame.message.length = 8;
    std::size_t next = 0;
    const double seconds = secondsOf([&] {
        for (int count = 0; count < frames; ++count) {
            frame.message.id = ids[next];
            if (++next == ids.size())
                next = 0;
            dispatch(&frame);
        }
    });
    return seconds * 1e9 / frames;
}

Cost costOf(int identifiers, const std::vector<quint32> &ids, int frames, int runs)
{
    Receiver receiver;
    CanScheduler scheduler(nullptr);
    const auto last = static_cast<unsigned int>(FirstId + identifiers - 1);
    for (const QPointer<CanSender> &sender : scheduler.registerCanIdRange(FirstId, last))
        QObject::connect(sender, QOverload<CAN::CanRxMessage>::of(&CanSender::received), &receiver, &Receiver::take,
                         Qt::DirectConnection);
    BareDispatch bare(identifiers, receiver);
    const auto [ours, limit] = mediansInTurn(
        runs,
        [&] {
            return nanosecondsPerFrame(ids, frames,
                                       [&](CAN::CanRxMessage *frame) { scheduler.newRawCanMessage(frame); });
        },
        [&] { return nanosecondsPerFrame(ids, frames, [&](CAN::CanRxMessage *frame) { bare.dispatch(frame); }); });
    return {ours, limit};
}

std::vector<quint32> shuffledIds(int identifiers)
{
    std::vector<quint32> ids(static_cast<std::size_t>(identifiers));
    std::iota(ids.begin(), ids.end(), quint32(FirstId));
    std::shuffle(ids.begin(), ids.end(), std::mt19937(1));
    return ids;
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("dispatch by CAN identifier"));
    const QCoreApplication application(argc, argv);
    const int frames = report.quick() ? 10000 : 2000000;
    const int runs = report.quick() ? 1 : 7;
    const QString unit = QStringLiteral("ns");
    const QString limit = QStringLiteral("lock, look-up, emission");
    double ofOne = 0.0;
    for (const int identifiers : {1, 1000, 100000}) {
        const Cost cost = costOf(identifiers, {FirstId}, frames, runs);
        report.compare(QStringLiteral("one identifier of %1").arg(identifiers), cost.scheduler, unit,
                       Report::Better::Less, limit, cost.bare);
        if (identifiers == 1)
            ofOne = cost.scheduler;
        else
            report.compare(QStringLiteral("one identifier of %1, growth").arg(identifiers), cost.scheduler, unit,
                           Report::Better::Less, QStringLiteral("of 1"), ofOne);
    }
    for (const int identifiers : {1000, 100000}) {
        const Cost cost = costOf(identifiers, shuffledIds(identifiers), frames, runs);
        report.compare(QStringLiteral("all of %1 in disorder").arg(identifiers), cost.scheduler, unit,
                       Report::Better::Less, limit, cost.bare);
    }
    for (const int identifiers : {1, 100000}) {
        const Cost cost = costOf(identifiers, {1}, frames, runs);
        report.compare(QStringLiteral("not registered beside %1 that are").arg(identifiers), cost.scheduler, unit,
                       Report::Better::Less, QStringLiteral("lock, look-up"), cost.bare);
    }
    return 0;
}

#include "bench_dispatch.moc"
