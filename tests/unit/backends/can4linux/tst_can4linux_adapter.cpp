// SPDX-License-Identifier: MIT
// Life cycle: opening and closing, in which order it asks the driver, and what it says about failures.
#include "running_can4linux.h"
#include "support/frame_recorder.h"

#include <QtCore/QTemporaryFile>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int WaitMs = 20000;

/// Overrides what `open()` calls.
class OverridingAdapter : public Can4linuxCanAdapter
{
public:
    using Can4linuxCanAdapter::Can4linuxCanAdapter;

    void resetDriver() override { calls.append(QStringLiteral("resetDriver")); }
    CAN::RetType setBitrate(unsigned short rate) override
    {
        calls.append(QStringLiteral("setBitrate %1").arg(rate));
        return CAN::RetDriverConfigFailed;
    }
    CAN::RetType setFdBitrate(unsigned int rate) override
    {
        calls.append(QStringLiteral("setFdBitrate %1").arg(rate));
        return CAN::RetDriverConfigFailed;
    }
    void setEcho(bool echo) override { calls.append(QStringLiteral("setEcho %1").arg(echo)); }

    QStringList calls;
};

} // namespace

class TestCan4linuxAdapter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<CAN::CanState>(); }

    void newAdapterHasTouchedNoDevice()
    {
        Can4linuxFixture can;
        QCOMPARE(can.driver.calls(), QStringList());
        QVERIFY(!can.adapter->isRunning());
        QVERIFY(!can.adapter->getRunning());
        QCOMPARE(can.adapter->getState(), CAN::CanStateNone);
        QCOMPARE(can.adapter->stackSize(), 60000U);
        can.adapter.reset();
        QCOMPARE(can.driver.calls(), QStringList());
        QCOMPARE(can.errors.text(), QByteArray());
    }

    void openMakesItsCallsInTheirOrder()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls(), callsOfOpen());
        QCOMPARE(can.errors.text(), QByteArray("Open() can4linuxCanAdapter\n"));
        QCOMPARE(can.log.records(), (QList<LogRecord>{defaultLogRecord(QtDebugMsg, "newState:  0")}));
        QVERIFY(can.adapter->isRunning());
    }

    void openCallsItsOverriddenOperations()
    {
        const LogRecorder log;
        const StderrRecorder errors;
        const FakeCan4linux driver;
        const AdapterPointer<OverridingAdapter> adapter(new OverridingAdapter(QStringLiteral("/dev/can0")));
        QCOMPARE(adapter->open(), CAN::RetOk);
        QCOMPARE(adapter->calls, texts({"resetDriver", "setBitrate 500", "setFdBitrate 2000", "setEcho 1"}));
        QCOMPARE(driver.calls(), (QStringList{openCall, commandCall(6)}));
    }

    void openAnnouncesErrorActiveOnTheCallersThread()
    {
        Can4linuxFixture can;
        QVector<QVector<int>> states;
        QStringList callsThen;
        connect(
            can.adapter.get(), &AbstractCanAdapter::newCanState, can.adapter.get(),
            [&](CAN::CanState state, CanTimeStamp stamp) {
                states.append({state, can.adapter->getState(), stamp.seconds, stamp.microseconds,
                               QThread::currentThread() == thread(), can.adapter->isRunning()});
                callsThen = can.driver.calls();
            },
            Qt::DirectConnection);
        QVERIFY(can.open());
        QCOMPARE(states, (QVector<QVector<int>>{{1, 1, 0, 0, true, false}}));
        QStringList before = callsOfOpen();
        before.removeLast(); // The echo comes last of all.
        QCOMPARE(callsThen, before);
        QVERIFY(can.close());
        QVERIFY(can.open());
        QCOMPARE(states.size(), 1);
    }

    void failedOpenIsToldWithTheDevice_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("error");
        QTest::addColumn<QByteArray>("text");
        const auto row = [](const char *title, const QString &name, int error, const char *text) {
            QTest::newRow(title) << name << error << QByteArray(text);
        };
        row("no driver", QStringLiteral("/dev/can0"), ENODEV, "/dev/can0: No such device\n");
        row("in use", QStringLiteral("/dev/can3"), EBUSY, "/dev/can3: Device or resource busy\n");
        row("forbidden", QStringLiteral("/dev/can0"), EACCES, "/dev/can0: Permission denied\n");
        row("Latin-1", QStringLiteral("/dev/can\u00E4\u20AC"), ENOENT, "/dev/can\xE4?: No such file or directory\n");
        row("no file", QStringLiteral("/nowhere/can0"), 0, "/nowhere/can0: No such file or directory\n");
        row("empty", QString(), 0, "No such file or directory\n");
    }

    void failedOpenIsToldWithTheDevice()
    {
        QFETCH(QString, name);
        QFETCH(int, error);
        QFETCH(QByteArray, text);
        const LogRecorder log;
        const StderrRecorder errors;
        FakeCan4linux driver;
        if (error != 0)
            driver.fail("open", error);
        Can4linuxCanAdapter adapter(name);
        QCOMPARE(adapter.open(), CAN::RetError);
        QCOMPARE(errors.text(), "Open() can4linuxCanAdapter\n" + text);
        QVERIFY(!adapter.isRunning());
        QCOMPARE(adapter.getState(), CAN::CanStateNone);
        QVERIFY(log.records().isEmpty());
        QCOMPARE(driver.calls().size(), error != 0 ? 1 : 0);
        QCOMPARE(adapter.setBitrate(static_cast<unsigned short>(125)), CAN::RetOk); // There is no descriptor.
        QCOMPARE(errors.text(), "Open() can4linuxCanAdapter\n" + text);
    }

    void closingClosesTheDeviceAndDeletingComplains()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.forgetCalls();
        QVERIFY(can.close());
        QCOMPARE(can.driver.calls(), QStringList{closeCall});
        QCOMPARE(can.driver.openDescriptors(), 0);
        QCOMPARE(can.complaints(), QByteArray());
        can.adapter->closeAdapter();
        QCOMPARE(can.complaints(), QByteArray("close: Bad file descriptor\n"));
        delete can.adapter.release();
        QCOMPARE(can.complaints(), QByteArray("close: Bad file descriptor\nclose: Bad file descriptor\n"));
    }

    void deletingClosesTheDeviceOfAStoppedAdapter()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.forgetCalls();
        can.adapter->prepareToTerminate();
        QVERIFY(can.adapter->wait(WaitMs));
        QCOMPARE(can.driver.calls(), QStringList());
        delete can.adapter.release();
        QCOMPARE(can.driver.calls(), QStringList{closeCall});
        QCOMPARE(can.complaints(), QByteArray());
    }

    void failedCloseIsTold()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.fail("close", EIO);
        QVERIFY(can.close());
        QCOMPARE(can.complaints(), QByteArray("close: Input/output error\n"));
        QVERIFY(can.open());
        can.adapter->prepareToTerminate();
        QVERIFY(can.adapter->wait(WaitMs));
        delete can.adapter.release();
        QCOMPARE(can.complaints(), QByteArray("close: Input/output error\nclose: Input/output error\n"));
    }

    void closedAdapterFailsAsOnAClosedDescriptor()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        QVERIFY(can.close());
        can.driver.forgetCalls();
        QCOMPARE(can.adapter->setBitrate(static_cast<unsigned short>(125)), CAN::RetDriverConfigFailed);
        QCOMPARE(can.adapter->setFdBitrate(1000), CAN::RetDriverConfigFailed);
        QCOMPARE(can.adapter->write(CAN::CanMessage()), CAN::RetError);
        can.adapter->setEcho(false);
        can.adapter->resetDriver();
        QCOMPARE(can.complaints(), QByteArray("setBitrate(): Bad file descriptor\nsetBitrate(): Bad file descriptor\n"
                                              "write: Bad file descriptor\n"));
        QCOMPARE(can.driver.calls(), QStringList());
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls(), callsOfOpen(125, 8));
    }

    void closedAdapterLeavesTheFileAloneThatHasItsNumberNow()
    {
        QTemporaryFile file;
        QVERIFY(file.open());
        file.close();
        Can4linuxFixture can;
        QVERIFY(can.open());
        const int number = can.driver.descriptor();
        QVERIFY(can.close());
        const int foreign = ::open(QFile::encodeName(file.fileName()).constData(), O_RDWR | O_CLOEXEC);
        QVERIFY(foreign >= 0);
        QVERIFY(foreign == number || ::dup2(foreign, number) == number);
        can.adapter->write(CAN::CanMessage());
        can.adapter->setBitrate(static_cast<unsigned short>(125));
        can.adapter->closeAdapter();
        delete can.adapter.release();
        QVERIFY(::fcntl(number, F_GETFD) != -1);
        QCOMPARE(::lseek(number, 0, SEEK_END), off_t(0));
        if (foreign != number)
            ::close(foreign);
        ::close(number);
    }

    void reopeningLeavesNoDescriptorBehind()
    {
        Can4linuxFixture can;
        for (int pass = 0; pass < 50; ++pass) {
            QVERIFY(can.open());
            QCOMPARE(can.driver.openDescriptors(), 1);
            QVERIFY(can.close());
            QCOMPARE(can.driver.openDescriptors(), 0);
        }
        QCOMPARE(can.complaints(), QByteArray());
    }

    void reopeningAfterALoopThatEndedByItselfClosesTheDeviceFirst()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.arriveNothing();
        QVERIFY(can.adapter->wait(WaitMs));
        can.driver.forgetCalls();
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls(), QStringList{closeCall} + callsOfOpen());
        QCOMPARE(can.driver.openDescriptors(), 1);
        QCOMPARE(can.complaints(), QByteArray());
    }

    void failedReopeningLeavesNoDescriptorBehind()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.arriveNothing();
        QVERIFY(can.adapter->wait(WaitMs));
        can.driver.fail("open", ENODEV);
        QCOMPARE(can.adapter->open(), CAN::RetError);
        QCOMPARE(can.driver.openDescriptors(), 0);
        QVERIFY(!can.adapter->isRunning());
        can.adapter->closeAdapter();
        QCOMPARE(can.complaints(), QByteArray("/dev/can0: No such device\n"));
    }

    void openingOnceMoreWhileTheLoopRunsKeepsItsNumber()
    {
        Can4linuxFixture can;
        const FrameRecorder frames(can.adapter.get());
        QVERIFY(can.open());
        const int number = can.driver.descriptor();
        QCOMPARE(can.adapter->open(), CAN::RetOk);
        QCOMPARE(can.driver.descriptor(), number);
        QCOMPARE(can.driver.openDescriptors(), 1);
        QStringList calls = callsOfOpen();
        calls.insert(1, closeCall); // Of the second number.
        QCOMPARE(can.driver.calls(), callsOfOpen() + calls);
        can.driver.arrive(driverBytes({0, 5, 0}));
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, WaitMs);
        QVERIFY(can.adapter->getRunning());
        QCOMPARE(can.complaints(), QByteArray());
    }

    void failedOpeningWhileTheLoopRunsEndsIt()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.fail("open", EBUSY);
        QCOMPARE(can.adapter->open(), CAN::RetError);
        QVERIFY(can.adapter->wait(WaitMs));
        QVERIFY(!can.adapter->getRunning());
        QCOMPARE(can.driver.openDescriptors(), 0);
        QCOMPARE(can.complaints(), QByteArray("/dev/can0: Device or resource busy\n"));
    }

    void prepareToTerminateWaitsOnlyForALoopThatRuns()
    {
        Can4linuxFixture can;
        can.adapter->prepareToTerminate();
        QCOMPARE(can.driver.pauses(), QVector<qint64>());
        QVERIFY(can.open());
        can.adapter->prepareToTerminate();
        QVERIFY(!can.adapter->getRunning());
        QCOMPARE(can.driver.pauses(), QVector<qint64>{200000});
        QVERIFY(can.adapter->wait(WaitMs));
        can.adapter->prepareToTerminate();
        QCOMPARE(can.driver.pauses(), QVector<qint64>{200000});
    }

    void answersThatAreTheSameForEveryDevice()
    {
        Can4linuxFixture can;
        QCOMPARE(can.adapter->getCanFeatures(), 0x98U);
        QCOMPARE(can.adapter->setBitrate(500U), CAN::RetError);
        QCOMPARE(can.adapter->clearTxQueue(), 0);
        QCOMPARE(can.adapter->clearRxQueue(), 0);
        QCOMPARE(can.adapter->getTxQueueCount(), 0);
        QCOMPARE(can.adapter->getRxQueueCount(), 0);
        QVERIFY(Can4linuxCanAdapter::isBaudrateChangeable());
        QCOMPARE(Can4linuxCanAdapter::getDeviceList(), texts({"/dev/can0", "/dev/can1", "/dev/can2", "/dev/can3"}));
    }

    void skippedOptionsStandInTheirOrder()
    {
        using A = AbstractCanAdapter;
        const QList<A::AdapterOption> expected{
            A::option_ipAddress,  A::option_portNumber, A::option_toggleComPort, A::option_flowControl,
            A::option_toggleDTR,  A::option_toggleRTS,  A::option_peakAdvValues, A::option_Reset,
            A::option_halfDuplex, A::option_isCiA309,   A::option_btrExt,        A::option_systecXm3Values};
        QCOMPARE(Can4linuxCanAdapter(QStringLiteral("/dev/can0")).getSkippedOptions(), expected);
    }
};

QTEST_GUILESS_MAIN(TestCan4linuxAdapter)
#include "tst_can4linux_adapter.moc"
