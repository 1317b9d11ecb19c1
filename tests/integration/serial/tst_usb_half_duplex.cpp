// SPDX-License-Identifier: MIT
// Half-duplex operation: which frames count as returns, what is dropped with them, and what is sent once more.
#include "usb_line.h"

#include <QtCore/QRegularExpression>

namespace {

using A = AbstractCanAdapter;

/// The message that a record of resending shows, nothing for any other record.
QString resentMessage(const QString &record)
{
    static const QRegularExpression form(
        QStringLiteral("^CAN::RetType ZorbekUSBCanAdapter::write\\(CAN::CanMessage\\*, bool\\) "
                       "QTime\\(\"\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d\"\\) Resend serial message:  \"([0-9a-f]+)\"$"));
    return form.match(record).captured(1);
}

QString hexOf(const CAN::CanMessage &message)
{
    return QString::fromLatin1(wire(message).toHex());
}

QVector<CAN::CanMessage> numberedFrames(int count)
{
    QVector<CAN::CanMessage> frames;
    for (int number = 1; number <= count; ++number)
        frames.append(makeFrame(static_cast<quint32>(number), "ABCDEFG" + QByteArray::number(number)));
    return frames;
}

/// The messages of the frames that still wait for their return, oldest first. They wait no longer then.
QStringList takePending(LiveUsbAdapter &adapter)
{
    const LogRecorder log;
    QStringList messages;
    int before = -1;
    while (log.texts().size() != before) {
        before = log.texts().size();
        adapter.resendLastMessage();
    }
    for (const QString &record : log.texts())
        messages.append(resentMessage(record));
    return messages;
}

QStringList hexOf(const QVector<CAN::CanMessage> &frames)
{
    QStringList messages;
    for (const CAN::CanMessage &frame : frames)
        messages.append(hexOf(frame));
    return messages;
}

} // namespace

class TestUsbHalfDuplex : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<UsbLine> mLine;
    std::unique_ptr<FrameRecorder> mFrames;

    /// Lets the device send a frame and waits until the adapter is through with it.
    bool receive(const CAN::CanMessage &frame)
    {
        return mLine->sendAndWait(wire(frame))
               && QTest::qWaitFor([this] { return mLine->adapter->waitingBytes().isEmpty(); }, WaitMs);
    }

    /// Writes frames and waits until they are out.
    bool transmit(const QVector<CAN::CanMessage> &frames)
    {
        int bytes = mLine->device.receivedCount();
        for (const CAN::CanMessage &frame : frames) {
            mLine->adapter->write(frame);
            bytes += wire(frame).size();
        }
        return QTest::qWaitFor([&] { return mLine->device.receivedCount() == bytes; }, WaitMs);
    }

    QList<QByteArray> delivered() const
    {
        QList<QByteArray> records;
        for (const CAN::CanRxMessage &frame : mFrames->frames())
            records.append(bytesOf(frame.message));
        return records;
    }

private Q_SLOTS:
    void init()
    {
        mLine = std::make_unique<UsbLine>();
        mFrames = std::make_unique<FrameRecorder>(mLine->adapter.get());
        QVERIFY(mLine->openHalfDuplex());
    }

    void cleanup()
    {
        mLine.reset();
        mFrames.reset();
    }

    void receivedFrameIsHeldAgainstThePendingOnes_data()
    {
        const CAN::CanMessage foreign = makeFrame(0x700, "foreign!");
        QTest::addColumn<CAN::CanMessage>("received");
        QTest::addColumn<int>("left");
        QTest::addColumn<bool>("isDelivered");
        QTest::newRow("return of the oldest takes one off") << numberedFrames(5).at(0) << 4 << false;
        QTest::newRow("return of the third drops three entries") << numberedFrames(5).at(2) << 2 << false;
        QTest::newRow("return of the last empties the list") << numberedFrames(5).at(4) << 0 << false;
        QTest::newRow("return of none drops all entries and is delivered") << foreign << 0 << true;
    }

    void receivedFrameIsHeldAgainstThePendingOnes()
    {
        QFETCH(CAN::CanMessage, received);
        QFETCH(int, left);
        QFETCH(bool, isDelivered);
        const QVector<CAN::CanMessage> frames = numberedFrames(5);
        QVERIFY(transmit(frames));
        QVERIFY(receive(received));
        QCOMPARE(delivered(), isDelivered ? QList<QByteArray>{bytesOf(received)} : QList<QByteArray>());
        QCOMPARE(takePending(*mLine->adapter), hexOf(frames.mid(5 - left)));
    }

    void deviceThatReturnsEverythingLeavesNothingPending()
    {
        mLine->device.setReturning(true);
        const QVector<CAN::CanMessage> frames = numberedFrames(9);
        int bytes = 0;
        for (const CAN::CanMessage &frame : frames) {
            mLine->adapter->write(frame);
            bytes += wire(frame).size();
        }
        QTRY_COMPARE_WITH_TIMEOUT(mLine->adapter->receivedBytes(), qint64(bytes), WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(mLine->adapter->waitingBytes(), QByteArray(), WaitMs);
        QCOMPARE(mFrames->count(), 0);
        QCOMPARE(takePending(*mLine->adapter), QStringList());
    }

    void timerRunsFromAFlushToAnyReceivedFrame()
    {
        QVERIFY(!mLine->adapter->awaitsReturn());
        const QVector<CAN::CanMessage> frames = numberedFrames(1);
        for (const CAN::CanMessage &received : {frames.at(0), makeFrame(0x700, "foreign!")}) {
            QVERIFY(transmit(frames));
            QVERIFY(mLine->adapter->awaitsReturn());
            QVERIFY(receive(received));
            QVERIFY(!mLine->adapter->awaitsReturn());
        }
        QVERIFY(transmit(frames));
        QVERIFY(mLine->adapter->awaitsReturn());
    }

    void secondFlushStartsTheTimerAnew()
    {
        QVERIFY(transmit(numberedFrames(1)));
        QTRY_VERIFY_WITH_TIMEOUT(mLine->adapter->remainingWait() < 7500, WaitMs);
        const int before = mLine->adapter->remainingWait();
        QVERIFY(transmit(numberedFrames(1)));
        const int after = mLine->adapter->remainingWait();
        QVERIFY2(after > before, qPrintable(QStringLiteral("%1 ms after %2 ms").arg(after).arg(before)));
    }

    void portThatRefusesBytesStopsTheTimerAndHoldsTheLoopWhateverTheFlagSays()
    {
        QVERIFY(transmit(numberedFrames(1)));
        QVERIFY(mLine->adapter->awaitsReturn());
        const LogRecorder log;
        mLine->adapter->inLoop([this] { mLine->adapter->mPort->close(); });
        const CAN::CanMessage frame = makeFrame(0x123, "refused!");
        mLine->adapter->write(frame);
        QTRY_VERIFY_WITH_TIMEOUT(log.texts().size() > 10, WaitMs);
        QVERIFY(!mLine->adapter->heldLoopAwaitsReturn());
        QCOMPARE(mLine->adapter->bytesToTransmit(), wire(frame));
        mLine->adapter->closeAdapter();
        QVERIFY(!mLine->adapter->wait(500));
        QCOMPARE(mLine->adapter->bytesToTransmit(), wire(frame));
        mLine->adapter->dropBytesToTransmit();
        QVERIFY(mLine->adapter->wait(WaitMs));
    }

    void frameOfNothingButZerosCountsAsAReturn()
    {
        const QVector<CAN::CanMessage> frames = numberedFrames(2);
        QVERIFY(transmit(frames));
        mLine->device.send(wire(CAN::CanMessage()));
        QTRY_VERIFY_WITH_TIMEOUT(!mLine->adapter->awaitsReturn(), WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(mLine->adapter->waitingBytes(), QByteArray(), WaitMs);
        QCOMPARE(mFrames->count(), 0);
        QCOMPARE(takePending(*mLine->adapter), hexOf(frames));
    }

    void zerosBehindAPayloadAreNoReturn()
    {
        QVERIFY(receive(makeFrame(0x700, "foreign!")));
        QVERIFY(receive(CAN::CanMessage()));
        CAN::CanMessage zeros = makeFrame(0, "foreign!");
        zeros.length = 0;
        QCOMPARE(delivered(), QList<QByteArray>({bytesOf(makeFrame(0x700, "foreign!")), bytesOf(zeros)}));
    }

    void resentFrameIsAwaitedOnceMoreAndForgottenThen()
    {
        const CAN::CanMessage frame = numberedFrames(1).at(0);
        QVERIFY(transmit({frame}));
        QCOMPARE(takePending(*mLine->adapter), QStringList{hexOf(frame)});
        QTRY_COMPARE_WITH_TIMEOUT(mLine->device.received(), wire(frame) + wire(frame), WaitMs);
        // Nothing is pending any more, and asking for more does not forget what was resent.
        mLine->adapter->resendLastMessage();
        QVERIFY(receive(frame));
        QCOMPARE(mFrames->count(), 0);
        QVERIFY(receive(frame));
        QCOMPARE(delivered(), QList<QByteArray>{bytesOf(frame)});
    }

    void resendWithNothingPendingDoesNothing()
    {
        const LogRecorder log;
        mLine->adapter->resendLastMessage();
        QCOMPARE(log.texts(), QStringList());
        QVERIFY(mLine->adapter->mTransmitBuffer.isEmpty());
    }

    void resentFrameGivesASecondEcho()
    {
        const CAN::CanMessage frame = numberedFrames(1).at(0);
        mLine->adapter->setEcho(true);
        QVERIFY(transmit({frame}));
        mLine->adapter->resendLastMessage();
        QCOMPARE(delivered(), QList<QByteArray>({bytesOf(frame), bytesOf(frame)}));
        QVERIFY(mFrames->frames().at(0).isTx);
        QVERIFY(mFrames->frames().at(1).isTx);
    }

    void frameWithBitRateSwitchIsNeverFoundAgain()
    {
        CAN::CanMessage frame = makeFrame(0x123, "12345678");
        frame.isFd = true;
        frame.isBrs = true;
        QVERIFY(transmit({frame}));
        QVERIFY(receive(frame));
        frame.isBrs = false;
        QCOMPARE(delivered(), QList<QByteArray>{bytesOf(frame)});
    }

    void bytesBehindTheLengthHaveToAgreeToo()
    {
        CAN::CanMessage frame = makeFrame(0x123, "ab345678");
        frame.length = 2;
        QVERIFY(transmit({frame}));
        QVERIFY(receive(frame));
        QCOMPARE(delivered(), QList<QByteArray>{bytesOf(makeFrame(0x123, "ab"))});
        // What earlier frames have left in the record agrees in one case and spoils the other.
        QVERIFY(receive(makeFrame(1, "12345678")));
        mFrames->clear();
        QVERIFY(transmit({frame}));
        QVERIFY(receive(frame));
        QCOMPARE(mFrames->count(), 0);
        QVERIFY(transmit({makeFrame(0x123, "ab")}));
        QVERIFY(receive(makeFrame(0x123, "ab")));
        QCOMPARE(delivered(), QList<QByteArray>{bytesOf(frame)});
    }

    void withoutHalfDuplexNothingIsPendingAndZerosAreDelivered()
    {
        UsbLine line;
        const FrameRecorder frames(line.adapter.get());
        line.adapter->setEcho(false);
        QVERIFY(line.open());
        line.adapter->write(makeFrame(0x123, "12345678"));
        QCOMPARE(takePending(*line.adapter), QStringList());
        QVERIFY(!line.adapter->awaitsReturn());
        line.device.send(wire(CAN::CanMessage()));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        QCOMPARE(bytesOf(frames.frames().constFirst().message), bytesOf(CAN::CanMessage()));
    }

    void pendingFramesOutliveARun()
    {
        const QVector<CAN::CanMessage> frames = numberedFrames(2);
        QVERIFY(transmit(frames));
        mLine->adapter->closeAdapter();
        QVERIFY(mLine->adapter->wait(WaitMs));
        QVERIFY(mLine->open());
        QVERIFY(receive(frames.at(0)));
        QCOMPARE(mFrames->count(), 0);
        QCOMPARE(takePending(*mLine->adapter), QStringList{hexOf(frames.at(1))});
    }

    // The one test that waits for the time-out, for all cases at once.
    void frameThatDoesNotReturnIsSentOnceMoreAfter10Seconds()
    {
        UsbLine returning;
        UsbLine disturbed;
        const CAN::CanMessage frame = numberedFrames(1).at(0);
        QVERIFY(returning.openHalfDuplex());
        QVERIFY(disturbed.openHalfDuplex());
        returning.device.setReturning(true);
        mLine->adapter->setEcho(true);
        auto log = std::make_unique<LogRecorder>();
        QElapsedTimer timer;
        timer.start();
        for (UsbLine *line : {&returning, &disturbed, mLine.get()})
            line->adapter->write(frame);
        // Not before the wait for a return has begun.
        QTRY_COMPARE_WITH_TIMEOUT(disturbed.device.receivedCount(), wire(frame).size(), WaitMs);
        disturbed.device.send(wire(makeFrame(0x700, "foreign!")));
        QTRY_COMPARE_WITH_TIMEOUT(mLine->device.received(), wire(frame) + wire(frame), 10000 + WaitMs);
        // The timer may be early by the twentieth that Qt's coarse timers take.
        QVERIFY(timer.elapsed() >= 9400);
        const QStringList texts = log->texts();
        log.reset();
        QCOMPARE(texts.size(), 1);
        QCOMPARE(resentMessage(texts.constFirst()), hexOf(frame));
        QCOMPARE(delivered(), QList<QByteArray>({bytesOf(frame), bytesOf(frame)}));
        // It is off the list from then on, and the others had nothing to resend.
        QCOMPARE(takePending(*mLine->adapter), QStringList());
        QVERIFY(mLine->adapter->awaitsReturn());
        for (UsbLine *line : {&returning, &disturbed}) {
            QCOMPARE(line->device.received(), wire(frame));
            QVERIFY(!line->adapter->awaitsReturn());
        }
    }
};

QTEST_GUILESS_MAIN(TestUsbHalfDuplex)
#include "tst_usb_half_duplex.moc"
