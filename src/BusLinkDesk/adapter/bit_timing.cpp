// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/bit_timing_p.h>

#include <QtCore/QDebug>
#include <QtCore/QVector>

#include <algorithm>
#include <cmath>
#include <limits>

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

CAN::CANBitrateDesc bitrateRow(const QString &label, quint16 bitrateKbit, double samplePointPercent)
{
    CAN::CANBitrateDesc row;
    row.label = label;
    row.bitrate = bitrateKbit;
    row.samplePoint = samplePointPercent;
    return row;
}

quint16 bitrateOfTiming(quint16 clockMHz, quint8 prescaler, quint16 tSeg1, quint16 tSeg2)
{
    if (prescaler == 0)
        return 0;
    const int bits = tSeg1 + 1 + tSeg2;
    const double quotient = clockMHz * 1000.0 / (prescaler * bits);
    return static_cast<quint16>(static_cast<quint32>(quotient));
}

double samplePointOfTiming(quint16 tSeg1, quint16 tSeg2)
{
    const int bits = tSeg1 + 1 + tSeg2;
    return static_cast<double>(static_cast<float>(tSeg1 + 1) / static_cast<float>(bits));
}

bool segmentsWithin(const CAN::CANBitTimingParameter &timing, const SegmentLimits &limits)
{
    return timing.tSeg1 != 0 && timing.tSeg2 != 0 && timing.tSeg2 <= limits.tSeg2Max && timing.tSeg1 <= limits.tSeg1Max
           && timing.tSeg2 >= limits.tSeg2Min;
}

bool moveToNearestSamplePoint(CAN::CANBitTimingParameter &timing, const SegmentLimits &limits, double wantedFraction)
{
    if (timing.tSeg1 == 0 || timing.tSeg2 == 0)
        return false;
    const auto sum = static_cast<quint16>(timing.tSeg1 + timing.tSeg2);
    bool found = false;
    CAN::CANBitTimingParameter nearest;
    double best = std::numeric_limits<double>::max();
    for (int tSeg2 = limits.tSeg2Min; tSeg2 <= limits.tSeg2Max; ++tSeg2) {
        const auto tSeg1 = static_cast<quint16>(sum - tSeg2);
        if (tSeg1 > limits.tSeg1Max)
            continue;
        // Without a nearest place (a fraction that is no number) the last one tried stays in the record.
        timing.tSeg1 = tSeg1;
        timing.tSeg2 = static_cast<quint16>(tSeg2);
        const double difference = std::fabs(samplePointOfTiming(timing.tSeg1, timing.tSeg2) - wantedFraction);
        if (best > difference) {
            best = difference;
            nearest = timing;
            found = true;
        }
    }
    if (!found)
        return false;
    timing = nearest;
    timing.valid = true;
    // The segments share 16 bits, so a tSeg2 above the sum leaves a tSeg1 that wrapped round. Such a pair
    // competes like any other, but it is not the bit that was asked for.
    return timing.tSeg1 + timing.tSeg2 == sum;
}

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
    const double wantedFraction = request.samplePointPercent / 100.0;
    const SearchLimits limits = resolveLimits(request);
    const int prescalerMin = request.thresholds.prescalerMin;
    const int prescalerMax = request.thresholds.prescalerMax;
    timing.prescaler = request.thresholds.prescalerMin;
    if (prescalerMax < prescalerMin)
        return timing;

    QVector<CAN::CANBitTimingParameter> candidates;
    for (const bool closest : {false, true}) {
        for (int prescaler = prescalerMin; prescaler <= prescalerMax; ++prescaler) {
            timing.prescaler = static_cast<quint16>(prescaler);
            for (int quanta = FirstQuanta; quanta <= limits.quantaMax; ++quanta) {
                if (request.clockMHz * 1000.0 / (prescaler * quanta) != request.bitrateKbit)
                    continue;
                const double boundary = quanta * wantedFraction;
                if (!closest && hasPositiveFraction(boundary))
                    continue;
                const quint16 rounded = roundedLow16(boundary);
                if (rounded >= quanta || rounded <= 1)
                    continue;
                timing.tSeg1 = static_cast<quint16>(rounded - 1);
                timing.tSeg2 = static_cast<quint16>(quanta - rounded);
                const bool fits = closest ? moveToNearestSamplePoint(timing, limits.segments, wantedFraction)
                                          : segmentsWithin(timing, limits.segments);
                if (!fits)
                    continue;
                timing.sjw = std::max<quint16>(1, std::min(timing.tSeg2, limits.sjwMax));
                if (!closest) {
                    ok = true;
                    return timing;
                }
                candidates.append(timing);
                break;
            }
        }
    }
    timing.prescaler = static_cast<quint16>(prescalerMax + 1);
    if (candidates.isEmpty())
        return timing;
    ok = true;
    return chooseNearest({candidates.constData(), std::size_t(candidates.size())}, wantedFraction, timing);
}

} // namespace buslink
