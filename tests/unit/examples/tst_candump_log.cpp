// SPDX-License-Identifier: MIT
#include "common/candump_log.h"
#include "support/frame_recorder.h"

#include <QtTest/QtTest>

#include <cstring>
#include <limits>

using buslink::LogFrame;
using buslink::LogLine;

namespace {

CAN::CanMessage extendedFrame(quint32 id, const QByteArray &payload = {})
{
    CAN::CanMessage message = makeFrame(id, payload);
    message.isExtended = true;
    return message;
}

CAN::CanMessage remoteFrame(quint32 id, quint8 length)
{
    CAN::CanMessage message = makeFrame(id, {});
    message.isRtr = true;
    message.length = length;
    return message;
}

CAN::CanMessage fdFrame(quint32 id, const QByteArray &payload, bool brs = false, bool esi = false)
{
    CAN::CanMessage message = makeFrame(id, payload);
    message.isFd = true;
    message.isBrs = brs;
    message.isEsi = esi;
    return message;
}

LogFrame logFrame(const QByteArray &bytes)
{
    LogFrame frame{1500000, "can0", {}};
    std::memcpy(&frame.message, bytes.constData(), sizeof frame.message);
    return frame;
}

QByteArray countingPayload(int size)
{
    QByteArray payload;
    for (int i = 0; i < size; ++i)
        payload.append(static_cast<char>(0xF0 + i));
    return payload;
}

QByteArray hexOf(int size)
{
    return countingPayload(size).toHex().toUpper();
}

void addFormRows()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char *name, const QByteArray &text, const CAN::CanMessage &message) {
        QTest::newRow(name) << text << bytesOf(message);
    };
    const QByteArray two = QByteArray::fromHex("1122");
    row("classic", "123#1122", makeFrame(0x123, two));
    row("classic without payload", "123#", makeFrame(0x123, {}));
    row("classic with 8 bytes", "123#" + hexOf(8), makeFrame(0x123, countingPayload(8)));
    row("lowest standard identifier", "000#1122", makeFrame(0, two));
    row("highest standard identifier", "7FF#1122", makeFrame(0x7FF, two));
    row("extended", "12345678#1122", extendedFrame(0x12345678, two));
    row("extended without payload", "12345678#", extendedFrame(0x12345678));
    row("lowest extended identifier", "00000000#1122", extendedFrame(0, two));
    row("extended identifier of a standard size", "000007FF#1122", extendedFrame(0x7FF, two));
    row("highest extended identifier", "1FFFFFFF#1122", extendedFrame(0x1FFFFFFF, two));
    row("remote", "123#R", remoteFrame(0x123, 0));
    row("remote with a length", "123#R4", remoteFrame(0x123, 4));
    row("remote with the highest length", "123#R8", remoteFrame(0x123, 8));
    CAN::CanMessage extendedRemote = remoteFrame(0x12345678, 1);
    extendedRemote.isExtended = true;
    row("extended remote", "12345678#R1", extendedRemote);
    row("FD", "123##01122", fdFrame(0x123, two));
    row("FD without payload", "123##0", fdFrame(0x123, {}));
    row("FD with bit-rate switch", "123##11122", fdFrame(0x123, two, true));
    row("FD with error state", "123##21122", fdFrame(0x123, two, false, true));
    row("FD with both flags", "123##31122", fdFrame(0x123, two, true, true));
    CAN::CanMessage extendedFd = fdFrame(0x1FFFFFFF, two, true);
    extendedFd.isExtended = true;
    row("extended FD", "1FFFFFFF##11122", extendedFd);
    for (const int size : {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64})
        row(qPrintable(QStringLiteral("FD with %1 bytes").arg(size)), "123##1" + hexOf(size),
            fdFrame(0x123, countingPayload(size), true));
    for (int size = 1; size < 8; ++size)
        row(qPrintable(QStringLiteral("classic with %1 bytes").arg(size)), "123#" + hexOf(size),
            makeFrame(0x123, countingPayload(size)));
}

void addTakenVariantRows()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<qint64>("timeUs");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("bytes");
    const CAN::CanMessage plain = makeFrame(0x123, QByteArray::fromHex("AB22"));
    const auto row = [](const char *name, const char *line, qint64 timeUs, const CAN::CanMessage &message) {
        QTest::newRow(name) << QByteArray(line) << timeUs << QByteArray("can0") << bytesOf(message);
    };
    const CAN::CanMessage eight = makeFrame(0x123, QByteArray::fromHex("1122334455667788"));
    row("lower-case digits", "(1.500000) can0 123#ab22", 1500000, plain);
    row("padded seconds", "(0000000001.500000) can0 123#AB22", 1500000, plain);
    row("no fraction", "(1) can0 123#AB22", 1000000, plain);
    row("short fraction", "(1.5) can0 123#AB22", 1500000, plain);
    row("nanoseconds are cut to microseconds", "(1.500000999) can0 123#AB22", 1500000, plain);
    row("seconds since 1970", "(1436509052.249713) can0 123#AB22", 1436509052249713, plain);
    row("the most seconds", "(999999999999.999999) can0 123#AB22", 999999999999999999, plain);
    row("time zero", "(0.000000) can0 123#AB22", 0, plain);
    row("received direction", "(1.500000) can0 123#AB22 R", 1500000, plain);
    row("transmitted direction", "(1.500000) can0 123#AB22 T", 1500000, plain);
    row("dots between bytes", "(1.500000) can0 123#11.22.33.44.55.66.77.88", 1500000, eight);
    row("dots between some bytes", "(1.500000) can0 123#1122.33445566.7788", 1500000, eight);
    row("dots in FD", "(1.500000) can0 123##1AB.22", 1500000, fdFrame(0x123, QByteArray::fromHex("AB22"), true));
    row("lowest raw length code", "(1.500000) can0 123#1122334455667788_9", 1500000, eight);
    row("highest raw length code", "(1.500000) can0 123#1122334455667788_F", 1500000, eight);
    row("lower-case raw length code", "(1.500000) can0 123#1122334455667788_e", 1500000, eight);
    row("raw length code of a remote frame", "(1.500000) can0 123#R8_E", 1500000, remoteFrame(0x123, 8));
    row("remote with length 0", "(1.500000) can0 123#R0", 1500000, remoteFrame(0x123, 0));
    row("lower-case remote", "(1.500000) can0 123#r2", 1500000, remoteFrame(0x123, 2));
    row("FD flag of the frame format", "(1.500000) can0 123##4AB22", 1500000,
        fdFrame(0x123, QByteArray::fromHex("AB22")));
    row("all FD flags", "(1.500000) can0 123##7AB22", 1500000, fdFrame(0x123, QByteArray::fromHex("AB22"), true, true));
    row("carriage return", "(1.500000) can0 123#AB22\r", 1500000, plain);
    row("more white space", " \t(1.500000)  can0\t123#AB22  T \r", 1500000, plain);
}

void addDamagedRows()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("error");
    const auto row = [](const char *name, const QByteArray &line, const char *error) {
        QTest::newRow(name) << line << QByteArray(error);
    };
    row("text", "hello", "no time stamp of the form (seconds.microseconds): 'hello'");
    row("comment", "# recorded", "no time stamp of the form (seconds.microseconds): '#'");
    row("stamp without parentheses", "1.5 can0 123#", "no time stamp of the form (seconds.microseconds): '1.5'");
    row("stamp not closed", "(1.5 can0 123#", "no time stamp of the form (seconds.microseconds): '(1.5'");
    row("empty stamp", "() can0 123#", "no time stamp of the form (seconds.microseconds): '()'");
    row("letters in the stamp", "(1.x) can0 123#", "a time stamp has digits and one point: '1.x'");
    row("negative stamp", "(-1.5) can0 123#", "a time stamp has digits and one point: '-1.5'");
    row("two points", "(1.5.0) can0 123#", "a time stamp has digits and one point: '1.5.0'");
    row("no seconds", "(.5) can0 123#", "a time stamp has digits and one point: '.5'");
    row("nothing behind the point", "(1.) can0 123#", "a time stamp has digits and one point: '1.'");
    row("too many seconds", "(1234567890123.5) can0 123#", "time stamp with too many digits: '1234567890123.5'");
    row("too fine", "(1.0123456789) can0 123#", "time stamp with too many digits: '1.0123456789'");
    row("no name", "(1.5)", "no interface name behind the time stamp");
    row("no frame", "(1.5) can0", "no frame behind the interface name");
    row("no hash", "(1.5) can0 1231122", "no # behind the identifier: '1231122'");
    row("no identifier", "(1.5) can0 #1122", "an identifier has 3 or 8 hexadecimal digits: ''");
    row("two-digit identifier", "(1.5) can0 12#", "an identifier has 3 or 8 hexadecimal digits: '12'");
    row("seven-digit identifier", "(1.5) can0 1234567#", "an identifier has 3 or 8 hexadecimal digits: '1234567'");
    row("nine-digit identifier", "(1.5) can0 012345678#", "an identifier has 3 or 8 hexadecimal digits: '012345678'");
    row("letters in the identifier", "(1.5) can0 1G3#", "an identifier has 3 or 8 hexadecimal digits: '1G3'");
    row("standard identifier out of range", "(1.5) can0 800#", "identifier out of range: '800'");
    row("extended identifier out of range", "(1.5) can0 40000000#", "identifier out of range: '40000000'");
    row("extended identifier with all bits", "(1.5) can0 FFFFFFFF#", "identifier out of range: 'FFFFFFFF'");
    row("error frame", "(1.5) can0 20000004#0000000000000000", "an error frame cannot be played: '20000004'");
    row("highest error frame", "(1.5) can0 3FFFFFFF#", "an error frame cannot be played: '3FFFFFFF'");
    row("odd digits", "(1.5) can0 123#112", "odd number of payload digits: '112'");
    row("odd digits in FD", "(1.5) can0 123##0112", "odd number of payload digits: '112'");
    row("no digits", "(1.5) can0 123#xy", "the payload is not made of hexadecimal digits: 'xy'");
    row("second digit of a byte", "(1.5) can0 123#1x", "the payload is not made of hexadecimal digits: '1x'");
    row("leading dot", "(1.5) can0 123#.11", "the payload is not made of hexadecimal digits: '.11'");
    row("trailing dot", "(1.5) can0 123#11.", "the payload is not made of hexadecimal digits: '11.'");
    row("doubled dot", "(1.5) can0 123#11..22", "the payload is not made of hexadecimal digits: '11..22'");
    row("dot within a byte", "(1.5) can0 123#1.122", "the payload is not made of hexadecimal digits: '1.122'");
    row("nine classic bytes", "(1.5) can0 123#" + hexOf(9), "more than 8 bytes of payload");
    row("65 FD bytes", "(1.5) can0 123##0" + QByteArray(130, '0'), "more than 64 bytes of payload");
    for (const int size : {9, 11, 13, 17, 21, 25, 33, 47, 49, 63})
        QTest::newRow(qPrintable(QStringLiteral("FD with %1 bytes").arg(size)))
            << "(1.5) can0 123##0" + hexOf(size) << "CAN FD has no frames of " + QByteArray::number(size) + " bytes";
    row("FD without flags", "(1.5) can0 123##", "CAN FD flags are one digit from 0 to 7: ''");
    row("unknown FD flag", "(1.5) can0 123##8", "CAN FD flags are one digit from 0 to 7: '8'");
    row("FD remote", "(1.5) can0 123##R", "CAN FD flags are one digit from 0 to 7: 'R'");
    row("remote with 9 bytes", "(1.5) can0 123#R9", "a remote frame asks for 0 to 8 bytes: '9'");
    row("remote with a payload", "(1.5) can0 123#R211", "unexpected text behind the frame: '11'");
    const char *lengthCode = "a raw length code is 9 to F and stands behind 8 bytes: ";
    row("raw length code behind 2 bytes", "(1.5) can0 123#1122_E", (lengthCode + QByteArray("'_E'")).constData());
    row("raw length code 8", "(1.5) can0 123#1122334455667788_8", (lengthCode + QByteArray("'_8'")).constData());
    row("no raw length code", "(1.5) can0 123#1122334455667788_", (lengthCode + QByteArray("'_'")).constData());
    row("long raw length code", "(1.5) can0 123#1122334455667788_EE", (lengthCode + QByteArray("'_EE'")).constData());
    row("other direction", "(1.5) can0 123#11 X", "unexpected text behind the frame: 'X'");
    row("text behind the direction", "(1.5) can0 123#11 R 5", "unexpected text behind the frame: '5'");
    row("control characters are not echoed", "(1.5) can0 \x1B[2J#\xFF",
        "an identifier has 3 or 8 hexadecimal digits: '?[2J'");
    row("zero bytes are no white space", QByteArray("(1.5) can0 123#11\0", 18),
        "the payload is not made of hexadecimal digits: '11?'");
    row("endless word", QByteArray(4000, 'a'),
        "no time stamp of the form (seconds.microseconds): 'aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa...'");
}

} // namespace

class TestCandumpLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyFormIsWritten_data() { addFormRows(); }
    void everyFormIsWritten()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, bytes);
        QCOMPARE(QByteArray::fromStdString(buslink::formatLogLine(logFrame(bytes))), "(1.500000) can0 " + text);
    }

    void everyFormIsReadBackToTheSameBytes_data() { addFormRows(); }
    void everyFormIsReadBackToTheSameBytes()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, bytes);
        const LogLine line = buslink::parseLogLine(("(1.500000) can0 " + text).toStdString());
        QCOMPARE(QByteArray::fromStdString(line.error), QByteArray());
        QCOMPARE(line.kind, LogLine::Kind::Frame);
        QCOMPARE(line.frame.timeUs, qint64(1500000));
        QCOMPARE(line.frame.interfaceName, std::string("can0"));
        QCOMPARE(bytesOf(line.frame.message), bytes);
    }

    void whatOtherToolsWriteIsTaken_data() { addTakenVariantRows(); }
    void whatOtherToolsWriteIsTaken()
    {
        QFETCH(QByteArray, line);
        const LogLine read = buslink::parseLogLine(line.toStdString());
        QCOMPARE(QByteArray::fromStdString(read.error), QByteArray());
        QCOMPARE(read.kind, LogLine::Kind::Frame);
        QTEST(read.frame.timeUs, "timeUs");
        QTEST(QByteArray::fromStdString(read.frame.interfaceName), "name");
        QTEST(bytesOf(read.frame.message), "bytes");
    }

    void damagedLinesAreToldApart_data() { addDamagedRows(); }
    void damagedLinesAreToldApart()
    {
        QFETCH(QByteArray, line);
        const LogLine read = buslink::parseLogLine(line.toStdString());
        QTEST(QByteArray::fromStdString(read.error), "error");
        QCOMPARE(read.kind, LogLine::Kind::Damaged);
    }

    void blankLinesAreNoFrames_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("blanks") << QByteArray("   ");
        QTest::newRow("tabs and a carriage return") << QByteArray("\t \t\r");
    }
    void blankLinesAreNoFrames()
    {
        QFETCH(QByteArray, line);
        const LogLine read = buslink::parseLogLine(line.toStdString());
        QCOMPARE(read.kind, LogLine::Kind::Blank);
        QCOMPARE(read.error, std::string());
    }

    void timeStampsAreWrittenToTheMicrosecond_data()
    {
        QTest::addColumn<qint64>("timeUs");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("zero") << qint64(0) << QByteArray("(0.000000) can0 123#");
        QTest::newRow("one microsecond") << qint64(1) << QByteArray("(0.000001) can0 123#");
        QTest::newRow("seconds") << qint64(86399999999) << QByteArray("(86399.999999) can0 123#");
        QTest::newRow("since 1970") << qint64(1436509052249713) << QByteArray("(1436509052.249713) can0 123#");
        QTest::newRow("negative") << qint64(-1500000) << QByteArray("(-1.500000) can0 123#");
        QTest::newRow("least") << std::numeric_limits<qint64>::min() << QByteArray("(-9223372036854.775808) can0 123#");
    }
    void timeStampsAreWrittenToTheMicrosecond()
    {
        QFETCH(qint64, timeUs);
        QFETCH(QByteArray, text);
        QCOMPARE(QByteArray::fromStdString(buslink::formatLogLine({timeUs, "can0", makeFrame(0x123, {})})), text);
    }

    void impossibleFramesAreWrittenAsTheyAre_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("classic with 12 bytes")
            << bytesOf(makeFrame(0x123, countingPayload(12))) << "(1.500000) can0 123#" + hexOf(12);
        QTest::newRow("remote with length 64")
            << bytesOf(remoteFrame(0x123, 64)) << QByteArray("(1.500000) can0 123#R64");
        QTest::newRow("identifier out of range")
            << bytesOf(makeFrame(0xFFFF00EF, {})) << QByteArray("(1.500000) can0 FFFF00EF#");
        CAN::CanMessage fdRemote = fdFrame(0x123, QByteArray::fromHex("11"));
        fdRemote.isRtr = true;
        QTest::newRow("FD with the remote mark") << bytesOf(fdRemote) << QByteArray("(1.500000) can0 123##011");
        CAN::CanMessage tooLong = makeFrame(0x123, QByteArray(64, '\x11'));
        tooLong.length = 255;
        QTest::newRow("length beyond the record")
            << bytesOf(tooLong) << "(1.500000) can0 123#" + QByteArray(64, '\x11').toHex();
    }
    void impossibleFramesAreWrittenAsTheyAre()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, text);
        QCOMPARE(QByteArray::fromStdString(buslink::formatLogLine(logFrame(bytes))), text);
    }
};

QTEST_APPLESS_MAIN(TestCandumpLog)
#include "tst_candump_log.moc"
