// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/virtual/virtual_datagram_p.h>
#include <BusLinkDesk/backends/virtual/virtual_socket_p.h>

#include "support/frame_recorder.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <sys/socket.h>
#include <unistd.h>

using buslink::VirtualDatagram;

namespace {

int receiveBufferOf(int descriptor)
{
    int bytes = 0;
    socklen_t length = sizeof bytes;
    ::getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, &length);
    return bytes;
}

} // namespace

class TestVirtualDatagram : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void datagramIsTheRecordByteForByte()
    {
        CAN::CanMessage message = makeFrame(0x1ABCDEF5, QByteArray("\x01\x02\x03\x04\x05\x06\x07\x08"));
        message.data[63] = 0x3F;
        message.isExtended = true;
        message.isEsi = true;
        message.reservedFlag = 0x74;
        message.fillByte = 0x75;
        const VirtualDatagram datagram = buslink::encodeVirtualDatagram(message);
        const QByteArray expected = QByteArray::fromHex("f5debc1a08") + QByteArray::fromHex("0102030405060708")
                                    + QByteArray(55, '\0') + QByteArray::fromHex("3f")
                                    + QByteArray::fromHex("00010001007475");
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(datagram.data()), 76), expected);
    }

    void emptyDatagramIsAFreshRecord()
    {
        const VirtualDatagram datagram = buslink::emptyVirtualDatagram();
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(datagram.data()), 76), QByteArray(76, '\0'));
    }

    void fieldsAreTakenOverExceptEsiAndTheRest()
    {
        CAN::CanMessage sent = makeFrame(0x12345678, QByteArray(64, 'd'));
        sent.isRtr = sent.isExtended = sent.isFd = sent.isEsi = sent.isBrs = true;
        sent.reservedFlag = 1;
        sent.fillByte = 1;
        CAN::CanMessage expected = sent;
        expected.isEsi = false;
        expected.reservedFlag = 0;
        expected.fillByte = 0;
        const CAN::CanMessage got = buslink::decodeVirtualDatagram(buslink::encodeVirtualDatagram(sent));
        QCOMPARE(bytesOf(got), bytesOf(expected));
    }

    void onlyThePayloadWithinTheLengthIsTakenOver()
    {
        CAN::CanMessage sent = makeFrame(1, QByteArray(64, 'd'));
        sent.length = 3;
        const CAN::CanMessage got = buslink::decodeVirtualDatagram(buslink::encodeVirtualDatagram(sent));
        QCOMPARE(bytesOf(got), bytesOf(makeFrame(1, "ddd")));
    }

    void everyLengthByteStaysWithinTheRecord()
    {
        for (int length = 0; length <= 255; ++length) {
            VirtualDatagram datagram;
            datagram.fill(0xEE);
            datagram[4] = static_cast<unsigned char>(length);
            const CAN::CanMessage got = buslink::decodeVirtualDatagram(datagram);
            QCOMPARE(int(got.length), std::min(length, 64));
            QCOMPARE(int(std::count(std::begin(got.data), std::end(got.data), 0xEE)), std::min(length, 64));
        }
    }

    void everyFlagByteBecomesZeroOrOne()
    {
        for (int value = 0; value <= 255; ++value) {
            VirtualDatagram datagram = buslink::emptyVirtualDatagram();
            for (std::size_t offset = 69; offset < 76; ++offset)
                datagram[offset] = static_cast<unsigned char>(value);
            const QByteArray got = bytesOf(buslink::decodeVirtualDatagram(datagram));
            const char flag = value == 0 ? '\0' : '\1';
            const char expected[] = {flag, flag, flag, 0, flag, 0, 0};
            QCOMPARE(got.mid(69), QByteArray(expected, sizeof expected));
        }
    }

    void receiveBufferIsEnlarged()
    {
        const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
        const int before = receiveBufferOf(descriptor);
        buslink::enlargeReceiveBuffer(descriptor);
        const int after = receiveBufferOf(descriptor);
        ::close(descriptor);
        QVERIFY2(after > before, qPrintable(QStringLiteral("%1 and then %2 bytes").arg(before).arg(after)));
    }

    void nothingIsReceivedFromASocketWithoutDatagrams()
    {
        const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
        VirtualDatagram datagram = buslink::emptyVirtualDatagram();
        quint16 senderPort = 7;
        QVERIFY(!buslink::receiveDatagram(descriptor, datagram, senderPort));
        ::close(descriptor);
        QVERIFY(!buslink::receiveDatagram(-1, datagram, senderPort));
        QCOMPARE(senderPort, quint16(7));
    }
};

QTEST_APPLESS_MAIN(TestVirtualDatagram)
#include "tst_virtual_datagram.moc"
