// SPDX-License-Identifier: MIT
// The pause of an idle loop. That something ends it at once shows in the shortest of several, since a loaded machine
// makes some of them long; that nothing does shows in each.
#include <BusLinkDesk/backends/virtual/virtual_socket_p.h>

#include <QtTest/QtTest>

#include <array>
#include <chrono>
#include <functional>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int Rounds = 20;

/// A socket with its far end, and what ends a pause.
struct Loop
{
    std::array<int, 2> sockets{-1, -1};
    int pauseEnd = buslink::openPauseEnd();

    Loop()
    {
        if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, sockets.data()) != 0)
            qFatal("no pair of sockets");
    }
    ~Loop()
    {
        for (const int descriptor : {sockets[0], sockets[1], pauseEnd}) {
            if (descriptor >= 0)
                ::close(descriptor);
        }
    }
    Q_DISABLE_COPY_MOVE(Loop)

    Clock::duration pause() const { return pause(pauseEnd); }
    Clock::duration pause(int end) const
    {
        const Clock::time_point start = Clock::now();
        buslink::pauseUnlessReadable(sockets[0], end);
        return Clock::now() - start;
    }
};

/// The shortest of several.
Clock::duration shortest(const std::function<Clock::duration()> &pause)
{
    Clock::duration least = Clock::duration::max();
    for (int round = 0; round < Rounds; ++round)
        least = std::min(least, pause());
    return least;
}

} // namespace

class TestVirtualSocket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pauseLastsTenMilliseconds()
    {
        const Loop loop;
        const Clock::duration least = shortest([&loop] { return loop.pause(); });
        QVERIFY(least >= 10ms);
        QVERIFY(least < 1s);
    }

    void whatEndedItBeforeEndsTheNextOneAlone()
    {
        const Loop loop;
        const Clock::duration least = shortest([&loop] {
            buslink::endPause(loop.pauseEnd);
            buslink::endPause(loop.pauseEnd);
            return loop.pause();
        });
        QVERIFY(least < 5ms);
        QVERIFY(loop.pause() >= 10ms);
    }

    void itIsEndedFromAnotherThread()
    {
        const Loop loop;
        const Clock::duration least = shortest([&loop] {
            std::thread other([&loop] {
                std::this_thread::sleep_for(1ms);
                buslink::endPause(loop.pauseEnd);
            });
            const Clock::duration time = loop.pause();
            other.join();
            // What came too late is not for the next one.
            buslink::endPause(loop.pauseEnd);
            loop.pause();
            return time;
        });
        QVERIFY(least < 9ms);
    }

    void aDatagramEndsItForAsLongAsItWaits()
    {
        const Loop loop;
        QCOMPARE(::send(loop.sockets[1], "x", 1, 0), ssize_t(1));
        QVERIFY(shortest([&loop] { return loop.pause(); }) < 5ms);
    }

    void withoutAnEndItIsShort()
    {
        const Loop loop;
        QVERIFY(shortest([&loop] { return loop.pause(-1); }) < 5ms);
    }

    // Else a loop would take a whole processor for itself.
    void aBrokenSocketIsPausedAtToo()
    {
        const Loop loop;
        const Clock::time_point start = Clock::now();
        for (int round = 0; round < 1000; ++round)
            buslink::pauseUnlessReadable(4095, loop.pauseEnd);
        QVERIFY(Clock::now() - start >= 1000 * 10us);
    }
};

QTEST_GUILESS_MAIN(TestVirtualSocket)
#include "tst_virtual_socket.moc"
