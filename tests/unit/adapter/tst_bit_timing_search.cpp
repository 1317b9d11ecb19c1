// SPDX-License-Identifier: MIT
#include "support/log_recorder.h"
#include "support/plain_bit_timing.h"
#include "support/timing_fields.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtTest/QtTest>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace {

struct Request
{
    quint8 clock = 0;
    quint16 bitrate = 0;
    double samplePoint = 0.0;
    bool dataPhase = false;
    CAN::CANBitTimingThresholds thresholds;
};

QString textOf(const Request &request)
{
    const CAN::CANBitTimingThresholds &limits = request.thresholds;
    return QStringLiteral("clock %1, rate %2, sample point %3, data phase %4, prescaler %5 to %6, tSeg1 to %7, "
                          "tSeg2 %8 to %9, sjw to %10")
        .arg(request.clock)
        .arg(request.bitrate)
        .arg(request.samplePoint, 0, 'g', 17)
        .arg(request.dataPhase)
        .arg(limits.prescalerMin)
        .arg(limits.prescalerMax)
        .arg(limits.tSeg1Max)
        .arg(limits.tSeg2Min)
        .arg(limits.tSeg2Max)
        .arg(limits.sjwMax);
}

// Draws the same numbers on every machine, which the standard's distributions do not promise.
class Dice
{
public:
    explicit Dice(quint32 seed) : mEngine(seed) {}

    int from(int low, int high) { return low + int(mEngine() % quint32(high - low + 1)); }
    bool oneIn(int count) { return from(1, count) == 1; }
    template <typename List>
    auto oneOf(const List &list)
    {
        return list[std::size_t(from(0, int(std::size(list)) - 1))];
    }
    // A limit, none at all now and then.
    quint16 limit(int low, int high) { return oneIn(4) ? quint16(0xFFFF) : quint16(from(low, high)); }

private:
    std::mt19937 mEngine;
};

double someSamplePoint(Dice &dice)
{
    static const double usual[] = {87.5, 80.0, 75.0, 70.0, 60.0, 50.0, 66.7, 83.3, 90.0, 62.5};
    static const double odd[] = {0.0, -50.0, 0.4, 1.5, 99.6, 100.0, 100.5, 250.0, -0.2};
    if (dice.oneIn(50))
        return dice.oneOf(odd);
    if (dice.oneIn(2))
        return dice.oneOf(usual);
    if (dice.oneIn(2))
        return dice.from(1, 99);
    return dice.from(1, 99999) / 1000.0;
}

// Few of the rates drawn at random divide the clock, so most are made from a divisor.
quint16 someBitrate(Dice &dice, quint8 clock)
{
    if (dice.oneIn(5))
        return quint16(dice.from(0, 8000));
    const int periods = std::max(clock * 1000, 1);
    for (int attempt = 0; attempt < 20; ++attempt) {
        const int divisor = dice.from(4, 400) * (dice.oneIn(2) ? dice.from(1, 130) : dice.from(1, 10));
        if (periods % divisor == 0 && periods / divisor <= 0xFFFF)
            return quint16(periods / divisor);
    }
    return quint16(dice.from(1, 1000));
}

Request someRequest(Dice &dice)
{
    Request request;
    static const quint8 usualClocks[] = {8, 16, 20, 24, 30, 36, 40, 48, 60, 72, 80, 120, 160};
    request.clock = dice.oneIn(4) ? quint8(dice.from(0, 255)) : dice.oneOf(usualClocks);
    request.bitrate = someBitrate(dice, request.clock);
    request.samplePoint = someSamplePoint(dice);
    request.dataPhase = dice.oneIn(3);
    CAN::CANBitTimingThresholds &limits = request.thresholds;
    if (dice.oneIn(4))
        return request;
    limits.prescalerMin = quint16(dice.oneIn(3) ? dice.from(0, 40) : 1);
    limits.prescalerMax = qint16(dice.oneIn(100) ? dice.from(-0x8000, 10) : dice.from(1, 130));
    limits.tSeg1Max = dice.limit(0, dice.oneIn(2) ? 20 : 300);
    limits.tSeg2Min = dice.limit(0, 4);
    limits.tSeg2Max = dice.limit(0, dice.oneIn(2) ? 10 : 150);
    limits.sjwMax = dice.limit(0, 20);
    return request;
}

// Where limits, prescalers and sample points leave all bounds.
Request wildRequest(Dice &dice)
{
    static const quint16 edges[] = {0, 1, 2, 255, 256, 257, 384, 65000, 65151, 65152, 65280, 65530, 65534, 65535};
    static const double places[] = {1e300,
                                    -1e300,
                                    1e-300,
                                    std::numeric_limits<double>::max(),
                                    std::numeric_limits<double>::infinity(),
                                    -std::numeric_limits<double>::infinity(),
                                    std::numeric_limits<double>::quiet_NaN()};
    Request request = someRequest(dice);
    CAN::CANBitTimingThresholds &limits = request.thresholds;
    limits.tSeg1Max = dice.oneOf(edges);
    limits.tSeg2Max = dice.oneOf(edges);
    limits.tSeg2Min = dice.oneIn(4) ? dice.oneOf(edges) : quint16(dice.from(0, 5));
    limits.prescalerMax = qint16(dice.from(0, 60));
    limits.prescalerMin = quint16(dice.from(0, 3));
    if (dice.oneIn(8))
        request.samplePoint = dice.oneOf(places);
    else if (dice.oneIn(3))
        // A place whose low 16 bits are a small number.
        request.samplePoint = 100.0 * (65536.0 * dice.from(-0x8000, 0x7FFF) + dice.from(0, 30)) / dice.from(4, 60);
    return request;
}

CAN::CANBitTimingParameter library(const Request &request, bool &ok)
{
    return AbstractCanAdapter::getTimingParameters(request.clock, request.bitrate, request.samplePoint, ok,
                                                   request.dataPhase, request.thresholds);
}

CAN::CANBitTimingParameter plain(const Request &request, bool &ok)
{
    return plainTimingParameters(request.clock, request.bitrate, request.samplePoint, ok, request.dataPhase,
                                 request.thresholds);
}

template <typename Search>
QStringList outcomeOf(const Request &request, Search search)
{
    const LogRecorder log;
    bool ok = false;
    const CAN::CANBitTimingParameter timing = search(request, ok);
    return QStringList{fieldsOf(timing), ok ? QStringLiteral("ok") : QStringLiteral("failed")} + log.texts();
}

// Drops the log while it lives: a hundred thousand searches have much to say.
class Silence
{
public:
    Silence() : mPrevious(qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {})) {}
    ~Silence() { qInstallMessageHandler(mPrevious); }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

private:
    QtMessageHandler mPrevious;
};

// What makes an answer right, told without searching: it looks at every pair of prescaler and quanta
// that meets the rate, found by divisibility alone.
class Judge
{
public:
    explicit Judge(const Request &request)
        : mClocks(request.clock * 1000)
        , mBitrate(request.samplePoint == 0.0 ? 0 : request.bitrate)
        , mWanted(request.samplePoint / 100.0)
        , mQuantaMax(request.dataPhase ? 50 : 385)
        , mLimits(request.thresholds)
    {
        const auto orElse = [](quint16 &limit, int fallback) {
            if (limit == 0xFFFF)
                limit = quint16(fallback);
        };
        orElse(mLimits.tSeg1Max, request.dataPhase ? 32 : 256);
        orElse(mLimits.tSeg2Max, request.dataPhase ? 16 : 128);
        orElse(mLimits.tSeg2Min, 1);
        orElse(mLimits.sjwMax, mLimits.tSeg2Max);
        if (mClocks == 0 || mBitrate == 0)
            return;
        for (int quanta = 4; quanta <= mQuantaMax; ++quanta) {
            if (mClocks % (quanta * mBitrate) != 0)
                continue;
            const int prescaler = mClocks / (quanta * mBitrate);
            if (prescaler >= mLimits.prescalerMin && prescaler <= mLimits.prescalerMax)
                mPairs.append({prescaler, quanta});
        }
    }

    // Empty, or what is wrong with the answer.
    QString complaint(const CAN::CANBitTimingParameter &timing, bool ok) const
    {
        if (!ok)
            return complaintAboutRefusal();
        if (mClocks != timing.prescaler * quantaOf(timing) * mBitrate)
            return QStringLiteral("the rate is not met");
        if (timing.prescaler < mLimits.prescalerMin || timing.prescaler > mLimits.prescalerMax || quantaOf(timing) < 4
            || quantaOf(timing) > mQuantaMax || !allows(timing.tSeg1, timing.tSeg2))
            return QStringLiteral("a limit is exceeded");
        if (timing.sjw != std::max(1, std::min(int(timing.tSeg2), int(mLimits.sjwMax))))
            return QStringLiteral("the jump width is wrong");
        return timing.valid ? complaintAboutNearest(timing) : complaintAboutExact(timing);
    }

    // Whether the refusal can be checked against all that there is.
    bool isSmall() const
    {
        return mLimits.prescalerMax - mLimits.prescalerMin <= 40 && mLimits.tSeg1Max <= 20 && mLimits.tSeg2Max <= 10;
    }

    // Tries every record within the limits.
    bool anyRecordFits() const
    {
        for (int prescaler = mLimits.prescalerMin; prescaler <= mLimits.prescalerMax; ++prescaler) {
            for (int tSeg1 = 0; tSeg1 <= mLimits.tSeg1Max; ++tSeg1) {
                for (int tSeg2 = mLimits.tSeg2Min; tSeg2 <= mLimits.tSeg2Max; ++tSeg2) {
                    const int quanta = tSeg1 + 1 + tSeg2;
                    if (mBitrate != 0 && mClocks != 0 && prescaler * quanta * mBitrate == mClocks && quanta >= 4
                        && quanta <= mQuantaMax && hasPlace(quanta))
                        return true;
                }
            }
        }
        return false;
    }

private:
    struct Pair
    {
        int prescaler;
        int quanta;
    };

    static int quantaOf(const CAN::CANBitTimingParameter &timing) { return timing.tSeg1 + 1 + timing.tSeg2; }

    bool allows(int tSeg1, int tSeg2) const
    {
        return tSeg1 >= 0 && tSeg1 <= mLimits.tSeg1Max && tSeg2 >= mLimits.tSeg2Min && tSeg2 <= mLimits.tSeg2Max;
    }

    // Whether the wanted place, rounded, leaves something on both of its sides.
    bool hasPlace(int quanta) const
    {
        const double place = std::floor(quanta * mWanted + 0.5);
        return place >= 2.0 && place < quanta;
    }

    bool fitsExactly(const Pair &pair) const
    {
        const double place = pair.quanta * mWanted;
        if (!hasPlace(pair.quanta) || std::floor(place) < place)
            return false;
        return allows(int(place) - 1, pair.quanta - int(place)) && int(place) < pair.quanta;
    }

    double distance(int quanta, int tSeg2) const
    {
        return std::fabs(double(float(quanta - tSeg2) / float(quanta)) - mWanted);
    }

    template <typename Visit>
    void eachCandidate(Visit visit) const
    {
        for (const Pair &pair : mPairs) {
            if (!hasPlace(pair.quanta))
                continue;
            for (int tSeg2 = mLimits.tSeg2Min; tSeg2 <= std::min(int(mLimits.tSeg2Max), pair.quanta - 1); ++tSeg2) {
                if (allows(pair.quanta - 1 - tSeg2, tSeg2))
                    visit(pair, tSeg2);
            }
        }
    }

    QString complaintAboutExact(const CAN::CANBitTimingParameter &timing) const
    {
        const double place = quantaOf(timing) * mWanted;
        if (place < timing.tSeg1 + 1 || place > timing.tSeg1 + 1 || timing.tSeg1 == 0 || timing.tSeg2 == 0)
            return QStringLiteral("the sample point is not met");
        for (const Pair &pair : mPairs) {
            if (pair.prescaler < timing.prescaler && fitsExactly(pair))
                return QStringLiteral("prescaler %1 fits exactly").arg(pair.prescaler);
        }
        return QString();
    }

    QString complaintAboutNearest(const CAN::CANBitTimingParameter &timing) const
    {
        for (const Pair &pair : mPairs) {
            if (fitsExactly(pair))
                return QStringLiteral("prescaler %1 fits exactly").arg(pair.prescaler);
        }
        QString complaint;
        const double own = distance(quantaOf(timing), timing.tSeg2);
        eachCandidate([&](const Pair &pair, int tSeg2) {
            const double other = distance(pair.quanta, tSeg2);
            const bool tieWon =
                pair.prescaler > timing.prescaler || (pair.prescaler == timing.prescaler && tSeg2 >= timing.tSeg2);
            if (other < own || (!(other > own) && !tieWon))
                complaint = QStringLiteral("prescaler %1 with tSeg2 %2 is nearer").arg(pair.prescaler).arg(tSeg2);
        });
        return complaint;
    }

    QString complaintAboutRefusal() const
    {
        QString complaint;
        eachCandidate([&](const Pair &pair, int tSeg2) {
            complaint = QStringLiteral("prescaler %1 with tSeg2 %2 fits").arg(pair.prescaler).arg(tSeg2);
        });
        return complaint;
    }

    int mClocks;
    int mBitrate;
    double mWanted;
    int mQuantaMax;
    CAN::CANBitTimingThresholds mLimits;
    QVector<Pair> mPairs;
};

} // namespace

class TestBitTimingSearch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void searchAnswersLikeThePlainOne_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<bool>("wild");
        QTest::newRow("usual requests") << 1500 << false;
        QTest::newRow("requests out of all bounds") << 1500 << true;
    }

    void searchAnswersLikeThePlainOne()
    {
        QFETCH(int, count);
        QFETCH(bool, wild);
        Dice dice(wild ? 2 : 1);
        int successes = 0;
        int logged = 0;
        for (int i = 0; i < count; ++i) {
            const Request request = wild ? wildRequest(dice) : someRequest(dice);
            const QStringList expected = outcomeOf(request, plain);
            const QStringList actual = outcomeOf(request, library);
            QVERIFY2(actual == expected, qPrintable(textOf(request) + QStringLiteral(": ") + actual.join(u'\n')
                                                    + QStringLiteral(" is not ") + expected.join(u'\n')));
            successes += int(expected.at(1) == QLatin1String("ok"));
            logged += int(expected.size() > 2);
        }
        QVERIFY2(successes > count / 12 && logged > count / 20,
                 qPrintable(QStringLiteral("%1 successes, %2 with a log").arg(successes).arg(logged)));
        QVERIFY2(successes < count * 9 / 10, qPrintable(QString::number(successes)));
    }

    void searchAnswersLikeThePlainOneOverTheWidestRange()
    {
        static const quint16 lowRates[] = {1, 2, 4, 5, 8, 10};
        Dice dice(3);
        for (int i = 0; i < 12; ++i) {
            Request request = someRequest(dice);
            request.clock = quint8(dice.from(200, 255));
            request.bitrate = dice.oneOf(lowRates);
            request.thresholds.prescalerMin = 1;
            request.thresholds.prescalerMax = i == 0 ? 0x7FFF : 1024;
            if (i % 2 == 0)
                request.thresholds.tSeg1Max = request.thresholds.tSeg2Max = 0xFFFF;
            QCOMPARE(outcomeOf(request, library), outcomeOf(request, plain));
        }
    }

    void segmentsMoveLikeThePlainOnes()
    {
        Dice dice(4);
        int found = 0;
        for (int i = 0; i < 4000; ++i) {
            const Request wild = wildRequest(dice);
            const auto size = [&dice] { return quint16(dice.oneIn(10) ? dice.from(0, 0xFFFF) : dice.from(0, 40)); };
            CAN::CANBitTimingParameter expected;
            expected.tSeg1 = size();
            expected.tSeg2 = size();
            expected.valid = dice.oneIn(2);
            CAN::CANBitTimingParameter actual = expected;
            const quint16 first = wild.thresholds.tSeg2Min;
            // The plain way takes long over all of 16 bits, so most ranges are short.
            const quint16 last =
                dice.oneIn(40) ? wild.thresholds.tSeg2Max : quint16(std::min(first + dice.from(-1, 60), 0xFFFF));
            const bool closest = !dice.oneIn(10);
            const double wanted = dice.oneIn(2) ? wild.samplePoint : dice.from(0, 100) / 100.0;
            const bool fits = plainCheckTimeQuantas(expected, wild.thresholds.tSeg1Max, last, first, closest, wanted);
            QCOMPARE(AbstractCanAdapter::checkTimeQuantas(actual, wild.thresholds.tSeg1Max, last, first, closest,
                                                          wanted, wild.clock),
                     fits);
            QCOMPARE(fieldsOf(actual), fieldsOf(expected));
            found += int(fits);
        }
        QVERIFY2(found > 400 && found < 3600, qPrintable(QString::number(found)));
    }

    void everyAnswerIsRightByItself()
    {
        const Silence silence;
        Dice dice(5);
        int exact = 0;
        int nearest = 0;
        int refused = 0;
        int refusedSmall = 0;
        for (int i = 0; i < 100000; ++i) {
            const Request request = someRequest(dice);
            bool ok = false;
            const CAN::CANBitTimingParameter timing = library(request, ok);
            const Judge judge(request);
            const QString complaint = judge.complaint(timing, ok);
            QVERIFY2(complaint.isEmpty(), qPrintable(textOf(request) + QStringLiteral(": ") + fieldsOf(timing)
                                                     + QStringLiteral(": ") + complaint));
            if (ok) {
                ++(timing.valid ? nearest : exact);
                continue;
            }
            ++refused;
            if (judge.isSmall()) {
                ++refusedSmall;
                QVERIFY2(!judge.anyRecordFits(), qPrintable(textOf(request)));
            }
        }
        QVERIFY2(exact > 5000 && nearest > 5000 && refused > 5000 && refusedSmall > 1000,
                 qPrintable(QStringLiteral("%1 exact, %2 nearest, %3 refused, %4 of these with small limits")
                                .arg(exact)
                                .arg(nearest)
                                .arg(refused)
                                .arg(refusedSmall)));
    }
};

QTEST_APPLESS_MAIN(TestBitTimingSearch)
#include "tst_bit_timing_search.moc"
