// SPDX-License-Identifier: MIT
// The USB adapter on a real driver (ftdi_sio) with an emulated device: ttyUSB0 is the adapter's, and what goes
// over it comes out of ttyUSB1, which is the simulated device's. Unlike a mocked port this one has modem lines and
// can be taken from its driver.
#include "integration/serial/live_usb_adapter.h"

#include "support/simulated_usb_device.h"
#include "usb_far_end.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <thread>

namespace {

using A = AbstractCanAdapter;
const QString PortName = QStringLiteral("ttyUSB0");

bool writeTo(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(text) == text.size();
}

QString deviceOfPort()
{
    return QFileInfo(QStringLiteral("/sys/class/tty/ttyUSB0/device/.."))
        .canonicalFilePath()
        .section(QLatin1Char('/'), -1);
}

} // namespace

class TestUsbSerial : public QObject
{
    Q_OBJECT

private:
    int mFarEnd = -1;
    std::unique_ptr<SimulatedUsbDevice> mDevice;

private Q_SLOTS:
    void init()
    {
        mFarEnd = openFarEnd();
        ::tcflush(mFarEnd, TCIOFLUSH);
        mDevice = std::make_unique<SimulatedUsbDevice>(mFarEnd);
    }

    void cleanup()
    {
        mDevice.reset();
        ::close(mFarEnd);
    }

    void portsAreListed()
    {
        const QStringList ports = serialPortAdapter::getDeviceList();
        QVERIFY2(ports.contains(PortName) && ports.contains(QStringLiteral("ttyUSB1")),
                 qPrintable(ports.join(QLatin1Char(' '))));
        QCOMPARE(ZorbekUSBCanAdapter::getAdvDeviceList().value(PortName), 128U);
    }

    void openReportsTheProbeAndNoErrorOfThePort()
    {
        const auto adapter = makeUsbAdapter(PortName);
        const LogRecorder log;
        adapter->open();
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
        QCOMPARE(log.texts(), QStringList({QStringLiteral("false virtual CAN::RetType serialPortAdapter::open()"),
                                           QStringLiteral("NoError")}));
    }

    void baudRateOfZeroIsRefused()
    {
        const auto adapter = makeUsbAdapter(PortName);
        adapter->setCanAdapterOption(A::option_baudrate, 0);
        const PortErrors errors(adapter.get());
        const LogRecorder log;
        QCOMPARE(adapter->open(), CAN::RetError);
        QVERIFY(adapter->wait(WaitMs));
        QCOMPARE(errors.count(), 1);
        QCOMPARE(log.texts().value(2), QStringLiteral("UnsupportedOperationError"));
    }

    void framesGoBothWaysAtOnceAndNoneIsLost()
    {
        constexpr int frameCount = 1000;
        const auto adapter = makeUsbAdapter(PortName);
        adapter->setEcho(false);
        FrameRecorder frames(adapter.get());
        adapter->open();
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
        QByteArray stream;
        for (int number = 0; number < frameCount; ++number)
            stream += wire(makeFrame(static_cast<quint32>(number), "\x80\xFFpayload"));
        mDevice->send(stream);
        for (int number = 0; number < frameCount; ++number)
            adapter->write(makeFrame(static_cast<quint32>(number), "\x80\xFFpayload"));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), frameCount, 60'000);
        QTRY_COMPARE_WITH_TIMEOUT(mDevice->receivedCount(), stream.size(), 60'000);
        QVERIFY(mDevice->received() == stream);
        for (int number = 0; number < frameCount; ++number)
            QCOMPARE(frames.frames().at(number).message.id, static_cast<quint32>(number));
    }

    void returnsInHalfDuplexOperationAreNotDelivered()
    {
        const auto adapter = makeUsbAdapter(PortName);
        adapter->setCanAdapterOption(A::option_halfDuplex, true);
        adapter->setEcho(false);
        const FrameRecorder frames(adapter.get());
        adapter->open();
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
        mDevice->setReturning(true);
        const CAN::CanMessage frame = makeFrame(0x123, "12345678");
        adapter->write(frame);
        QTRY_COMPARE_WITH_TIMEOUT(adapter->receivedBytes(), qint64(wire(frame).size()), WaitMs);
        QTRY_VERIFY_WITH_TIMEOUT(!adapter->awaitsReturn(), WaitMs);
        mDevice->send(wire(makeFrame(0x456, "foreign!")));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        QCOMPARE(frames.frames().constFirst().message.id, 0x456U);
    }

    void textCommandEndsTheThread()
    {
        const auto adapter = makeUsbAdapter(PortName);
        adapter->open();
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
        mDevice->setAnswer("OK\r");
        QCOMPARE(adapter->write(QStringLiteral("text")), CAN::RetOk);
        QVERIFY(adapter->wait(WaitMs));
        QCOMPARE(mDevice->received().left(2), QByteArray(" \r"));
    }

    void toggledPortComesAndGoes()
    {
        const auto adapter = makeUsbAdapter(PortName);
        for (int pass = 0; pass < 3; ++pass) {
            adapter->setCanAdapterOption(A::option_toggleComPort, true);
            QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
            QVERIFY(!adapter->setCanAdapterOption(A::option_toggleComPort, false));
            QVERIFY(adapter->isFinished());
            QVERIFY(opens(PortName));
        }
    }

    // Last, since it takes the device away for a while.
    void unpluggedDeviceIsSeenOnlyInRecordsAndComesBack()
    {
        const auto adapter = makeUsbAdapter(PortName);
        adapter->setEcho(false);
        const PortErrors errors(adapter.get());
        QStringList texts;
        {
            const LogRecorder log;
            adapter->open();
            QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
            // The first pass of the loop: until then the port is still looked at.
            adapter->inLoop([] {});
            const int before = log.texts().size();
            const QString device = QStringLiteral("/sys/bus/usb/devices/%1/authorized")
                                       .arg(deviceOfPort().section(QLatin1Char(':'), 0, 0));
            QVERIFY2(writeTo(device, "0"), qPrintable(device));
            QTRY_VERIFY_WITH_TIMEOUT(!serialPortAdapter::getDeviceList().contains(PortName), WaitMs);
            QTest::qWait(1000);
            adapter->write(makeFrame(0x123, "12345678"));
            QTest::qWait(1000);
            QVERIFY(adapter->getRunning());
            QCOMPARE(errors.count(), 0);
            adapter->closeAdapter();
            QVERIFY(adapter->wait(WaitMs));
            texts = log.texts().mid(before);
            QVERIFY(writeTo(device, "1"));
        }
        QVERIFY(texts.contains(QStringLiteral("ReadError")));
        QVERIFY(texts.contains(QStringLiteral("ResourceError")));
        QVERIFY(deadPortRecordsAlone(texts));
        QTRY_VERIFY_WITH_TIMEOUT(serialPortAdapter::getDeviceList().contains(PortName), WaitMs);
        adapter->open();
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
    }
};

QTEST_GUILESS_MAIN(TestUsbSerial)
#include "tst_usb_serial.moc"
