// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/packet_bridge/can_packet_p.h>

#include "support/can_packets.h"
#include "support/delivered_frame.h"
#include "support/hex.h"

#include <QtTest/QtTest>

#include <functional>

using buslink::CanPacket;
using buslink::encodeCanPacket;
using buslink::takeCanPacket;

namespace {

// 2023-11-14 22:13:20.123 UTC
constexpr qint64 Then = 1700000000123;
const char *const ThenBytes = "00f15365 c0d45407";

QByteArray padded(const char *digits)
{
    return hex(digits).leftJustified(92, '\0');
}

/// The frame of bytes that were received, in a record that no packet has filled before.
CAN::CanRxMessage taken(const char *digits)
{
    CAN::CanRxMessage record;
    [&] { QVERIFY(takeCanPacket(packetOf(padded(digits)).stcCanMsg, record)); }();
    return record;
}

CAN::CanMessage frame(quint32 id, const QByteArray &payload, const std::function<void(CAN::CanMessage &)> &change = {})
{
    CAN::CanMessage message = makeFrame(id, payload);
    if (change)
        change(message);
    return message;
}

} // namespace

class TestCanPacket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frameGoesOutBitForBit_data();
    void frameGoesOutBitForBit();
    void dlcIsThatOfTheSmallestFrame_data();
    void dlcIsThatOfTheSmallestFrame();
    void lengthAboveSixtyFourTakesSixtyFourBytesAlong();
    void stampIsSplitIntoSecondsAndNanoseconds_data();
    void stampIsSplitIntoSecondsAndNanoseconds();
    void bytesBehindTheLengthStayAtHome();
    void otherPacketTypesAreRefused_data();
    void otherPacketTypesAreRefused();
    void otherHeaderBitsDoNotMatter();
    void packetIsTakenBitForBit_data();
    void packetIsTakenBitForBit();
    void bitsThatAreNotReadChangeNothing();
    void everyReceivedLengthStaysWithinTheRecord();
    void onlyTheFdFormatIsFd();
    void recordKeepsWhatAPacketDoesNotTell();
    void everyFrameComesBackAsItWent();
};

void TestCanPacket::frameGoesOutBitForBit_data()
{
    using M = CAN::CanMessage;
    QTest::addColumn<CAN::CanMessage>("message");
    QTest::addColumn<QByteArray>("rest");
    const auto row = [](const char *name, const M &message, const char *digits) {
        QTest::newRow(name) << message << hex(digits).leftJustified(80, '\0');
    };
    row("classic", frame(0x123, "\xAA\xBB"), "02000000 02000000 23010000 aabb00");
    row("empty", frame(0, ""), "00000000 00000000 00000000");
    row("extended", frame(0x18FF0001, "\x01", [](M &m) { m.isExtended = true; }), "01000000 01008000 0100ff98 01");
    row("29 bits kept, 3 dropped", frame(0xFFFFFFFF, ""), "00000000 00000000 ffffff1f");
    row("29 bits kept, 3 dropped, extended", frame(0xFFFFFFFF, "", [](M &m) { m.isExtended = true; }),
        "00000000 00008000 ffffff9f");
    const QByteArray twenty("abcdefghijklmnopqrst");
    const char *const twentyDigits = "6162636465666768696a6b6c6d6e6f7071727374";
    const auto fdRow = [&](const char *name, bool brs, bool esi, const char *flags) {
        const M message = frame(0x7FF, twenty, [&](M &m) {
            m.isFd = true;
            m.isBrs = brs;
            m.isEsi = esi;
        });
        row(name, message, QByteArray("14200000 0b00" + QByteArray(flags) + "00 ff070000" + twentyDigits).constData());
    };
    fdRow("CAN FD", false, false, "00");
    fdRow("CAN FD with BRS", true, false, "20");
    fdRow("CAN FD with ESI", false, true, "40");
    fdRow("CAN FD with BRS and ESI", true, true, "60");
    row("classic with BRS and ESI", frame(1, "", [](M &m) { m.isBrs = m.isEsi = true; }), "00000000 00000000 01");
    row("remote frame", frame(0x321, "\x01\x02\x03", [](M &m) { m.isRtr = true; }),
        "03000000 03000000 21030000 010203");
    row("13 bytes", frame(2, "abcdefghijklm", [](M &m) { m.isFd = true; }),
        "0d200000 0a000000 02000000 6162636465666768696a6b6c6d");
    row("64 bytes", frame(3, QByteArray(64, 'z'), [](M &m) { m.isFd = m.isExtended = m.isBrs = m.isEsi = true; }),
        QByteArray("40200000 0f00e000 03000080" + QByteArray(64, 'z').toHex()).constData());
}

void TestCanPacket::frameGoesOutBitForBit()
{
    QFETCH(CAN::CanMessage, message);
    QFETCH(QByteArray, rest);
    QCOMPARE(bytesOf(encodeCanPacket(message, Then)), hex("00100000") + hex(ThenBytes) + rest);
}

void TestCanPacket::dlcIsThatOfTheSmallestFrame_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("last");
    QTest::addColumn<int>("dlc");
    for (int length = 0; length <= 8; ++length)
        QTest::addRow("%d", length) << length << length << length;
    const int ends[] = {8, 12, 16, 20, 24, 32, 48, 64};
    for (int index = 1; index < 8; ++index)
        QTest::addRow("up to %d", ends[index]) << ends[index - 1] + 1 << ends[index] << 8 + index;
    QTest::newRow("more than a frame holds") << 65 << 255 << 0xFF;
}

void TestCanPacket::dlcIsThatOfTheSmallestFrame()
{
    QFETCH(int, first);
    QFETCH(int, last);
    QFETCH(int, dlc);
    for (int length = first; length <= last; ++length) {
        CAN::CanMessage message;
        message.length = static_cast<quint8>(length);
        const CanPacket packet = encodeCanPacket(message, Then);
        QCOMPARE(int(packet.dlc), dlc);
        QCOMPARE(int(packet.lengthFormat), length);
    }
}

void TestCanPacket::lengthAboveSixtyFourTakesSixtyFourBytesAlong()
{
    for (const int length : {65, 128, 255}) {
        CAN::CanMessage message = frame(1, QByteArray(64, 'p'), [](CAN::CanMessage &m) { m.isFd = true; });
        message.length = static_cast<quint8>(length);
        // What follows the payload in the record must not follow it into the packet.
        message.reservedFlag = message.fillByte = 0xEE;
        QByteArray expected = hex("00100000") + hex(ThenBytes) + hex("ff200000 ff000000 01000000");
        expected[12] = static_cast<char>(length);
        QCOMPARE(bytesOf(encodeCanPacket(message, Then)), expected + QByteArray(64, 'p') + QByteArray(4, '\0'));
    }
}

void TestCanPacket::stampIsSplitIntoSecondsAndNanoseconds_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<quint32>("seconds");
    QTest::addColumn<qint32>("nanoseconds");
    QTest::newRow("epoch") << qint64(0) << 0U << 0;
    QTest::newRow("last ms of a second") << qint64(1999) << 1U << 999000000;
    QTest::newRow("now or so") << Then << 1700000000U << 123000000;
    QTest::newRow("past 31 bits") << qint64(0x80000000) * 1000 + 1 << 0x80000000U << 1000000;
    QTest::newRow("cut to 32 bits") << qint64(0x100000005) * 1000 + 500 << 5U << 500000000;
}

void TestCanPacket::stampIsSplitIntoSecondsAndNanoseconds()
{
    QFETCH(qint64, ms);
    QFETCH(quint32, seconds);
    QFETCH(qint32, nanoseconds);
    const CanPacket packet = encodeCanPacket(CAN::CanMessage(), ms);
    QCOMPARE(packet.packetSeconds, seconds);
    QCOMPARE(packet.packetNanoseconds, nanoseconds);
}

void TestCanPacket::bytesBehindTheLengthStayAtHome()
{
    CAN::CanMessage message = makeFrame(1, QByteArray(64, 's'));
    message.length = 3;
    const CanPacket packet = encodeCanPacket(message, Then);
    QCOMPARE(bytesOf(packet).mid(24), QByteArray("sss").leftJustified(68, '\0'));
}

void TestCanPacket::otherPacketTypesAreRefused_data()
{
    QTest::addColumn<quint32>("header");
    QTest::newRow("0x00000000") << 0U;
    for (quint32 type = 2; type < 16; ++type)
        QTest::addRow("type %u", type) << (type << 12);
    QTest::newRow("all but type 1") << 0xFFFFEFFFU;
}

void TestCanPacket::otherPacketTypesAreRefused()
{
    QFETCH(quint32, header);
    CanPacket packet = encodeCanPacket(makeFrame(1, "x"), Then);
    packet.packetHeader = header;
    CAN::CanRxMessage record = deliveredFrame(7);
    const QString before = textOf(record);
    QVERIFY(!takeCanPacket(packet, record));
    QCOMPARE(textOf(record), before);
}

void TestCanPacket::otherHeaderBitsDoNotMatter()
{
    CanPacket packet = encodeCanPacket(makeFrame(1, "x"), Then);
    packet.packetHeader = 0xFFFF1FFF;
    CAN::CanRxMessage record;
    QVERIFY(takeCanPacket(packet, record));
    QCOMPARE(record.message.id, 1U);
}

void TestCanPacket::packetIsTakenBitForBit_data()
{
    using R = CAN::CanRxMessage;
    QTest::addColumn<QByteArray>("digits");
    QTest::addColumn<QString>("record");
    const auto row = [](const char *name, const char *digits, const std::function<void(R &)> &change) {
        R record;
        change(record);
        QTest::newRow(name) << QByteArray(digits) << textOf(record);
    };
    row("classic", "00100000 11000000 3f841e00 02000000 00000000 23010000 aabb", [](R &r) {
        r.timeStamp.seconds = 17;
        r.timeStamp.microseconds = 1999;
        r.message = makeFrame(0x123, "\xAA\xBB");
    });
    row("extended", "00100000 00000000 00000000 00000000 00000000 010000f8", [](R &r) {
        r.message.id = 0x18000001;
        r.message.isExtended = true;
    });
    row("extended in the flags alone", "00100000 00000000 00000000 00000000 00008000 01000000",
        [](R &r) { r.message.id = 1; });
    row("CAN FD has BRS", "00100000 00000000 00000000 01200000 00000000 01000000 41", [](R &r) {
        r.message = makeFrame(1, "A");
        r.message.isFd = r.message.isBrs = true;
    });
    row("CAN FD with ESI", "00100000 00000000 00000000 00200000 00004000 01000000", [](R &r) {
        r.message.id = 1;
        r.message.isFd = r.message.isBrs = r.message.isEsi = true;
    });
    row("classic with ESI and BRS", "00100000 00000000 00000000 00000000 00006000", [](R &) {});
    row("transmitted by the peer", "00100000 00000000 00000000 00000000 00000080", [](R &r) { r.isTx = true; });
    row("length of 11 bits is cut to 8", "00100000 00000000 00000000 02070000 00000000 00000000 4142",
        [](R &r) { r.message = makeFrame(0, "AB"); });
    row("DLC does not matter", "00100000 00000000 00000000 01000000 0f000000 00000000 4142",
        [](R &r) { r.message = makeFrame(0, "A"); });
    row("stamp past 31 bits", "00100000 ffffffff ffc99a3b", [](R &r) {
        r.timeStamp.seconds = -1;
        r.timeStamp.microseconds = 999999;
    });
    row("negative nanoseconds go towards zero", "00100000 00000000 c17be1ff",
        [](R &r) { r.timeStamp.microseconds = -1999; });
}

void TestCanPacket::packetIsTakenBitForBit()
{
    QFETCH(QByteArray, digits);
    QFETCH(QString, record);
    QCOMPARE(textOf(taken(digits.constData())), record);
    CanPacket withTail = packetOf(hex(digits.constData())).stcCanMsg;
    withTail.packetTail = 0xCAFEBABE;
    CAN::CanRxMessage again;
    QVERIFY(takeCanPacket(withTail, again));
    QCOMPARE(again.packetWord, 0xCAFEBABEU);
}

void TestCanPacket::bitsThatAreNotReadChangeNothing()
{
    const CanPacket plain = encodeCanPacket(makeFrame(0x55, "x"), Then);
    CanPacket noisy = plain;
    noisy.lengthFormat |= 0x1800;
    noisy.fillWord = 0xFFFF;
    noisy.dlc = noisy.fillByte = 0xFF;
    noisy.frameFlags |= 0x9F;
    noisy.frameFlags2 |= 0x7F;
    noisy.canId |= 0x60000000;
    CAN::CanRxMessage expected;
    CAN::CanRxMessage got;
    QVERIFY(takeCanPacket(plain, expected));
    QVERIFY(takeCanPacket(noisy, got));
    QCOMPARE(textOf(got), textOf(expected));
}

void TestCanPacket::everyReceivedLengthStaysWithinTheRecord()
{
    CanPacket packet = encodeCanPacket(CAN::CanMessage(), Then);
    std::fill(std::begin(packet.payload), std::end(packet.payload), quint8(0xEE));
    packet.packetTail = 0xEEEEEEEE;
    for (int length = 0; length <= 0x7FF; ++length) {
        packet.lengthFormat = static_cast<quint16>(length);
        CAN::CanRxMessage record;
        QVERIFY(takeCanPacket(packet, record));
        const int delivered = length & 0xFF;
        CAN::CanMessage expected = makeFrame(0, QByteArray(std::min(delivered, 64), '\xEE'));
        expected.length = static_cast<quint8>(delivered);
        QCOMPARE(bytesOf(record.message), bytesOf(expected));
    }
}

void TestCanPacket::onlyTheFdFormatIsFd()
{
    for (unsigned format = 0; format < 8; ++format) {
        CanPacket packet = encodeCanPacket(CAN::CanMessage(), Then);
        packet.lengthFormat = static_cast<quint16>(format << 13);
        CAN::CanRxMessage record;
        QVERIFY(takeCanPacket(packet, record));
        QCOMPARE(record.message.isFd, format == 1);
        QCOMPARE(record.message.isBrs, format == 1);
    }
}

void TestCanPacket::recordKeepsWhatAPacketDoesNotTell()
{
    CAN::CanRxMessage record;
    record.adapterId = 5;
    record.message = frame(9, QByteArray(64, 'o'), [](CAN::CanMessage &m) {
        m.isRtr = m.isFd = m.isBrs = m.isEsi = true;
        m.reservedFlag = 3;
    });
    QVERIFY(takeCanPacket(encodeCanPacket(frame(0x10, "new"), 0), record));
    CAN::CanRxMessage expected;
    expected.adapterId = 5;
    expected.message = frame(0x10, "new" + QByteArray(61, 'o'), [](CAN::CanMessage &m) {
        m.length = 3;
        m.isRtr = m.isFd = m.isBrs = m.isEsi = true;
        m.reservedFlag = 3;
    });
    QCOMPARE(textOf(record), textOf(expected));
}

void TestCanPacket::everyFrameComesBackAsItWent()
{
    for (int flags = 0; flags < 8; ++flags) {
        for (int length = 0; length <= 64; ++length) {
            const CAN::CanMessage message =
                frame(0x1ABCDEF5, QByteArray(length, char('a' + flags)), [flags](CAN::CanMessage &m) {
                    m.isExtended = (flags & 1) != 0;
                    m.isFd = m.isBrs = (flags & 2) != 0;
                    m.isEsi = m.isFd && (flags & 4) != 0;
                });
            CAN::CanRxMessage record;
            QVERIFY(takeCanPacket(encodeCanPacket(message, Then), record));
            CAN::CanRxMessage expected;
            expected.message = message;
            expected.timeStamp.seconds = 1700000000;
            expected.timeStamp.microseconds = 123000;
            QCOMPARE(textOf(record), textOf(expected));
        }
    }
}

QTEST_APPLESS_MAIN(TestCanPacket)
#include "tst_can_packet.moc"
