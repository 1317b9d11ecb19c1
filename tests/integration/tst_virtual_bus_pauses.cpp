// SPDX-License-Identifier: MIT
// A loop without work pauses for 10 ms, which whatever gives it work ends at once. Times are medians, since a machine
// with other things to do holds up some of the rounds.
#include "support/frame_recorder.h"
#include "support/open_adapter.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <sys/resource.h>

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

long voluntarySwitches()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

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
        const auto adapter = makeVirtualAdapter(mPort);
        QVERIFY(openOnBus(adapter.get()));
        const long before = voluntarySwitches();
        QThread::msleep(1000);
        const long switches = voluntarySwitches() - before;
        QVERIFY2(switches < 200, qPrintable(QString::number(switches)));
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
