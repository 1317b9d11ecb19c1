// SPDX-License-Identifier: MIT
#include "support/bitrate_records.h"
#include "support/fake_adapter.h"
#include "support/timing_fields.h"

#include <QtTest/QtTest>

namespace {

void compareRate(const CAN::CANBitrateDesc &rate, int bitrate, double samplePoint)
{
    QVERIFY(rate.label.isNull());
    QCOMPARE(int(rate.bitrate), bitrate);
    // To the bit: QCOMPARE on doubles would let near values pass.
    QVERIFY2(!(rate.samplePoint < samplePoint) && !(rate.samplePoint > samplePoint),
             qPrintable(QString::number(rate.samplePoint, 'g', 17)));
}

} // namespace

class TestBitrateTables : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void longListHoldsTheClassicRates()
    {
        QCOMPARE(rowsOf(AbstractCanAdapter::getSupportedBitrates(false)),
                 (QStringList{QStringLiteral("10 kbit/s | 10 | 87.5"), QStringLiteral("20 kbit/s | 20 | 87.5"),
                              QStringLiteral("50 kbit/s | 50 | 87.5"), QStringLiteral("125 kbit/s | 125 | 87.5"),
                              QStringLiteral("250 kbit/s | 250 | 87.5"), QStringLiteral("500 kbit/s | 500 | 87.5"),
                              QStringLiteral("800 kbit/s | 800 | 87.5"), QStringLiteral("1000 kbit/s | 1000 | 87.5")}));
    }

    void shortListHoldsTheNominalRatesOfCanFd()
    {
        QCOMPARE(rowsOf(AbstractCanAdapter::getSupportedBitrates(true)),
                 (QStringList{QStringLiteral("250 kbit/s | 250 | 80"), QStringLiteral("500 kbit/s | 500 | 80"),
                              QStringLiteral("800 kbit/s | 800 | 80"), QStringLiteral("1000 kbit/s | 1000 | 80")}));
    }

    void fdListHoldsTheDataPhaseRates()
    {
        QCOMPARE(rowsOf(AbstractCanAdapter::getSupportedFDBitrates()),
                 (QStringList{QStringLiteral("1 Mbit/s | 1000 | 80"), QStringLiteral("2 Mbit/s | 2000 | 75"),
                              QStringLiteral("4 Mbit/s | 4000 | 70"), QStringLiteral("5 Mbit/s | 5000 | 75")}));
    }

    void tablesAreBuiltAfreshAtEachCall()
    {
        QList<CAN::CANBitrateDesc> changed = AbstractCanAdapter::getSupportedBitrates(true);
        changed[0].bitrate = 1;
        changed.removeLast();
        QCOMPARE(AbstractCanAdapter::getSupportedBitrates(true).size(), 4);
        QCOMPARE(AbstractCanAdapter::getSupportedBitrates(true).at(0).bitrate, quint16(250));
    }

    void oneRateInTwoTablesIsTwoIndependentRows()
    {
        const CAN::CANBitrateDesc classic = AbstractCanAdapter::getSupportedBitrates(false).at(5);
        const CAN::CANBitrateDesc fd = AbstractCanAdapter::getSupportedBitrates(true).at(1);
        QCOMPARE(classic.bitrate, quint16(500));
        QCOMPARE(fd.bitrate, quint16(500));
        QCOMPARE(classic.samplePoint, 87.5);
        QCOMPARE(fd.samplePoint, 80.0);
    }

    void timingsGiveRateAndSamplePoint_data()
    {
        QTest::addColumn<int>("clock");
        QTest::addColumn<int>("prescaler");
        QTest::addColumn<int>("tSeg1");
        QTest::addColumn<int>("tSeg2");
        QTest::addColumn<int>("bitrate");
        QTest::addColumn<double>("samplePoint");
        QTest::newRow("40 MHz, 16 quanta") << 40 << 5 << 13 << 2 << 500 << 0.875;
        QTest::newRow("one quantum, rate cut to 16 bits") << 80 << 1 << 0 << 0 << 14464 << 1.0;
        QTest::newRow("fractional quotient is truncated") << 40 << 3 << 5 << 0 << 2222 << 1.0;
        QTest::newRow("sample point in single precision") << 24 << 2 << 4 << 1 << 2000 << 0.8333333134651184;
        QTest::newRow("prescaler 0") << 40 << 0 << 13 << 2 << 0 << 0.875;
        QTest::newRow("prescaler 0 and clock 0") << 0 << 0 << 1 << 1 << 0 << double(2.0F / 3.0F);
        QTest::newRow("clock 0") << 0 << 1 << 1 << 1 << 0 << double(2.0F / 3.0F);

        QTest::newRow("highest rate") << 65535 << 1 << 0 << 0 << 64536 << 1.0;
        // 65535000 / (255 * 131071) = 1.96...
        QTest::newRow("longest bit") << 65535 << 255 << 65535 << 65535 << 1 << double(65536.0F / 131071.0F);
        QTest::newRow("below 1 kbit/s") << 1 << 255 << 65535 << 65535 << 0 << double(65536.0F / 131071.0F);
    }

    void timingsGiveRateAndSamplePoint()
    {
        QFETCH(int, clock);
        QFETCH(int, prescaler);
        QFETCH(int, tSeg1);
        QFETCH(int, tSeg2);
        QFETCH(int, bitrate);
        QFETCH(double, samplePoint);
        compareRate(AbstractCanAdapter::getBitrateFromTimings(quint16(clock), quint8(prescaler), quint16(tSeg1),
                                                              quint16(tSeg2)),
                    bitrate, samplePoint);
    }

    void adapterWithoutCalculationGivesDefaults()
    {
        FakeAdapter adapter;
        for (const bool dataPhase : {false, true}) {
            QCOMPARE(fieldsOf(adapter.getBitTimings(dataPhase)), timingFields(0, 0, 0, 0, false));
            compareRate(adapter.getCalculatedBitrate(dataPhase), 0, 0.0);
        }
    }
};

QTEST_GUILESS_MAIN(TestBitrateTables)
#include "tst_bitrate_tables.moc"
