// SPDX-License-Identifier: MIT
// Life cycle and settings: what an adapter asks of its driver, in which order, and what it says about failures.
#include "running_can4linux.h"
#include "support/bitrate_records.h"

#include <QtCore/QTemporaryFile>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int WaitMs = 20000;
const QString openCall = QStringLiteral("open(/dev/can0, 0x802)");
const QString closeCall = QStringLiteral("close()");

/// The calls of an opening with the rates that it hands over.
QStringList callsOfOpen(quint64 nominalRate = 500, quint64 dataFactor = 4, quint64 flag = 0)
{
    return QStringList{openCall, commandCall(3)} + rateCalls(3, nominalRate) + rateCalls(13, dataFactor)
           + QStringList{commandCall(6, flag), settingCall(9, 1)};
}

QStringList texts(std::initializer_list<const char *> list)
{
    QStringList strings;
    for (const char *text : list)
        strings.append(QString::fromLatin1(text));
    return strings;
}

/// Opens the flag that no option sets, and what is overridden for the calls of `open()`.
class ProbedAdapter : public Can4linuxCanAdapter
{
public:
    using AbstractCanAdapter::mDriverConfigFlag;
    using AbstractCanAdapter::mEcho;
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

/// The same without overriding anything.
class EchoProbe : public Can4linuxCanAdapter
{
public:
    using AbstractCanAdapter::mDriverConfigFlag;
    using AbstractCanAdapter::mEcho;
    using Can4linuxCanAdapter::Can4linuxCanAdapter;
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
        const AdapterPointer<ProbedAdapter> adapter(new ProbedAdapter(QStringLiteral("/dev/can0")));
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

    void driverGetsTheFlagThatNoOptionSets_data()
    {
        QTest::addColumn<bool>("flag");
        QTest::newRow("clear") << false;
        QTest::newRow("set") << true;
    }

    void driverGetsTheFlagThatNoOptionSets()
    {
        QFETCH(bool, flag);
        const LogRecorder log;
        const StderrRecorder errors;
        const FakeCan4linux driver;
        const AdapterPointer<EchoProbe> adapter(new EchoProbe(QStringLiteral("/dev/can0")));
        adapter->mDriverConfigFlag = flag;
        QCOMPARE(adapter->open(), CAN::RetOk);
        QCOMPARE(driver.calls(), callsOfOpen(500, 4, flag ? 1 : 0));
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

    void refusedSettingsDoNotFailAnOpening()
    {
        Can4linuxFixture can;
        can.driver.fail("ioctl", EINVAL);
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls(), callsOfOpen());
        QCOMPARE(can.complaints(), QByteArray("setBitrate(): Invalid argument\nsetBitrate(): Invalid argument\n"));
        QCOMPARE(can.adapter->getState(), CAN::CanStateErrorActive);
    }

    void rateOfAClosedAdapterIsSentByOpen()
    {
        Can4linuxFixture can;
        QCOMPARE(can.adapter->setBitrate(static_cast<unsigned short>(250)), CAN::RetOk);
        QCOMPARE(can.adapter->setFdBitrate(1000), CAN::RetOk);
        QCOMPARE(can.driver.calls(), QStringList());
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls(), callsOfOpen(250, 4));
    }

    void setBitrateBeforeTheFirstOpenTouchesNoDevice()
    {
        Can4linuxFixture can;
        QCOMPARE(can.adapter->setBitrate(static_cast<unsigned short>(500)), CAN::RetOk);
        QCOMPARE(can.driver.calls(), QStringList());
        QCOMPARE(can.errors.text(), QByteArray());
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls().mid(2, 3), rateCalls(3, 500));
    }

    void ratesInOptionsDoNotReachTheDriver()
    {
        Can4linuxFixture can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_bitrate, 125);
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_fdbitrate, 8000);
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls(), callsOfOpen());
    }

    void dataRateIsAMultipleOfTheNominalRate_data()
    {
        QTest::addColumn<int>("nominal");
        QTest::addColumn<unsigned int>("data");
        QTest::addColumn<quint64>("factor");
        const auto row = [](const char *name, int nominal, unsigned int data, quint64 factor) {
            QTest::newRow(name) << nominal << data << factor;
        };
        row("2000 of 500", 500, 2000, 4);
        row("2000 of 300", 300, 2000, 6);
        row("500 of 2000", 2000, 500, 0);
        row("equal", 500, 500, 1);
        row("nothing", 500, 0, 0);
        row("255 times", 10, 2559, 255);
        row("256 times", 10, 2560, 0);
        row("257 times", 10, 2570, 1);
        row("largest of 1", 1, 0xFFFFFFFF, 255);
        row("largest of the largest", 65535, 0xFFFFFFFF, 1);
        row("without a nominal rate", 0, 2000, 0);
        row("without any rate", 0, 0, 0);
    }

    void dataRateIsAMultipleOfTheNominalRate()
    {
        QFETCH(int, nominal);
        QFETCH(unsigned int, data);
        QFETCH(quint64, factor);
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.forgetCalls();
        QCOMPARE(can.adapter->setBitrate(static_cast<unsigned short>(nominal)), CAN::RetOk);
        QCOMPARE(can.adapter->setFdBitrate(data), CAN::RetOk);
        const QStringList rates = rateCalls(3, static_cast<quint64>(nominal)) + rateCalls(13, factor);
        QCOMPARE(can.driver.calls(), rates);
        QVERIFY(can.close());
        can.driver.forgetCalls();
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls(), callsOfOpen(static_cast<quint64>(nominal), factor));
        QCOMPARE(can.adapter->getBitRate(), static_cast<unsigned short>(0));
        QCOMPARE(can.complaints(), QByteArray());
    }

    void refusedRateIsToldAndKeptAndTheControllerStarted_data()
    {
        QTest::addColumn<bool>("dataRate");
        QTest::newRow("nominal") << false;
        QTest::newRow("data") << true;
    }

    void refusedRateIsToldAndKeptAndTheControllerStarted()
    {
        QFETCH(bool, dataRate);
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.forgetCalls();
        can.driver.fail("ioctl(1", EINVAL);
        if (dataRate)
            QCOMPARE(can.adapter->setFdBitrate(1000), CAN::RetDriverConfigFailed);
        else
            QCOMPARE(can.adapter->setBitrate(static_cast<unsigned short>(100)), CAN::RetDriverConfigFailed);
        QCOMPARE(can.driver.calls(), dataRate ? rateCalls(13, 2) : rateCalls(3, 100));
        QCOMPARE(can.complaints(), QByteArray("setBitrate(): Invalid argument\n"));
        can.driver.mend();
        QVERIFY(can.close());
        can.driver.forgetCalls();
        QVERIFY(can.open());
        QCOMPARE(can.driver.calls(), dataRate ? callsOfOpen(500, 2) : callsOfOpen(100, 20));
    }

    void failedStopAndStartAreIgnored()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.fail("ioctl(0", EIO);
        QCOMPARE(can.adapter->setBitrate(static_cast<unsigned short>(100)), CAN::RetOk);
        QCOMPARE(can.adapter->setFdBitrate(100), CAN::RetOk);
        can.adapter->resetDriver();
        QCOMPARE(can.complaints(), QByteArray());
    }

    void resetDriverSendsOneCommand()
    {
        Can4linuxFixture can;
        QVERIFY(can.open());
        can.driver.forgetCalls();
        can.adapter->resetDriver();
        QCOMPARE(can.driver.calls(), QStringList{commandCall(3)});
    }

    void echoIsASettingOfTheDriver()
    {
        Can4linuxFixture can;
        QSignalSpy changes(can.adapter.get(), &AbstractCanAdapter::echoChanged);
        QVERIFY(can.open());
        can.driver.forgetCalls();
        can.adapter->setEcho(false);
        can.adapter->setEcho(true);
        can.driver.fail("ioctl", EIO);
        can.adapter->setEcho(false);
        QCOMPARE(can.driver.calls(), (QStringList{settingCall(9, 0), settingCall(9, 1), settingCall(9, 0)}));
        QVERIFY(changes.isEmpty());
        QCOMPARE(can.complaints(), QByteArray());
    }

    void echoIsOnAfterEveryOpen()
    {
        const LogRecorder log;
        const StderrRecorder errors;
        const FakeCan4linux driver;
        const AdapterPointer<EchoProbe> adapter(new EchoProbe(QStringLiteral("/dev/can0")));
        QVERIFY(adapter->mEcho);
        adapter->setEcho(false);
        QVERIFY(!adapter->mEcho);
        QCOMPARE(driver.calls(), QStringList());
        QCOMPARE(adapter->open(), CAN::RetOk);
        QVERIFY(adapter->mEcho);
        QCOMPARE(driver.calls().constLast(), settingCall(9, 1));
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

    void ratesToChooseFrom()
    {
        QCOMPARE(rowsOf(Can4linuxCanAdapter::getSupportedBitrates(false)),
                 texts({"50 kbit/s | 50 | 87.5", "62 kbit/s | 62 | 87.5", "83 kbit/s | 83 | 87.5",
                        "125 kbit/s | 125 | 87.5", "250 kbit/s | 250 | 87.5", "500 kbit/s | 500 | 87.5",
                        "800 kbit/s | 800 | 87.5", "1000 kbit/s | 1000 | 87.5"}));
        QCOMPARE(rowsOf(Can4linuxCanAdapter::getSupportedBitrates(true)),
                 texts({"500 kbit/s | 500 | 87.5", "1000 kbit/s | 1000 | 87.5"}));
        QCOMPARE(rowsOf(Can4linuxCanAdapter::getSupportedFDBitrates()),
                 texts({"500 kbit/s | 500 | 75", "1 Mbit/s | 1000 | 80", "2 Mbit/s | 2000 | 75", "4 Mbit/s | 4000 | 70",
                        "8 Mbit/s | 8000 | 60"}));
    }
};

QTEST_GUILESS_MAIN(TestCan4linuxAdapter)
#include "tst_can4linux_adapter.moc"
