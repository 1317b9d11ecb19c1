// SPDX-License-Identifier: MIT
// A loop without work pauses for 10 ms, which whatever gives it work ends at once. Times are medians, since a machine
// with other things to do holds up some of the rounds.
#include "support/frame_recorder.h"
#include "support/open_adapter.h"
#include "support/thread_switches.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int WaitMs = 8000;
constexpr int Rounds = 51;
// Half of what a pause that nothing ends takes on average.
constexpr auto AtOnce = 2500us;

/// Counts what it is told of, and when it was last. *Thread:* any.
class Arrivals
{
public:
    void add()
    {
        const std::lock_guard lock(mMutex);
        ++mCount;
        mLast = Clock::now();
        mArrived.notify_all();
    }
    /// When the arrival of this number came, or the end of time.
    Clock::time_point timeOf(int number)
    {
        std::unique_lock lock(mMutex);
        const bool came = mArrived.wait_for(lock, std::chrono::milliseconds(WaitMs), [&] { return mCount >= number; });
        return came ? mLast : Clock::time_point::max();
    }

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    int mCount = 0;
    Clock::time_point mLast;
};

Clock::duration median(std::vector<Clock::duration> times)
{
    std::nth_element(times.begin(), times.begin() + Rounds / 2, times.end());
    return times.at(Rounds / 2);
}

/// An adapter whose loop is told to end by its flag alone.
class Silenced : public DemoCanAdapter
{
public:
    using DemoCanAdapter::DemoCanAdapter;
    void clearFlag() { mRunningFlag.exchange(false); }
};

} // namespace

class TestVirtualBusPauses : public QObject
{
    Q_OBJECT

private:
    quint16 mPort = 0;

private Q_SLOTS:
    void init() { mPort = freeUdpPort(); }

    void idleLoopWakesAHundredTimesASecond()
    {
        const auto sender = makeVirtualAdapter(mPort);
        const auto adapter = makeVirtualAdapter(mPort);
        QString thread;
        Arrivals arrivals;
        connect(
            adapter.get(), &AbstractCanAdapter::newCanMessage, adapter.get(),
            [&] {
                thread = QString::number(::gettid());
                arrivals.add();
            },
            Qt::DirectConnection);
        QVERIFY(openOnBus(sender.get()));
        QVERIFY(openOnBus(adapter.get()));
        sender->write(makeFrame(0x123, {}));
        QVERIFY(arrivals.timeOf(1) != Clock::time_point::max());
        const qint64 before = voluntarySwitches(thread);
        const Clock::time_point start = Clock::now();
        QThread::msleep(1000);
        const qint64 switches = voluntarySwitches(thread) - before;
        const std::chrono::duration<double> time = Clock::now() - start;
        const double rate = static_cast<double>(switches) / time.count();
        QVERIFY2(rate > 20 && rate < 150, qPrintable(QString::number(rate)));
    }

    void frameThatIsWrittenToAnIdleLoopIsDeliveredAtOnce()
    {
        const auto sender = makeVirtualAdapter(mPort);
        const auto receiver = makeVirtualAdapter(mPort);
        Arrivals arrivals;
        connect(
            receiver.get(), &AbstractCanAdapter::newCanMessage, receiver.get(), [&arrivals] { arrivals.add(); },
            Qt::DirectConnection);
        QVERIFY(openOnBus(sender.get()));
        QVERIFY(openOnBus(receiver.get()));
        std::vector<Clock::duration> times;
        for (int round = 1; round <= Rounds; ++round) {
            QThread::msleep(1); // both loops pause
            const Clock::time_point start = Clock::now();
            sender->write(makeFrame(0x123, "12345678"));
            const Clock::time_point arrived = arrivals.timeOf(round);
            QVERIFY(arrived != Clock::time_point::max());
            times.push_back(arrived - start);
        }
        QVERIFY(median(times) < AtOnce);
    }

    void closeEndsAnIdleLoopAtOnce()
    {
        const auto adapter = makeVirtualAdapter(mPort);
        std::vector<Clock::duration> times;
        for (int round = 0; round < Rounds; ++round) {
            QVERIFY(openOnBus(adapter.get()));
            QThread::msleep(1);
            const Clock::time_point start = Clock::now();
            adapter->closeAdapter();
            QVERIFY(adapter->wait(WaitMs));
            times.push_back(Clock::now() - start);
        }
        QVERIFY(median(times) < AtOnce);
    }

    void clearedFlagEndsAnIdleLoopToo()
    {
        const AdapterPointer<Silenced> adapter(new Silenced(QStringLiteral("virtual")));
        adapter->setCanAdapterOption(AbstractCanAdapter::option_portNumber, mPort);
        QVERIFY(openOnBus(adapter.get()));
        adapter->clearFlag();
        QVERIFY(adapter->wait(WaitMs));
    }

    // As in a process that has no descriptor left for it.
    void loopThatNothingCanWakeLooksByItself()
    {
        const auto sender = makeVirtualAdapter(mPort);
        const auto receiver = makeVirtualAdapter(mPort);
        const FrameRecorder frames(receiver.get());
        QVERIFY(openOnBus(receiver.get()));
        sender->start();
        QTRY_VERIFY_WITH_TIMEOUT(sender->getRunning(), WaitMs);
        for (int number = 1; number <= 20; ++number) {
            sender->write(makeFrame(0x123, "12345678"));
            QTRY_COMPARE_WITH_TIMEOUT(frames.count(), number, WaitMs);
        }
    }
};

QTEST_GUILESS_MAIN(TestVirtualBusPauses)
#include "tst_virtual_bus_pauses.moc"
