// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/socket_can_frame_p.h>

#include "kernel_frames.h"
#include "support/frame_recorder.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <linux/can/error.h>

using buslink::KernelFrame;
using buslink::KernelFrameKind;

Q_DECLARE_METATYPE(KernelFrameKind)

namespace {

const QByteArray eight = QByteArray::fromHex("1122334455667788");

QByteArray counted(int length)
{
    QByteArray payload;
    for (int index = 0; index < length; ++index)
        payload.append(static_cast<char>(index + 1));
    return payload;
}

KernelFrame kernelFrame(const QByteArray &bytes)
{
    KernelFrame frame;
    std::copy_n(bytes.constData(), std::min<int>(bytes.size(), CANFD_MTU), frame.bytes.begin());
    return frame;
}

/// A record in which every byte that a conversion leaves alone can be told.
CAN::CanMessage usedRecord()
{
    CAN::CanMessage message = makeFrame(0x1FFFFFFF, QByteArray(64, char(0xEE)));
    message.isRtr = message.isExtended = message.isFd = message.isEsi = message.isBrs = true;
    message.reservedFlag = 0x74;
    message.fillByte = 0x75;
    return message;
}

CAN::CanMessage over(CAN::CanMessage message, quint32 id, bool isExtended, bool isRtr, const QByteArray &payload)
{
    message.id = id;
    message.isExtended = isExtended;
    message.isRtr = isRtr;
    message.length = static_cast<quint8>(payload.size());
    if (!isRtr)
        std::copy_n(payload.constData(), payload.size(), message.data);
    return message;
}

CAN::CanMessage withFd(CAN::CanMessage message, bool isFd, bool isBrs, bool isEsi)
{
    message.isFd = isFd;
    message.isBrs = isBrs;
    message.isEsi = isEsi;
    return message;
}

template <typename Frame>
QByteArray bytesOfFrame(const Frame &frame)
{
    return QByteArray(reinterpret_cast<const char *>(&frame), sizeof frame);
}

} // namespace

class TestSocketCanFrame : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void classicLoopFillsTheRecord_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<CAN::CanMessage>("expected");
        const CAN::CanMessage used = usedRecord();
        const auto row = [](const char *name, const QByteArray &bytes, const CAN::CanMessage &expected) {
            QTest::newRow(name) << bytes << expected;
        };
        row("empty", classicBytes(0, 0, {}), over(used, 0, false, false, {}));
        row("three bytes", classicBytes(0x123, 3, eight), over(used, 0x123, false, false, eight.left(3)));
        row("eight bytes", classicBytes(0x7FF, 8, eight), over(used, 0x7FF, false, false, eight));
        row("extended", classicBytes(CAN_EFF_FLAG | 0x1ABCDEF5, 8, eight), over(used, 0x1ABCDEF5, true, false, eight));
        row("extended with a short number", classicBytes(CAN_EFF_FLAG | 5, 1, eight),
            over(used, 5, true, false, eight.left(1)));
        row("stray bits above a short identifier", classicBytes(0x1FFFFFFF, 1, eight),
            over(used, 0x7FF, false, false, eight.left(1)));
        row("remote", classicBytes(CAN_RTR_FLAG | 0x123, 5, eight), over(used, 0x123, false, true, eight.left(5)));
        row("extended remote", classicBytes(CAN_EFF_FLAG | CAN_RTR_FLAG | 0x12345, 0, {}),
            over(used, 0x12345, true, true, {}));
        row("length 9", classicBytes(0x1, 9, eight), over(used, 0x1, false, false, eight));
        row("length 255", classicBytes(0x1, 255, eight), over(used, 0x1, false, false, eight));
        row("remote of length 15", classicBytes(CAN_RTR_FLAG | 0x1, 15, eight), over(used, 0x1, false, true, eight));
        row("beginning of a CAN FD frame", fdBytes(0x321, 64, CANFD_BRS | CANFD_ESI, counted(64)).left(16),
            over(used, 0x321, false, false, counted(8)));
        row("beginning of a short CAN FD frame", fdBytes(0x321, 2, CANFD_BRS, counted(2)).left(16),
            over(used, 0x321, false, false, counted(2)));
    }

    void classicLoopFillsTheRecord()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(CAN::CanMessage, expected);
        CAN::CanMessage message = usedRecord();
        QCOMPARE(buslink::takeClassicFrame(kernelFrame(bytes), 16, message), KernelFrameKind::Frame);
        QCOMPARE(bytesOf(message), bytesOf(expected));
    }

    void fdLoopFillsTheRecord_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<CAN::CanMessage>("expected");
        const CAN::CanMessage fd = withFd(usedRecord(), true, false, false);
        const CAN::CanMessage classic = withFd(usedRecord(), false, false, false);
        const auto row = [](const char *name, const QByteArray &bytes, const CAN::CanMessage &expected) {
            QTest::newRow(name) << bytes << expected;
        };
        row("empty", fdBytes(0, 0, 0, {}), over(fd, 0, false, false, {}));
        for (const int length : {1, 8, 12, 16, 20, 24, 32, 48, 64})
            row(qPrintable(QStringLiteral("%1 bytes").arg(length)), fdBytes(0x10, length, 0, counted(length)),
                over(fd, 0x10, false, false, counted(length)));
        row("extended", fdBytes(CAN_EFF_FLAG | 0x1ABCDEF5, 8, 0, eight), over(fd, 0x1ABCDEF5, true, false, eight));
        row("stray bits above a short identifier", fdBytes(0x1FFFFFFF, 1, 0, eight),
            over(fd, 0x7FF, false, false, eight.left(1)));
        row("bit-rate switch", fdBytes(0x1, 1, CANFD_BRS, eight),
            withFd(over(fd, 0x1, false, false, eight.left(1)), true, true, false));
        row("error state", fdBytes(0x1, 1, CANFD_ESI, eight),
            withFd(over(fd, 0x1, false, false, eight.left(1)), true, false, true));
        row("bit-rate switch and error state", fdBytes(0x1, 1, CANFD_BRS | CANFD_ESI, eight),
            withFd(over(fd, 0x1, false, false, eight.left(1)), true, true, true));
        row("flags of no meaning", fdBytes(0x1, 1, 0xFC, eight), over(fd, 0x1, false, false, eight.left(1)));
        row("remote flag in a CAN FD frame", fdBytes(CAN_RTR_FLAG | 0x1, 8, 0, eight),
            over(fd, 0x1, false, false, eight));
        row("length that no frame has", fdBytes(0x1, 33, 0, counted(64)), over(fd, 0x1, false, false, counted(33)));
        for (const int length : {65, 255})
            row(qPrintable(QStringLiteral("length %1").arg(length)), fdBytes(0x1, length, 0, counted(64)),
                over(fd, 0x1, false, false, counted(64)));
        row("classic", classicBytes(0x123, 3, eight), over(classic, 0x123, false, false, eight.left(3)));
        row("classic extended", classicBytes(CAN_EFF_FLAG | 0x1ABCDEF5, 8, eight),
            over(classic, 0x1ABCDEF5, true, false, eight));
        row("classic remote", classicBytes(CAN_RTR_FLAG | 0x123, 5, eight),
            over(classic, 0x123, false, true, eight.left(5)));
        // The kernel lets none of these through.
        row("classic of length 12", classicBytes(0x1, 12, eight),
            over(classic, 0x1, false, false, eight + QByteArray(4, '\0')));
        row("classic of length 255", classicBytes(0x1, 255, eight),
            over(classic, 0x1, false, false, eight + QByteArray(56, '\0')));
        row("classic remote of length 12", classicBytes(CAN_RTR_FLAG | 0x1, 12, eight),
            over(classic, 0x1, false, true, QByteArray(12, 'r')));
        row("classic remote of length 255", classicBytes(CAN_RTR_FLAG | 0x1, 255, eight),
            over(classic, 0x1, false, true, QByteArray(255, 'r')));
        QByteArray flagged = classicBytes(0x1, 1, eight);
        flagged[5] = CANFD_BRS | CANFD_ESI;
        row("classic with flags of CAN FD", flagged, over(classic, 0x1, false, false, eight.left(1)));
    }

    void fdLoopFillsTheRecord()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(CAN::CanMessage, expected);
        CAN::CanMessage message = usedRecord();
        QCOMPARE(buslink::takeFdOrClassicFrame(kernelFrame(bytes), bytes.size(), message), KernelFrameKind::Frame);
        QCOMPARE(bytesOf(message), bytesOf(expected));
    }

    void classicLoopTakesSixteenBytesOrMore()
    {
        for (const qint64 size : {-1, 0, 1, 15}) {
            CAN::CanMessage message = usedRecord();
            QCOMPARE(buslink::takeClassicFrame(kernelFrame(classicBytes(1, 1, eight)), size, message),
                     KernelFrameKind::Bad);
            QCOMPARE(bytesOf(message), bytesOf(usedRecord()));
        }
        for (const qint64 size : {16, 17, 72}) {
            CAN::CanMessage message;
            QCOMPARE(buslink::takeClassicFrame(kernelFrame(classicBytes(1, 1, eight)), size, message),
                     KernelFrameKind::Frame);
        }
    }

    void fdLoopTakesItsTwoSizesAlone()
    {
        for (qint64 size = -1; size <= 80; ++size) {
            CAN::CanMessage message = usedRecord();
            const KernelFrameKind kind =
                buslink::takeFdOrClassicFrame(kernelFrame(fdBytes(1, 1, 0, eight)), size, message);
            const bool good = size == 16 || size == 72;
            QCOMPARE(kind, good ? KernelFrameKind::Frame : KernelFrameKind::Bad);
            if (!good)
                QCOMPARE(bytesOf(message), bytesOf(usedRecord()));
        }
    }

    void errorFramesLeaveTheRecordAlone()
    {
        CAN::CanMessage message = usedRecord();
        QCOMPARE(buslink::takeClassicFrame(kernelFrame(errorBytes(0, eight)), 16, message), KernelFrameKind::Error);
        QCOMPARE(buslink::takeFdOrClassicFrame(kernelFrame(errorBytes(0, eight)), 16, message), KernelFrameKind::Error);
        QCOMPARE(buslink::takeFdOrClassicFrame(kernelFrame(fdBytes(CAN_ERR_FLAG, 8, 0, eight)), 72, message),
                 KernelFrameKind::Error);
        QCOMPARE(buslink::takeClassicFrame(
                     kernelFrame(classicBytes(CAN_ERR_FLAG | CAN_EFF_FLAG | CAN_RTR_FLAG, 8, eight)), 16, message),
                 KernelFrameKind::Error);
        QCOMPARE(bytesOf(message), bytesOf(usedRecord()));
    }

    void errorFrameTellsTheState_data()
    {
        QTest::addColumn<canid_t>("classes");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("state");
        const int none = -1;
        const int passive = CAN::CanStateErrorPassive;
        const int active = CAN::CanStateErrorActive;
        const int busOff = CAN::CanStateBusOff;
        const auto row = [](const char *name, canid_t classes, const char *hex, int state) {
            QTest::newRow(name) << classes << QByteArray::fromHex(hex) << state;
        };
        row("receiver passive", CAN_ERR_CRTL, "0010000000000000", passive);
        row("transmitter passive", CAN_ERR_CRTL, "0020000000000000", passive);
        row("both passive", CAN_ERR_CRTL, "0030000000000000", passive);
        row("passive and warning", CAN_ERR_CRTL, "001C000000000000", passive);
        row("warning", CAN_ERR_CRTL, "000C000000000000", none);
        row("overflow", CAN_ERR_CRTL, "0003000000000000", none);
        row("controller active again", CAN_ERR_CRTL, "0040000000000000", none);
        row("passive bits without the class", 0, "0030000000000000", none);
        row("passive bits in other bytes", CAN_ERR_CRTL, "3000303030303030", none);
        row("protocol active", CAN_ERR_PROT, "0000400000000000", active);
        row("protocol error", CAN_ERR_PROT, "0000BF0000000000", none);
        row("active bit without the class", 0, "0000400000000000", none);
        row("active bit in other bytes", CAN_ERR_PROT, "4040004040404040", none);
        row("bus off", CAN_ERR_BUSOFF, "0000000000000000", busOff);
        row("bus off whatever the data", CAN_ERR_BUSOFF, "FFFFFFFFFFFFFFFF", busOff);
        row("passive before bus off", CAN_ERR_CRTL | CAN_ERR_BUSOFF, "0010000000000000", passive);
        row("passive before active", CAN_ERR_CRTL | CAN_ERR_PROT, "0010400000000000", passive);
        row("active before bus off", CAN_ERR_PROT | CAN_ERR_BUSOFF, "0000400000000000", active);
        row("warning, then active", CAN_ERR_CRTL | CAN_ERR_PROT, "000C400000000000", active);
        row("neither, then bus off", CAN_ERR_CRTL | CAN_ERR_PROT | CAN_ERR_BUSOFF, "0044000000000000", busOff);
        row("transmission timed out", CAN_ERR_TX_TIMEOUT, "FFFFFFFFFFFFFFFF", none);
        row("arbitration lost", CAN_ERR_LOSTARB, "FFFFFFFFFFFFFFFF", none);
        row("transceiver", CAN_ERR_TRX, "FFFFFFFFFFFFFFFF", none);
        row("no acknowledgement", CAN_ERR_ACK, "FFFFFFFFFFFFFFFF", none);
        row("bus error", CAN_ERR_BUSERROR, "FFFFFFFFFFFFFFFF", none);
        row("restarted", CAN_ERR_RESTARTED, "FFFFFFFFFFFFFFFF", none);
        row("no class", 0, "FFFFFFFFFFFFFFFF", none);
        row("all classes", CAN_ERR_MASK, "FFFFFFFFFFFFFFFF", passive);
    }

    void errorFrameTellsTheState()
    {
        QFETCH(canid_t, classes);
        QFETCH(QByteArray, data);
        QFETCH(int, state);
        const std::optional<CAN::CanState> got = buslink::stateOfErrorFrame(kernelFrame(errorBytes(classes, data)));
        QCOMPARE(got ? int(*got) : -1, state);
    }

    void classicFrameGoesOut_data()
    {
        QTest::addColumn<CAN::CanMessage>("message");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char *name, const CAN::CanMessage &message, const QByteArray &expected) {
            QTest::newRow(name) << message << expected;
        };
        const CAN::CanMessage used = withFd(usedRecord(), false, true, true);
        row("empty", over(used, 0, false, false, {}), classicBytes(0, 0, {}));
        row("three bytes", over(used, 0x123, false, false, eight.left(3)), classicBytes(0x123, 3, eight.left(3)));
        row("eight bytes", over(used, 0x7FF, false, false, eight), classicBytes(0x7FF, 8, eight));
        row("extended", over(used, 0x1ABCDEF5, true, false, eight), classicBytes(0x80000000U | 0x1ABCDEF5, 8, eight));
        row("remote", over(used, 0x123, false, true, eight.left(5)), classicBytes(0x40000000U | 0x123, 5, {}));
        row("extended remote", over(used, 0x123, true, true, {}), classicBytes(0xC0000000U | 0x123, 0, {}));
        row("identifier of any bits", over(used, 0x3FFFFFFF, false, false, {}), classicBytes(0x3FFFFFFF, 0, {}));
        row("length 9", over(used, 1, false, false, counted(9)), classicBytes(1, 9, counted(8)));
        CAN::CanMessage endless = over(used, 1, false, false, counted(64));
        endless.length = 255;
        row("length 255", endless, classicBytes(1, 255, counted(8)));
    }

    void classicFrameGoesOut()
    {
        QFETCH(CAN::CanMessage, message);
        QFETCH(QByteArray, expected);
        QCOMPARE(bytesOfFrame(buslink::classicFrameOf(message)).toHex(' '), expected.toHex(' '));
    }

    void fdFrameGoesOut_data()
    {
        QTest::addColumn<CAN::CanMessage>("message");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char *name, const CAN::CanMessage &message, const QByteArray &expected) {
            QTest::newRow(name) << message << expected;
        };
        const CAN::CanMessage fd = withFd(usedRecord(), true, false, true);
        row("empty", over(fd, 0, false, false, {}), fdBytes(0, 0, 0, {}));
        row("twelve bytes", over(fd, 0x123, false, false, counted(12)), fdBytes(0x123, 12, 0, counted(12)));
        row("64 bytes", over(fd, 0x7FF, false, false, counted(64)), fdBytes(0x7FF, 64, 0, counted(64)));
        row("extended", over(fd, 0x1ABCDEF5, true, false, eight), fdBytes(0x80000000U | 0x1ABCDEF5, 8, 0, eight));
        row("bit-rate switch", withFd(over(fd, 1, false, false, eight), true, true, false), fdBytes(1, 8, 1, eight));
        row("remote", over(fd, 0x123, false, true, eight), fdBytes(0x123, 8, 0, {}));
        CAN::CanMessage endless = over(fd, 1, false, false, counted(64));
        endless.length = 255;
        row("length 255", endless, fdBytes(1, 255, 0, counted(64)));
    }

    void fdFrameGoesOut()
    {
        QFETCH(CAN::CanMessage, message);
        QFETCH(QByteArray, expected);
        QCOMPARE(bytesOfFrame(buslink::fdFrameOf(message)).toHex(' '), expected.toHex(' '));
    }
};

QTEST_APPLESS_MAIN(TestSocketCanFrame)
#include "tst_socket_can_frame.moc"
