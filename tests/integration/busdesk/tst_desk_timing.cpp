// SPDX-License-Identifier: MIT
#include "busdesk/bit_timing_page.h"
#include "desk_user.h"

#include <QtWidgets/QCheckBox>
#include <QtWidgets/QDoubleSpinBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QSpinBox>

using buslink::BitShape;
using buslink::BitTimingPage;

class TestDeskTiming : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theResultIsThatOfTheCalculator_data()
    {
        QTest::addColumn<int>("clock");
        QTest::addColumn<int>("rate");
        QTest::addColumn<QString>("result");
        QTest::newRow("usual") << 80 << 500
                               << QStringLiteral("Prescaler 10, tSeg1 13, tSeg2 2, SJW 2 (time quanta)\n"
                                                 "Rate 500 kbit/s, sample point 87.5 %, "
                                                 "16 time quanta of 125 ns a bit");
        QTest::newRow("slow clock") << 8 << 500
                                    << QStringLiteral("Prescaler 1, tSeg1 13, tSeg2 2, SJW 2 (time quanta)\n"
                                                      "Rate 500 kbit/s, sample point 87.5 %, "
                                                      "16 time quanta of 125 ns a bit");
        QTest::newRow("not to be met") << 8 << 777
                                       << QStringLiteral("The rate cannot be met exactly within these limits");
    }

    void theResultIsThatOfTheCalculator()
    {
        QFETCH(int, clock);
        QFETCH(int, rate);
        BitTimingPage page;
        part<QSpinBox>(page, "clock")->setValue(clock);
        part<QSpinBox>(page, "timingRate")->setValue(rate);
        QTEST(part<QLabel>(page, "timingResult")->text(), "result");
    }

    void everyFieldTakesPart_data()
    {
        QTest::addColumn<QByteArray>("field");
        QTest::addColumn<int>("value");
        QTest::newRow("prescaler") << QByteArray("prescalerMax") << 4;
        QTest::newRow("tSeg1") << QByteArray("tSeg1Max") << 9;
        QTest::newRow("tSeg2 from") << QByteArray("tSeg2Min") << 3;
        QTest::newRow("tSeg2 up to") << QByteArray("tSeg2Max") << 1;
        QTest::newRow("SJW") << QByteArray("sjwMax") << 1;
    }

    void everyFieldTakesPart()
    {
        QFETCH(QByteArray, field);
        QFETCH(int, value);
        BitTimingPage page;
        const QString before = part<QLabel>(page, "timingResult")->text();
        part<QSpinBox>(page, field.constData())->setValue(value);
        QVERIFY(part<QLabel>(page, "timingResult")->text() != before);
    }

    void theSamplePointTakesPart()
    {
        BitTimingPage page;
        part<QDoubleSpinBox>(page, "samplePoint")->setValue(75);
        QVERIFY(part<QLabel>(page, "timingResult")->text().contains(QStringLiteral("sample point 75.0 %")));
    }

    void theBitIsDrawnToScale()
    {
        BitShape shape;
        shape.resize(340, 90);
        CAN::CANBitTimingParameter timing;
        timing.prescaler = 1;
        timing.tSeg1 = 11;
        timing.tSeg2 = 4;
        timing.sjw = 2;
        shape.setTiming(timing);
        QCOMPARE(shape.xOf(0), 10);
        QCOMPARE(shape.xOf(12), 250);
        QCOMPARE(shape.xOf(16), 330);
        const QImage image = shape.grab().toImage();
        QCOMPARE(image.pixelColor(250, 20), QColor(0xC6, 0x28, 0x28));
        QCOMPARE(image.pixelColor(35, 24), QColor(0xBB, 0xDE, 0xFB));
        QCOMPARE(image.pixelColor(325, 24), QColor(0xC8, 0xE6, 0xC9));
        shape.setTiming({});
        QVERIFY(shape.grab().toImage().pixelColor(250, 20) != QColor(0xC6, 0x28, 0x28));
    }
};

QTEST_MAIN(TestDeskTiming)
#include "tst_desk_timing.moc"
