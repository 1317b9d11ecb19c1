// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>
#include <thread>

// What the peers of a benchmark on a CAN interface share. Each is a program of its own,
//     PEER receive|send|send-without-echo INTERFACE FRAMES [FRAMES_PER_SECOND]
// that prints how many frames there were, and for all of them together the seconds that passed and the
// seconds of processor time that the program took. Ahead of the frames a sender sends one that is not
// counted, and pauses: with it receivers begin to measure, those too that take frames by the hundred.

/// The status of a peer that lacks what it needs on this machine.
inline constexpr int StatusNotHere = 3;

/// Identifiers run from 0 to one below this; the first four bytes of each payload are the frame's number.
inline constexpr unsigned int IdentifierCount = 2000;

/// The number of the frame ahead, and the pause behind it.
inline constexpr long LeadNumber = 2047;
inline constexpr std::chrono::milliseconds LeadPause(50);

/// What a peer is asked to do.
struct Order
{
    bool receive = false;
    bool echo = true; ///< Whether a sender is told of each frame that left, where it can be.
    const char *interface = nullptr;
    long frames = 0;
    double framesPerSecond = 0.0; ///< For senders; 0 is as fast as possible.
};

inline Order orderOf(int argc, char **argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s receive|send|send-without-echo INTERFACE FRAMES [FRAMES_PER_SECOND]\n",
                     argv[0]);
        std::exit(2);
    }
    return {std::strcmp(argv[1], "receive") == 0, std::strcmp(argv[1], "send-without-echo") != 0, argv[2],
            std::atol(argv[3]), argc > 4 ? std::atof(argv[4]) : 0.0};
}

/// The clock and the processor time of this process, in seconds.
struct Usage
{
    double clock = 0.0;
    double processor = 0.0;

    static Usage now()
    {
        rusage usage{};
        ::getrusage(RUSAGE_SELF, &usage);
        const auto seconds = [](const timeval &time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        const auto clock = std::chrono::steady_clock::now().time_since_epoch();
        return {std::chrono::duration<double>(clock).count(), seconds(usage.ru_utime) + seconds(usage.ru_stime)};
    }
};

inline int printResult(long frames, const Usage &begin, const Usage &end)
{
    std::printf("%ld %.6f %.6f\n", frames, end.clock - begin.clock, end.processor - begin.processor);
    return 0;
}

/// Counts received frames, at the cost of an addition each.
class FrameMeter
{
public:
    explicit FrameMeter(long expected) : mExpected(expected + 1) {}

    /// Notes that frames came; true if they are all there. *Thread:* the receiving one.
    bool count(long frames = 1)
    {
        const long before = mCount.load(std::memory_order_relaxed);
        if (before == 0) {
            mBegin = Usage::now();
            mBegin.clock += std::chrono::duration<double>(LeadPause).count();
        }
        if (before < mExpected && before + frames >= mExpected)
            mEnd = Usage::now();
        mCount.store(before + frames, std::memory_order_release);
        return before + frames >= mExpected;
    }

    /// Whether all frames have come, or none more for a second (a minute before the first). To be asked
    /// every `PollMilliseconds`, since a loss leaves no other trace of when the last one came.
    bool over()
    {
        const long count = mCount.load(std::memory_order_acquire);
        if (count >= mExpected)
            return true;
        const Usage now = Usage::now();
        if (count != mSeen || mLastChange.clock == 0.0) {
            mSeen = count;
            mLastChange = now;
        }
        if (now.clock - mLastChange.clock < (count == 0 ? 60.0 : 1.0))
            return false;
        mEnd = mLastChange;
        return true;
    }

    int print() const { return printResult(std::max(mCount.load() - 1, 0L), mBegin, mEnd); }

    static constexpr int PollMilliseconds = 100;

private:
    long mExpected;
    std::atomic<long> mCount = 0;
    long mSeen = 0;
    Usage mBegin;
    Usage mEnd;
    Usage mLastChange;
};

/// Sends the ordered frames with `send(number, identifier)`, which returns whether the frame is on its way.
template <typename Send>
int sendAll(const Order &order, Send send)
{
    if (!send(LeadNumber, static_cast<unsigned int>(LeadNumber))) {
        std::perror("send");
        return 1;
    }
    std::this_thread::sleep_for(LeadPause);
    const Usage begin = Usage::now();
    const auto start = std::chrono::steady_clock::now();
    for (long number = 0; number < order.frames; ++number) {
        if (order.framesPerSecond > 0) {
            const std::chrono::duration<double> due(static_cast<double>(number) / order.framesPerSecond);
            std::this_thread::sleep_until(start + std::chrono::duration_cast<std::chrono::nanoseconds>(due));
        }
        if (!send(number, static_cast<unsigned int>(number % IdentifierCount))) {
            std::perror("send");
            return 1;
        }
    }
    return printResult(order.frames, begin, Usage::now());
}
