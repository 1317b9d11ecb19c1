// SPDX-License-Identifier: MIT
#include "support/plain_bit_timing.h"

#include <QtCore/QDebug>
#include <QtCore/QVector>

#include <cmath>
#include <limits>

namespace {

double samplePointOf(const CAN::CANBitTimingParameter &timing)
{
    const int bits = timing.tSeg1 + 1 + timing.tSeg2;
    return double(float(timing.tSeg1 + 1) / float(bits));
}

// A number that no int can hold has no rounded form; 0 is none that fits any number of quanta.
quint16 rounded(double value)
{
    if (std::isnan(value) || value <= -2147483648.0 || value >= 2147483647.5)
        return 0;
    return quint16(qRound(value));
}

struct Search
{
    quint8 clock;
    quint16 bitrate;
    double wantedFraction;
    quint16 prescalerMin;
    qint16 prescalerMax;
    int quantaMax;
    quint16 tSeg1Max;
    quint16 tSeg2Max;
    quint16 tSeg2Min;
    quint16 sjwMax;
    quint64 evaluated;

    bool fits(CAN::CANBitTimingParameter &timing, int quanta, bool closest) const
    {
        if (clock * 1000.0 / (timing.prescaler * quanta) != double(bitrate))
            return false;
        const double x = quanta * wantedFraction;
        double whole = 0.0;
        if (!closest && std::modf(x, &whole) > 0.0)
            return false;
        const quint16 r = rounded(x);
        if (r >= quanta || r <= 1)
            return false;
        timing.tSeg1 = quint16(r - 1);
        timing.tSeg2 = quint16(quanta - r);
        if (!plainCheckTimeQuantas(timing, tSeg1Max, tSeg2Max, tSeg2Min, closest, wantedFraction))
            return false;
        timing.sjw = timing.tSeg2 < sjwMax ? timing.tSeg2 : sjwMax;
        if (timing.sjw == 0)
            timing.sjw = 1;
        return true;
    }

    // Stops at the first hit, or with `closest` collects one for each prescaler.
    QVector<CAN::CANBitTimingParameter> run(CAN::CANBitTimingParameter &timing, bool closest)
    {
        QVector<CAN::CANBitTimingParameter> hits;
        for (int prescaler = prescalerMin; prescaler <= prescalerMax; ++prescaler) {
            timing.prescaler = quint16(prescaler);
            for (int quanta = 4; quanta <= quantaMax; ++quanta) {
                ++evaluated;
                if (!fits(timing, quanta, closest))
                    continue;
                hits.append(timing);
                if (!closest)
                    return hits;
                break;
            }
        }
        timing.prescaler = quint16(prescalerMax + 1);
        return hits;
    }
};

CAN::CANBitTimingParameter nearest(const QVector<CAN::CANBitTimingParameter> &hits, double wantedFraction,
                                   CAN::CANBitTimingParameter timing)
{
    const char *const where = "static CAN::CANBitTimingParameter AbstractCanAdapter::getTimingParameters(quint8, "
                              "quint16, double, bool&, bool, CAN::CANBitTimingThresholds)";
    double best = 100.0;
    for (CAN::CANBitTimingParameter hit : hits) {
        hit.valid = true;
        const double difference = std::fabs(samplePointOf(hit) - wantedFraction);
        if (best > difference) {
            timing = hit;
            best = difference;
            qDebug() << where << "Line:" << 535 << hit.toString() << difference;
        } else if (difference == best && hit.prescaler < timing.prescaler) {
            timing = hit;
            qDebug() << where << "Line:" << 539 << hit.toString();
        }
    }
    return timing;
}

} // namespace

CAN::CANBitTimingParameter plainTimingParameters(quint8 clock, quint16 bitrate, double samplePoint, bool &ok,
                                                 bool dataPhase, const CAN::CANBitTimingThresholds &thresholds,
                                                 quint64 *evaluated)
{
    ok = false;
    if (evaluated)
        *evaluated = 0;
    CAN::CANBitTimingParameter timing;
    if (samplePoint == 0.0 || clock == 0 || bitrate == 0)
        return timing;
    timing.prescaler = thresholds.prescalerMin;
    if (int(thresholds.prescalerMax) < int(thresholds.prescalerMin))
        return timing;
    Search search{};
    search.clock = clock;
    search.bitrate = bitrate;
    search.wantedFraction = samplePoint / 100.0;
    search.prescalerMin = thresholds.prescalerMin;
    search.prescalerMax = thresholds.prescalerMax;
    search.quantaMax = dataPhase ? 50 : 385;
    search.tSeg1Max = thresholds.tSeg1Max != 0xFFFF ? thresholds.tSeg1Max : dataPhase ? 32 : 256;
    search.tSeg2Max = thresholds.tSeg2Max != 0xFFFF ? thresholds.tSeg2Max : dataPhase ? 16 : 128;
    search.tSeg2Min = thresholds.tSeg2Min != 0xFFFF ? thresholds.tSeg2Min : 1;
    search.sjwMax = thresholds.sjwMax != 0xFFFF ? thresholds.sjwMax : search.tSeg2Max;
    const QVector<CAN::CANBitTimingParameter> exact = search.run(timing, false);
    const QVector<CAN::CANBitTimingParameter> close =
        exact.isEmpty() ? search.run(timing, true) : QVector<CAN::CANBitTimingParameter>();
    if (evaluated)
        *evaluated = search.evaluated;
    ok = !exact.isEmpty() || !close.isEmpty();
    return exact.isEmpty() ? nearest(close, search.wantedFraction, timing) : exact.first();
}

bool plainCheckTimeQuantas(CAN::CANBitTimingParameter &timing, quint16 tSeg1Max, quint16 tSeg2Max, quint16 tSeg2Min,
                           bool closest, double wantedFraction)
{
    if (timing.tSeg1 == 0 || timing.tSeg2 == 0)
        return false;
    if (!closest)
        return timing.tSeg2 <= tSeg2Max && timing.tSeg1 <= tSeg1Max && timing.tSeg2 >= tSeg2Min;
    const auto sum = quint16(timing.tSeg1 + timing.tSeg2);
    QVector<CAN::CANBitTimingParameter> places;
    for (int seg2 = tSeg2Min; seg2 <= tSeg2Max; ++seg2) {
        const auto seg1 = quint16(sum - seg2);
        if (seg1 > tSeg1Max)
            continue;
        timing.tSeg1 = seg1;
        timing.tSeg2 = quint16(seg2);
        places.append(timing);
    }
    bool found = false;
    double best = std::numeric_limits<double>::max();
    for (CAN::CANBitTimingParameter place : places) {
        place.valid = true;
        const double difference = std::fabs(samplePointOf(place) - wantedFraction);
        if (best > difference) {
            timing = place;
            best = difference;
            found = true;
        }
    }
    return found && timing.tSeg1 + timing.tSeg2 == int(sum);
}
