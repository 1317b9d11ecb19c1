// SPDX-License-Identifier: MIT
// What the USB adapter makes of the bytes that a device sends, whole, cut, damaged or foreign.
#include "usb_line.h"

namespace {

using A = AbstractCanAdapter;

CAN::CanMessage extendedFdFrame()
{
    CAN::CanMessage frame = makeFrame(0x1ABCDEF0, QByteArray::fromHex("80818283848586878889FFFE7F00FFAA"));
    frame.isExtended = true;
    frame.isFd = true;
    return frame;
}

/// All kinds of frames that a received record tells apart, with a long payload first so that later ones show
/// whether they keep their own length, and one behind which restoring reaches furthest.
QVector<CAN::CanMessage> variedFrames()
{
    CAN::CanMessage remote = makeFrame(0x7E0, {});
    remote.isRtr = true;
    CAN::CanMessage extended = makeFrame(0x18FF50E5, QByteArray::fromHex("DEADBEEF"));
    extended.isExtended = true;
    return {extendedFdFrame(),
            makeFrame(0x123, QByteArray::fromHex("11FF")),
            makeFrame(0x124, "four"),
            remote,
            extended,
            makeFrame(0x0D0D, "\r12345\r8")};
}

QByteArray joined(const QVector<CAN::CanMessage> &frames)
{
    QByteArray bytes;
    for (const CAN::CanMessage &frame : frames)
        bytes += wire(frame);
    return bytes;
}

/// A frame as received: what it says, and none of the bytes that an earlier frame has left behind its length.
QString told(const CAN::CanMessage &frame)
{
    return QStringLiteral("%1 %2 %3%4%5%6%7")
        .arg(frame.id, 0, 16)
        .arg(QString::fromLatin1(QByteArray(reinterpret_cast<const char *>(frame.data), frame.length).toHex()))
        .arg(frame.isExtended)
        .arg(frame.isFd)
        .arg(frame.isRtr)
        .arg(frame.isEsi)
        .arg(frame.isBrs);
}

QStringList allOf(const QVector<CAN::CanMessage> &frames)
{
    QStringList texts;
    for (const CAN::CanMessage &frame : frames)
        texts.append(told(frame));
    return texts;
}

QStringList allOf(const FrameRecorder &recorder)
{
    QStringList texts;
    for (const CAN::CanRxMessage &frame : recorder.frames())
        texts.append(told(frame.message));
    return texts;
}

QString newStartRecord(int kind, int position)
{
    return QStringLiteral("virtual void ZorbekUSBCanAdapter::run() ungültige daten entfernt %1  %2")
        .arg(kind)
        .arg(position);
}

} // namespace

class TestUsbReception : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<UsbLine> mLine;
    std::unique_ptr<FrameRecorder> mFrames;
    std::unique_ptr<LogRecorder> mLog;

    bool sendAndWait(const QByteArray &bytes) const { return mLine->sendAndWait(bytes); }

private Q_SLOTS:
    void init()
    {
        mLine = std::make_unique<UsbLine>();
        mFrames = std::make_unique<FrameRecorder>(mLine->adapter.get());
        mLine->adapter->setCanAdapterOption(A::option_uniqueId, 4660);
        QVERIFY(mLine->open());
        mLog = std::make_unique<LogRecorder>();
    }

    void cleanup()
    {
        mLine.reset();
        mLog.reset();
        mFrames.reset();
    }

    void framesAreDeliveredOnTheAdaptersThreadAsTheyWereSent()
    {
        const QVector<CAN::CanMessage> frames = variedFrames();
        mLine->device.send(joined(frames));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf(frames), WaitMs);
        for (const CAN::CanRxMessage &frame : mFrames->frames()) {
            QCOMPARE(frame.isTx, false);
            QCOMPARE(frame.adapterId, quint16(4660));
        }
        QCOMPARE(mFrames->lastThread(), static_cast<QThread *>(mLine->adapter.get()));
        QCOMPARE(mLog->texts(), QStringList());
    }

    void streamSplitAtAnyByteDecodesToTheSameFrames()
    {
        const QVector<CAN::CanMessage> frames = variedFrames();
        const QByteArray stream = joined(frames);
        for (int cut = 1; cut < stream.size(); ++cut) {
            mFrames->clear();
            QVERIFY(sendAndWait(stream.left(cut)));
            QVERIFY(sendAndWait(stream.mid(cut)));
            QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf(frames), WaitMs);
        }
    }

    void streamOfSingleBytesDecodesToTheSameFrames()
    {
        const QVector<CAN::CanMessage> frames = variedFrames();
        mLine->device.setPieces(1, 1);
        mLine->device.send(joined(frames));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf(frames), WaitMs);
        QVERIFY(!allOf(*mFrames).contains(told(makeFrame(0, {}))));
    }

    void garbageWithoutBit7IsDroppedByteByByte()
    {
        const QByteArray garbage = QByteArray::fromHex("00110D7F");
        const CAN::CanMessage frame = makeFrame(0x123, QByteArray::fromHex("11FF"));
        QVERIFY(sendAndWait(garbage + wire(frame)));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({frame}), WaitMs);
        QCOMPARE(mLog->texts(), strayBytesRecords(garbage
                                                      + QByteArray::fromHex("88012301"
                                                                            "02117F2067"),
                                                  4));
    }

    void garbageBetweenMessagesIsDroppedByteByByte()
    {
        const QByteArray garbage = QByteArray::fromHex("7F0D00");
        const CAN::CanMessage first = makeFrame(0x111, "first   ");
        const CAN::CanMessage second = makeFrame(0x123, QByteArray::fromHex("11FF"));
        QVERIFY(sendAndWait(wire(first) + garbage + wire(second)));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({first, second}), WaitMs);
        QCOMPARE(mLog->texts(), strayBytesRecords(garbage + wire(second), 3));
    }

    void onlyAChecksumErrorLeavesTheFlushOfItsPassOut_data()
    {
        QTest::addColumn<QByteArray>("received");
        QTest::addColumn<bool>("isLeftOut");
        QTest::newRow("checksum error") << QByteArray::fromHex("88012301021131207B") << true;
        QTest::newRow("frame") << wire(makeFrame(0x123, QByteArray::fromHex("11FF"))) << false;
        QTest::newRow("stray byte") << QByteArray("\x01") << false;
    }

    void onlyAChecksumErrorLeavesTheFlushOfItsPassOut()
    {
        QFETCH(QByteArray, received);
        QFETCH(bool, isLeftOut);
        LiveUsbAdapter *const adapter = mLine->adapter.get();
        const QByteArray text = "to the device";
        QByteArray left;
        std::atomic<bool> looked = false;
        // Both come in between two passes: the bytes to send together with those received, the look one pass later.
        const auto connection = connect(
            adapter->mPort, &QIODevice::readyRead, adapter,
            [&] {
                adapter->addToBuffer(text);
                QMetaObject::invokeMethod(
                    adapter->mPort,
                    [&] {
                        left = adapter->bytesToTransmit();
                        looked = true;
                    },
                    Qt::QueuedConnection);
            },
            Qt::DirectConnection);
        mLine->device.send(received);
        QTRY_VERIFY_WITH_TIMEOUT(looked, WaitMs);
        disconnect(connection);
        QCOMPARE(left, isLeftOut ? text : QByteArray());
        QCOMPARE(mLog->texts().join(QString()).contains(QLatin1String("checksum error")), isLeftOut);
        QTRY_COMPARE_WITH_TIMEOUT(mLine->device.received(), text, WaitMs);
    }

    void newHeadInsideAnIncompleteMessageDropsWhatWasThere()
    {
        QVERIFY(sendAndWait(QByteArray::fromHex("8801230102")));
        QCOMPARE(mLine->adapter->waitingBytes(), QByteArray::fromHex("8801230102"));
        const CAN::CanMessage frame = makeFrame(0x100, "four");
        // The last byte comes later, so that the first message stays incomplete when the second begins.
        QVERIFY(sendAndWait(wire(frame).left(2)));
        QTRY_COMPARE_WITH_TIMEOUT(mLog->texts(), QStringList{newStartRecord(1, 5)}, WaitMs);
        QVERIFY(sendAndWait(wire(frame).mid(2)));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({frame}), WaitMs);
    }

    void newHeadInsideACompleteMessageDropsWhatIsInFrontOfIt()
    {
        const CAN::CanMessage frame = makeFrame(0x100, "twelve bytes");
        const QByteArray damaged = QByteArray::fromHex("88012301") + wire(frame);
        QVERIFY(sendAndWait(damaged));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({frame}), WaitMs);
        QCOMPARE(mLog->texts().mid(0, 2), QStringList({newStartRecord(2, 4), dump(damaged)}));
    }

    void wrongChecksumCostsThisMessageAndTheNextSurvives()
    {
        const CAN::CanMessage first = makeFrame(0x111, "first   ");
        const CAN::CanMessage second = makeFrame(0x222, "second  ");
        const QByteArray both = wire(first) + wire(second);
        // A byte of the payload, on its way.
        mLine->device.damage(6);
        mLine->device.send(both);
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({second}), WaitMs);
        QByteArray damaged = both;
        damaged[6] = static_cast<char>(damaged.at(6) ^ 1);
        QCOMPARE(mLog->texts(),
                 QStringList{QStringLiteral("checksum error %1 %2").arg(dump(damaged)).arg(wire(first).size() - 1)});
        QCOMPARE(mLine->adapter->waitingBytes(), QByteArray());
    }

    void lostByteCostsOneMessage()
    {
        const CAN::CanMessage first = makeFrame(0x111, "first   ");
        const CAN::CanMessage second = makeFrame(0x222, "second  ");
        mLine->device.drop(4);
        mLine->device.send(wire(first) + wire(second));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({second}), WaitMs);
    }

    void loneHead80StaysUntilALaterHead()
    {
        QVERIFY(sendAndWait(QByteArray::fromHex("80")));
        QVERIFY(sendAndWait(QByteArray::fromHex("0102")));
        QCOMPARE(mLine->adapter->waitingBytes(), QByteArray::fromHex("800102"));
        QCOMPARE(mLog->texts(), QStringList());
        const CAN::CanMessage frame = makeFrame(0x123, "12345678");
        QVERIFY(sendAndWait(wire(frame)));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({frame}), WaitMs);
        QCOMPARE(mLog->texts(), QStringList{newStartRecord(1, 3)});
    }

    void zeroBytesAreLeftBehindAMessageAndDropped_data()
    {
        QTest::addColumn<CAN::CanMessage>("frame");
        QTest::addColumn<int>("zeros");
        CAN::CanMessage extended = makeFrame(0x123, "12");
        extended.isExtended = true;
        QTest::newRow("no payload leaves one") << makeFrame(0x123, {}) << 1;
        QTest::newRow("4 bytes leave three") << makeFrame(0x123, "1234") << 3;
        QTest::newRow("5 bytes leave two") << makeFrame(0x123, "12345") << 2;
        QTest::newRow("6 bytes leave one") << makeFrame(0x123, "123456") << 1;
        QTest::newRow("3 bytes leave none") << makeFrame(0x123, "123") << 0;
        QTest::newRow("2 bytes of an extended frame leave three") << extended << 3;
    }

    void zeroBytesAreLeftBehindAMessageAndDropped()
    {
        QFETCH(CAN::CanMessage, frame);
        QFETCH(int, zeros);
        const QStringList records = strayBytesRecords(QByteArray(zeros, '\0'), zeros);
        QVERIFY(sendAndWait(wire(frame)));
        QTRY_COMPARE_WITH_TIMEOUT(mLog->texts(), records, WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({frame}), WaitMs);
        QCOMPARE(mLine->adapter->waitingBytes(), QByteArray());
        QCOMPARE(mLog->texts(), records);
    }

    void messageOfAnUnknownTypeStaysAtTheFrontAndReceptionStands()
    {
        // Type 3, otherwise correct, and none of its bytes gets bit 7 back.
        const QByteArray foreign = QByteArray::fromHex("86032301000027");
        QVERIFY(sendAndWait(foreign));
        QVERIFY(sendAndWait(wire(makeFrame(0x123, {}))));
        // Each look comes one pass after the one before, and nothing has changed.
        for (int pass = 0; pass < 2; ++pass)
            QCOMPARE(mLine->adapter->waitingBytes().left(7), foreign);
        QCOMPARE(mFrames->count(), 0);
        QCOMPARE(mLog->texts(), QStringList());
        // Transmission goes on, and so does the end.
        mLine->adapter->setEcho(false);
        mLine->adapter->write(makeFrame(0x123, {}));
        QTRY_COMPARE_WITH_TIMEOUT(mLine->device.received().toHex(), QByteArray("86012301000025"), WaitMs);
        mLine->adapter->closeAdapter();
        QVERIFY(mLine->adapter->wait(WaitMs));
    }

    void unknownTypeWhoseBytesGetBit7BackIsCutThere()
    {
        // Type 3 again; bit 7 of the identifier's first byte is put back at position 2, where the stream is cut.
        const QByteArray foreign = QByteArray::fromHex("86032301000225");
        QVERIFY(sendAndWait(foreign));
        QTRY_VERIFY_WITH_TIMEOUT(mLog->texts().size() >= 2, WaitMs);
        QCOMPARE(mLog->texts().mid(0, 2),
                 QStringList({newStartRecord(2, 2), dump(QByteArray::fromHex("8603A30100022500"))}));
        QCOMPARE(mFrames->count(), 0);
    }

    void incompleteMessageOutlivesARun()
    {
        const CAN::CanMessage frame = makeFrame(0x123, "12345678");
        QVERIFY(sendAndWait(wire(frame).left(5)));
        mLine->adapter->closeAdapter();
        QVERIFY(mLine->adapter->wait(WaitMs));
        QVERIFY(mLine->open());
        mLine->device.send(wire(frame).mid(5));
        QTRY_COMPARE_WITH_TIMEOUT(allOf(*mFrames), allOf({frame}), WaitMs);
    }

    void recordKeepsThePayloadOfEarlierFramesBehindTheLength()
    {
        mLine->device.send(wire(makeFrame(1, "12345678")) + wire(makeFrame(2, "ab")));
        QTRY_COMPARE_WITH_TIMEOUT(mFrames->count(), 2, WaitMs);
        CAN::CanMessage second = makeFrame(2, "ab345678");
        second.length = 2;
        QCOMPARE(bytesOf(mFrames->frames().at(1).message), bytesOf(second));
    }
};

QTEST_GUILESS_MAIN(TestUsbReception)
#include "tst_usb_reception.moc"
