// SPDX-License-Identifier: MIT
#include "common/serial_line.h"
#include "support/fake_adapter.h"
#include "support/fake_serial_adapter.h"
#include "support/frame_recorder.h"

#include <QtTest/QtTest>

using buslink::SerialLine;
using std::chrono::milliseconds;

namespace {

CAN::CanMessage frame(int length, bool isExtended, bool isFd, bool isRtr = false)
{
    CAN::CanMessage message = makeFrame(0x123, QByteArray(length, 'x'));
    message.isExtended = isExtended;
    message.isFd = isFd;
    message.isRtr = isRtr;
    return message;
}

const SerialLine::Clock::time_point start{std::chrono::hours(1)};

} // namespace

class TestSerialLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lineIsBusyFor11BitsAByteAndAMarginOfASecond_data()
    {
        QTest::addColumn<CAN::CanMessage>("message");
        QTest::addColumn<int>("bytes");
        QTest::newRow("shortest") << frame(0, false, false) << 7;
        QTest::newRow("2 bytes") << frame(2, false, false) << 9;
        QTest::newRow("8 bytes") << frame(8, false, false) << 16;
        QTest::newRow("remote frames have no payload") << frame(8, false, false, true) << 7;
        QTest::newRow("extended") << frame(4, true, false) << 14;
        QTest::newRow("CAN FD") << frame(12, false, true) << 21;
        QTest::newRow("longest") << frame(64, true, true) << 82;
    }
    void lineIsBusyFor11BitsAByteAndAMarginOfASecond()
    {
        QFETCH(CAN::CanMessage, message);
        QFETCH(int, bytes);
        SerialLine line;
        line.setAdapter(FakeSerialAdapter(1100)); // 10 ms a byte
        QVERIFY(line.isFree(start));
        line.frameQueued(message, start);
        QVERIFY(!line.isFree(start + milliseconds(10 * bytes + 999)));
        QVERIFY(line.isFree(start + milliseconds(10 * bytes + 1001)));
    }

    void framesAddUpAndATimeWithoutFramesIsNotSaved()
    {
        SerialLine line;
        line.setAdapter(FakeSerialAdapter(1100));
        line.frameQueued(frame(0, false, false), start);
        line.frameQueued(frame(0, false, false), start + milliseconds(10));
        QVERIFY(!line.isFree(start + milliseconds(1139)));
        QVERIFY(line.isFree(start + milliseconds(1141)));
        line.frameQueued(frame(0, false, false), start + milliseconds(5000));
        QVERIFY(!line.isFree(start + milliseconds(6069)));
        QVERIFY(line.isFree(start + milliseconds(6071)));
    }

    void nothingIsQueuedMoreThanASecondAhead()
    {
        SerialLine line;
        line.setAdapter(FakeSerialAdapter(1100));
        // 7 bytes each, so 70 ms: the fifteenth passes the second.
        for (int number = 1; number <= 15; ++number) {
            QVERIFY2(line.hasRoom(start), qPrintable(QString::number(number)));
            line.frameQueued(frame(0, false, false), start);
        }
        QVERIFY(!line.hasRoom(start));
        QVERIFY(!line.hasRoom(start + milliseconds(49)));
        QVERIFY(line.hasRoom(start + milliseconds(51)));
    }

    void withoutASerialPortTheLineIsAlwaysFree_data()
    {
        QTest::addColumn<bool>("isSerial");
        QTest::newRow("another adapter") << false;
        QTest::newRow("rate of 0") << true;
    }
    void withoutASerialPortTheLineIsAlwaysFree()
    {
        QFETCH(bool, isSerial);
        FakeAdapter other;
        other.setCanAdapterOption(AbstractCanAdapter::option_baudrate, 1);
        FakeSerialAdapter serial(0);
        SerialLine line;
        line.setAdapter(isSerial ? static_cast<AbstractCanAdapter &>(serial) : other);
        for (int number = 0; number < 1000; ++number)
            line.frameQueued(frame(8, false, false), start);
        QVERIFY(line.hasRoom(start));
        QVERIFY(line.isFree(start));
    }
};

QTEST_GUILESS_MAIN(TestSerialLine)
#include "tst_serial_line.moc"
