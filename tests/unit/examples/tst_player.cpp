// SPDX-License-Identifier: MIT
#include "busplay/player.h"
#include "support/fake_adapter.h"
#include "support/fake_serial_adapter.h"
#include "support/frame_recorder.h"

#include <QtTest/QtTest>

#include <fcntl.h>
#include <unistd.h>

using buslink::Descriptor;
using buslink::EchoCounter;
using buslink::LineSource;
using buslink::Player;
using buslink::PlaySchedule;

namespace {

// A player that reads from a pipe and plays to an adapter without a transport.
struct Bench
{
    explicit Bench(Player::Settings settings = {true, 60000}) : player(&source, settings)
    {
        QObject::connect(&player, &Player::finished, &player, [this] { ++finishedCount; });
        player.setAdapter(&adapter);
    }

    void feed(const QByteArray &text) const
    {
        QCOMPARE(::write(input.get(), text.constData(), static_cast<std::size_t>(text.size())), ssize_t(text.size()));
    }
    void feedFrames(int from, int to) const
    {
        QByteArray text;
        for (int i = from; i < to; ++i)
            text += "(1.0) can0 " + QByteArray::number(0x10000000 + i, 16) + "#\n";
        feed(text);
    }
    void endInput() { const Descriptor closed = std::move(input); }
    void echo(int count)
    {
        for (int i = 0; i < count; ++i)
            adapter.handleNewTxCanMessage(CAN::CanRxMessage());
    }

    Descriptor input;
    LineSource source{pipeTo(input), QStringLiteral("pipe")};
    Player player;
    FakeAdapter adapter;
    int finishedCount = 0;

private:
    static Descriptor pipeTo(Descriptor &writingEnd)
    {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) != 0)
            qFatal("no pipe");
        writingEnd = Descriptor(ends[1]);
        return Descriptor(ends[0]);
    }
};

QVector<quint32> idsOf(const FakeAdapter &adapter)
{
    QVector<quint32> ids;
    for (const CAN::CanMessage &message : adapter.written())
        ids.append(message.id);
    return ids;
}

} // namespace

class TestPlayer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void dueTimesKeepPausesWithoutAddingUpWhatIsLate()
    {
        PlaySchedule schedule;
        QCOMPARE(schedule.nextDueUs(5000000), qint64(0));
        QCOMPARE(schedule.nextDueUs(5000001), qint64(1));
        QCOMPARE(schedule.nextDueUs(5000001), qint64(1));
        QCOMPARE(schedule.nextDueUs(5100000), qint64(100000));
        QCOMPARE(schedule.nextDueUs(7000000), qint64(2000000));
    }

    void goingBackInTimeIsNoPause()
    {
        PlaySchedule schedule;
        QCOMPARE(schedule.nextDueUs(86399000000), qint64(0));
        QCOMPARE(schedule.nextDueUs(86399500000), qint64(500000));
        QCOMPARE(schedule.nextDueUs(100000), qint64(500000));
        QCOMPARE(schedule.nextDueUs(300000), qint64(700000));
    }

    void echoIsOnBeforeTheFirstFrame()
    {
        const Bench bench;
        QVERIFY(bench.adapter.mEcho);
    }

    void framesAreWrittenInOrderAndTheirEchoesAwaited()
    {
        Bench bench;
        bench.player.start();
        bench.feedFrames(0, 3);
        bench.endInput();
        QTRY_COMPARE(idsOf(bench.adapter), (QVector<quint32>{0x10000000, 0x10000001, 0x10000002}));
        bench.echo(2);
        QCoreApplication::processEvents();
        QCOMPARE(bench.finishedCount, 0);
        bench.echo(1);
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.player.error(), QString());
        QCOMPARE(bench.player.sentFrames(), qint64(3));
        QCOMPARE(bench.player.acceptedFrames(), qint64(3));
    }

    void receivedFramesAreNoEchoes()
    {
        Bench bench;
        bench.player.start();
        bench.feedFrames(0, 1);
        QTRY_COMPARE(bench.player.acceptedFrames(), qint64(1));
        bench.adapter.handleNewCanMessage(CAN::CanRxMessage());
        QCOMPARE(bench.player.sentFrames(), qint64(0));
    }

    void aFrameIsWrittenWhileTheInputIsStillOpen()
    {
        Bench bench;
        bench.player.start();
        bench.feedFrames(0, 1);
        QTRY_COMPARE(bench.player.acceptedFrames(), qint64(1));
        bench.echo(1);
        bench.feed("(1.0) can0 100");
        bench.feed("00001#\n");
        QTRY_COMPARE(bench.player.acceptedFrames(), qint64(2));
        QCOMPARE(bench.finishedCount, 0);
    }

    void noMoreThanAWindowIsOnItsWay()
    {
        Bench bench;
        const int window = static_cast<int>(EchoCounter::Window);
        bench.player.start();
        bench.feedFrames(0, window + 10);
        bench.endInput();
        QTRY_COMPARE(bench.player.acceptedFrames(), EchoCounter::Window);
        QCoreApplication::processEvents();
        QCOMPARE(bench.player.acceptedFrames(), EchoCounter::Window);
        bench.echo(4);
        QTRY_COMPARE(bench.player.acceptedFrames(), EchoCounter::Window + 4);
        bench.echo(window - 4 + 4);
        QTRY_COMPARE(bench.player.acceptedFrames(), EchoCounter::Window + 10);
        bench.echo(6);
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.adapter.written().size(), window + 10);
    }

    void echoesThatDoNotComeAreAnError()
    {
        Bench bench({true, 50});
        bench.player.start();
        bench.feedFrames(0, 2);
        bench.endInput();
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.player.error(), QStringLiteral("no sign that a frame was sent for 50 ms"));
        QCOMPARE(bench.player.sentFrames(), qint64(0));
        QCOMPARE(bench.player.acceptedFrames(), qint64(2));
    }

    void anInterruptWritesNoMoreAndWaitsForWhatWasAccepted()
    {
        Bench bench;
        bench.player.start();
        bench.feedFrames(0, 3);
        QTRY_COMPARE(bench.player.acceptedFrames(), qint64(3));
        bench.player.interrupt();
        bench.feedFrames(3, 6);
        bench.echo(2);
        QCoreApplication::processEvents();
        QCOMPARE(bench.finishedCount, 0);
        bench.echo(1);
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.player.acceptedFrames(), qint64(3));
        QCOMPARE(bench.player.error(), QString());
    }

    void anInterruptDuringAPauseEndsItAtOnce()
    {
        Bench bench({false, 60000});
        bench.player.start();
        bench.feed("(1.0) can0 001#\n(3600.0) can0 002#\n");
        QTRY_COMPARE(bench.player.acceptedFrames(), qint64(1));
        bench.echo(1);
        bench.player.interrupt();
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(idsOf(bench.adapter), QVector<quint32>{1});
    }

    void aRefusedFrameEndsPlayingWhenTheOthersHaveLeft()
    {
        Bench bench;
        bench.adapter.onWrite = [](CAN::CanMessage *message) {
            return message->id == 0x10000002 ? CAN::RetError : CAN::RetOk;
        };
        bench.player.start();
        bench.feedFrames(0, 5);
        QTRY_COMPARE(bench.adapter.written().size(), 3);
        QCOMPARE(bench.finishedCount, 0);
        bench.echo(2);
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.player.error(), QStringLiteral("the adapter refused a frame (result 6)"));
        QCOMPARE(bench.player.acceptedFrames(), qint64(2));
        QCOMPARE(bench.adapter.written().size(), 3);
    }

    void aFrameForAFullBufferIsWrittenAgain()
    {
        Bench bench;
        int refusals = 3;
        bench.adapter.onWrite = [&refusals](CAN::CanMessage *message) {
            return message->id == 0x10000001 && refusals-- > 0 ? CAN::RetTxBufferFull : CAN::RetOk;
        };
        bench.player.start();
        bench.feedFrames(0, 3);
        QTRY_COMPARE(idsOf(bench.adapter),
                     (QVector<quint32>{0x10000000, 0x10000001, 0x10000001, 0x10000001, 0x10000001, 0x10000002}));
        QCOMPARE(bench.player.acceptedFrames(), qint64(3));
    }

    void aFailedTransportEndsWaiting()
    {
        Bench bench;
        bench.player.start();
        bench.feedFrames(0, 1);
        QTRY_COMPARE(bench.player.acceptedFrames(), qint64(1));
        bench.player.transportFailed();
        bench.player.transportFailed();
        bench.player.interrupt();
        QCOMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.player.error(), QStringLiteral("the transport of the adapter failed"));
    }

    void aSerialLineIsNotOverrunAndAnInterruptWaitsForItsSecondAlone()
    {
        Bench bench;
        FakeSerialAdapter adapter(7 * 11 * 10); // ten of the shortest frames a second
        bench.player.setAdapter(&adapter);
        bench.feed(QByteArray("(1.0) can0 123#\n").repeated(100));
        bench.endInput();
        QElapsedTimer timer;
        timer.start();
        bench.player.start();
        QTRY_VERIFY(adapter.written >= 15);
        // As many as the line has carried, a second's worth, and the one that fills it.
        QVERIFY(adapter.written <= timer.elapsed() / 100 + 11 + 1);
        bench.player.interrupt();
        const int written = adapter.written;
        QCOMPARE(bench.finishedCount, 0);
        QTRY_COMPARE_WITH_TIMEOUT(bench.finishedCount, 1, 20000);
        QVERIFY(timer.elapsed() >= written * qint64(100));
        QCOMPARE(adapter.written, written);
        QCOMPARE(bench.player.error(), QString());
    }

    void anInputThatCannotBeReadIsAnError()
    {
        LineSource source(Descriptor(::open("/", O_RDONLY | O_CLOEXEC)), QStringLiteral("folder"));
        Player player(&source, {true});
        FakeAdapter adapter;
        player.setAdapter(&adapter);
        bool finished = false;
        connect(&player, &Player::finished, &player, [&finished] { finished = true; });
        player.start();
        QTRY_VERIFY(finished);
        QCOMPARE(player.error(), QStringLiteral("cannot read folder: %1").arg(qt_error_string(EISDIR)));
    }

    void damagedLinesAreCountedAndPassedOver()
    {
        Bench bench;
        bench.player.start();
        bench.feed("(1.0) can0 001#\n\n(1.0) can0 xyz#\nrubbish\n(1.0) can0 002#");
        bench.endInput();
        QTRY_COMPARE(idsOf(bench.adapter), (QVector<quint32>{1, 2}));
        QCOMPARE(bench.source.damagedLines(), 2);
    }
};

QTEST_GUILESS_MAIN(TestPlayer)
#include "tst_player.moc"
