// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_bitrates.h>

#include <QtCore/QList>

#include <initializer_list>
#include <span>

// Arithmetic of bit rates and bit timing, without an adapter.
namespace buslink {

/// What the calculator is asked for.
struct TimingRequest
{
    quint8 clockMHz;                        ///< Clock of the controller.
    quint16 bitrateKbit;                    ///< Wanted rate, met exactly or not at all.
    double samplePointPercent;              ///< Wanted sample point.
    bool dataPhase;                         ///< Data phase of CAN FD, with narrower segments.
    CAN::CANBitTimingThresholds thresholds; ///< Limits of the controller.
};

/// Limits of the segments that are in force during a search.
struct SegmentLimits
{
    quint16 tSeg1Max; ///< Highest `tSeg1`.
    quint16 tSeg2Max; ///< Highest `tSeg2`.
    quint16 tSeg2Min; ///< Lowest `tSeg2`.
};

/// One row of a bit-rate table.
CAN::CANBitrateDesc bitrateRow(const QString &label, quint16 bitrateKbit, double samplePointPercent);

/// Rows of a table of nominal rates.
QList<CAN::CANBitrateDesc> nominalRateRows(std::initializer_list<quint16> ratesKbit, double samplePointPercent);

/// Rate in kbit/s that timing values yield, truncated and cut to 16 bits; 0 for a prescaler of 0.
quint16 bitrateOfTiming(quint16 clockMHz, quint8 prescaler, quint16 tSeg1, quint16 tSeg2);

/// Sample point as a fraction. Divided in single precision, since programs compare it with values made so.
double samplePointOfTiming(quint16 tSeg1, quint16 tSeg2);

/// Whether both segments exist and lie within the limits.
bool segmentsWithin(const CAN::CANBitTimingParameter &timing, const SegmentLimits &limits);

/// Moves the sample point, with the number of quanta kept, to the place nearest to `wantedFraction`, and marks
/// the record `valid`; of two equally near places it takes the one with the smaller `tSeg2`.
/// *Fails:* false; no place is within the limits, or the nearest one is none with this number of quanta.
bool moveToNearestSamplePoint(CAN::CANBitTimingParameter &timing, const SegmentLimits &limits, double wantedFraction);

/// Returns the candidate whose sample point is nearest to `wantedFraction`, at the smaller prescaler where two
/// are equal, and logs each change of mind. `chosen` is returned where none is nearer than 100.
CAN::CANBitTimingParameter chooseNearest(std::span<const CAN::CANBitTimingParameter> candidates, double wantedFraction,
                                         CAN::CANBitTimingParameter chosen);

/// Finds timing values for a request: exact sample point at the smallest prescaler, else the nearest.
/// *Fails:* `ok` is false.
CAN::CANBitTimingParameter findBitTiming(const TimingRequest &request, bool &ok);

} // namespace buslink
