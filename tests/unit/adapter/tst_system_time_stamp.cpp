// SPDX-License-Identifier: MIT
// Runs in a time zone half an hour off, so that local time is not taken for any other.
#include <BusLinkDesk/adapter/system_time_stamp_p.h>

#include <QtCore/QTime>
#include <QtTest/QtTest>

class TestSystemTimeStamp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void countOfMillisecondsIsSplitTowardsZero_data()
    {
        QTest::addColumn<int>("milliseconds");
        QTest::addColumn<int>("seconds");
        QTest::addColumn<int>("microseconds");
        QTest::newRow("zero") << 0 << 0 << 0;
        QTest::newRow("below a second") << 999 << 0 << 999000;
        QTest::newRow("past midnight") << 86'400'001 << 86'400 << 1000;
        QTest::newRow("negative") << -1500 << -1 << -500000;
        QTest::newRow("lowest") << std::numeric_limits<int>::min() << -2147483 << -648000;
    }
    void countOfMillisecondsIsSplitTowardsZero()
    {
        QFETCH(int, milliseconds);
        const CanTimeStamp stamp = buslink::timeStampFromMilliseconds(milliseconds);
        QTEST(stamp.seconds, "seconds");
        QTEST(stamp.microseconds, "microseconds");
    }

    void localTimeFollowsTheClockOnOneThread()
    {
        QVERIFY2(QDateTime::currentDateTime().offsetFromUtc() == 19800, "the test needs its time zone");
        QElapsedTimer timer;
        timer.start();
        int stamps = 0;
        QSet<int> seconds;
        while (timer.elapsed() < 2200) {
            const QTime before = QTime::currentTime();
            const CanTimeStamp stamp = buslink::timeStampOfLocalTime();
            const QTime after = QTime::currentTime();
            if (after < before)
                QSKIP("midnight passed between two looks at the clock");
            const int milliseconds = stamp.seconds * 1000 + stamp.microseconds / 1000;
            QVERIFY(milliseconds >= before.msecsSinceStartOfDay());
            QVERIFY(milliseconds <= after.msecsSinceStartOfDay());
            QCOMPARE(stamp.microseconds % 1000, 0);
            seconds.insert(stamp.seconds);
            ++stamps;
            QTest::qSleep(1);
        }
        QVERIFY(stamps > 3);
        QVERIFY(seconds.size() >= 3);
    }
};

QTEST_APPLESS_MAIN(TestSystemTimeStamp)
#include "tst_system_time_stamp.moc"
