// SPDX-License-Identifier: MIT
// The window busdesk at the rate of a full bus, with a full trace: real frames over the virtual bus, sent by a thread
// of this process. How long its event loop is held stands beside the same while the bus is silent.
#include "busdesk/desk_window.h"
#include "busdesk/trace_model.h"
#include "busdesk/trace_panel.h"
#include "support/free_port.h"
#include "support/report.h"

#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include <QtTest/QtTest>
#include <QtWidgets/QApplication>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <sys/resource.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int FramesPerMs = 10;

double ms(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

/// Frames with the time of their writing as payload, 10,000 a second.
class Sender
{
public:
    explicit Sender(quint16 port) : mAdapter(QStringLiteral("virtual"))
    {
        mAdapter.setCanAdapterOption(AbstractCanAdapter::option_portNumber, port);
        mAdapter.open();
        mThread = std::thread([this] { run(); });
    }
    ~Sender()
    {
        mAdapter.prepareToTerminate();
        mAdapter.wait();
    }
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    /// Sends no more; how many frames were sent.
    qint64 finish()
    {
        mStop = true;
        mThread.join();
        return mSent;
    }

private:
    void run()
    {
        CAN::CanMessage message;
        message.length = 8;
        for (Clock::time_point due = Clock::now(); !mStop; due += std::chrono::milliseconds(1)) {
            std::this_thread::sleep_until(due);
            for (quint32 i = 0; i < FramesPerMs; ++i) {
                const qint64 now = Clock::now().time_since_epoch().count();
                std::memcpy(message.data, &now, sizeof now);
                message.id = 0x100 + i;
                mAdapter.write(&message);
                ++mSent;
            }
        }
    }

    DemoCanAdapter mAdapter;
    std::atomic<bool> mStop = false;
    qint64 mSent = 0;
    std::thread mThread;
};

/// How late a timer of 1 ms comes, which is how long the event loop was held by other work.
class Heart : public QObject
{
public:
    Heart()
    {
        mTimer.setTimerType(Qt::PreciseTimer);
        connect(&mTimer, &QTimer::timeout, this, [this] {
            const Clock::time_point now = Clock::now();
            mGaps.push_back(ms(now - std::exchange(mLast, now)) - 1);
        });
        mTimer.start(1);
    }
    const std::vector<double> &gaps() const { return mGaps; }
    double longest() const { return *std::max_element(mGaps.begin(), mGaps.end()); }

private:
    QTimer mTimer;
    Clock::time_point mLast = Clock::now();
    std::vector<double> mGaps;
};

double threadSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
           + static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Round
{
    double silentHold = 0; // ms, as those below
    double hold = 0;
    double usualHold = 0;
    double delay = 0;
    double longDelay = 0;
    double busyPercent = 0;
    qint64 missing = 0;
};

Round measure(buslink::DeskWindow &window, quint16 port, int seconds)
{
    Round round;
    {
        const Heart heart;
        QTest::qWait(1000);
        round.silentHold = heart.longest();
    }
    const buslink::TraceModel &trace = *window.tracePanel()->model();
    std::vector<double> delays;
    const auto taken = QObject::connect(&trace, &QAbstractItemModel::rowsInserted, &window,
                                        [&](const QModelIndex &, int first, int last) {
                                            const Clock::time_point now = Clock::now();
                                            for (int row = first; row <= last; ++row) {
                                                qint64 written = 0;
                                                std::memcpy(&written, trace.frameAt(row).message.data, sizeof written);
                                                delays.push_back(ms(now.time_since_epoch() - Clock::duration(written)));
                                            }
                                        });
    const Heart heart;
    const double before = threadSeconds();
    qint64 sent = 0;
    {
        Sender sender(port);
        QTest::qWait(1000 * seconds);
        round.busyPercent = 100 * (threadSeconds() - before) / seconds;
        sent = sender.finish();
        QTest::qWait(300); // for what is on its way
    }
    QObject::disconnect(taken);
    round.hold = heart.longest();
    round.usualHold = quantileOf(heart.gaps(), 0.99);
    round.delay = medianOf(delays);
    round.longDelay = *std::max_element(delays.begin(), delays.end());
    round.missing = sent - static_cast<qint64>(delays.size());
    return round;
}

double median(const std::vector<Round> &rounds, double Round::*value)
{
    std::vector<double> values;
    values.reserve(rounds.size());
    for (const Round &round : rounds)
        values.push_back(round.*value);
    return medianOf(values);
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const Report report(argc, argv, QStringLiteral("busdesk at 10,000 frames a second"));
    const std::size_t kept = report.quick() ? 100000 : buslink::TraceModel::DefaultLimit;
    buslink::DeskWindow window;
    const quint16 port = freeUdpPort();
    window.desk().add(buslink::createAdapter(QStringLiteral("virtual:%1").arg(port)), QString());
    window.show();
    window.tracePanel()->append(std::vector<CAN::CanRxMessage>(kept));
    window.desk().connectActive();
    QTest::qWait(200);

    std::vector<Round> rounds;
    qint64 missing = 0;
    for (int i = 0; i < (report.quick() ? 1 : 5); ++i) {
        rounds.push_back(measure(window, port, report.quick() ? 1 : 12));
        missing += rounds.back().missing;
    }
    using Better = Report::Better;
    report.note(QStringLiteral("%1 frames are in the trace, which follows the newest").arg(kept));
    report.compare(QStringLiteral("longest time the event loop was held"), median(rounds, &Round::hold),
                   QStringLiteral("ms"), Better::Less, QStringLiteral("silent bus"),
                   median(rounds, &Round::silentHold));
    report.compare(QStringLiteral("all but 1 in 100 below"), median(rounds, &Round::usualHold), QStringLiteral("ms"),
                   Better::Less, QStringLiteral("silent bus, longest"), median(rounds, &Round::silentHold));
    report.compare(QStringLiteral("from the write to the trace, median"), median(rounds, &Round::delay),
                   QStringLiteral("ms"), Better::Less, QStringLiteral("half of the fetch interval"), 25);
    report.figure(QStringLiteral("the longest"), median(rounds, &Round::longDelay), QStringLiteral("ms"));
    report.figure(QStringLiteral("the window's thread was busy"), median(rounds, &Round::busyPercent),
                  QStringLiteral("%"));
    report.figure(QStringLiteral("frames missing, of all rounds"), static_cast<double>(missing),
                  QStringLiteral("frames"));
    window.desk().disconnectAll();
    return 0;
}
