// SPDX-License-Identifier: MIT
// What the USB adapter puts on the line, the echoes of it, the stamps, and load in both directions.
#include "usb_line.h"

#include <QtCore/QDateTime>

#include <thread>

namespace {

using A = AbstractCanAdapter;

qint64 milliseconds(const CanTimeStamp &stamp)
{
    return stamp.seconds * qint64(1000) + stamp.microseconds / 1000;
}

/// Fills a frame's payload so that every length and every byte value comes up.
CAN::CanMessage variedFrame(quint32 number)
{
    CAN::CanMessage frame = makeFrame(number, QByteArray(static_cast<int>(number % 9), static_cast<char>(number)));
    frame.isExtended = number > 0x7FF;
    return frame;
}

} // namespace

class TestUsbTraffic : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void framesPassBothWaysWithSleepDisabled()
    {
        UsbLine line;
        line.adapter->setCanAdapterOption(AbstractCanAdapter::option_disableSleep, true);
        line.adapter->setEcho(false);
        const FrameRecorder frames(line.adapter.get());
        QVERIFY(line.open());
        // Both within the passes without work.
        const CAN::CanMessage frame = makeFrame(0x123, "1234567");
        QCOMPARE(line.adapter->write(frame), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(line.device.received(), wire(frame), WaitMs);
        line.device.send(wire(frame));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        QCOMPARE(bytesOf(frames.frames().constFirst().message), bytesOf(frame));
    }

    void writtenFramesGoOutInOrder()
    {
        UsbLine line;
        QVERIFY(line.open());
        QByteArray expected;
        for (quint32 number = 0x7F0; number < 0x810; ++number) {
            CAN::CanMessage frame = variedFrame(number);
            QCOMPARE(line.adapter->write(&frame), CAN::RetOk);
            expected += wire(frame);
        }
        QTRY_COMPARE_WITH_TIMEOUT(line.device.received(), expected, WaitMs);
    }

    void framesWrittenToAClosedAdapterGoOutWithTheNextRun()
    {
        UsbLine line;
        const CAN::CanMessage early = makeFrame(1, "early");
        const CAN::CanMessage between = makeFrame(2, "between");
        QCOMPARE(line.adapter->write(early), CAN::RetOk);
        QVERIFY(line.open());
        QTRY_COMPARE_WITH_TIMEOUT(line.device.received(), wire(early), WaitMs);
        line.adapter->closeAdapter();
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(line.adapter->write(between), CAN::RetOk);
        QCOMPARE(line.device.received(), wire(early));
        QVERIFY(line.open());
        QTRY_COMPARE_WITH_TIMEOUT(line.device.received(), wire(early) + wire(between), WaitMs);
    }

    void bitRateOperationsChangeNothingOnTheWire()
    {
        UsbLine line;
        line.adapter->setEcho(false);
        QVERIFY(line.open());
        const LogRecorder log;
        QCOMPARE(line.adapter->setBitrate(static_cast<unsigned short>(500)), CAN::RetOk);
        line.adapter->resetDriver();
        line.adapter->write(makeFrame(0x123, {}));
        QTRY_COMPARE_WITH_TIMEOUT(line.device.received(), wire(makeFrame(0x123, {})), WaitMs);
        QCOMPARE(log.texts(), QStringList());
    }

    void nothingWrittenIsAnError()
    {
        UsbLine line;
        const FrameRecorder frames(line.adapter.get());
        QCOMPARE(line.adapter->write(static_cast<CAN::CanMessage *>(nullptr)), CAN::RetError);
        QCOMPARE(frames.count(), 0);
        QVERIFY(line.adapter->mTransmitBuffer.isEmpty());
    }

    void echoIsACopyOnTheWritersThreadAsSoonAsTheFrameIsQueued_data()
    {
        QTest::addColumn<bool>("isOpen");
        QTest::newRow("closed") << false;
        QTest::newRow("open") << true;
    }

    void echoIsACopyOnTheWritersThreadAsSoonAsTheFrameIsQueued()
    {
        QFETCH(bool, isOpen);
        UsbLine line;
        line.adapter->setCanAdapterOption(A::option_uniqueId, 4660);
        QVERIFY(!isOpen || line.open());
        const FrameRecorder frames(line.adapter.get());
        CAN::CanMessage frame = makeFrame(0x123, "12345678");
        frame.isFd = frame.isBrs = frame.isEsi = true;
        frame.reservedFlag = 0x5A;
        line.adapter->write(frame);
        QCOMPARE(frames.count(), 1);
        const CAN::CanRxMessage echo = frames.frames().constFirst();
        QCOMPARE(bytesOf(echo.message), bytesOf(frame));
        QCOMPARE(echo.isTx, true);
        QCOMPARE(echo.adapterId, quint16(4660));
        QCOMPARE(frames.lastThread(), QThread::currentThread());
        line.adapter->setEcho(false);
        line.adapter->write(frame);
        QCOMPARE(frames.count(), 1);
    }

    void stampsOfAllAdaptersAndEchoesComeFromOneClock()
    {
        UsbLine first;
        QVERIFY(first.open());
        // A clock of its own would be behind the first one's by this.
        QTest::qWait(300);
        UsbLine second;
        QVERIFY(second.open());
        const FrameRecorder atFirst(first.adapter.get());
        const FrameRecorder atSecond(second.adapter.get());
        QVector<qint64> stamps;
        for (int round = 1; round <= 4; ++round) {
            // Each frame comes after the one before it: received and sent, by one and by the other.
            UsbLine &line = round % 2 ? first : second;
            const FrameRecorder &frames = round % 2 ? atFirst : atSecond;
            const int before = frames.count();
            line.device.send(wire(makeFrame(1, "received")));
            QTRY_COMPARE_WITH_TIMEOUT(frames.count(), before + 1, WaitMs);
            line.adapter->write(makeFrame(2, "sent"));
            QCOMPARE(frames.count(), before + 2);
            for (int index = before; index < before + 2; ++index) {
                const CanTimeStamp stamp = frames.frames().at(index).timeStamp;
                QCOMPARE(stamp.microseconds % 1000, 0);
                QVERIFY(stamp.microseconds >= 0 && stamp.microseconds < 1000000);
                stamps.append(milliseconds(stamp));
            }
        }
        QVERIFY(stamps.constFirst() >= 300);
        QVERIFY(std::is_sorted(stamps.cbegin(), stamps.cend()));
    }

    void systemTimeStampsReceivedFramesAndEchoes()
    {
        UsbLine line;
        line.adapter->setCanAdapterOption(A::option_systemTime, true);
        const FrameRecorder frames(line.adapter.get());
        QVERIFY(line.open());
        const QDateTime before = QDateTime::currentDateTime();
        line.adapter->write(makeFrame(1, "sent"));
        line.device.send(wire(makeFrame(2, "received")));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 2, WaitMs);
        const qint64 passed = before.msecsTo(QDateTime::currentDateTime());
        for (const CAN::CanRxMessage &frame : frames.frames()) {
            constexpr qint64 day = qint64(24) * 60 * 60 * 1000;
            const qint64 later = (milliseconds(frame.timeStamp) - before.time().msecsSinceStartOfDay() + day) % day;
            QVERIFY2(later <= passed, qPrintable(QString::number(later)));
        }
    }

    void floodInBothDirectionsAtOnceLosesNothing()
    {
#ifdef __SANITIZE_ADDRESS__
        constexpr quint32 frameCount = 3000;
#else
        constexpr quint32 frameCount = 30'000;
#endif
        UsbLine line;
        line.adapter->setEcho(false);
        FrameRecorder frames(line.adapter.get());
        QVERIFY(line.open());
        QByteArray stream;
        for (quint32 number = 0; number < frameCount; ++number)
            stream += wire(variedFrame(number));
        const LogRecorder log;
        std::thread writer([&line] {
            for (quint32 number = 0; number < frameCount; ++number)
                line.adapter->write(variedFrame(number));
        });
        // Unequal pieces, so that messages are cut anywhere.
        line.device.setPieces(997, 0);
        line.device.send(stream);
        writer.join();
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), int(frameCount), 120'000);
        QTRY_COMPARE_WITH_TIMEOUT(line.device.receivedCount(), stream.size(), 120'000);
        QVERIFY(line.device.received() == stream);
        const QVector<CAN::CanRxMessage> received = frames.frames();
        QByteArray again;
        for (const CAN::CanRxMessage &frame : received)
            again += wire(frame.message);
        QVERIFY(again == stream);
        // Bytes that ran out right behind a short message have left zero bytes, which are told; nothing else is.
        for (const QString &text : log.texts())
            QVERIFY2(text.endsWith(QLatin1String("entfernt 1")) || text.startsWith(QLatin1String("\"00")),
                     qPrintable(text));
    }
};

QTEST_GUILESS_MAIN(TestUsbTraffic)
#include "tst_usb_traffic.moc"
