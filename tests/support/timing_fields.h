// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_bitrates.h>

/// All fields of a timing record as text, so that a comparison leaves none out and shows them when it fails.
inline QString fieldsOf(const CAN::CANBitTimingParameter &timing)
{
    return QStringLiteral("prescaler %1, tSeg1 %2, tSeg2 %3, sjw %4, %5")
        .arg(timing.prescaler)
        .arg(timing.tSeg1)
        .arg(timing.tSeg2)
        .arg(timing.sjw)
        .arg(timing.valid ? QStringLiteral("valid") : QStringLiteral("not valid"));
}

/// The same for numbers that a test expects.
inline QString timingFields(int prescaler, int tSeg1, int tSeg2, int sjw, bool valid)
{
    CAN::CANBitTimingParameter timing;
    timing.prescaler = static_cast<quint16>(prescaler);
    timing.tSeg1 = static_cast<quint16>(tSeg1);
    timing.tSeg2 = static_cast<quint16>(tSeg2);
    timing.sjw = static_cast<quint16>(sjw);
    timing.valid = valid;
    return fieldsOf(timing);
}
