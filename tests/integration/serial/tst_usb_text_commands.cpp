// SPDX-License-Identifier: MIT
// Text commands: a blank and a carriage return, the device's answer to it, then the text.
#include "usb_line.h"

#include <atomic>

namespace {
const QString Command = QStringLiteral("über");
const QByteArray CommandBytes = QByteArray::fromHex("c3bc6265720d");
} // namespace

class TestUsbTextCommands : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void commandEndsTheThread()
    {
        UsbLine line;
        QVERIFY(line.open());
        line.device.setAnswer("OK\r");
        const LogRecorder log;
        QCOMPARE(line.adapter->write(Command), CAN::RetOk);
        QVERIFY(!line.adapter->getRunning());
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(log.texts(), QStringList{QStringLiteral("readResponse \"OK\\r\"")});
        QCOMPARE(line.device.received().left(2), QByteArray(" \r"));
    }

    void textLeavesOnlyIfTheThreadFlushesFirst()
    {
        UsbLine line;
        QVERIFY(line.open());
        line.device.setAnswer("\r");
        // Holds the loop between the answer and its look at the flag, so that it comes too late to flush.
        const bool connected = connect(
            line.adapter->mPort, &QIODevice::readyRead, line.adapter.get(),
            [&line] {
                while (line.adapter->getRunning())
                    QThread::usleep(100);
            },
            Qt::DirectConnection);
        QVERIFY(connected);
        QCOMPARE(line.adapter->write(Command), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(line.adapter->mTransmitBuffer, CommandBytes);
        QCOMPARE(line.device.received(), QByteArray(" \r"));
        // It goes out with the next run.
        QVERIFY(line.open());
        QTRY_COMPARE_WITH_TIMEOUT(line.device.received(), " \r" + CommandBytes, WaitMs);
    }

    void emptyCommandIsACarriageReturn()
    {
        UsbLine line;
        QVERIFY(line.open());
        line.device.setAnswer("\r");
        const LogRecorder log;
        QCOMPARE(line.adapter->write(QString()), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(log.texts(), QStringList{QStringLiteral("readResponse \"\\r\"")});
    }

    void commandWithoutAnswerFailsAfter5SecondsAndTheThreadGoesOn()
    {
        UsbLine line;
        QVERIFY(line.open());
        bool eventsWentOn = false;
        QTimer::singleShot(1000, this, [&eventsWentOn] { eventsWentOn = true; });
        QElapsedTimer timer;
        timer.start();
        const LogRecorder log;
        QCOMPARE(line.adapter->write(Command), CAN::RetError);
        // The timer may be early by the twentieth that Qt's coarse timers take.
        QVERIFY(timer.elapsed() >= 4700);
        QVERIFY(eventsWentOn);
        QCOMPARE(log.texts(), QStringList());
        QVERIFY(line.adapter->getRunning());
        QVERIFY(line.adapter->mTransmitBuffer.isEmpty());
        QCOMPARE(line.device.received(), QByteArray(" \r"));
        // A device that has come to itself answers the next one.
        line.device.setAnswer("\r");
        QCOMPARE(line.adapter->write(Command), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
    }

    void commandWithoutAPortFailsAtOnce()
    {
        const UsbLine line;
        const LogRecorder log;
        QCOMPARE(line.adapter->write(Command), CAN::RetError);
        QCOMPARE(log.texts(), QStringList());
        QVERIFY(line.adapter->mTransmitBuffer.isEmpty());
    }

    void answerIsConsumedWholeWithWhatStandsBehindItsCarriageReturn()
    {
        UsbLine line;
        const FrameRecorder frames(line.adapter.get());
        QVERIFY(line.open());
        line.device.setAnswer("OK\r" + wire(makeFrame(0x123, {})));
        const LogRecorder log;
        QCOMPARE(line.adapter->write(Command), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(log.texts(), QStringList{QStringLiteral("readResponse \"OK\\r\\x86\\x01#\\x01\\x00\\x00%\"")});
        QVERIFY(line.open());
        line.device.send(wire(makeFrame(0x456, {})));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        QCOMPARE(bytesOf(frames.frames().constFirst().message), bytesOf(makeFrame(0x456, {})));
    }

    void bytesInFrontOfTheAnswerInAChunkOfTheirOwnAreReceived()
    {
        UsbLine line;
        const FrameRecorder frames(line.adapter.get());
        QVERIFY(line.open());
        const CAN::CanMessage frame = makeFrame(0x123, "1234567");
        line.device.setPieces(wire(frame).size(), 50);
        line.device.setAnswer(wire(frame) + '\r');
        QCOMPARE(line.adapter->write(Command), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(frames.count(), 1);
        QCOMPARE(bytesOf(frames.frames().constFirst().message), bytesOf(frame));
    }

    void outsideACommandCarriageReturnsAreBytesLikeAnyOther()
    {
        UsbLine line;
        const FrameRecorder frames(line.adapter.get());
        QVERIFY(line.open());
        const CAN::CanMessage frame = makeFrame(0x50D, "\r\r\r\r\r\r\r\r");
        const LogRecorder log;
        line.device.send(wire(frame));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        QCOMPARE(bytesOf(frames.frames().constFirst().message), bytesOf(frame));
        QCOMPARE(log.texts(), QStringList());
    }

    void numberedCommandsAreNotProvided()
    {
        UsbLine line;
        short number = 4711;
        QCOMPARE(static_cast<AbstractCanAdapter *>(line.adapter.get())->write(Command, number), CAN::RetError);
        QCOMPARE(number, short(4711));
    }
};

QTEST_GUILESS_MAIN(TestUsbTextCommands)
#include "tst_usb_text_commands.moc"
