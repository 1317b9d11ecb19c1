// SPDX-License-Identifier: MIT
// The pace of cyclic transmission on the virtual bus, beside a bare loop around clock_nanosleep on a
// thread of the same priority and timer slack. A period runs from the begin of one write to the next.
#include <BusLinkDesk/traffic/can_message_transmitter.h>

#include "support/frame_recorder.h"
#include "support/open_adapter.h"
#include "support/pace.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>

#include <ctime>
#include <sys/prctl.h>

namespace {

using Clock = std::chrono::steady_clock;
using Stamps = std::vector<Clock::time_point>;

constexpr quint32 FirstId = 0x100;

/// A virtual adapter that notes when each job writes. A job is one thread and has an identifier of its own.
class StampingAdapter : public DemoCanAdapter
{
public:
    StampingAdapter(quint16 port, int jobs, int frames) : DemoCanAdapter(QStringLiteral("virtual"))
    {
        setCanAdapterOption(option_portNumber, port);
        mStamps.resize(static_cast<std::size_t>(jobs));
        for (Stamps &stamps : mStamps)
            stamps.reserve(static_cast<std::size_t>(frames));
    }
    using DemoCanAdapter::write;
    CAN::RetType write(CAN::CanMessage *message) override
    {
        mStamps[message->id - FirstId].push_back(Clock::now());
        return DemoCanAdapter::write(message);
    }
    const std::vector<Stamps> &stamps() const { return mStamps; }

private:
    std::vector<Stamps> mStamps;
};

Pace paceOfJobs(const std::vector<Stamps> &jobs, int intervalMs)
{
    std::vector<double> periods;
    for (const Stamps &stamps : jobs)
        for (std::size_t index = 1; index < stamps.size(); ++index)
            periods.push_back(std::chrono::duration<double, std::micro>(stamps[index] - stamps[index - 1]).count());
    return paceOf(periods, intervalMs);
}

Pace runBareLoops(int jobs, int intervalMs, int frames, bool lowerSlack)
{
    std::vector<Stamps> stamps(static_cast<std::size_t>(jobs));
    std::vector<std::unique_ptr<QThread>> threads;
    for (Stamps &own : stamps) {
        own.reserve(static_cast<std::size_t>(frames));
        threads.emplace_back(QThread::create([&own, intervalMs, frames, lowerSlack] {
            if (lowerSlack)
                ::prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
            const timespec pause{0, intervalMs * 1000000L};
            for (int frame = 0; frame < frames; ++frame) {
                own.push_back(Clock::now());
                ::clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
            }
        }));
    }
    for (const auto &thread : threads)
        thread->start(QThread::TimeCriticalPriority);
    for (const auto &thread : threads)
        thread->wait();
    return paceOfJobs(stamps, intervalMs);
}

struct BusRun
{
    Pace pace;
    Pace bare;
    int missing = 0;
};

/// Both kinds of loop run while the bus is open, since its polling keeps the processors awake.
BusRun run(int jobs, int intervalMs, int frames)
{
    const quint16 port = freeUdpPort();
    const AdapterPointer<StampingAdapter> sending(new StampingAdapter(port, jobs, frames));
    const auto receiving = makeVirtualAdapter(port);
    const FrameRecorder recorder(receiving.get());
    if (!openOnBus(receiving.get()) || !openOnBus(sending.get()))
        qFatal("no virtual bus");
    std::vector<std::unique_ptr<CanMessageTransmitter>> transmitters;
    int finished = 0;
    for (int job = 0; job < jobs; ++job) {
        transmitters.push_back(std::make_unique<CanMessageTransmitter>(static_cast<unsigned short>(job)));
        CanMessageTransmitter *const transmitter = transmitters.back().get();
        QObject::connect(transmitter, &CanMessageTransmitter::sigFinished, [&] { ++finished; });
        transmitter->setCanAdapter(sending.get());
        transmitter->setTranmissionParameter(makeFrame(FirstId + static_cast<quint32>(job), "12345678"),
                                             static_cast<unsigned int>(intervalMs), static_cast<unsigned int>(frames));
    }
    for (const auto &transmitter : transmitters)
        transmitter->startTransmission();
    if (!QTest::qWaitFor([&] { return finished == jobs; }, 120000))
        qFatal("a job did not finish");
    transmitters.clear();
    const int sent = jobs * frames;
    const bool complete = QTest::qWaitFor([&] { return recorder.count() == sent; }, 1000);
    return {paceOfJobs(sending->stamps(), intervalMs), runBareLoops(jobs, intervalMs, frames, true),
            complete ? 0 : sent - recorder.count()};
}

void reportPace(const Report &report, int jobs, int intervalMs, int frames)
{
    const BusRun result = run(jobs, intervalMs, frames);
    const QString name = jobs == 1 ? QStringLiteral("%1 ms").arg(intervalMs)
                                   : QStringLiteral("%1 ms, %2 at once").arg(intervalMs).arg(jobs);
    const QString unit = QStringLiteral("µs");
    const QString limit = QStringLiteral("bare loop");
    const auto line = [&](const char *what, double value, double peer) {
        report.compare(QStringLiteral("%1: %2").arg(name, QLatin1String(what)), value, unit, Report::Better::Less,
                       limit, peer);
    };
    line("mean period", result.pace.mean, result.bare.mean);
    line("mean above the interval", result.pace.mean - intervalMs * 1000, result.bare.mean - intervalMs * 1000);
    line("standard deviation", result.pace.deviation, result.bare.deviation);
    line("worst period", result.pace.worst, result.bare.worst);
    report.figure(QStringLiteral("%1: early").arg(name), result.pace.early, QStringLiteral("frames"));
    report.figure(QStringLiteral("%1: not received").arg(name), result.missing, QStringLiteral("frames"));
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("pace of cyclic transmission"));
    const QCoreApplication application(argc, argv);
    const int share = report.quick() ? 100 : 1;
    reportPace(report, 1, 1, 3000 / share);
    reportPace(report, 1, 5, 1000 / share);
    reportPace(report, 1, 10, 600 / share);
    reportPace(report, 1, 100, report.quick() ? 4 : 200);
    reportPace(report, 50, 10, 400 / share);
    const int frames = 300 / share;
    report.compare(QStringLiteral("10 ms: median excess with lower timer slack"),
                   runBareLoops(1, 10, frames, true).median - 10000, QStringLiteral("µs"), Report::Better::Less,
                   QStringLiteral("default slack"), runBareLoops(1, 10, frames, false).median - 10000);
    return 0;
}
