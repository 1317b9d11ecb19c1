// SPDX-License-Identifier: MIT
#include "buscycle/cycle_sender.h"
#include "support/fake_adapter.h"
#include "support/frame_recorder.h"

#include <QtTest/QtTest>

using buslink::CycleSender;
using buslink::EchoCounter;

namespace {

CycleSender::Settings settingsFor(quint32 count, std::optional<quint8> syncMax = {})
{
    CycleSender::Settings settings;
    settings.frame = makeFrame(0x123, QByteArray::fromHex("AA22"));
    settings.intervalMs = 1;
    settings.count = count;
    settings.syncMax = syncMax;
    settings.echoTimeoutMs = 60000;
    return settings;
}

// A sender that writes to an adapter without a transport.
struct Bench
{
    explicit Bench(const CycleSender::Settings &settings) : sender(settings)
    {
        QObject::connect(&sender, &CycleSender::finished, &sender, [this] { ++finishedCount; });
        sender.setAdapter(&adapter);
    }

    void echo(qint64 count)
    {
        for (qint64 i = 0; i < count; ++i)
            adapter.handleNewTxCanMessage(CAN::CanRxMessage());
    }

    FakeAdapter adapter; // behind the sender's end, since its thread writes until then
    CycleSender sender;
    int finishedCount = 0;
};

} // namespace

class TestCycleSender : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theCountIsSentAndItsEchoesAwaited()
    {
        Bench bench(settingsFor(3));
        bench.sender.start();
        QTRY_COMPARE(bench.adapter.written().size(), 3);
        bench.echo(2);
        QTest::qWait(50);
        QCOMPARE(bench.finishedCount, 0);
        QVERIFY(!bench.sender.isComplete());
        bench.echo(1);
        QTRY_COMPARE(bench.finishedCount, 1);
        QVERIFY(bench.sender.isComplete());
        QCOMPARE(bench.sender.sentFrames(), qint64(3));
        QCOMPARE(bench.sender.error(), QString());
        for (const CAN::CanMessage &message : bench.adapter.written())
            QCOMPARE(bytesOf(message), bytesOf(settingsFor(3).frame));
        QCOMPARE(bench.adapter.written().size(), 3);
    }

    void theCounterRunsInByteZero_data()
    {
        QTest::addColumn<int>("syncMax");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("0") << 0 << QByteArray::fromHex("0101010101");
        QTest::newRow("1") << 1 << QByteArray::fromHex("0101010101");
        QTest::newRow("3") << 3 << QByteArray::fromHex("0102030102");
        QTest::newRow("255") << 255 << QByteArray::fromHex("0102030405");
    }
    void theCounterRunsInByteZero()
    {
        QFETCH(int, syncMax);
        Bench bench(settingsFor(5, static_cast<quint8>(syncMax)));
        bench.sender.start();
        QTRY_COMPARE(bench.adapter.written().size(), 5);
        QByteArray bytes;
        for (const CAN::CanMessage &message : bench.adapter.written()) {
            bytes.append(static_cast<char>(message.data[0]));
            QCOMPARE(int(message.data[1]), 0x22);
            QCOMPARE(int(message.length), 2);
        }
        QTEST(bytes, "bytes");
    }

    void withoutACountAnInterruptEndsSending()
    {
        Bench bench(settingsFor(0));
        bench.sender.start();
        QTRY_VERIFY(bench.adapter.written().size() >= 5);
        bench.sender.interrupt();
        const int written = bench.adapter.written().size();
        bench.echo(written - 1);
        QTest::qWait(50);
        QCOMPARE(bench.finishedCount, 0);
        bench.echo(1);
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.adapter.written().size(), written);
        QCOMPARE(bench.sender.sentFrames(), qint64(written));
        QVERIFY(!bench.sender.isComplete());
        QCOMPARE(bench.sender.error(), QString());
    }

    void noMoreThanAWindowIsOnItsWay()
    {
        CycleSender::Settings settings = settingsFor(0);
        settings.intervalMs = 0;
        Bench bench(settings);
        bench.sender.start();
        QTRY_COMPARE(bench.adapter.written().size(), static_cast<int>(EchoCounter::Window));
        QTest::qWait(50);
        QCOMPARE(bench.adapter.written().size(), static_cast<int>(EchoCounter::Window));
        bench.echo(4);
        QTRY_COMPARE(bench.adapter.written().size(), static_cast<int>(EchoCounter::Window) + 4);
        // Held back by the window, the transmitter still ends.
        bench.sender.interrupt();
        bench.echo(EchoCounter::Window);
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.adapter.written().size(), static_cast<int>(EchoCounter::Window) + 4);
        QCOMPARE(bench.sender.sentFrames(), EchoCounter::Window + 4);
    }

    void aSenderThatIsHeldBackCanBeDestroyed()
    {
        FakeAdapter adapter;
        adapter.onWrite = [](CAN::CanMessage *) { return CAN::RetTxBufferFull; };
        {
            CycleSender sender(settingsFor(0));
            sender.setAdapter(&adapter);
            sender.start();
            QTRY_VERIFY(adapter.written().size() > 2);
        }
        const int written = adapter.written().size();
        QTest::qWait(50);
        QCOMPARE(adapter.written().size(), written);
    }

    void aFrameForAFullBufferIsWrittenAgain()
    {
        Bench bench(settingsFor(3, 255));
        int writes = 0;
        bench.adapter.onWrite = [&writes](CAN::CanMessage *) {
            ++writes;
            return writes == 2 || writes == 3 ? CAN::RetTxBufferFull : CAN::RetOk;
        };
        bench.sender.start();
        QTRY_COMPARE(bench.adapter.written().size(), 5);
        bench.echo(3);
        QTRY_COMPARE(bench.finishedCount, 1);
        QVERIFY(bench.sender.isComplete());
        QByteArray counter;
        for (const CAN::CanMessage &message : bench.adapter.written())
            counter.append(static_cast<char>(message.data[0]));
        QCOMPARE(counter, QByteArray::fromHex("0102020203"));
    }

    void anInterruptEndsWaitingForAFullBuffer()
    {
        Bench bench(settingsFor(3));
        bench.adapter.onWrite = [](CAN::CanMessage *) { return CAN::RetTxBufferFull; };
        bench.sender.start();
        QTRY_VERIFY(!bench.adapter.written().isEmpty());
        bench.sender.interrupt();
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.sender.sentFrames(), qint64(0));
    }

    void aRefusedFrameEndsSendingWhenTheOthersHaveLeft_data()
    {
        QTest::addColumn<int>("result");
        QTest::newRow("error") << int(CAN::RetError);
        QTest::newRow("driver not configured") << int(CAN::RetDriverConfigFailed);
    }
    void aRefusedFrameEndsSendingWhenTheOthersHaveLeft()
    {
        QFETCH(int, result);
        Bench bench(settingsFor(5));
        int writes = 0;
        bench.adapter.onWrite = [&writes, result](CAN::CanMessage *) {
            return ++writes == 3 ? static_cast<CAN::RetType>(result) : CAN::RetOk;
        };
        bench.sender.start();
        QTRY_COMPARE(bench.sender.error(), QStringLiteral("the adapter refused the frame"));
        QCOMPARE(bench.finishedCount, 0);
        bench.echo(2);
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.adapter.written().size(), 3);
        QCOMPARE(bench.sender.sentFrames(), qint64(2));
    }

    void echoesThatDoNotComeAreAnError()
    {
        CycleSender::Settings settings = settingsFor(0);
        settings.echoTimeoutMs = 50;
        Bench bench(settings);
        bench.sender.start();
        QTRY_COMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.sender.error(), QStringLiteral("no sign that a frame was sent for 50 ms"));
        QCOMPARE(bench.sender.sentFrames(), qint64(0));
    }

    void aFailedTransportEndsSending()
    {
        Bench bench(settingsFor(0));
        bench.sender.start();
        QTRY_VERIFY(!bench.adapter.written().isEmpty());
        bench.sender.transportFailed();
        const int written = bench.adapter.written().size();
        bench.sender.transportFailed();
        bench.sender.interrupt();
        bench.echo(written);
        QTest::qWait(50);
        QCOMPARE(bench.finishedCount, 1);
        QCOMPARE(bench.adapter.written().size(), written);
    }
};

QTEST_GUILESS_MAIN(TestCycleSender)
#include "tst_cycle_sender.moc"
