// SPDX-License-Identifier: MIT
// What the adapter does without a port: names, options, queueing, echoes. The port's side is tested on a
// mocked port.
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include "support/frame_recorder.h"
#include "support/hex.h"
#include "support/log_recorder.h"

#include <QtTest/QtTest>

#include <array>

namespace {

using A = AbstractCanAdapter;

class OpenedUp : public ZorbekUSBCanAdapter
{
public:
    explicit OpenedUp(const QString &name = QStringLiteral("ttyNone")) : ZorbekUSBCanAdapter(name) {}

    using serialPortAdapter::mBitrate;
    using serialPortAdapter::mPortName;
    using serialPortAdapter::mReceiveBuffer;
    using serialPortAdapter::mResponseReceived;
    using serialPortAdapter::mSendingFailed;
    using serialPortAdapter::mTransmitBuffer;
};

CAN::CanMessage someFrame()
{
    return makeFrame(0x123, hex("11FF"));
}

const QByteArray someFrameOnTheWire = hex("88 01 23 01 02 11 7F 20 67");

} // namespace

class TestUsbTransmission : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameIsCutAtTheLastDash_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("port");
        QTest::newRow("bare") << QStringLiteral("ttyUSB0") << QStringLiteral("ttyUSB0");
        QTest::newRow("simplified") << QStringLiteral("  tty  USB0\t") << QStringLiteral("tty USB0");
        QTest::newRow("label") << QStringLiteral("Workbench - ttyUSB0") << QStringLiteral("ttyUSB0");
        QTest::newRow("two dashes") << QStringLiteral("a-b - c") << QStringLiteral("c");
        QTest::newRow("dash at the end") << QStringLiteral("ttyUSB0-") << QString();
        QTest::newRow("port with a dash") << QStringLiteral("rfcomm-1") << QStringLiteral("1");
        QTest::newRow("empty") << QString() << QString();
    }

    void nameIsCutAtTheLastDash()
    {
        QFETCH(QString, name);
        QFETCH(QString, port);
        QCOMPARE(OpenedUp(name).mPortName, port);
    }

    void startsWithEmptyBuffersAndNoCommandUnderWay()
    {
        const OpenedUp adapter;
        QVERIFY(adapter.mReceiveBuffer.isEmpty());
        QVERIFY(adapter.mTransmitBuffer.isEmpty());
        QVERIFY(adapter.mResponseReceived);
        QVERIFY(!adapter.mSendingFailed);
        QVERIFY(!adapter.getRunning());
    }

    void nullIsTheOnlyFrameThatIsRefused()
    {
        OpenedUp adapter;
        const FrameRecorder recorder(&adapter);
        QCOMPARE(adapter.write(static_cast<CAN::CanMessage *>(nullptr)), CAN::RetError);
        QCOMPARE(adapter.write(nullptr, false), CAN::RetError);
        QVERIFY(adapter.mTransmitBuffer.isEmpty());
        QCOMPARE(recorder.count(), 0);
    }

    void framesWaitForTheNextRun()
    {
        OpenedUp adapter;
        CAN::CanMessage message = someFrame();
        QCOMPARE(adapter.write(&message), CAN::RetOk);
        QCOMPARE(adapter.write(someFrame()), CAN::RetOk);
        QCOMPARE(adapter.mTransmitBuffer.toHex(' '), (someFrameOnTheWire + someFrameOnTheWire).toHex(' '));
    }

    void echoComesWhenTheFrameIsQueued()
    {
        OpenedUp adapter;
        adapter.setCanAdapterOption(A::option_uniqueId, 7);
        const FrameRecorder recorder(&adapter);
        CAN::CanMessage message = someFrame();
        message.isBrs = true;
        adapter.write(&message);
        QCOMPARE(recorder.count(), 1);
        const CAN::CanRxMessage echo = recorder.frames().first();
        QCOMPARE(bytesOf(echo.message), bytesOf(message));
        QVERIFY(echo.isTx);
        QCOMPARE(echo.adapterId, quint16(7));
        QCOMPARE(echo.packetWord, 0U);
        QCOMPARE(recorder.lastThread(), QThread::currentThread());
    }

    void noEchoWhereItIsOff()
    {
        OpenedUp adapter;
        adapter.setEcho(false);
        const FrameRecorder recorder(&adapter);
        adapter.write(someFrame());
        QCOMPARE(recorder.count(), 0);
        QCOMPARE(adapter.mTransmitBuffer, someFrameOnTheWire);
    }

    void clockIsAtZeroBeforeTheFirstPort()
    {
        OpenedUp adapter;
        const FrameRecorder recorder(&adapter);
        adapter.write(someFrame());
        QCOMPARE(recorder.frames().first().timeStamp.seconds, 0);
        QCOMPARE(recorder.frames().first().timeStamp.microseconds, 0);
    }

    void systemTimeStampsEchoes()
    {
        OpenedUp adapter;
        adapter.setCanAdapterOption(A::option_systemTime, true);
        const FrameRecorder recorder(&adapter);
        const int before = QTime::currentTime().msecsSinceStartOfDay();
        adapter.write(someFrame());
        const int after = QTime::currentTime().msecsSinceStartOfDay();
        const CanTimeStamp stamp = recorder.frames().first().timeStamp;
        const int stamped = stamp.seconds * 1000 + stamp.microseconds / 1000;
        if (after < before)
            QSKIP("midnight passed during the test");
        QVERIFY2(stamped >= before && stamped <= after, qPrintable(QString::number(stamped)));
    }

    void callersRecordStaysAsItIs()
    {
        OpenedUp adapter;
        CAN::CanMessage message = makeFrame(0x100, QByteArray(9, 'x'));
        message.isFd = true;
        const QByteArray before = bytesOf(message);
        adapter.write(&message);
        QCOMPARE(bytesOf(message), before);
    }

    void resendWithNothingPendingDoesNothing()
    {
        OpenedUp adapter;
        adapter.setCanAdapterOption(A::option_halfDuplex, true);
        const FrameRecorder recorder(&adapter);
        const LogRecorder log;
        adapter.resendLastMessage();
        QVERIFY(adapter.mTransmitBuffer.isEmpty());
        QCOMPARE(recorder.count(), 0);
        QCOMPARE(log.texts(), QStringList());
    }

    void resendSendsTheOldestOnceWithARecordAndASecondEcho()
    {
        OpenedUp adapter;
        adapter.setCanAdapterOption(A::option_halfDuplex, true);
        const FrameRecorder recorder(&adapter);
        const LogRecorder log;
        adapter.write(someFrame());
        adapter.write(makeFrame(0x7E0, {}));
        adapter.resendLastMessage();
        QCOMPARE(recorder.count(), 3);
        QCOMPARE(bytesOf(recorder.frames().at(2).message), bytesOf(someFrame()));
        QCOMPARE(adapter.mTransmitBuffer.right(9), someFrameOnTheWire);
        QCOMPARE(log.texts().size(), 1);
        const QRegularExpression record(QStringLiteral(
            R"(^CAN::RetType ZorbekUSBCanAdapter::write\(CAN::CanMessage\*, bool\) QTime\("\d\d:\d\d:\d\d\.\d{3}"\) )"
            R"(Resend serial message:  "880123010211(7f)2067"$)"));
        QVERIFY2(record.match(log.texts().first()).hasMatch(), qPrintable(log.texts().first()));

        adapter.resendLastMessage();
        QCOMPARE(bytesOf(recorder.frames().at(3).message), bytesOf(makeFrame(0x7E0, {})));
        adapter.resendLastMessage();
        QCOMPARE(recorder.count(), 4);
    }

    void nothingIsPendingWithoutHalfDuplex()
    {
        OpenedUp adapter;
        const LogRecorder log;
        adapter.write(someFrame());
        CAN::CanMessage message = someFrame();
        adapter.write(&message, false);
        adapter.setCanAdapterOption(A::option_halfDuplex, true);
        adapter.resendLastMessage();
        QCOMPARE(adapter.mTransmitBuffer.size(), 2 * someFrameOnTheWire.size());
        QCOMPARE(log.texts(), QStringList());
    }

    void addedBytesAreCopied()
    {
        OpenedUp adapter;
        std::array<char, 3> bytes{'a', 'b', 'c'};
        adapter.addToBuffer(QByteArray::fromRawData(bytes.data(), bytes.size()));
        bytes.fill('x');
        QCOMPARE(adapter.mTransmitBuffer, QByteArray("abc"));
    }

    void portErrorsGoToTheLogAlone_data()
    {
        QTest::addColumn<int>("error");
        QTest::addColumn<QStringList>("records");
        QTest::newRow("ResourceError") << 9
                                       << QStringList{QStringLiteral("ressource error"),
                                                      QStringLiteral("ResourceError")};
        QTest::newRow("NoError") << 0 << QStringList{QStringLiteral("NoError")};
        QTest::newRow("PermissionError") << 2 << QStringList{QStringLiteral("PermissionError")};
        QTest::newRow("TimeoutError") << 12 << QStringList{QStringLiteral("TimeoutError")};
    }

    void portErrorsGoToTheLogAlone()
    {
        QFETCH(int, error);
        QFETCH(QStringList, records);
        OpenedUp adapter;
        const QSignalSpy spy(&adapter, &serialPortAdapter::serialPortError);
        const QSignalSpy interfaceSpy(&adapter, &A::interfaceError);
        const LogRecorder log;
        adapter.serialError(QSerialPort::SerialPortError(error));
        QCOMPARE(log.texts(), records);
        QCOMPARE(spy.count(), 0);
        QCOMPARE(interfaceSpy.count(), 0);
    }

    void openOfANameThatNoPortBears()
    {
        OpenedUp adapter;
        const LogRecorder log;
        QCOMPARE(adapter.open(), CAN::RetError);
        QVERIFY(!adapter.isRunning());
        QCOMPARE(log.texts(),
                 (QStringList{QStringLiteral("cannot open serial port \"ttyNone\" DeviceNotFoundError QObject(0x0) "
                                             "virtual CAN::RetType serialPortAdapter::open()")}));
    }

    void toggleWithoutAPortIsRefused()
    {
        OpenedUp adapter;
        adapter.setCanAdapterOption(A::option_Reset, true);
        const LogRecorder log;
        QVERIFY(!adapter.setCanAdapterOption(A::option_toggleComPort, true));
        QVERIFY(!adapter.setCanAdapterOption(A::option_toggleComPort, false));
        QVERIFY(!adapter.setSpecificCanAdapterOption(A::option_toggleDTR, true));
        QVERIFY(!adapter.setSpecificCanAdapterOption(A::option_toggleRTS, true));
        QCOMPARE(adapter.getCanAdapterOption(A::option_Reset), QVariant(true));
        QCOMPARE(log.texts(), QStringList());
    }

    void textCommandWithoutAPortFailsAndLeavesTheFlagsAlone()
    {
        OpenedUp adapter;
        QCOMPARE(adapter.write(QStringLiteral("go")), CAN::RetError);
        QVERIFY(adapter.mResponseReceived);
        QVERIFY(!adapter.mSendingFailed);
        QVERIFY(adapter.mTransmitBuffer.isEmpty());
        QVERIFY(!adapter.readResponse());
    }

    void errorSendingStringCountsOnlyWhileAnAnswerIsAwaited()
    {
        OpenedUp adapter;
        adapter.errorSendingString();
        QVERIFY(!adapter.mSendingFailed);
        adapter.mResponseReceived = false;
        adapter.errorSendingString();
        QVERIFY(adapter.mSendingFailed);
    }

    void operationsWithoutADevice()
    {
        OpenedUp adapter;
        QCOMPARE(adapter.setBitrate(quint16(250)), CAN::RetOk);
        QCOMPARE(adapter.mBitrate, quint16(250));
        QVERIFY(adapter.mTransmitBuffer.isEmpty());
        QCOMPARE(adapter.getState(), CAN::CanStateNone);
        adapter.resetDriver();
        QCOMPARE(
            adapter.clearTxQueue() + adapter.clearRxQueue() + adapter.getTxQueueCount() + adapter.getRxQueueCount(), 0);
        QVERIFY(!serialPortAdapter::isBaudrateChangeable());
        QVERIFY(!adapter.isRunning());
    }

    void sixteenOptionsAreSkippedInTheirOrder()
    {
        QCOMPARE(OpenedUp().getSkippedOptions(),
                 (QList<A::AdapterOption>{
                     A::AdapterOption(5), A::AdapterOption(6), A::AdapterOption(14), A::AdapterOption(15),
                     A::AdapterOption(16), A::AdapterOption(17), A::AdapterOption(21), A::AdapterOption(24),
                     A::AdapterOption(25), A::AdapterOption(26), A::AdapterOption(27), A::AdapterOption(33),
                     A::AdapterOption(36), A::AdapterOption(39), A::AdapterOption(41), A::AdapterOption(42)}));
    }

    void prepareToTerminateTakesItsPause()
    {
        OpenedUp adapter;
        QElapsedTimer timer;
        timer.start();
        adapter.prepareToTerminate();
        QVERIFY(timer.elapsed() >= 299);
        timer.start();
        adapter.closeAdapter();
        QVERIFY(timer.elapsed() < 200);
    }
};

QTEST_GUILESS_MAIN(TestUsbTransmission)
#include "tst_usb_transmission.moc"
