// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_bitrates.h>

#include <QtCore/QStringList>

// Bus-parameter records with a value of its own in every field, their stream forms, and texts that tell
// every field of a record, so that one comparison leaves nothing out.

inline constexpr const char *ClassicStream = "43434250 0001"      // magic, version
                                             "FEDCBA98"           // busValue
                                             "0004 000D 0002"     // sjw, tSeg1, tSeg2
                                             "00000004 0041 20AC" // busText
                                             "01"                 // busFlag
                                             "3FEC000000000000"   // busRatio
                                             "0102";              // prescaler

inline constexpr const char *FdStream = "43434250 0001"       // magic, version
                                        "01234567"            // busValue
                                        "0102 0004 000D 0002" // prescaler, sjw, tSeg1, tSeg2
                                        "00000004 0041 20AC"  // busText
                                        "01"                  // busFlag
                                        "FE"                  // busOffset
                                        "BFF8000000000000";   // busRatio

/// Timing values, in the order of the fields.
CAN::CANBitTimingParameter timing(quint16 prescaler, quint16 tSeg1, quint16 tSeg2, quint16 sjw, bool valid);

/// A descriptor, in the order of the fields.
CAN::CANBitrateDesc descriptor(const QString &label, quint16 bitrate, double samplePoint);

/// The record of ClassicStream, with valid timing.
CAN::CANClassicBusParameter classicRecord();
/// The record of FdStream, with valid timing.
CAN::CANFDBusParameter fdRecord();

/// What stands in a record before it is loaded; nothing of it occurs in the streams above.
CAN::CANClassicBusParameter usedClassicRecord();
/// The same for CAN FD.
CAN::CANFDBusParameter usedFdRecord();

/// Null, or the text in quotes.
QString described(const QString &text);
/// prescaler/tSeg1/tSeg2/sjw/valid
QString described(const CAN::CANBitTimingParameter &timing);
/// All fields in their order.
QString described(const CAN::CANClassicBusParameter &parameter);
/// All fields in their order.
QString described(const CAN::CANFDBusParameter &parameter);
/// All fields in their order.
QString described(const CAN::CANBitrateDesc &descriptor);

/// The rows of a bit-rate table as texts.
QStringList rowsOf(const QList<CAN::CANBitrateDesc> &table);
