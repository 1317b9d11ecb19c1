// SPDX-License-Identifier: MIT
#pragma once

#include "support/quantile.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

// What the peers of the benchmarks share. Each is a program of its own,
//     PEER receive|send|send-without-echo|burst BUS FRAMES [FRAMES_PER_SECOND]
// that prints how many frames there were, and for all of them together the seconds that passed and the
// seconds of processor time that the program took; a burst goes from one access of the program to another one.
// Ahead of the frames a sender sends one that is not counted, and pauses: with it receivers begin to measure, those
// too that take frames by the hundred.
//     PEER trips|arrivals BUS FRAMES
// prints the median, the 99th and the 99.9th percentile of the microseconds that a frame takes from one access to
// another one and back, or from a bare socket to the program.
// The bus is a CAN interface, INTERFACE:fd for CAN FD frames of 64 bytes, or what the peer's own virtual bus needs.

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
    std::string verb;
    std::string interface;
    bool fd = false;
    long frames = 0;
    double framesPerSecond = 0.0; ///< For senders; 0 is as fast as possible.

    std::size_t payload() const { return fd ? 64 : 8; }
};

inline Order orderOf(int argc, char **argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s VERB BUS FRAMES [FRAMES_PER_SECOND]\n", argv[0]);
        std::exit(2);
    }
    Order order{argv[1], argv[2], false, std::atol(argv[3]), argc > 4 ? std::atof(argv[4]) : 0.0};
    const std::string mark = ":fd";
    if (order.interface.size() > mark.size()
        && order.interface.compare(order.interface.size() - mark.size(), mark.size(), mark) == 0) {
        order.fd = true;
        order.interface.erase(order.interface.size() - mark.size());
    }
    return order;
}

/// What a peer can do.
struct Verb
{
    const char *name;
    int (*perform)(const Order &order);
};

/// Does what is ordered and returns the status of the program.
inline int perform(const Order &order, std::initializer_list<Verb> verbs)
{
    for (const Verb &verb : verbs) {
        if (order.verb == verb.name)
            return verb.perform(order);
    }
    std::fprintf(stderr, "%s: not known here\n", order.verb.c_str());
    return 2;
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

/// Sends one frame after the other with `send(number)` and takes the time until `take()` is called for each, on any
/// thread.
class TripMeter
{
public:
    /// Notes that the frame under way is there.
    void take()
    {
        mTaken = std::chrono::steady_clock::now();
        mCount.fetch_add(1, std::memory_order_release);
    }
    /// Sends all frames. `idle` is called again and again while one is under way. One that is lost ends the peer.
    template <typename Send, typename Idle>
    int run(long frames, Send send, Idle idle)
    {
        std::vector<double> microseconds;
        for (long number = 0; number < frames; ++number) {
            const auto start = std::chrono::steady_clock::now();
            send(number);
            while (mCount.load(std::memory_order_acquire) == number) {
                idle();
                if (std::chrono::steady_clock::now() - start > std::chrono::seconds(20)) {
                    std::fprintf(stderr, "frame %ld did not come\n", number);
                    std::_Exit(1); // threads may wait for it still
                }
            }
            microseconds.push_back(std::chrono::duration<double, std::micro>(mTaken - start).count());
        }
        std::printf("%.1f %.1f %.1f\n", quantileOf(microseconds, 0.5), quantileOf(microseconds, 0.99),
                    quantileOf(microseconds, 0.999));
        return 0;
    }

    /// The `idle` of peers that take frames on another thread.
    static void nap() { std::this_thread::sleep_for(std::chrono::microseconds(20)); }

private:
    std::chrono::steady_clock::time_point mTaken;
    std::atomic<long> mCount = 0;
};

/// The identifiers of a round trip.
inline constexpr unsigned int QuestionId = 1;
inline constexpr unsigned int AnswerId = 2;

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
