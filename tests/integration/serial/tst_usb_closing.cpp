// SPDX-License-Identifier: MIT
// The ways in which the USB adapter gives its port back, and that it can be opened again.
#include "usb_line.h"

#include "support/process_level.h"

#include <QtSerialPort/QSerialPortInfo>

#include <limits>

namespace {

using A = AbstractCanAdapter;

} // namespace

class TestUsbClosing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void untoggledPortIsClosedAndTheThreadEnds()
    {
        UsbLine line;
        QVERIFY(line.open());
        QElapsedTimer timer;
        timer.start();
        {
            const LogRecorder log;
            QVERIFY(!line.adapter->setCanAdapterOption(A::option_toggleComPort, false));
            QCOMPARE(log.texts(), modemLineRecords());
        }
        QVERIFY(timer.elapsed() >= 600);
        QVERIFY(line.adapter->isFinished());
        QVERIFY(opens(line.port.name()));
        QVERIFY(line.openByOption());
    }

    void untogglingBeforeThereIsAPortTouchesNothing()
    {
        const UsbLine line;
        QElapsedTimer timer;
        timer.start();
        const LogRecorder log;
        QVERIFY(!line.adapter->setCanAdapterOption(A::option_toggleComPort, false));
        QCOMPARE(log.texts(), QStringList());
        QVERIFY(!line.adapter->isRunning());
        QVERIFY(!line.adapter->isFinished());
    }

    void closedAdapterReleasesThePortAndOpensAgainManyTimes()
    {
        UsbLine line;
        FrameRecorder frames(line.adapter.get());
        line.adapter->setEcho(false);
        int descriptors = std::numeric_limits<int>::max();
        for (int pass = 1; pass <= 30; ++pass) {
            QVERIFY(line.open());
            line.device.send(wire(makeFrame(static_cast<quint32>(pass), "again")));
            QTRY_COMPARE_WITH_TIMEOUT(frames.count(), pass, WaitMs);
            line.adapter->closeAdapter();
            QVERIFY(line.adapter->wait(WaitMs));
            QVERIFY(opens(line.port.name()));
            QVERIFY(!line.adapter->mPort);
            // The first pass also opens what the process keeps. Those who stand in for the port may have one open for
            // a moment, so the least counts.
            if (pass <= 5)
                descriptors = qMin(descriptors, openDescriptors());
        }
        QTRY_COMPARE_WITH_TIMEOUT(openDescriptors(), descriptors, WaitMs);
        QCOMPARE(frames.frames().constLast().message.id, 30U);
    }

    void terminationTakes300Ms()
    {
        const UsbLine line;
        QVERIFY(line.open());
        QElapsedTimer timer;
        timer.start();
        line.adapter->prepareToTerminate();
        QVERIFY(timer.elapsed() >= 300);
        QVERIFY(!line.adapter->getRunning());
        QVERIFY(line.adapter->wait(WaitMs));
    }

    void destructorEndsARunningLoopAndReleasesThePort()
    {
        const MockSerialPort port;
        const QPointer<LiveUsbAdapter> adapter = makeUsbAdapter(port.name()).release();
        adapter->open();
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
        delete adapter.data();
        QVERIFY(opens(port.name()));
    }
};

QTEST_GUILESS_MAIN(TestUsbClosing)
#include "tst_usb_closing.moc"
