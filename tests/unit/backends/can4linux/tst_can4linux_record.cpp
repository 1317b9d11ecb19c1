// SPDX-License-Identifier: MIT
// Frames of the driver and frame records, both ways, to the byte.
#include <BusLinkDesk/backends/can4linux/can4linux_record_p.h>

#include "driver_frames.h"
#include "support/delivered_frame.h"

#include <QtTest/QtTest>

#include <cstring>
#include <limits>

namespace {

/// 64 bytes, each of them its own place and above 0.
QByteArray counting()
{
    QByteArray bytes;
    for (int value = 1; value <= 64; ++value)
        bytes.append(static_cast<char>(value));
    return bytes;
}

QByteArray sentBytes(const CAN::CanMessage &message)
{
    const buslink::canmsg_t frame = buslink::driverFrameOf(message);
    return {reinterpret_cast<const char *>(&frame), sizeof frame};
}

buslink::canmsg_t frameOf(const QByteArray &bytes)
{
    buslink::canmsg_t frame;
    std::memcpy(&frame, bytes.constData(), sizeof frame);
    return frame;
}

/// A message with all 64 bytes of payload there, whatever its length says.
CAN::CanMessage filled(int length, bool isFd = false)
{
    CAN::CanMessage message = makeFrame(0x123, counting());
    message.length = static_cast<quint8>(length);
    message.isFd = isFd;
    return message;
}

} // namespace

class TestCan4linuxRecord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void messageBecomesAFrame_data()
    {
        QTest::addColumn<CAN::CanMessage>("message");
        QTest::addColumn<QByteArray>("frame");
        const auto row = [](const char *name, const CAN::CanMessage &message, quint32 flags, quint32 length,
                            int payload) {
            const DriverFrame frame{flags, message.id, length};
            QTest::newRow(name) << message << driverBytes(frame, counting().left(payload));
        };
        row("empty", filled(0), 0, 0, 0);
        row("classic of length 8", filled(8), 0, 8, 8);
        row("classic of length 9", filled(9), 0, 12, 9);
        row("classic of length 64", filled(64), 0, 64, 64);
        row("classic of length 255", filled(255), 0, 64, 64);
        row("FD of length 8", filled(8, true), 0x100, 8, 8);
        row("FD of length 9", filled(9, true), 0x100, 12, 9);
        row("FD of length 49", filled(49, true), 0x100, 64, 49);
        row("FD of length 65", filled(65, true), 0x100, 64, 64);
        row("FD of length 255", filled(255, true), 0x100, 64, 64);
        CAN::CanMessage message = filled(3);
        message.isExtended = true;
        row("extended", message, 0x004, 3, 3);
        message.isRtr = true;
        row("extended remote", message, 0x005, 3, 0);
        message.isExtended = false;
        row("remote", message, 0x001, 3, 0);
        message.length = 9;
        row("remote of length 9", message, 0x001, 12, 0);
        message.isBrs = message.isEsi = true;
        row("classic flags of FD", message, 0x001, 12, 0);
        message.isFd = true;
        row("FD remote with bit-rate switch", message, 0x300, 12, 0);
        message.isBrs = false;
        row("FD remote", message, 0x100, 12, 0);
        message = filled(64, true);
        message.isBrs = message.isEsi = message.isExtended = true;
        row("FD with all flags", message, 0x304, 64, 64);
        message = filled(1);
        message.id = 0xFFFFFFFF;
        row("identifier of 32 bits", message, 0, 1, 1);
    }

    void messageBecomesAFrame()
    {
        QFETCH(CAN::CanMessage, message);
        QFETCH(QByteArray, frame);
        QCOMPARE(sentBytes(message).toHex(' '), frame.toHex(' '));
    }

    void everyLengthGoesOutRoundedUp()
    {
        const quint8 lengths[]{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
        for (int length = 0; length <= 255; ++length) {
            quint32 expected = 64;
            for (const quint8 one : lengths) {
                if (one >= length) {
                    expected = one;
                    break;
                }
            }
            QCOMPARE(buslink::driverFrameOf(filled(length)).length, expected);
            QCOMPARE(buslink::driverFrameOf(filled(length, true)).length, expected);
            QCOMPARE(sentBytes(filled(length)).mid(40), counting().left(length).leftJustified(64, '\0'));
        }
    }

    void frameBecomesARecord_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<CAN::CanRxMessage>("expected");
        const auto row = [](const char *name, quint32 flags, const CAN::CanMessage &message, bool isTx = false) {
            CAN::CanRxMessage record;
            record.message = message;
            record.isTx = isTx;
            const DriverFrame frame{flags, message.id, message.length};
            QTest::newRow(name) << driverBytes(frame, counting()) << record;
        };
        row("empty", 0, makeFrame(0, {}));
        row("classic", 0, makeFrame(0x123, counting().left(8)));
        row("own", 0x008, makeFrame(0x123, counting().left(8)), true);
        row("longer than classic", 0, makeFrame(0x123, counting().left(12)));
        row("identifier of 32 bits", 0, makeFrame(0xFFFFFFFF, counting().left(1)));
        row("flags without a meaning", 0xFFFFFCE2, makeFrame(1, counting().left(2)));
        row("flags of FD alone", 0x210, makeFrame(1, counting().left(2)));
        CAN::CanMessage message = makeFrame(0x1ABCDEF0, counting().left(2));
        message.isExtended = true;
        row("extended", 0x004, message);
        message = makeFrame(0x7FF, {});
        message.isRtr = true;
        message.length = 8;
        row("remote", 0x001, message);
        row("own remote", 0x009, message, true);
        message.isFd = true;
        row("FD remote", 0x101, message);
        message = makeFrame(0x7FF, counting());
        message.isFd = true;
        row("FD", 0x100, message);
        message.isBrs = true;
        row("bit-rate switch", 0x300, message);
        message.isEsi = true;
        row("both FD flags", 0x310, message);
        message.isBrs = false;
        row("error state", 0x110, message);
    }

    void frameBecomesARecord()
    {
        QFETCH(QByteArray, frame);
        QFETCH(CAN::CanRxMessage, expected);
        CAN::CanRxMessage record;
        buslink::takeDriverFrame(frameOf(frame), record);
        QCOMPARE(textOf(record), textOf(expected));
    }

    void onlyTheLowByteOfALengthCounts_data()
    {
        QTest::addColumn<quint32>("length");
        QTest::addColumn<int>("expected");
        QTest::addColumn<int>("copied");
        QTest::newRow("64") << 64U << 64 << 64;
        QTest::newRow("65") << 65U << 65 << 64;
        QTest::newRow("255") << 255U << 255 << 64;
        QTest::newRow("256") << 256U << 0 << 0;
        QTest::newRow("0x12345608") << 0x12345608U << 8 << 8;
        QTest::newRow("largest") << 0xFFFFFFFFU << 255 << 64;
    }

    void onlyTheLowByteOfALengthCounts()
    {
        QFETCH(quint32, length);
        QFETCH(int, expected);
        QFETCH(int, copied);
        CAN::CanRxMessage record;
        buslink::takeDriverFrame(frameOf(driverBytes({0, 5, length}, counting())), record);
        CAN::CanMessage message = makeFrame(5, counting().left(copied));
        message.length = static_cast<quint8>(expected);
        QCOMPARE(bytesOf(record.message), bytesOf(message));
    }

    void recordKeepsWhatAFrameDoesNotTell()
    {
        CAN::CanRxMessage record = deliveredFrame(1, QByteArray(64, 'o'));
        record.message.isBrs = record.message.isEsi = true;
        CAN::CanRxMessage expected = record;
        buslink::takeDriverFrame(frameOf(driverBytes({0, 0x123, 2, 1000, 1}, "ab")), record);
        expected.message.id = 0x123;
        expected.message.length = 2;
        expected.message.data[0] = 'a';
        expected.message.data[1] = 'b';
        expected.message.isExtended = expected.message.isFd = expected.isTx = false;
        QCOMPARE(textOf(record), textOf(expected));
    }

    void remoteFrameLeavesThePayload()
    {
        CAN::CanRxMessage record = deliveredFrame(1, QByteArray(64, 'o'));
        CAN::CanRxMessage expected = record;
        buslink::takeDriverFrame(frameOf(driverBytes({0x001, 0x123, 5}, counting())), record);
        expected.message.id = 0x123;
        expected.message.length = 5;
        expected.message.isRtr = true;
        expected.message.isExtended = expected.message.isFd = expected.isTx = false;
        QCOMPARE(textOf(record), textOf(expected));
    }

    void stampIsCutTo32Bits_data()
    {
        QTest::addColumn<qint64>("seconds");
        QTest::addColumn<qint64>("microseconds");
        QTest::addColumn<int>("expectedSeconds");
        QTest::addColumn<int>("expectedMicroseconds");
        QTest::newRow("zero") << qint64(0) << qint64(0) << 0 << 0;
        QTest::newRow("today") << qint64(1'700'000'000) << qint64(999'999) << 1'700'000'000 << 999'999;
        QTest::newRow("after 2038") << qint64(0x80000000) << qint64(5) << std::numeric_limits<int>::min() << 5;
        QTest::newRow("33 bits") << qint64(0x100000007) << qint64(0x200000008) << 7 << 8;
        QTest::newRow("negative") << qint64(-1) << qint64(-2) << -1 << -2;
    }

    void stampIsCutTo32Bits()
    {
        QFETCH(qint64, seconds);
        QFETCH(qint64, microseconds);
        QFETCH(int, expectedSeconds);
        QFETCH(int, expectedMicroseconds);
        const CanTimeStamp stamp = buslink::stampOf(frameOf(driverBytes({0, 0, 0, seconds, microseconds})));
        QCOMPARE(stamp.seconds, expectedSeconds);
        QCOMPARE(stamp.microseconds, expectedMicroseconds);
    }
};

QTEST_APPLESS_MAIN(TestCan4linuxRecord)
#include "tst_can4linux_record.moc"
