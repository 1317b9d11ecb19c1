// SPDX-License-Identifier: MIT
#include "common/adapter_run.h"
#include "support/fake_adapter.h"
#include "support/fake_serial_adapter.h"

#include <QtTest/QtTest>

#include <atomic>

using buslink::AdapterRun;

namespace {

/// Opens as an adapter does whose transport is slow: open() gives its answer before the loop begins.
class SlowAdapter : public FakeAdapter
{
public:
    SlowAdapter(CAN::RetType result, bool loops, std::atomic<int> *ended)
        : mResult(result), mLoops(loops), mEnded(ended)
    {}

    CAN::RetType open() override
    {
        start();
        return mResult;
    }

protected:
    void run() override
    {
        QThread::msleep(100);
        mRunningFlag.exchange(mLoops);
        while (mRunningFlag.load())
            QThread::usleep(100);
        ++*mEnded;
    }

private:
    CAN::RetType mResult;
    bool mLoops;
    std::atomic<int> *mEnded;
};

} // namespace

class TestAdapterRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startWaitsForTheLoopWhateverOpenSays_data()
    {
        QTest::addColumn<int>("result");
        QTest::addColumn<bool>("loops");
        QTest::addColumn<QString>("problem");
        const QString notOpened = QStringLiteral("the adapter could not be opened");
        QTest::newRow("opened") << int(CAN::RetOk) << true << QString();
        QTest::newRow("given up too early") << int(CAN::RetError) << true << notOpened;
        QTest::newRow("failed") << int(CAN::RetError) << false << notOpened;
    }
    void startWaitsForTheLoopWhateverOpenSays()
    {
        QFETCH(int, result);
        QFETCH(bool, loops);
        std::atomic<int> ended = 0;
        AdapterRun run(std::make_unique<SlowAdapter>(static_cast<CAN::RetType>(result), loops, &ended));
        QCOMPARE(int(run.start()), result);
        QCOMPARE(run.adapter()->getRunning(), loops);
        // A loop that had not begun would not hear it.
        run.stop();
        QCOMPARE(int(ended), 1);
        QVERIFY(!run.adapter());
        QTEST(run.problem(), "problem");
    }

    void failedTransportIsToldOnceTheEventsGoOnAndKnownAtOnce()
    {
        auto adapter = std::make_unique<FakeAdapter>();
        FakeAdapter *const opened = adapter.get();
        AdapterRun run(std::move(adapter));
        int failures = 0;
        connect(&run, &AdapterRun::failed, this, [&failures] { ++failures; });
        QCOMPARE(run.start(), CAN::RetOk);
        QCOMPARE(run.problem(), QString());
        Q_EMIT opened->interfaceError();
        QCOMPARE(run.problem(), QStringLiteral("the transport of the adapter failed"));
        QCOMPARE(failures, 0);
        QTRY_COMPARE(failures, 1);
    }

    void loopThatEndsSilentlyCountsAsAFailure()
    {
        std::atomic<int> ended = 0;
        auto adapter = std::make_unique<SlowAdapter>(CAN::RetOk, true, &ended);
        SlowAdapter *const opened = adapter.get();
        AdapterRun run(std::move(adapter));
        int failures = 0;
        connect(&run, &AdapterRun::failed, this, [&failures] { ++failures; });
        QCOMPARE(run.start(), CAN::RetOk);
        opened->closeAdapter();
        QTRY_COMPARE(failures, 1);
        QCOMPARE(run.problem(), QStringLiteral("the transport of the adapter failed"));
    }

    void failedSerialPortCountsAsAFailure()
    {
        auto adapter = std::make_unique<FakeSerialAdapter>(115200);
        FakeSerialAdapter *const port = adapter.get();
        AdapterRun run(std::move(adapter));
        int failures = 0;
        connect(&run, &AdapterRun::failed, this, [&failures] { ++failures; });
        Q_EMIT port->serialPortError();
        QTRY_COMPARE(failures, 1);
        QCOMPARE(run.problem(), QStringLiteral("the transport of the adapter failed"));
    }
};

QTEST_GUILESS_MAIN(TestAdapterRun)
#include "tst_adapter_run.moc"
