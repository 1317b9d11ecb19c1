// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <BusLinkDesk/adapter/bit_timing_p.h>

QList<CAN::CANBitrateDesc> AbstractCanAdapter::getSupportedBitrates(bool shortList)
{
    if (shortList)
        return buslink::nominalRateRows({250, 500, 800, 1000}, 80.0);
    return buslink::nominalRateRows({10, 20, 50, 125, 250, 500, 800, 1000}, 87.5);
}

QList<CAN::CANBitrateDesc> AbstractCanAdapter::getSupportedFDBitrates()
{
    return {
        buslink::bitrateRow(QStringLiteral("1 Mbit/s"), 1000, 80.0),
        buslink::bitrateRow(QStringLiteral("2 Mbit/s"), 2000, 75.0),
        buslink::bitrateRow(QStringLiteral("4 Mbit/s"), 4000, 70.0),
        buslink::bitrateRow(QStringLiteral("5 Mbit/s"), 5000, 75.0),
    };
}

CAN::CANBitrateDesc AbstractCanAdapter::getBitrateFromTimings(quint16 clock, quint8 prescaler, quint16 tSeg1,
                                                              quint16 tSeg2)
{
    CAN::CANBitrateDesc result;
    result.bitrate = buslink::bitrateOfTiming(clock, prescaler, tSeg1, tSeg2);
    result.samplePoint = buslink::samplePointOfTiming(tSeg1, tSeg2);
    return result;
}

CAN::CANBitTimingParameter AbstractCanAdapter::getBitTimings(bool dataPhase)
{
    return dataPhase ? mFdBitTimings : mBitTimings;
}

CAN::CANBitrateDesc AbstractCanAdapter::getCalculatedBitrate(bool dataPhase)
{
    return dataPhase ? mCalculatedFdBitrate : mCalculatedBitrate;
}

CAN::CANBitTimingParameter AbstractCanAdapter::getTimingParameters(quint8 clock, quint16 bitrate, double samplePoint,
                                                                   bool &ok, bool dataPhase,
                                                                   CAN::CANBitTimingThresholds thresholds)
{
    return buslink::findBitTiming({clock, bitrate, samplePoint, dataPhase, thresholds}, ok);
}

bool AbstractCanAdapter::checkTimeQuantas(CAN::CANBitTimingParameter &timing, unsigned short tSeg1Max,
                                          unsigned short tSeg2Max, unsigned short tSeg2Min, bool closest,
                                          double wantedFraction, unsigned char)
{
    // The clock is of no use here: the sample point does not depend on it.
    const buslink::SegmentLimits limits{tSeg1Max, tSeg2Max, tSeg2Min};
    return closest ? buslink::moveToNearestSamplePoint(timing, limits, wantedFraction)
                   : buslink::segmentsWithin(timing, limits);
}

CAN::CANBitTimingParameter AbstractCanAdapter::determineTimingParameters(quint8 clock, quint16 bitrate,
                                                                         double samplePoint, bool &ok, bool dataPhase,
                                                                         CAN::CANBitTimingThresholds thresholds)
{
    const CAN::CANBitTimingParameter found =
        getTimingParameters(clock, bitrate, samplePoint, ok, dataPhase, thresholds);
    CAN::CANBitTimingParameter &kept = dataPhase ? mFdBitTimings : mBitTimings;
    if (!ok) {
        kept.valid = false;
        return found;
    }
    kept = found;
    kept.valid = true;
    (dataPhase ? mCalculatedFdBitrate : mCalculatedBitrate) =
        getBitrateFromTimings(clock, static_cast<quint8>(found.prescaler), found.tSeg1, found.tSeg2);
    return found;
}
