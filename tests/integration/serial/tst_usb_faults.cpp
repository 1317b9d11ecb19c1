// SPDX-License-Identifier: MIT
// Devices that fall silent or are pulled out while the USB adapter runs.
#include "usb_line.h"

#include "support/thread_switches.h"

#include <sys/syscall.h>
#include <unistd.h>

class TestUsbFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deviceThatTakesNothingHoldsUpNeitherWritersNorReception()
    {
        UsbLine line;
        line.adapter->setEcho(false);
        const FrameRecorder frames(line.adapter.get());
        QVERIFY(line.open());
        line.device.setListening(false);
        const LogRecorder log;
        QByteArray expected;
        // Far more than the line holds.
        CAN::CanMessage frame = makeFrame(0x1FFFFFFF, QByteArray(64, '\x55'));
        frame.isExtended = frame.isFd = true;
        for (int count = 0; count < 4000; ++count) {
            QCOMPARE(line.adapter->write(frame), CAN::RetOk);
            expected += wire(frame);
        }
        line.device.send(wire(makeFrame(0x123, "still 7")));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        QVERIFY(line.adapter->getRunning());
        // When it takes bytes again, they are all there.
        line.device.setListening(true);
        QTRY_COMPARE_WITH_TIMEOUT(line.device.receivedCount(), expected.size(), WaitMs);
        QVERIFY(line.device.received() == expected);
        QCOMPARE(log.texts(), QStringList());
    }

    void adapterOfADeviceThatTakesNothingCanBeClosed()
    {
        UsbLine line;
        line.adapter->setEcho(false);
        QVERIFY(line.open());
        line.device.setListening(false);
        for (int count = 0; count < 20'000; ++count)
            line.adapter->write(makeFrame(0x123, "12345678"));
        line.adapter->closeAdapter();
        QVERIFY(line.adapter->wait(WaitMs));
    }

    // The system reports the end of the line over and over; what the loop makes of it stays the caller's to end.
    void unpluggedDeviceIsSeenOnlyInRecordsAndTheLoopGoesOnAtItsPace()
    {
        const LogRecorder log;
        MockSerialPort port;
        auto device = std::make_unique<SimulatedUsbDevice>(port.farEnd());
        const auto adapter = makeUsbAdapter(port.name());
        int errors = 0;
        connect(adapter.get(), &serialPortAdapter::serialPortError, this, [&errors] { ++errors; });
        connect(adapter.get(), &AbstractCanAdapter::interfaceError, this, [&errors] { ++errors; });
        adapter->open();
        QVERIFY(waitForLoop(adapter.get(), WaitMs));
        int thread = 0;
        adapter->inLoop([&thread] { thread = static_cast<int>(::syscall(SYS_gettid)); });
        device->send(wire(makeFrame(0x123, "1234567")));
        QTRY_COMPARE_WITH_TIMEOUT(adapter->receivedBytes(), qint64(15), WaitMs);
        device.reset();
        const int before = log.records().size();
        // In front of the first record: what comes until the device is gone is sleep that only adds.
        const qint64 sleepsBefore = voluntarySwitches(QString::number(thread));
        port.unplug();

        QTRY_VERIFY_WITH_TIMEOUT(log.records().size() > before + 50, WaitMs);
        QTest::qWait(1000);
        const qint64 records = log.records().size() - before;
        const qint64 sleeps = voluntarySwitches(QString::number(thread)) - sleepsBefore;
        QVERIFY2(sleeps >= records / 2, qPrintable(QStringLiteral("%1 sleeps, %2 records").arg(sleeps).arg(records)));
        QVERIFY(adapter->getRunning());

        // What is written now fails at the port; the loop goes on.
        const int beforeWrite = log.records().size();
        QCOMPARE(adapter->write(makeFrame(0x123, "1234567")), CAN::RetOk);
        QTRY_VERIFY_WITH_TIMEOUT(log.texts().mid(beforeWrite).contains(QLatin1String("ressource error")), WaitMs);
        QVERIFY(adapter->getRunning());
        QCoreApplication::processEvents();
        QCOMPARE(errors, 0);
        adapter->closeAdapter();
        QVERIFY(adapter->wait(WaitMs));
        const QStringList texts = log.texts();
        for (int index = before; index < beforeWrite; ++index)
            QCOMPARE(texts.at(index), QStringLiteral("ReadError"));
        QVERIFY(deadPortRecordsAlone(texts.mid(beforeWrite)));
        QCOMPARE(log.records().at(before), defaultLogRecord(QtDebugMsg, "ReadError"));
    }

    void unpluggedPortCannotBeOpenedAgain()
    {
        UsbLine line;
        QVERIFY(line.open());
        line.adapter->closeAdapter();
        QVERIFY(line.adapter->wait(WaitMs));
        line.port.hide();
        const LogRecorder log;
        QCOMPARE(line.adapter->open(), CAN::RetError);
        QCOMPARE(log.texts(), QStringList{QStringLiteral("cannot open serial port \"%1\" DeviceNotFoundError "
                                                         "QObject(0x0) virtual CAN::RetType serialPortAdapter::open()")
                                              .arg(line.port.name())});
        QVERIFY(!line.adapter->setCanAdapterOption(AbstractCanAdapter::option_toggleComPort, true));
    }

    void destructorEndsTheLoopOfAnUnpluggedDevice()
    {
        const LogRecorder log;
        MockSerialPort port;
        auto adapter = makeUsbAdapter(port.name());
        adapter->open();
        QVERIFY(waitForLoop(adapter.get(), WaitMs));
        // The first pass of the loop: until then the port is still looked up.
        adapter->inLoop([] {});
        port.unplug();
        delete adapter.release();
        QVERIFY(
            deadPortRecordsAlone(log.texts().mid((probeRecord() + portOpeningRecords() + modemLineRecords()).size())));
    }
};

QTEST_GUILESS_MAIN(TestUsbFaults)
#include "tst_usb_faults.moc"
