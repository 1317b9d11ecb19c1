// SPDX-License-Identifier: MIT
// The window busdesk at the rate of a full bus, with a full trace: real frames over the virtual bus, sent by a thread
// of this process. How long its event loop is held stands beside the same while the bus is silent.
#include "busdesk/desk_window.h"
#include "busdesk/trace_model.h"
#include "busdesk/trace_panel.h"
#include "support/open_adapter.h"
#include "support/report.h"

#include <QtWidgets/QApplication>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <sys/resource.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int FramesPerMs = 10;
constexpr int PatienceMs = 20000;

double ms(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

/// Frames whose payload begins with the time of their writing, 10,000 a second.
class Sender
{
public:
    Sender(quint16 port, const CAN::CanMessage &frame) : mAdapter(makeVirtualAdapter(port))
    {
        if (!openOnBus(mAdapter.get()))
            qFatal("the sender cannot open its adapter");
        mThread = std::thread([this, frame] { run(frame); });
    }

    /// Sends no more; how many frames were sent.
    qint64 finish()
    {
        mStop = true;
        mThread.join();
        return mSent;
    }

private:
    void run(CAN::CanMessage message)
    {
        for (Clock::time_point due = Clock::now(); !mStop; due += std::chrono::milliseconds(1)) {
            std::this_thread::sleep_until(due);
            for (quint32 i = 0; i < FramesPerMs; ++i) {
                const qint64 now = Clock::now().time_since_epoch().count();
                std::memcpy(message.data, &now, sizeof now);
                message.id = 0x100 + i;
                mAdapter->write(&message);
                ++mSent;
            }
        }
    }

    const AdapterPointer<DemoCanAdapter> mAdapter;
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

Round measure(buslink::DeskWindow &window, quint16 port, const CAN::CanMessage &frame, int seconds)
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
        Sender sender(port, frame);
        QTest::qWait(1000 * seconds);
        round.busyPercent = 100 * (threadSeconds() - before) / seconds;
        sent = sender.finish();
        // What is still on its way comes soon; what is lost does not.
        static_cast<void>(QTest::qWaitFor([&] { return static_cast<qint64>(delays.size()) >= sent; }, 1000));
    }
    QObject::disconnect(taken);
    if (delays.empty())
        qFatal("the window saw no frame");
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

/// Rounds with one kind of frame.
void compare(const Report &report, buslink::DeskWindow &window, quint16 port, const CAN::CanMessage &frame)
{
    std::vector<Round> rounds;
    qint64 missing = 0;
    for (int i = 0; i < (report.quick() ? 1 : 5); ++i) {
        rounds.push_back(measure(window, port, frame, report.quick() ? 1 : 12));
        missing += rounds.back().missing;
    }
    using Better = Report::Better;
    const QString kind = frame.isFd ? QStringLiteral(", CAN FD") : QString();
    report.compare(QStringLiteral("longest time the event loop was held") + kind, median(rounds, &Round::hold),
                   QStringLiteral("ms"), Better::Less, QStringLiteral("silent bus"),
                   median(rounds, &Round::silentHold));
    report.compare(QStringLiteral("all but 1 in 100 below") + kind, median(rounds, &Round::usualHold),
                   QStringLiteral("ms"), Better::Less, QStringLiteral("silent bus, longest"),
                   median(rounds, &Round::silentHold));
    report.compare(QStringLiteral("from the write to the trace, median") + kind, median(rounds, &Round::delay),
                   QStringLiteral("ms"), Better::Less, QStringLiteral("half of the fetch interval"), 25);
    report.figure(QStringLiteral("the longest") + kind, median(rounds, &Round::longDelay), QStringLiteral("ms"));
    report.figure(QStringLiteral("the window's thread was busy") + kind, median(rounds, &Round::busyPercent),
                  QStringLiteral("%"));
    report.figure(QStringLiteral("frames missing, of all rounds") + kind, static_cast<double>(missing),
                  QStringLiteral("frames"));
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
    if (!QTest::qWaitFor([port] { return udpSocketsOnPort(port) > 0; }, PatienceMs))
        qFatal("the window does not hear the bus");
    report.note(QStringLiteral("%1 frames are in the trace, which follows the newest").arg(kept));
    CAN::CanMessage frame;
    frame.length = 8;
    compare(report, window, port, frame);
    frame.length = 64;
    frame.isFd = true;
    frame.isBrs = true;
    compare(report, window, port, frame);
    window.desk().disconnectAll();
    return 0;
}
