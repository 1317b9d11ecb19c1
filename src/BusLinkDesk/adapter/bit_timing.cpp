// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/bit_timing_p.h>

#include <QtCore/QDebug>
#include <QtCore/QVarLengthArray>

#include <algorithm>
#include <cmath>

namespace buslink {

namespace {

constexpr quint16 NoLimit = 0xFFFF;
constexpr int FirstQuanta = 4;

struct SearchLimits
{
    SegmentLimits segments;
    quint16 sjwMax;
    int quantaMax;
};

quint16 limitOr(quint16 given, quint16 fallback)
{
    return given == NoLimit ? fallback : given;
}

SearchLimits resolveLimits(const TimingRequest &request)
{
    const CAN::CANBitTimingThresholds &thresholds = request.thresholds;
    SearchLimits limits{};
    limits.segments.tSeg1Max = limitOr(thresholds.tSeg1Max, request.dataPhase ? 32 : 256);
    limits.segments.tSeg2Max = limitOr(thresholds.tSeg2Max, request.dataPhase ? 16 : 128);
    limits.segments.tSeg2Min = limitOr(thresholds.tSeg2Min, 1);
    limits.sjwMax = limitOr(thresholds.sjwMax, limits.segments.tSeg2Max);
    limits.quantaMax = request.dataPhase ? 50 : 385;
    return limits;
}

// The pairs of prescaler and quanta that meet the rate exactly, by rising prescaler.
//
// A pair meets it when clock * 1000.0 / (prescaler * quanta) == bitrate in double precision, and that is
// the same as prescaler * quanta * bitrate == clock * 1000 in integers. Dividend, divisor and rate are
// exact doubles, so an integer match divides without rounding. Without a match the true quotient is off
// the rate by at least 1 / divisor, which is more than 2^-24 (32767 * 385 < 2^24), while rounding to a
// rate below 2^16 bridges 2^-38 at most. So a prescaler has one fitting number of quanta or none, and
// both are divisors of the clock periods in one bit.
class ExactRatePairs
{
public:
    ExactRatePairs(const TimingRequest &request, int quantaMax)
        : mPeriods(request.clockMHz * 1000 % request.bitrateKbit == 0 ? request.clockMHz * 1000 / request.bitrateKbit
                                                                      : 0)
        , mPrescalerNext(std::max({int(request.thresholds.prescalerMin), 1, (mPeriods + quantaMax - 1) / quantaMax}))
        , mPrescalerLast(std::min(int(request.thresholds.prescalerMax), mPeriods / FirstQuanta))
    {}

    bool next()
    {
        while (mPrescalerNext <= mPrescalerLast) {
            // Of all prescalers with this integral quotient only the last one can divide evenly.
            quanta = mPeriods / mPrescalerNext;
            prescaler = mPeriods / quanta;
            mPrescalerNext = prescaler + 1;
            if (prescaler * quanta == mPeriods)
                return prescaler <= mPrescalerLast;
        }
        return false;
    }

    int prescaler = 0;
    int quanta = 0;

private:
    int mPeriods;
    int mPrescalerNext;
    int mPrescalerLast;
};

// qRound, and 0 where the number does not fit an int, which no quantum count can match.
quint16 roundedLow16(double value)
{
    if (!(value > -2147483648.0 && value < 2147483647.5))
        return 0;
    return static_cast<quint16>(qRound(value));
}

bool hasPositiveFraction(double value)
{
    double whole = 0.0;
    return std::modf(value, &whole) > 0.0;
}

// Puts the sample point at the quantum nearest to the wanted place; false where a segment would be missing.
bool splitQuanta(CAN::CANBitTimingParameter &timing, int quanta, double boundary)
{
    const quint16 rounded = roundedLow16(boundary);
    if (rounded >= quanta || rounded <= 1)
        return false;
    timing.tSeg1 = static_cast<quint16>(rounded - 1);
    timing.tSeg2 = static_cast<quint16>(quanta - rounded);
    return true;
}

quint16 jumpWidth(quint16 tSeg2, quint16 sjwMax)
{
    return std::max<quint16>(1, std::min(tSeg2, sjwMax));
}

bool findExact(const TimingRequest &request, const SearchLimits &limits, double wantedFraction,
               CAN::CANBitTimingParameter &timing)
{
    for (ExactRatePairs pairs(request, limits.quantaMax); pairs.next();) {
        timing.prescaler = static_cast<quint16>(pairs.prescaler);
        const double boundary = pairs.quanta * wantedFraction;
        if (hasPositiveFraction(boundary) || !splitQuanta(timing, pairs.quanta, boundary)
            || !segmentsWithin(timing, limits.segments))
            continue;
        timing.sjw = jumpWidth(timing.tSeg2, limits.sjwMax);
        return true;
    }
    return false;
}

// Where the search tells which candidate it took. The tie cannot be reached while candidates come by
// rising prescaler; programs that read the log know both numbers.
void logChoice(int line, const CAN::CANBitTimingParameter &candidate, const double *difference)
{
    QDebug debug = qDebug();
    debug
        << "static CAN::CANBitTimingParameter AbstractCanAdapter::getTimingParameters(quint8, quint16, double, bool&, "
           "bool, CAN::CANBitTimingThresholds)"
        << "Line:" << line << candidate.toString();
    if (difference)
        debug << *difference;
}

} // namespace

CAN::CANBitTimingParameter chooseNearest(std::span<const CAN::CANBitTimingParameter> candidates, double wantedFraction,
                                         CAN::CANBitTimingParameter chosen)
{
    double best = 100.0;
    for (CAN::CANBitTimingParameter candidate : candidates) {
        candidate.valid = true;
        const double difference = std::fabs(samplePointOfTiming(candidate.tSeg1, candidate.tSeg2) - wantedFraction);
        if (best > difference) {
            chosen = candidate;
            best = difference;
            logChoice(535, candidate, &difference);
        } else if (difference == best && candidate.prescaler < chosen.prescaler) {
            chosen = candidate;
            logChoice(539, candidate, nullptr);
        }
    }
    return chosen;
}

CAN::CANBitTimingParameter findBitTiming(const TimingRequest &request, bool &ok)
{
    ok = false;
    CAN::CANBitTimingParameter timing;
    if (request.samplePointPercent == 0.0 || request.clockMHz == 0 || request.bitrateKbit == 0)
        return timing;
    timing.prescaler = request.thresholds.prescalerMin;
    if (request.thresholds.prescalerMax < int(request.thresholds.prescalerMin))
        return timing;

    const double wantedFraction = request.samplePointPercent / 100.0;
    const SearchLimits limits = resolveLimits(request);
    ok = findExact(request, limits, wantedFraction, timing);
    if (ok)
        return timing;

    QVarLengthArray<CAN::CANBitTimingParameter, 64> candidates;
    for (ExactRatePairs pairs(request, limits.quantaMax); pairs.next();) {
        timing.prescaler = static_cast<quint16>(pairs.prescaler);
        if (!splitQuanta(timing, pairs.quanta, pairs.quanta * wantedFraction)
            || !moveToNearestSamplePoint(timing, limits.segments, wantedFraction))
            continue;
        timing.sjw = jumpWidth(timing.tSeg2, limits.sjwMax);
        candidates.append(timing);
    }
    timing.prescaler = static_cast<quint16>(request.thresholds.prescalerMax + 1);
    ok = !candidates.isEmpty();
    // With a fraction beyond all measure no candidate is near enough to be chosen; then the record stays
    // as the last one left it.
    return chooseNearest({candidates.constData(), std::size_t(candidates.size())}, wantedFraction, timing);
}

} // namespace buslink
