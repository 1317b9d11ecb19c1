// SPDX-License-Identifier: MIT
#include "usb_stream.h"

#include "support/frame_recorder.h"
#include "support/hex.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <iterator>
#include <random>

using buslink::decodeUsbMessage;
using buslink::UsbDecodeStep;
using Outcome = UsbDecodeStep::Outcome;

Q_DECLARE_METATYPE(Outcome)

namespace {

constexpr quint8 fdLengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};

QByteArray encoded(const CAN::CanMessage &message)
{
    const buslink::UsbMessage wire = buslink::encodeUsbMessage(message);
    return QByteArray(wire.bytes.data(), wire.size);
}

CAN::CanMessage frame(quint32 id, const QByteArray &payload, bool extended = false, bool fd = false)
{
    CAN::CanMessage message = makeFrame(id, payload);
    message.isExtended = extended;
    message.isFd = fd;
    return message;
}

CAN::CanMessage remote(quint32 id, quint8 length, bool extended = false)
{
    CAN::CanMessage message = frame(id, QByteArray(), extended);
    message.isRtr = true;
    message.length = length;
    return message;
}

/// The message of a logical one, made from bit texts, another way than the library's.
QByteArray wireOf(const QByteArray &logical)
{
    QByteArray wire = logical;
    QString bits;
    for (int i = 1; i < logical.size(); ++i) {
        bits.append(static_cast<quint8>(logical.at(i)) > 127 ? QLatin1Char('1') : QLatin1Char('0'));
        wire[i] = static_cast<char>(logical.at(i) & 0x7F);
    }
    while (bits.size() % 7 != 0)
        bits.append(QLatin1Char('0'));
    for (int i = 0; i < bits.size(); i += 7) {
        QString seven = bits.mid(i, 7);
        std::reverse(seven.begin(), seven.end());
        wire.append(static_cast<char>(seven.toUInt(nullptr, 2)));
    }
    wire[0] = static_cast<char>(0x80 + wire.size());
    int sum = 0;
    for (const char byte : qAsConst(wire))
        sum ^= byte & 0x7F;
    return wire.append(static_cast<char>(sum));
}

QByteArray logicalOf(quint8 type, quint32 id, quint8 control, const QByteArray &payload)
{
    QByteArray logical("\x80");
    logical.append(static_cast<char>(type));
    for (int i = 0; i < (type == 2 ? 4 : 2); ++i)
        logical.append(static_cast<char>(id >> 8 * i));
    return logical.append(static_cast<char>(control)).append(payload);
}

/// What a device that follows the format sends for such a frame, written down without the library.
QByteArray wireOfFrame(const CAN::CanMessage &message)
{
    const auto *code = std::lower_bound(std::begin(fdLengths), std::end(fdLengths), message.length);
    const int length = message.isFd ? 0x40 | static_cast<int>(code - std::begin(fdLengths)) : message.length;
    const QByteArray payload(reinterpret_cast<const char *>(message.data), message.isRtr ? 0 : message.length);
    return wireOf(logicalOf(message.isExtended ? 2 : 1, message.id,
                            static_cast<quint8>(length | (message.isRtr ? 0x10 : 0)), payload));
}

CAN::CanMessage decodedAlone(QByteArray wire)
{
    CAN::CanMessage message;
    const UsbDecodeStep step = decodeUsbMessage(wire, message);
    if (step.outcome != Outcome::Frame)
        qWarning() << "no frame in" << wire.toHex();
    return message;
}

QByteArray randomBytes(std::mt19937 &random, int count)
{
    QByteArray bytes;
    for (int i = 0; i < count; ++i)
        bytes.append(static_cast<char>(random()));
    return bytes;
}

CAN::CanMessage randomFrame(std::mt19937 &random)
{
    const bool fd = random() % 2 != 0;
    const bool extended = random() % 2 != 0;
    const quint32 id = static_cast<quint32>(random()) & (extended ? 0x1FFFFFFFU : 0x7FFU);
    const quint8 length = fd ? fdLengths[random() % 16] : static_cast<quint8>(random() % 9);
    CAN::CanMessage message = frame(id, randomBytes(random, length), extended, fd);
    if (!fd && random() % 8 == 0)
        return remote(id, length, extended);
    return message;
}

} // namespace

class TestUsbMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frameAndMessageStandForEachOther_data()
    {
        QTest::addColumn<CAN::CanMessage>("message");
        QTest::addColumn<QByteArray>("wire");

        QTest::newRow("11-bit") << frame(0x123, hex("11FF")) << hex("88 01 23 01 02 11 7F 20 67");
        QTest::newRow("11-bit, no payload") << frame(0x123, {}) << hex("86 01 23 01 00 00 25");
        QTest::newRow("remote") << remote(0x7E0, 0) << hex("86 01 60 07 10 02 72");
        QTest::newRow("29-bit") << frame(0x18FF50E5, hex("DEADBEEF"), true)
                                << hex("8D 02 65 50 7F 18 04 5E 2D 3E 6F 4A 07 36");
        QTest::newRow("FD") << frame(0x100, hex("808182838485868788898A8B"), false, true)
                            << hex("94 01 00 01 49 00 01 02 03 04 05 06 07 08 09 0A 0B 70 7F 03 51");
        QTest::newRow("payload of FF") << frame(0x0, hex("FFFFFFFFFFFF"))
                                       << wireOf(logicalOf(1, 0, 6, hex("FFFFFFFFFFFF")));
        QTest::newRow("remote that asks for 8") << remote(0x7E0, 8) << wireOf(logicalOf(1, 0x7E0, 0x18, {}));
    }

    void frameAndMessageStandForEachOther()
    {
        QFETCH(CAN::CanMessage, message);
        QFETCH(QByteArray, wire);
        QCOMPARE(encoded(message).toHex(' '), wire.toHex(' '));
        QCOMPARE(bytesOf(decodedAlone(wire)), bytesOf(message));
    }

    void everyLengthInEveryKind()
    {
        std::mt19937 random(1);
        for (const bool fd : {false, true}) {
            for (const bool extended : {false, true}) {
                for (int length = 0; length <= 64; ++length) {
                    const CAN::CanMessage message =
                        frame(extended ? 0x1ABCDEF9 : 0x5A5, randomBytes(random, length), extended, fd);
                    const QByteArray wire = encoded(message);
                    QCOMPARE(wire.toHex(' '), wireOfFrame(message).toHex(' '));
                    QCOMPARE(int(static_cast<quint8>(wire.at(0))), 0x80 + int(wire.size()) - 1);
                    const bool travels =
                        fd ? std::binary_search(std::begin(fdLengths), std::end(fdLengths), length) : length <= 15;
                    if (travels)
                        QCOMPARE(bytesOf(decodedAlone(wire)), bytesOf(message));
                }
            }
        }
    }

    void lengthsOfShortestAndLongestMessage()
    {
        QCOMPARE(encoded(frame(0, {})).size(), 7);
        QCOMPARE(encoded(frame(0, QByteArray(64, 'x'), true, true)).size(), 82);
    }

    void onlyTheHeadHasBit7()
    {
        std::mt19937 random(2);
        for (int i = 0; i < 5000; ++i) {
            CAN::CanMessage message = randomFrame(random);
            message.id = static_cast<quint32>(random());
            const QByteArray wire = encoded(message);
            QVERIFY(static_cast<quint8>(wire.at(0)) >= 0x80);
            QVERIFY(std::none_of(wire.begin() + 1, wire.end(), [](char byte) { return (byte & 0x80) != 0; }));
        }
    }

    void allUsedBitsOfTheExtraBytesAreSetForFF()
    {
        // The 4 bytes between head and payload hold no bit 7, the 16 of the payload do: 20 bits of 21.
        const QByteArray wire = encoded(frame(0, QByteArray(16, '\xFF'), false, true));
        QCOMPARE(wire.mid(5, 16), QByteArray(16, '\x7F'));
        QCOMPARE(wire.mid(21, 3), hex("70 7F 3F"));
    }

    void noEmptyExtraByteBehindAFullOne()
    {
        // Fourteen bytes behind the head.
        const QByteArray wire = encoded(frame(0x10, QByteArray(10, '\xFF')));
        QCOMPARE(wire.mid(15).toHex(' '), wireOf(logicalOf(1, 0x10, 10, QByteArray(10, '\xFF'))).mid(15).toHex(' '));
        QCOMPARE(wire.size(), 1 + 14 + 2 + 1);
    }

    void identifierBytesAreSentWithoutAMask()
    {
        QCOMPARE(encoded(frame(0xFFFFFFFF, {}, true)), wireOf(logicalOf(2, 0xFFFFFFFF, 0, {})));
        QCOMPARE(encoded(frame(0xFFFFFFFF, {}, false)), wireOf(logicalOf(1, 0xFFFF, 0, {})));
    }

    void bitRateSwitchAndErrorStateDoNotTravel()
    {
        CAN::CanMessage marked = frame(0x100, hex("0102"), false, true);
        const QByteArray plain = encoded(marked);
        marked.isBrs = true;
        marked.isEsi = true;
        QCOMPARE(encoded(marked), plain);
    }

    void fdLengthBetweenCodesIsNotPadded()
    {
        QCOMPARE(encoded(frame(0x100, QByteArray(9, 'x'), false, true)),
                 wireOf(logicalOf(1, 0x100, 0x49, QByteArray(9, 'x'))));
    }

    void callersLengthUpTo255ReadsNoMoreThanThePayload_data()
    {
        QTest::addColumn<bool>("fd");
        QTest::newRow("classic") << false;
        QTest::newRow("FD") << true;
    }

    void callersLengthUpTo255ReadsNoMoreThanThePayload()
    {
        QFETCH(bool, fd);
        for (int length = 65; length < 256; ++length) {
            CAN::CanMessage message = frame(0x123, QByteArray(64, '\xA5'), true, fd);
            message.length = static_cast<quint8>(length);
            const quint8 control = fd ? 0x4F : static_cast<quint8>(length);
            QCOMPARE(encoded(message), wireOf(logicalOf(2, 0x123, control, QByteArray(64, '\xA5'))));
        }
    }

    void recordKeepsItsBitRateSwitchAndThePayloadBehindTheLength()
    {
        CAN::CanMessage record = frame(0x7, QByteArray(64, '\xEE'));
        record.isBrs = true;
        record.isEsi = true;
        QByteArray wire = encoded(frame(0x123, hex("11FF")));
        QCOMPARE(int(decodeUsbMessage(wire, record).outcome), int(Outcome::Frame));
        CAN::CanMessage expected = frame(0x123, hex("11FF") + QByteArray(62, '\xEE'));
        expected.length = 2;
        expected.isBrs = true;
        QCOMPARE(bytesOf(record), bytesOf(expected));

        wire = encoded(remote(0x123, 8));
        QCOMPARE(int(decodeUsbMessage(wire, record).outcome), int(Outcome::Frame));
        expected.isRtr = true;
        expected.length = 8;
        QCOMPARE(bytesOf(record), bytesOf(expected));
    }

    void randomStreamIsDecodedHoweverItIsCut()
    {
        std::mt19937 random(3);
        QList<CAN::CanMessage> sent;
        QByteArray wire;
        for (int i = 0; i < 40; ++i) {
            sent.append(randomFrame(random));
            wire.append(encoded(sent.last()));
        }
        for (int cut = 0; cut <= wire.size(); ++cut) {
            UsbStream stream;
            QList<CAN::CanMessage> got = stream.take(wire.left(cut));
            got += stream.take(wire.mid(cut));
            compareSent(got, sent);
        }
        UsbStream bytewise;
        QList<CAN::CanMessage> got;
        for (const char byte : qAsConst(wire))
            got += bytewise.take(QByteArray(1, byte));
        compareSent(got, sent);
    }

    void garbageWithoutBit7IsRemovedByteByByte()
    {
        UsbStream stream;
        const CAN::CanMessage message = frame(0x123, hex("01020304"));
        compareSent(stream.take(hex("00 7F 01") + encoded(message)), {message});
        // Three in front, and the three that restoring the message left behind it.
        QCOMPARE(stream.count(Outcome::StrayByte), 6);
    }

    void startInsideAnIncompleteMessageCutsIt()
    {
        QByteArray buffer = hex("88 01 23") + hex("A0 01 02");
        CAN::CanMessage message;
        const UsbDecodeStep step = decodeUsbMessage(buffer, message);
        QCOMPARE(int(step.outcome), int(Outcome::Incomplete));
        QCOMPARE(step.cuts, (QVarLengthArray<int, 32>{3}));
        QCOMPARE(step.remove, 0);
    }

    void searchGoesOnBehindTheCutWithoutAnotherLook_data()
    {
        QTest::addColumn<QByteArray>("buffer");
        QTest::addColumn<QList<int>>("cuts");
        // After a cut at i, the search looks at i + 1 of what is left: starts before that are passed over.
        QTest::newRow("each next one is too near") << hex("FF 80 80 80") << QList<int>{1, 2};
        QTest::newRow("a start that is passed over") << hex("FF 00 00 80 81 00 00 00") << QList<int>{3};
        QTest::newRow("one further on") << hex("FF 00 80 00 00 81 00") << QList<int>{2, 3};
        QTest::newRow("lone 80") << hex("80 01 02 03") << QList<int>{};
        QTest::newRow("80 with a start behind it") << hex("80 01 02 83") << QList<int>{3};
    }

    void searchGoesOnBehindTheCutWithoutAnotherLook()
    {
        QFETCH(QByteArray, buffer);
        QFETCH(QList<int>, cuts);
        const QByteArray before = buffer;
        CAN::CanMessage message;
        const UsbDecodeStep step = decodeUsbMessage(buffer, message);
        QCOMPARE(int(step.outcome), int(Outcome::Incomplete));
        QCOMPARE(QList<int>(step.cuts.begin(), step.cuts.end()), cuts);
        QCOMPARE(buffer, before);
    }

    void startInsideACompleteMessageCutsIt()
    {
        // The checksum's place is looked at as well, what lies behind it is not.
        QByteArray buffer = hex("86 01 23 01 00 00 A5 80");
        CAN::CanMessage message;
        UsbDecodeStep step = decodeUsbMessage(buffer, message);
        QCOMPARE(int(step.outcome), int(Outcome::StartInside));
        QCOMPARE(step.cuts, (QVarLengthArray<int, 32>{6}));

        buffer = hex("86 81 01 02 03 04 05 80");
        step = decodeUsbMessage(buffer, message);
        QCOMPARE(step.cuts, (QVarLengthArray<int, 32>{1, 6}));
    }

    void wrongChecksumCostsTheMessageAlone()
    {
        const CAN::CanMessage second = frame(0x321, hex("0102030405060708"));
        for (int n = 5; n < 30; ++n) {
            QByteArray damaged(n + 1, '\x01');
            damaged[0] = static_cast<char>(0x80 + n);
            int sum = 0;
            for (int i = 0; i < n; ++i)
                sum ^= damaged.at(i) & 0x7F;
            damaged[n] = static_cast<char>(sum ^ 1);
            UsbStream stream;
            compareSent(stream.take(damaged + encoded(second)), {second});
            QCOMPARE(stream.count(Outcome::BadChecksum), 1);
        }
    }

    void zeroBytesLeftBehind_data()
    {
        QTest::addColumn<int>("payload");
        QTest::addColumn<int>("zeros");
        for (const auto &[payload, zeros] : std::initializer_list<std::pair<int, int>>{
                 {0, 1}, {1, 0}, {2, 0}, {3, 0}, {4, 3}, {5, 2}, {6, 1}, {7, 0}, {8, 0}})
            QTest::addRow("%d bytes", payload) << payload << zeros;
    }

    void zeroBytesLeftBehind()
    {
        QFETCH(int, payload);
        QFETCH(int, zeros);
        QByteArray buffer = encoded(frame(0x123, QByteArray(payload, '\xFF')));
        CAN::CanMessage message;
        const UsbDecodeStep step = decodeUsbMessage(buffer, message);
        QCOMPARE(int(step.outcome), int(Outcome::Frame));
        QCOMPARE(buffer.mid(step.remove), QByteArray(zeros, '\0'));
    }

    void restoringLeavesTheMessageBehindAlone()
    {
        const QByteArray next = encoded(frame(0x7FF, QByteArray(8, '\xFF')));
        QByteArray buffer = encoded(frame(0x123, hex("FFFFFFFF"))) + next;
        CAN::CanMessage message;
        const UsbDecodeStep step = decodeUsbMessage(buffer, message);
        QCOMPARE(buffer.mid(step.remove), next);
    }

    void beginningOfTheNextMessageIsNotPaddedWithZeros()
    {
        const QByteArray next = encoded(frame(0x7FF, hex("01"))).left(1);
        QByteArray buffer = encoded(frame(0x123, hex("FFFFFFFF"))) + next;
        CAN::CanMessage message;
        const UsbDecodeStep step = decodeUsbMessage(buffer, message);
        QCOMPARE(int(step.outcome), int(Outcome::Frame));
        QCOMPARE(buffer.mid(step.remove), next);
    }

    void unknownTypeStaysAtTheFront()
    {
        const QByteArray wire = wireOf(logicalOf(3, 0x123, 0, {}));
        QByteArray buffer = wire;
        CAN::CanMessage message;
        for (int pass = 0; pass < 3; ++pass) {
            const UsbDecodeStep step = decodeUsbMessage(buffer, message);
            QCOMPARE(int(step.outcome), int(Outcome::UnknownType));
            QCOMPARE(step.remove, 0);
            QVERIFY(step.cuts.isEmpty());
            QCOMPARE(buffer, wire + QByteArray(1, '\0'));
        }
        QCOMPARE(bytesOf(message), bytesOf(CAN::CanMessage()));
    }

    void unknownTypeWithARestoredBitIsCutThereNextTime()
    {
        QByteArray buffer = wireOf(logicalOf(3, 0x80, 0, {}));
        CAN::CanMessage message;
        QCOMPARE(int(decodeUsbMessage(buffer, message).outcome), int(Outcome::UnknownType));
        const UsbDecodeStep step = decodeUsbMessage(buffer, message);
        QCOMPARE(int(step.outcome), int(Outcome::StartInside));
        QCOMPARE(step.cuts, (QVarLengthArray<int, 32>{2}));
    }

    void lengthThatOverrunsTheMessageReadsNothingBehindTheBuffer()
    {
        // A control byte of 15 bytes and none there: the extra byte, the checksum, then nothing.
        QByteArray buffer = wireOf(logicalOf(1, 0x123, 0x4F, {}));
        CAN::CanMessage message;
        const UsbDecodeStep step = decodeUsbMessage(buffer, message);
        QCOMPARE(int(step.outcome), int(Outcome::Frame));
        QCOMPARE(step.remove, 7);
        CAN::CanMessage expected = frame(0x123, QByteArray(64, '\0'), false, true);
        expected.data[1] = static_cast<quint8>(wireOf(logicalOf(1, 0x123, 0x4F, {})).at(6));
        QCOMPARE(bytesOf(message), bytesOf(expected));
    }

    void anyBufferIsDecodedWithinItsBounds()
    {
        std::mt19937 random(4);
        for (int round = 0; round < 20000; ++round) {
            QByteArray buffer = randomBytes(random, 1 + static_cast<int>(random() % 150));
            for (char &byte : buffer)
                byte = static_cast<char>(byte & 0x7F);
            // n of every size, 127 among them, with a right checksum where the message is whole.
            const int n = static_cast<int>(random() % 128);
            buffer[0] = static_cast<char>(0x80 | n);
            if (n > 0 && n < buffer.size()) {
                int sum = 0;
                for (int i = 0; i < n; ++i)
                    sum ^= buffer.at(i) & 0x7F;
                buffer[n] = static_cast<char>(sum);
            }
            const int size = buffer.size();
            CAN::CanMessage message;
            const UsbDecodeStep step = decodeUsbMessage(buffer, message);
            QVERIFY(buffer.size() <= size + 5);
            QVERIFY(step.remove <= buffer.size());
            QVERIFY(message.length <= 64);
        }
    }

    void flippedBitIsNoticedAndCostsNoFrameBefore()
    {
        std::mt19937 random(5);
        QByteArray wire;
        QList<CAN::CanMessage> sent;
        QList<int> ends;
        for (int i = 0; i < 12; ++i) {
            sent.append(randomFrame(random));
            wire.append(encoded(sent.last()));
            ends.append(wire.size());
        }
        for (int bit = 0; bit < wire.size() * 8; ++bit) {
            QByteArray damaged = wire;
            damaged[bit / 8] = static_cast<char>(damaged.at(bit / 8) ^ 1 << bit % 8);
            UsbStream stream;
            const QList<CAN::CanMessage> got = stream.take(damaged);
            const int touched = static_cast<int>(std::upper_bound(ends.begin(), ends.end(), bit / 8) - ends.begin());
            compareSent(got.mid(0, touched), sent.mid(0, touched));
            // Behind the head the checksum notices a single bit, so that frame is gone.
            if (bit / 8 != 0 && !ends.contains(bit / 8))
                QVERIFY(got.size() < sent.size());
        }
    }

private:
    static void compareSent(const QList<CAN::CanMessage> &got, const QList<CAN::CanMessage> &sent)
    {
        QCOMPARE(got.size(), sent.size());
        for (int i = 0; i < got.size(); ++i) {
            // The record is used again and again, so behind the length are bytes of frames before.
            CAN::CanMessage cut = got.at(i);
            std::fill(cut.data + (cut.isRtr ? 0 : cut.length), std::end(cut.data), quint8(0));
            QCOMPARE(bytesOf(cut), bytesOf(sent.at(i)));
        }
    }
};

QTEST_APPLESS_MAIN(TestUsbMessage)
#include "tst_usb_message.moc"
