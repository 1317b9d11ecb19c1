// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_bitrates.h>

/// The bit-timing calculator in its simplest form: every prescaler with every number of quanta, every
/// place of the sample point, lists of all candidates. It takes nothing from the library but the
/// records, and is what the library's search is compared with and measured against. `evaluated` receives
/// the number of pairs of prescaler and quanta that it had to look at.
CAN::CANBitTimingParameter plainTimingParameters(quint8 clock, quint16 bitrate, double samplePoint, bool &ok,
                                                 bool dataPhase, const CAN::CANBitTimingThresholds &thresholds,
                                                 quint64 *evaluated = nullptr);

/// Judges the segments of a record, or moves them to the nearest sample point, in the same simple form.
bool plainCheckTimeQuantas(CAN::CANBitTimingParameter &timing, quint16 tSeg1Max, quint16 tSeg2Max, quint16 tSeg2Min,
                           bool closest, double wantedFraction);
