// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/bit_timing_p.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace buslink {

namespace {

constexpr int Wrap16 = 0x10000;

// The pairs `seg1` + `seg2` = `sum` with `seg2` from `first` to `last`. Within one range the sample point
// falls with rising `seg2`: the numerator falls, the divisor stays, and rounding keeps the order.
struct SegmentRange
{
    int sum;
    int first;
    int last;

    bool isEmpty() const { return first > last; }

    void store(int seg2, CAN::CANBitTimingParameter &timing) const
    {
        timing.tSeg1 = static_cast<quint16>(sum - seg2);
        timing.tSeg2 = static_cast<quint16>(seg2);
    }

    double aboveWanted(int seg2, double wantedFraction) const
    {
        return samplePointOfTiming(static_cast<quint16>(sum - seg2), static_cast<quint16>(seg2)) - wantedFraction;
    }
};

template <typename Test>
int firstWhere(int first, int end, Test test)
{
    while (first < end) {
        const int middle = first + (end - first) / 2;
        if (test(middle))
            end = middle;
        else
            first = middle + 1;
    }
    return first;
}

struct NearestPlace
{
    int seg2;
    double difference;
};

// The first of the places with the least difference. The differences fall up to the wanted fraction and
// rise behind it, so the least one stands on either side of that step; before the step there may be
// equal ones where the wanted fraction is so large that differences round to one number.
NearestPlace nearestPlace(const SegmentRange &range, double wantedFraction)
{
    const int end = range.last + 1;
    const int step =
        firstWhere(range.first, end, [&](int seg2) { return range.aboveWanted(seg2, wantedFraction) <= 0.0; });
    NearestPlace nearest{step, std::numeric_limits<double>::infinity()};
    if (step < end)
        nearest.difference = std::fabs(range.aboveWanted(step, wantedFraction));
    if (step == range.first)
        return nearest;
    const double before = range.aboveWanted(step - 1, wantedFraction);
    if (before > nearest.difference)
        return nearest;
    const int first =
        firstWhere(range.first, step - 1, [&](int seg2) { return range.aboveWanted(seg2, wantedFraction) <= before; });
    return {first, before};
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

QList<CAN::CANBitrateDesc> nominalRateRows(std::initializer_list<quint16> ratesKbit, double samplePointPercent)
{
    QList<CAN::CANBitrateDesc> rows;
    for (const quint16 rate : ratesKbit)
        rows.append(bitrateRow(QStringLiteral("%1 kbit/s").arg(rate), rate, samplePointPercent));
    return rows;
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
    // The segments share 16 bits, so a tSeg2 above the sum leaves a tSeg1 that wrapped round and that
    // competes like any other; what it would win is refused at the end.
    const int sum = (timing.tSeg1 + timing.tSeg2) % Wrap16;
    const int wrapped = sum + Wrap16;
    const SegmentRange plain{sum, std::max<int>(limits.tSeg2Min, sum - limits.tSeg1Max),
                             std::min<int>(limits.tSeg2Max, sum)};
    const SegmentRange beyond{wrapped, std::max({int(limits.tSeg2Min), sum + 1, wrapped - limits.tSeg1Max}),
                              limits.tSeg2Max};
    if (plain.isEmpty() && beyond.isEmpty())
        return false;

    // Without a nearest place (a fraction that is no number or none to measure from) the last one
    // tried stays in the record.
    const SegmentRange &lastRange = beyond.isEmpty() ? plain : beyond;
    lastRange.store(lastRange.last, timing);
    double best = std::numeric_limits<double>::max();
    const SegmentRange *winner = nullptr;
    for (const SegmentRange *range : {&plain, &beyond}) {
        if (range->isEmpty())
            continue;
        const NearestPlace place = nearestPlace(*range, wantedFraction);
        if (!(best > place.difference))
            continue;
        best = place.difference;
        winner = range;
        range->store(place.seg2, timing);
        timing.valid = true;
    }
    return winner == &plain;
}

} // namespace buslink
