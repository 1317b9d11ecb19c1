// SPDX-License-Identifier: MIT
// Text commands: a blank and a carriage return, the device's answer to it, then the text.
#include "usb_line.h"

#include <atomic>

namespace {
const QString Command = QStringLiteral("über");
const QByteArray CommandBytes = QByteArray::fromHex("c3bc6265720d");

// Holds the loop between the answer to a command and its look at the flag, so that it comes too late to flush.
bool holdAtTheAnswer(UsbLine &line)
{
    LiveUsbAdapter *const adapter = line.adapter.get();
    return QObject::connect(
        adapter->mPort, &QIODevice::readyRead, adapter,
        [adapter] {
            while (adapter->getRunning())
                QThread::usleep(100);
        },
        Qt::DirectConnection);
}

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
        QVERIFY(holdAtTheAnswer(line));
        QCOMPARE(line.adapter->write(Command), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(line.adapter->mTransmitBuffer, CommandBytes);
        QCOMPARE(line.device.received(), QByteArray(" \r"));
        // It goes out with the next run.
        QVERIFY(line.open());
        QTRY_COMPARE_WITH_TIMEOUT(line.device.received(), " \r" + CommandBytes, WaitMs);
    }

    void textLeavesInTheSameRunIfTheThreadFlushesBeforeItSeesTheFlag()
    {
        std::atomic<bool> held = false;
        UsbLine line;
        QVERIFY(line.open());
        line.device.setAnswer("\r");
        // A frame is delivered between the look at the flag and the flush: there the loop is held until the command is
        // through. A command that came earlier would take the frame's bytes for its answer.
        const auto hold = [&line, &held] {
            held = true;
            while (line.adapter->getRunning())
                QCoreApplication::processEvents();
        };
        const bool connected = connect(line.adapter.get(), &AbstractCanAdapter::newCanMessage, line.adapter.get(), hold,
                                       Qt::DirectConnection);
        QVERIFY(connected);
        // What the line has not carried is dropped with the end of the run, so it may take more than one.
        const auto leaves = [&line, &held] {
            line.device.forgetReceived();
            held = false;
            line.device.send(wire(makeFrame(0x123, "1234567")));
            if (!QTest::qWaitFor([&held] { return held.load(); }, WaitMs))
                qFatal("the frame was not delivered");
            if (line.adapter->write(Command) != CAN::RetOk || !line.adapter->wait(WaitMs)
                || !line.adapter->mTransmitBuffer.isEmpty())
                qFatal("the text did not leave the buffer");
            const bool received = line.device.received() == " \r" + CommandBytes;
            return received || !line.open();
        };
        QVERIFY(QTest::qWaitFor(leaves, WaitMs));
        QCOMPARE(line.device.received(), " \r" + CommandBytes);
    }

    void emptyCommandIsACarriageReturn()
    {
        UsbLine line;
        QVERIFY(line.open());
        line.device.setAnswer("\r");
        QVERIFY(holdAtTheAnswer(line));
        const LogRecorder log;
        QCOMPARE(line.adapter->write(QString()), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(line.adapter->mTransmitBuffer, QByteArray("\r"));
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
        QVERIFY(line.adapter->mSendingFailed);
        QVERIFY(!line.adapter->mResponseReceived);
        // A device that has come to itself answers the next one.
        line.device.setAnswer("\r");
        QCOMPARE(line.adapter->write(Command), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
    }

    void answerToAFailedCommandIsAwaitedInLaterRunsToo()
    {
        UsbLine line;
        const FrameRecorder frames(line.adapter.get());
        QVERIFY(line.open());
        QTimer::singleShot(0, line.adapter.get(), &serialPortAdapter::errorSendingString);
        QCOMPARE(line.adapter->write(Command), CAN::RetError);
        line.adapter->closeAdapter();
        QVERIFY(line.adapter->wait(WaitMs));
        QVERIFY(line.open());
        QVERIFY(line.adapter->mSendingFailed);
        QVERIFY(!line.adapter->mResponseReceived);
        // Without a carriage return bytes pass, with one they are taken for the answer.
        const CAN::CanMessage passing = makeFrame(0x123, "1234567");
        line.device.send(wire(passing));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        const QByteArray swallowed = wire(makeFrame(0x123, "123456\r"));
        const LogRecorder log;
        line.device.send(swallowed);
        QTRY_COMPARE_WITH_TIMEOUT(log.texts().size(), 1, WaitMs);
        QString record;
        QDebug(&record).nospace() << "readResponse " << swallowed;
        QCOMPARE(log.texts(), QStringList{record});
        line.device.send(wire(makeFrame(0x123, "1234567")));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 2, WaitMs);
        QCOMPARE(bytesOf(frames.frames().at(1).message), bytesOf(passing));
        QVERIFY(line.adapter->mSendingFailed);
    }

    void the5SecondsOfAnAnsweredCommandEndTheWaitOfALaterOne()
    {
        UsbLine line;
        QVERIFY(line.open());
        line.device.setAnswer("\r");
        QElapsedTimer sinceFirst;
        sinceFirst.start();
        QCOMPARE(line.adapter->write(Command), CAN::RetOk);
        QVERIFY(line.adapter->wait(WaitMs));
        line.device.setAnswer({});
        QVERIFY(line.open());
        QTest::qWait(3000);
        QElapsedTimer sinceSecond;
        sinceSecond.start();
        QCOMPARE(line.adapter->write(Command), CAN::RetError);
        QVERIFY(sinceFirst.elapsed() >= 4700);
        QVERIFY2(sinceSecond.elapsed() < 4700, qPrintable(QString::number(sinceSecond.elapsed())));
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
        // The frame while the answer is awaited, the answer when the frame is there.
        bool frameSent = false;
        QTimer device;
        connect(&device, &QTimer::timeout, this, [&] {
            if (!frameSent && line.device.receivedCount() == 2) {
                frameSent = true;
                line.device.send(wire(frame));
            } else if (frames.count() == 1) {
                line.device.send("\r");
                device.stop();
            }
        });
        device.start(1);
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
