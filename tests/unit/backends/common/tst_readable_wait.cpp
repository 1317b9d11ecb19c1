// SPDX-License-Identifier: MIT
// What an adapter's loop is told of its descriptor.
#include <BusLinkDesk/backends/common/readable_wait_p.h>

#include <QtTest/QtTest>

#include <array>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

using buslink::WaitResult;
using buslink::waitUntilReadable;

constexpr int LongMs = 60'000;

/// Two joined sockets. An end is -1 where it is closed.
class Line
{
public:
    Line()
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mEnds.data()) != 0)
            qFatal("no sockets");
    }
    ~Line()
    {
        close(0);
        close(1);
    }
    Q_DISABLE_COPY_MOVE(Line)

    int near() const { return mEnds[0]; }
    int far() const { return mEnds[1]; }
    void close(std::size_t end)
    {
        if (mEnds[end] >= 0)
            ::close(std::exchange(mEnds[end], -1));
    }

private:
    std::array<int, 2> mEnds{};
};

} // namespace

class TestReadableWait : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bytesAreReadable()
    {
        const Line line;
        QCOMPARE(::write(line.far(), "x", 1), ssize_t(1));
        QCOMPARE(waitUntilReadable(line.near(), LongMs), WaitResult::Readable);
        QCOMPARE(waitUntilReadable(line.near(), 0), WaitResult::Readable);
    }

    // The read that follows tells of it.
    void endIsReadable()
    {
        Line line;
        line.close(1);
        QCOMPARE(waitUntilReadable(line.near(), LongMs), WaitResult::Readable);
    }

    void timeIsSatOut()
    {
        const Line line;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(waitUntilReadable(line.near(), 20), WaitResult::TimedOut);
        QVERIFY(timer.elapsed() >= 20);
    }

    void whatIsNoDescriptorFailsAtOnce()
    {
        Line line;
        const int closed = line.near();
        line.close(0);
        QCOMPARE(waitUntilReadable(closed, LongMs), WaitResult::Failed);
        QCOMPARE(waitUntilReadable(-1, LongMs), WaitResult::Failed);
    }
};

QTEST_APPLESS_MAIN(TestReadableWait)

#include "tst_readable_wait.moc"
