// SPDX-License-Identifier: MIT
#include "support/fake_adapter.h"
#include "support/log_recorder.h"
#include "support/timing_fields.h"

#include <BusLinkDesk/adapter/bit_timing_p.h>

#include <QtTest/QtTest>

#include <limits>

namespace {

constexpr quint16 NoLimit = 0xFFFF;
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Infinity = std::numeric_limits<double>::infinity();

// What a program passes to the calculator.
struct Request
{
    int clock;
    int bitrate;
    double samplePoint;
    bool dataPhase = false;
    CAN::CANBitTimingThresholds thresholds = {};
};

struct Answer
{
    CAN::CANBitTimingParameter timing;
    bool ok;
};

Answer ask(const Request &request, bool okBefore = false)
{
    bool ok = okBefore;
    const CAN::CANBitTimingParameter timing =
        AbstractCanAdapter::getTimingParameters(quint8(request.clock), quint16(request.bitrate), request.samplePoint,
                                                ok, request.dataPhase, request.thresholds);
    return {timing, ok};
}

QString textOf(const Answer &answer)
{
    return fieldsOf(answer.timing) + (answer.ok ? QStringLiteral(", ok") : QStringLiteral(", failed"));
}

QString success(int prescaler, int tSeg1, int tSeg2, int sjw, bool valid)
{
    return timingFields(prescaler, tSeg1, tSeg2, sjw, valid) + QStringLiteral(", ok");
}

CAN::CANBitTimingThresholds unlimited(int prescalerMin, int prescalerMax)
{
    CAN::CANBitTimingThresholds thresholds;
    thresholds.prescalerMin = quint16(prescalerMin);
    thresholds.prescalerMax = qint16(prescalerMax);
    thresholds.tSeg1Max = NoLimit;
    thresholds.tSeg2Min = NoLimit;
    thresholds.tSeg2Max = NoLimit;
    thresholds.sjwMax = NoLimit;
    return thresholds;
}

CAN::CANBitTimingThresholds defaultsWithPrescaler(int prescalerMin, int prescalerMax)
{
    CAN::CANBitTimingThresholds thresholds;
    thresholds.prescalerMin = quint16(prescalerMin);
    thresholds.prescalerMax = qint16(prescalerMax);
    return thresholds;
}

CAN::CANBitTimingThresholds withLimits(int tSeg1Max, int tSeg2Min, int tSeg2Max, int sjwMax)
{
    CAN::CANBitTimingThresholds thresholds = unlimited(1, 1);
    thresholds.tSeg1Max = quint16(tSeg1Max);
    thresholds.tSeg2Min = quint16(tSeg2Min);
    thresholds.tSeg2Max = quint16(tSeg2Max);
    thresholds.sjwMax = quint16(sjwMax);
    return thresholds;
}

CAN::CANBitTimingParameter timingOf(int prescaler, int tSeg1, int tSeg2, int sjw = 0, bool valid = false)
{
    CAN::CANBitTimingParameter timing;
    timing.prescaler = quint16(prescaler);
    timing.tSeg1 = quint16(tSeg1);
    timing.tSeg2 = quint16(tSeg2);
    timing.sjw = quint16(sjw);
    timing.valid = valid;
    return timing;
}

LogRecord choice(const char *rest)
{
    const QByteArray text = QByteArray("static CAN::CANBitTimingParameter AbstractCanAdapter::getTimingParameters("
                                       "quint8, quint16, double, bool&, bool, CAN::CANBitTimingThresholds) Line: ")
                            + rest;
    return defaultLogRecord(QtDebugMsg, text.constData());
}

QString rateFields(const CAN::CANBitrateDesc &rate)
{
    return QStringLiteral("%1 %2 %3")
        .arg(rate.label.isNull() ? QStringLiteral("no label") : rate.label)
        .arg(rate.bitrate)
        .arg(rate.samplePoint, 0, 'g', 17);
}

} // namespace

Q_DECLARE_METATYPE(Request)

class TestBitTiming : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestsAreSettled_data()
    {
        QTest::addColumn<Request>("request");
        QTest::addColumn<QString>("answer");
        const auto row = [](const char *name, const Request &request, const QString &answer) {
            QTest::newRow(name) << request << answer;
        };
        row("40, 500, 87.5", {40, 500, 87.5}, success(5, 13, 2, 2, false));
        row("40, 1000, 80", {40, 1000, 80.0}, success(2, 15, 4, 4, false));
        row("80, 500, 87.5", {80, 500, 87.5}, success(10, 13, 2, 2, false));
        row("40, 5000, 75, data phase", {40, 5000, 75.0, true}, success(1, 5, 2, 2, false));
        row("24, 1000, 87.5, no exact fit", {24, 1000, 87.5}, success(2, 9, 2, 2, true));
        row("no limits: 40, 500, 87.5", {40, 500, 87.5, false, unlimited(1, 1024)}, success(1, 69, 10, 10, false));
        row("no limits: 80, 8000, 60, data phase", {80, 8000, 60.0, true, unlimited(1, 1024)},
            success(1, 5, 4, 4, false));
        row("prescaler 0 does no harm", {40, 500, 87.5, false, defaultsWithPrescaler(0, 128)},
            success(5, 13, 2, 2, false));
        row("search starts at the lowest prescaler", {40, 500, 87.5, false, defaultsWithPrescaler(6, 128)},
            success(8, 7, 2, 2, true));
        row("4 quanta", {12, 3000, 75.0, false, unlimited(1, 1024)}, success(1, 2, 1, 1, false));
        row("385 quanta", {77, 200, 80.0, false, withLimits(400, 1, 128, NoLimit)}, success(1, 307, 77, 77, false));
        row("50 quanta in the data phase", {50, 1000, 80.0, true, withLimits(64, 1, 16, NoLimit)},
            success(1, 39, 10, 10, false));
        row("prescaler far above 8 bits", {131, 1, 80.0, false, unlimited(32750, 32750)},
            success(32750, 2, 1, 1, true));
        row("tSeg1 up to 256", {32, 100, 80.3125, false, unlimited(1, 1)}, success(1, 256, 63, 63, false));
        row("tSeg1 not 257", {32, 100, 80.625, false, unlimited(1, 1)}, success(1, 256, 63, 63, true));
        row("tSeg1 up to 32 in the data phase", {40, 1000, 82.5, true, unlimited(1, 1)}, success(1, 32, 7, 7, false));
        row("tSeg1 not 33 in the data phase", {40, 1000, 85.0, true, unlimited(1, 1)}, success(1, 32, 7, 7, true));
        row("tSeg2 up to 128", {160, 1000, 20.0, false, unlimited(1, 1)}, success(1, 31, 128, 128, false));
        row("tSeg2 not 129", {160, 1000, 19.375, false, unlimited(1, 1)}, success(1, 31, 128, 128, true));
        row("tSeg2 up to 16 in the data phase", {40, 1000, 60.0, true, unlimited(1, 1)}, success(1, 23, 16, 16, false));
        row("tSeg2 not 17 in the data phase", {40, 1000, 57.5, true, unlimited(1, 1)}, success(1, 23, 16, 16, true));
        row("tSeg2 down to 1", {20, 1000, 95.0, false, unlimited(1, 1)}, success(1, 18, 1, 1, false));
        row("tSeg2 down to 1 in the data phase", {20, 1000, 95.0, true, unlimited(1, 1)}, success(1, 18, 1, 1, false));
        row("given tSeg1Max", {20, 1000, 80.0, false, withLimits(14, 1, 8, 8)}, success(1, 14, 5, 5, true));
        row("given tSeg2Max", {20, 1000, 80.0, false, withLimits(16, 1, 3, 8)}, success(1, 16, 3, 3, true));
        row("given tSeg2Min", {20, 1000, 80.0, false, withLimits(16, 5, 8, 8)}, success(1, 14, 5, 5, true));
        row("sjw within its limit", {20, 1000, 80.0, false, withLimits(16, 1, 8, 3)}, success(1, 15, 4, 3, false));
        row("sjw of tSeg2", {20, 1000, 80.0, false, withLimits(16, 1, 8, 5)}, success(1, 15, 4, 4, false));
        row("sjw without a limit", {20, 1000, 60.0, false, withLimits(16, 1, 8, NoLimit)}, success(1, 11, 8, 8, false));
        row("sjw at least 1", {20, 1000, 80.0, false, withLimits(16, 1, 8, 0)}, success(1, 15, 4, 1, false));
        row("sjw at least 1 in the second stage", {20, 1000, 81.0, false, withLimits(16, 1, 8, 0)},
            success(1, 15, 4, 1, true));
        row("tSeg1 of 0 in the second stage", {4, 1000, 50.0, false, withLimits(0, 1, 3, NoLimit)},
            success(1, 0, 3, 3, true));
        row("tSeg2 of 0 where the limits ask for it", {4, 1000, 50.0, false, withLimits(16, 0, 0, NoLimit)},
            success(1, 3, 0, 1, true));
        // -134217727.125 * 16 is an int whose low 16 bits are 14.
        row("low 16 bits of a negative place", {40, 500, -13421772712.5, false, defaultsWithPrescaler(5, 5)},
            success(5, 13, 2, 2, false));
        // 65546 / 16 = 4096.625
        row("low 16 bits of a large place", {40, 500, 409662.5, false, defaultsWithPrescaler(5, 5)},
            success(5, 9, 6, 6, false));
    }

    void requestsAreSettled()
    {
        QFETCH(Request, request);
        QFETCH(QString, answer);
        const LogRecorder log;
        QCOMPARE(textOf(ask(request)), answer);
    }

    void requestsWithoutAnAnswerFail_data()
    {
        QTest::addColumn<Request>("request");
        QTest::addColumn<QString>("leftover"); // empty where the record has no meaning but for its prescaler
        const auto row = [](const char *name, const Request &request, const QString &leftover = QString()) {
            QTest::newRow(name) << request << leftover;
        };
        const QString allZero = timingFields(0, 0, 0, 0, false);
        row("sample point 0", {40, 500, 0.0}, allZero);
        row("sample point -0", {40, 500, -0.0}, allZero);
        row("clock 0", {0, 500, 87.5}, allZero);
        row("bit rate 0", {40, 0, 87.5}, allZero);
        row("no sample point and no search either", {40, 500, 0.0, false, defaultsWithPrescaler(7, 6)}, allZero);
        row("highest prescaler 0xFFFF", {40, 500, 87.5, false, defaultsWithPrescaler(1, 0xFFFF)},
            timingFields(1, 0, 0, 0, false));
        row("highest prescaler 0x8000", {40, 500, 87.5, false, defaultsWithPrescaler(0, 0x8000)},
            timingFields(0, 0, 0, 0, false));
        row("prescalers the wrong way round", {40, 500, 87.5, false, defaultsWithPrescaler(7, 6)},
            timingFields(7, 0, 0, 0, false));
        row("lowest prescaler above all signed ones", {40, 500, 87.5, false, defaultsWithPrescaler(0xFFFF, 0x7FFF)},
            timingFields(0xFFFF, 0, 0, 0, false));
        row("no whole number of quanta", {40, 300, 87.5});
        row("rate that can only be approached", {16, 83, 87.5});
        row("prescaler 0 alone", {40, 500, 87.5, false, defaultsWithPrescaler(0, 0)});
        row("3 quanta are too few", {12, 4000, 75.0, false, unlimited(1, 1024)});
        row("386 quanta are too many", {193, 500, 80.0, false, unlimited(1, 1)});
        row("51 quanta are too many in the data phase", {51, 1000, 80.0, true, unlimited(1, 1)});
        row("highest prescaler too low", {40, 10, 87.5, false, defaultsWithPrescaler(1, 9)});
        row("highest prescaler of all", {40, 300, 87.5, false, defaultsWithPrescaler(1, 0x7FFF)});
        row("limits exclude each other", {40, 500, 87.5, false, withLimits(16, 9, 8, 8)});
        row("segments too short for 80 quanta", {40, 500, 87.5, false, withLimits(16, 2, 8, 8)});
        // All that is left to choose from would have 65536 quanta too many.
        row("only segments that wrapped round", {40, 500, 87.5, false, withLimits(256, 65500, 65534, 8)});
        row("sample point 100", {40, 500, 100.0});
        row("sample point above 100", {40, 500, 120.0});
        row("negative sample point", {40, 500, -87.5});
        row("tiny sample point", {40, 500, 1e-300});
        row("huge sample point", {40, 500, 1e300});
        row("huge negative sample point", {40, 500, -1e300});
        row("infinite sample point", {40, 500, Infinity});
        row("negative infinite sample point", {40, 500, -Infinity});
        row("sample point that is no number", {40, 500, NaN});
    }

    void requestsWithoutAnAnswerFail()
    {
        QFETCH(Request, request);
        QFETCH(QString, leftover);
        const LogRecorder log;
        const Answer answer = ask(request, true);
        QVERIFY(!answer.ok);
        if (leftover.isEmpty())
            QCOMPARE(int(answer.timing.prescaler), request.thresholds.prescalerMax + 1);
        else
            QCOMPARE(fieldsOf(answer.timing), leftover);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void unusedThresholdsChangeNothing()
    {
        const LogRecorder log;
        Request request{24, 1000, 87.5};
        request.thresholds.tSeg1Min = 5000;
        request.thresholds.thresholdWord = 1;
        request.thresholds.thresholdFlag = 1;
        QCOMPARE(textOf(ask(request)), success(2, 9, 2, 2, true));
    }

    void exactHitSaysNotValidAndLogsNothing()
    {
        const LogRecorder log;
        QCOMPARE(ask({40, 500, 87.5}).timing.toString(), QStringLiteral("not valid"));
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void eachBetterCandidateIsLogged()
    {
        const LogRecorder log;
        QVERIFY(ask({24, 1000, 87.5}).ok);
        QCOMPARE(log.records(), (QList<LogRecord>{
                                    choice("535 \"CANBitTimings(Prescaler: 1, tSeg1: 16, tSeg2: 7, sjw: 7)\" 0.166667"),
                                    choice("535 \"CANBitTimings(Prescaler: 2, tSeg1: 9, tSeg2: 2, sjw: 2)\" 0.0416667"),
                                }));
    }

    // 4096.64375 is a place 10.3 quanta behind a multiple of 65536, so a candidate is found, but too far
    // from the wanted fraction to be chosen.
    void candidateBeyondAllMeasureLeavesTheLastRecord()
    {
        const LogRecorder log;
        QCOMPARE(textOf(ask({40, 500, 409664.375, false, defaultsWithPrescaler(5, 5)})), success(6, 13, 2, 2, true));
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void equallyNearCandidateWinsByItsSmallerPrescaler()
    {
        const LogRecorder log;
        const CAN::CANBitTimingParameter candidates[] = {timingOf(4, 5, 2, 2), timingOf(2, 5, 2, 1),
                                                         timingOf(3, 5, 2, 2), timingOf(2, 5, 2, 2)};
        QCOMPARE(fieldsOf(buslink::chooseNearest(candidates, 0.875, timingOf(129, 1, 1))),
                 timingFields(2, 5, 2, 1, true));
        QCOMPARE(log.records(), (QList<LogRecord>{
                                    choice("535 \"CANBitTimings(Prescaler: 4, tSeg1: 5, tSeg2: 2, sjw: 2)\" 0.125"),
                                    choice("539 \"CANBitTimings(Prescaler: 2, tSeg1: 5, tSeg2: 2, sjw: 1)\""),
                                }));
    }

    void judgingChecksEachLimit_data()
    {
        QTest::addColumn<int>("tSeg1");
        QTest::addColumn<int>("tSeg2");
        QTest::addColumn<bool>("good");
        QTest::newRow("on both upper limits") << 16 << 8 << true;
        QTest::newRow("on the lower limit") << 1 << 2 << true;
        QTest::newRow("tSeg1 too long") << 17 << 8 << false;
        QTest::newRow("tSeg2 too long") << 16 << 9 << false;
        QTest::newRow("tSeg2 too short") << 16 << 1 << false;
        QTest::newRow("no tSeg1") << 0 << 4 << false;
        QTest::newRow("no tSeg2") << 4 << 0 << false;
    }

    void judgingChecksEachLimit()
    {
        QFETCH(int, tSeg1);
        QFETCH(int, tSeg2);
        QFETCH(bool, good);
        for (const bool valid : {false, true}) {
            CAN::CANBitTimingParameter timing = timingOf(3, tSeg1, tSeg2, 9, valid);
            QCOMPARE(AbstractCanAdapter::checkTimeQuantas(timing, 16, 8, 2, false, 0.5, 40), good);
            QCOMPARE(fieldsOf(timing), timingFields(3, tSeg1, tSeg2, 9, valid));
        }
    }

    void judgingWithoutALowerLimitStillNeedsBothSegments()
    {
        CAN::CANBitTimingParameter timing = timingOf(1, 4, 0);
        QVERIFY(!AbstractCanAdapter::checkTimeQuantas(timing, 16, 8, 0, false, 0.5, 40));
    }

    void samplePointMoves_data()
    {
        QTest::addColumn<int>("tSeg1");
        QTest::addColumn<int>("tSeg2");
        QTest::addColumn<int>("tSeg1Max");
        QTest::addColumn<int>("tSeg2Max");
        QTest::addColumn<int>("tSeg2Min");
        QTest::addColumn<double>("wanted");
        QTest::addColumn<bool>("good");
        QTest::addColumn<QString>("moved");
        const auto unmoved = [](int tSeg1, int tSeg2) { return timingFields(3, tSeg1, tSeg2, 9, false); };
        const auto moved = [](int tSeg1, int tSeg2) { return timingFields(3, tSeg1, tSeg2, 9, true); };
        QTest::newRow("no tSeg1") << 0 << 4 << 16 << 8 << 2 << 0.5 << false << unmoved(0, 4);
        QTest::newRow("no tSeg2") << 4 << 0 << 16 << 8 << 2 << 0.5 << false << unmoved(4, 0);
        QTest::newRow("stays") << 5 << 2 << 16 << 8 << 2 << 0.75 << true << moved(5, 2);
        QTest::newRow("moves back") << 5 << 2 << 16 << 8 << 2 << 0.5 << true << moved(3, 4);
        QTest::newRow("moves on") << 3 << 4 << 16 << 8 << 1 << 0.8 << true << moved(5, 2);
        QTest::newRow("tie keeps the smaller tSeg2") << 5 << 2 << 16 << 8 << 1 << 0.6875 << true << moved(5, 2);
        QTest::newRow("limits the wrong way round") << 5 << 2 << 16 << 1 << 2 << 0.75 << false << unmoved(5, 2);
        QTest::newRow("tSeg1 too long everywhere") << 20 << 3 << 10 << 8 << 2 << 0.75 << false << unmoved(20, 3);
        QTest::newRow("tSeg1 of 0") << 5 << 2 << 16 << 7 << 7 << 0.75 << true << moved(0, 7);
        QTest::newRow("tSeg2 of 0") << 5 << 2 << 16 << 7 << 0 << 1.0 << true << moved(7, 0);
        QTest::newRow("fraction below all") << 5 << 2 << 16 << 6 << 2 << -3.0 << true << moved(1, 6);
        QTest::newRow("fraction above all") << 5 << 2 << 16 << 6 << 2 << 3.0 << true << moved(5, 2);
        QTest::newRow("differences that round to one") << 5 << 2 << 16 << 6 << 2 << 1e300 << true << moved(5, 2);
        QTest::newRow("negative ones as well") << 5 << 2 << 16 << 6 << 2 << -1e300 << true << moved(5, 2);
        QTest::newRow("infinite fraction") << 5 << 2 << 16 << 6 << 2 << Infinity << false << unmoved(1, 6);
        QTest::newRow("negative infinite fraction") << 5 << 2 << 16 << 6 << 2 << -Infinity << false << unmoved(1, 6);
        QTest::newRow("no number") << 5 << 2 << 16 << 6 << 2 << NaN << false << unmoved(1, 6);
        QTest::newRow("as far as a number can be")
            << 5 << 2 << 16 << 6 << 2 << std::numeric_limits<double>::max() << false << unmoved(1, 6);
        QTest::newRow("tSeg2 beyond the sum wraps out of the limits")
            << 5 << 2 << 16 << 65000 << 2 << 0.01 << true << moved(0, 7);
        // 65543 - 65530 = 13
        QTest::newRow("wrapped pairs alone") << 5 << 2 << 16 << 65535 << 65530 << 0.9 << false << moved(13, 65530);
        QTest::newRow("wrapped pair wins") << 5 << 2 << 65535 << 8 << 2 << 0.9999 << false << moved(65535, 8);
        QTest::newRow("wrapped pair loses") << 5 << 2 << 65535 << 8 << 2 << 0.75 << true << moved(5, 2);
        QTest::newRow("no number with wrapped pairs") << 5 << 2 << 65535 << 9 << 2 << NaN << false << unmoved(65534, 9);
        // The sum keeps 16 bits, 4 here.
        QTest::newRow("sum that wraps") << 65535 << 5 << 16 << 3 << 1 << 0.6 << true << moved(2, 2);
    }

    void samplePointMoves()
    {
        QFETCH(int, tSeg1);
        QFETCH(int, tSeg2);
        QFETCH(int, tSeg1Max);
        QFETCH(int, tSeg2Max);
        QFETCH(int, tSeg2Min);
        QFETCH(double, wanted);
        QFETCH(bool, good);
        QFETCH(QString, moved);
        for (const quint8 clock : {quint8(0), quint8(40), quint8(255)}) {
            CAN::CANBitTimingParameter timing = timingOf(3, tSeg1, tSeg2, 9);
            QCOMPARE(AbstractCanAdapter::checkTimeQuantas(timing, quint16(tSeg1Max), quint16(tSeg2Max),
                                                          quint16(tSeg2Min), true, wanted, clock),
                     good);
            QCOMPARE(fieldsOf(timing), moved);
        }
    }

    void recordThatWasValidStaysSoWithoutANearestPlace()
    {
        CAN::CANBitTimingParameter timing = timingOf(3, 5, 2, 9, true);
        QVERIFY(!AbstractCanAdapter::checkTimeQuantas(timing, 16, 6, 2, true, NaN, 40));
        QCOMPARE(fieldsOf(timing), timingFields(3, 1, 6, 9, true));
    }

    void thresholdsOfTheBaseAreTheSameForBothPhases()
    {
        FakeAdapter adapter;
        for (const bool dataPhase : {false, true}) {
            const CAN::CANBitTimingThresholds thresholds = adapter.getTimingThresholds(dataPhase);
            const QList<int> fields{thresholds.thresholdWord, thresholds.prescalerMin, thresholds.prescalerMax,
                                    thresholds.tSeg1Min,      thresholds.tSeg1Max,     thresholds.tSeg2Min,
                                    thresholds.tSeg2Max,      thresholds.sjwMax,       thresholds.thresholdFlag};
            QCOMPARE(fields, (QList<int>{8, 1, 128, 3, 16, 2, 8, 8, 0}));
        }
    }

    void determinedTimingIsKeptForItsPhaseAlone()
    {
        FakeAdapter adapter;
        bool ok = false;
        const auto nominal = adapter.determineTimingParameters(40, 500, 87.5, ok, false, {});
        QVERIFY(ok);
        QCOMPARE(fieldsOf(nominal), timingFields(5, 13, 2, 2, false));
        QCOMPARE(fieldsOf(adapter.getBitTimings(false)), timingFields(5, 13, 2, 2, true));
        QCOMPARE(rateFields(adapter.getCalculatedBitrate(false)), QStringLiteral("no label 500 0.875"));
        QCOMPARE(fieldsOf(adapter.getBitTimings(true)), timingFields(0, 0, 0, 0, false));
        QCOMPARE(rateFields(adapter.getCalculatedBitrate(true)), QStringLiteral("no label 0 0"));

        const auto data = adapter.determineTimingParameters(40, 5000, 75.0, ok, true, {});
        QVERIFY(ok);
        QCOMPARE(fieldsOf(data), timingFields(1, 5, 2, 2, false));
        QCOMPARE(fieldsOf(adapter.getBitTimings(true)), timingFields(1, 5, 2, 2, true));
        QCOMPARE(rateFields(adapter.getCalculatedBitrate(true)), QStringLiteral("no label 5000 0.75"));
        QCOMPARE(fieldsOf(adapter.getBitTimings(false)), timingFields(5, 13, 2, 2, true));
        QCOMPARE(rateFields(adapter.getCalculatedBitrate(false)), QStringLiteral("no label 500 0.875"));
    }

    void nearestTimingIsKeptWithItsOwnSamplePoint()
    {
        const LogRecorder log;
        FakeAdapter adapter;
        bool ok = false;
        const auto found = adapter.determineTimingParameters(24, 1000, 87.5, ok, false, {});
        QVERIFY(ok);
        QCOMPARE(fieldsOf(found), timingFields(2, 9, 2, 2, true));
        QCOMPARE(fieldsOf(adapter.getBitTimings(false)), timingFields(2, 9, 2, 2, true));
        QCOMPARE(rateFields(adapter.getCalculatedBitrate(false)), QStringLiteral("no label 1000 0.83333331346511841"));
        QCOMPARE(log.records().size(), 2);
    }

    void failedDeterminationKeepsTheOldNumbersNotValid()
    {
        for (const bool dataPhase : {false, true}) {
            FakeAdapter adapter;
            bool ok = false;
            adapter.determineTimingParameters(40, 500, 87.5, ok, dataPhase, {});
            adapter.determineTimingParameters(80, 1000, 87.5, ok, !dataPhase, {});
            const auto found = adapter.determineTimingParameters(40, 300, 87.5, ok, dataPhase, {});
            QVERIFY(!ok);
            QCOMPARE(found.prescaler, quint16(129));
            QCOMPARE(fieldsOf(adapter.getBitTimings(dataPhase)), timingFields(5, 13, 2, 2, false));
            QCOMPARE(adapter.getBitTimings(dataPhase).toString(), QStringLiteral("not valid"));
            QCOMPARE(rateFields(adapter.getCalculatedBitrate(dataPhase)), QStringLiteral("no label 500 0.875"));
            QCOMPARE(fieldsOf(adapter.getBitTimings(!dataPhase)), timingFields(5, 13, 2, 2, true));
            QCOMPARE(rateFields(adapter.getCalculatedBitrate(!dataPhase)), QStringLiteral("no label 1000 0.875"));
        }
    }

    void calculatedRateIsMadeWithEightBitsOfThePrescaler()
    {
        FakeAdapter adapter;
        bool ok = false;
        adapter.determineTimingParameters(130, 50, 80.0, ok, false, unlimited(260, 260));
        QVERIFY(ok);
        QCOMPARE(fieldsOf(adapter.getBitTimings(false)), timingFields(260, 7, 2, 2, true));
        // 130000 / (4 * 10)
        QCOMPARE(rateFields(adapter.getCalculatedBitrate(false)), QStringLiteral("no label 3250 0.80000001192092896"));
        adapter.determineTimingParameters(128, 50, 80.0, ok, false, unlimited(256, 256));
        QVERIFY(ok);
        QCOMPARE(fieldsOf(adapter.getBitTimings(false)), timingFields(256, 7, 2, 2, true));
        QCOMPARE(rateFields(adapter.getCalculatedBitrate(false)), QStringLiteral("no label 0 0.80000001192092896"));
    }
};

QTEST_GUILESS_MAIN(TestBitTiming)
#include "tst_bit_timing.moc"
