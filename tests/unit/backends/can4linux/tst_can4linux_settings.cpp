// SPDX-License-Identifier: MIT
// Rates, echo and the other settings: what an adapter asks of its driver, and what it says about failures.
#include "running_can4linux.h"
#include "support/bitrate_records.h"

#include <cerrno>

namespace {

/// Opens fields that no option sets or shows.
class ProbedAdapter : public Can4linuxCanAdapter
{
public:
    using AbstractCanAdapter::mDriverConfigFlag;
    using AbstractCanAdapter::mEcho;
    using Can4linuxCanAdapter::Can4linuxCanAdapter;
};

} // namespace

class TestCan4linuxSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<CAN::CanState>(); }

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
        const AdapterPointer<ProbedAdapter> adapter(new ProbedAdapter(QStringLiteral("/dev/can0")));
        adapter->mDriverConfigFlag = flag;
        QCOMPARE(adapter->open(), CAN::RetOk);
        QCOMPARE(driver.calls(), callsOfOpen(500, 4, flag ? 1 : 0));
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
        const AdapterPointer<ProbedAdapter> adapter(new ProbedAdapter(QStringLiteral("/dev/can0")));
        QVERIFY(adapter->mEcho);
        adapter->setEcho(false);
        QVERIFY(!adapter->mEcho);
        QCOMPARE(driver.calls(), QStringList());
        QCOMPARE(adapter->open(), CAN::RetOk);
        QVERIFY(adapter->mEcho);
        QCOMPARE(driver.calls().constLast(), settingCall(9, 1));
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

QTEST_GUILESS_MAIN(TestCan4linuxSettings)
#include "tst_can4linux_settings.moc"
