// SPDX-License-Identifier: MIT
#include "busdump/frame_printer.h"
#include "common/descriptor.h"
#include "support/fake_adapter.h"
#include "support/frame_recorder.h"

#include <BusLinkDesk/traffic/can_scheduler.h>

#include <QtTest/QtTest>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

using buslink::Descriptor;
using buslink::FramePrinter;

namespace {

CAN::CanRxMessage received(quint32 id)
{
    CAN::CanRxMessage message;
    message.timeStamp.seconds = 86401;
    message.timeStamp.microseconds = 5000;
    message.message = makeFrame(id, QByteArray::fromHex("1122"));
    return message;
}

QByteArray lineOf(quint32 id)
{
    return "(86401.005000) bus " + QByteArray::number(id, 16).toUpper() + "#1122\n";
}

QByteArray linesOf(quint32 from, quint32 to)
{
    QByteArray lines;
    for (quint32 id = from; id < to; ++id)
        lines += lineOf(id);
    return lines;
}

// A printer that writes to a pipe what an adapter without a transport delivers.
struct Bench
{
    enum class Source { Adapter, Scheduler };

    explicit Bench(FramePrinter::Settings settings = {"bus"}, Source source = Source::Adapter)
        : printer(open(), settings)
    {
        QObject::connect(&printer, &FramePrinter::finished, &printer, [this] { ++finishedCount; });
        if (source == Source::Adapter) {
            printer.setAdapter(&adapter);
            return;
        }
        for (const QPointer<CanSender> &sender : scheduler.registerCanIdRange(0x100, 0x101))
            printer.addSender(sender);
        scheduler.connectToAdapter(true);
    }

    void receive(quint32 from, quint32 to)
    {
        for (quint32 id = from; id < to; ++id)
            adapter.handleNewCanMessage(received(id));
    }
    // What the pipe holds now, and what came out of it before.
    QByteArray output()
    {
        std::array<char, 65536> block;
        ssize_t size = 0;
        while ((size = ::read(reader.get(), block.data(), block.size())) > 0)
            taken.append(block.data(), static_cast<int>(size));
        return taken;
    }
    void closeReader() { const Descriptor closed = std::move(reader); }

    Descriptor reader;
    Descriptor writer;
    FramePrinter printer;
    FakeAdapter adapter;
    CanScheduler scheduler{&adapter};
    QByteArray taken;
    int finishedCount = 0;

private:
    int open()
    {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) != 0 || ::fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0)
            qFatal("no pipe");
        reader = Descriptor(ends[0]);
        writer = Descriptor(ends[1]);
        return writer.get();
    }
};

} // namespace

class TestFramePrinter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { std::signal(SIGPIPE, SIG_IGN); }

    void aFrameIsPrintedAtOnce()
    {
        Bench bench;
        bench.receive(0x100, 0x101);
        QTRY_COMPARE(bench.output(), lineOf(0x100));
        bench.receive(0x101, 0x102);
        QTRY_COMPARE(bench.output(), linesOf(0x100, 0x102));
    }

    void echoesAreNotPrinted()
    {
        Bench bench;
        bench.adapter.handleNewTxCanMessage(received(0x100));
        bench.receive(0x101, 0x102);
        QTRY_COMPARE(bench.output(), lineOf(0x101));
    }

    void framesOfASenderArePrintedAndItsEchoesAreNot()
    {
        Bench bench({"bus"}, Bench::Source::Scheduler);
        bench.adapter.handleNewTxCanMessage(received(0x100));
        bench.receive(0xFF, 0x103);
        QTRY_COMPARE(bench.output(), linesOf(0x100, 0x102));
    }

    void manyFramesAreWrittenTogetherInWholeLines()
    {
        Bench bench;
        bench.receive(0x100, 0x300);
        const QByteArray whole = linesOf(0x100, 0x300);
        std::array<char, 65536> block{};
        QByteArray first;
        QTRY_VERIFY([&] {
            const ssize_t size = ::read(bench.reader.get(), block.data(), block.size());
            if (size > 0)
                first.append(block.data(), static_cast<int>(size));
            return !first.isEmpty();
        }());
        QVERIFY(first.count('\n') > 50);
        QVERIFY(first.endsWith('\n'));
        bench.taken = first;
        QTRY_COMPARE(bench.output(), whole);
    }

    void noMoreThanTheWantedFramesArePrinted()
    {
        Bench bench({"bus", 3});
        bench.receive(0x100, 0x102);
        QTRY_COMPARE(bench.output(), linesOf(0x100, 0x102));
        QVERIFY(!bench.printer.isComplete());
        QCOMPARE(bench.finishedCount, 0);
        bench.receive(0x102, 0x108);
        QTRY_COMPARE(bench.finishedCount, 1);
        QVERIFY(bench.printer.isComplete());
        QCOMPARE(bench.output(), linesOf(0x100, 0x103));
        QCOMPARE(bench.printer.lostFrames(), qint64(0));
    }

    void aReaderThatGoesAwayEndsPrintingWithoutAnError()
    {
        Bench bench;
        QCoreApplication::processEvents();
        QCOMPARE(bench.finishedCount, 0);
        bench.closeReader();
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.printer.error(), QString());
        bench.receive(0x100, 0x102);
        bench.printer.flush(1000);
        QCOMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.printer.error(), QString());
    }

    void aReaderThatGoesAwayBeforeTheLastFlushIsNoError()
    {
        Bench bench;
        bench.receive(0x100, 0x102);
        bench.closeReader();
        bench.printer.flush(1000);
        QCOMPARE(bench.printer.error(), QString());
        QCOMPARE(bench.finishedCount, 1);
    }

    void framesBeyondWhatMayWaitAreLostAndCounted()
    {
        Bench bench({"bus", 0, 10});
        bench.receive(0x100, 0x10D);
        QCOMPARE(bench.printer.lostFrames(), qint64(3));
        QTRY_COMPARE(bench.output(), linesOf(0x100, 0x10A));
        bench.receive(0x10D, 0x10E);
        QTRY_COMPARE(bench.output(), linesOf(0x100, 0x10A) + lineOf(0x10D));
        QCOMPARE(bench.printer.lostFrames(), qint64(3));
    }

    void answersOfAGatewayArePrintedAsTheyCome()
    {
        Bench bench;
        bench.printer.setGateway(&bench.adapter);
        Q_EMIT bench.adapter.newCiA309Response(QStringLiteral("[1] \u00B5s\n"));
        Q_EMIT bench.adapter.newCiA309Response(QStringLiteral("[2] OK\n"));
        QTRY_COMPARE(bench.output(), QByteArray("[1] \xC2\xB5s\n[2] OK\n"));
    }

    void emptyAnswerHoldsNoFrameBack()
    {
        Bench bench;
        bench.printer.setGateway(&bench.adapter);
        bench.receive(0x100, 0x101);
        QCoreApplication::sendPostedEvents(&bench.printer); // The printer is about to write.
        Q_EMIT bench.adapter.newCiA309Response(QString());
        QTRY_COMPARE(bench.output(), lineOf(0x100));
    }

    void answersBeyondAMebibyteAreLostAndCounted()
    {
        Bench bench;
        bench.printer.setGateway(&bench.adapter);
        const QString most(1 << 20, QLatin1Char('a'));
        Q_EMIT bench.adapter.newCiA309Response(most);
        QCOMPARE(bench.printer.lostFrames(), qint64(0));
        Q_EMIT bench.adapter.newCiA309Response(QStringLiteral("b"));
        Q_EMIT bench.adapter.newCiA309Response(QStringLiteral("c"));
        QCOMPARE(bench.printer.lostFrames(), qint64(2));
        QTRY_COMPARE(bench.output().size(), most.size());
        Q_EMIT bench.adapter.newCiA309Response(QStringLiteral("d"));
        QTRY_COMPARE(bench.output(), most.toLatin1() + 'd');
        QCOMPARE(bench.printer.lostFrames(), qint64(2));
    }

    void flushWritesEverythingThatWaits()
    {
        Bench bench;
        bench.receive(0x100, 0x500);
        bench.printer.flush(1000);
        QCOMPARE(bench.output(), linesOf(0x100, 0x500));
        QCOMPARE(bench.printer.error(), QString());
    }

    void flushGivesUpOnAReaderThatTakesNothing()
    {
        Bench bench;
        for (int i = 0; i < 10; ++i)
            bench.receive(0x100, 0x500);
        bench.printer.flush(50);
        QCOMPARE(bench.printer.error(), QStringLiteral("standard output takes no more"));
        QCOMPARE(bench.finishedCount, 1);
    }

    void aFailedWriteIsReported()
    {
        const Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
        FramePrinter printer(full.get(), {"bus"});
        FakeAdapter adapter;
        printer.setAdapter(&adapter);
        bool finished = false;
        connect(&printer, &FramePrinter::finished, &printer, [&finished] { finished = true; });
        adapter.handleNewCanMessage(received(0x100));
        QTRY_VERIFY(finished);
        QCOMPARE(printer.error(), QStringLiteral("cannot write to standard output: %1").arg(qt_error_string(ENOSPC)));
    }
};

QTEST_GUILESS_MAIN(TestFramePrinter)
#include "tst_frame_printer.moc"
