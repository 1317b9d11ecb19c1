// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/export.h>

#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QVariant>

class QDataStream;

namespace CAN {

/// One selectable or computed bit rate.
struct BUSLINKDESK_EXPORT CANBitrateDesc
{
    /// Creates a record without label, with rate 0 and sample point 0.
    CANBitrateDesc();
    /// Takes the record out of a variant that holds or converts to one. A variant that converts to a
    /// 16-bit number gives `bitrate` its low 16 bits instead, unless the number is 0; all else stays
    /// at its default. Converts implicitly on purpose.
    CANBitrateDesc(QVariant value);

    QString label;            ///< Text for display, such as "500 kbit/s"; null in a computed record.
    quint16 bitrate = 0;      ///< Rate in kbit/s.
    quint8 fillBytes[6] = {}; ///< Zero. Named so that records compare by their bytes in a QVariant.
    double samplePoint = 0.0; ///< Percent in rows of a table, a fraction in records computed from timing values.
};

/// Bit-timing values of a CAN controller. A bit lasts 1 + `tSeg1` + `tSeg2` time quanta.
struct BUSLINKDESK_EXPORT CANBitTimingParameter
{
    quint16 prescaler = 0; ///< Clock periods in one time quantum.
    quint16 tSeg1 = 0;     ///< Time quanta from the synchronisation segment to the sample point.
    quint16 tSeg2 = 0;     ///< Time quanta behind the sample point.
    quint16 sjw = 0;       ///< Synchronisation jump width in time quanta.
    bool valid = false; ///< Set where the record was settled by the nearest-sample-point stage or kept by an adapter.

    /// Returns the four numbers as text, or "not valid" while `valid` is false, whatever the numbers say.
    QString toString() const;
};

/// Limits of one CAN controller for the bit-timing calculator. 0xFFFF means that the caller sets none, and
/// the widest is in force: `tSeg1Max` 256 (data phase 32), `tSeg2Max` 128 (16), `tSeg2Min` 1, and as
/// `sjwMax` the `tSeg2Max` in force.
struct BUSLINKDESK_EXPORT CANBitTimingThresholds
{
    quint16 thresholdWord = 8; ///< Carried with the record; the calculator does not look at it.
    quint16 prescalerMin = 1;  ///< Lowest prescaler tried, as it stands.
    qint16 prescalerMax = 128; ///< Highest prescaler tried; 0x8000 and above is negative, so nothing is tried.
    quint16 tSeg1Min = 3;      ///< Carried with the record; the calculator does not look at it.
    quint16 tSeg1Max = 16;     ///< Upper limit of `tSeg1` in time quanta.
    quint16 tSeg2Min = 2;      ///< Lower limit of `tSeg2` in time quanta.
    quint16 tSeg2Max = 8;      ///< Upper limit of `tSeg2` in time quanta.
    quint16 sjwMax = 8;        ///< Upper limit of the synchronisation jump width in time quanta.
    quint8 thresholdFlag = 0;  ///< Carried with the record; the calculator does not look at it.
};

/// What an application keeps for a classic CAN bus. The library stores, streams and compares it.
struct BUSLINKDESK_EXPORT CANClassicBusParameter
{
    qint32 busValue = 0;          ///< The application's number.
    double busRatio = 0.0;        ///< The application's ratio.
    CANBitTimingParameter timing; ///< The application's timing values; `valid` is not streamed.
    QString busText;              ///< The application's text.
    bool busFlag = false;         ///< The application's flag.
};

/// What an application keeps for a CAN FD bus. The library stores, streams and compares it.
struct BUSLINKDESK_EXPORT CANFDBusParameter
{
    qint32 busValue = 0;          ///< The application's number.
    QString busText;              ///< The application's text.
    double busRatio = 0.0;        ///< The application's ratio.
    CANBitTimingParameter timing; ///< The application's timing values; `valid` is not streamed.
    qint8 busOffset = 0;          ///< The application's small signed number.
    bool busFlag = false;         ///< The application's flag.
};

/// Writes the record in format version 1.
BUSLINKDESK_EXPORT QDataStream &operator<<(QDataStream &stream, const CANClassicBusParameter &parameter);
/// Reads the record in format version 1 or in the older form without header. Any other version leaves
/// the record as it was and the stream behind the header. Needs a stream with a device that can seek.
BUSLINKDESK_EXPORT QDataStream &operator>>(QDataStream &stream, CANClassicBusParameter &parameter);
/// Writes the record in format version 1.
BUSLINKDESK_EXPORT QDataStream &operator<<(QDataStream &stream, const CANFDBusParameter &parameter);
/// Reads the record in format version 0 or 1, which are the same, or in the older form without header.
/// Any other version leaves the record as it was and the stream behind the header. Needs a stream with
/// a device that can seek.
BUSLINKDESK_EXPORT QDataStream &operator>>(QDataStream &stream, CANFDBusParameter &parameter);

} // namespace CAN

Q_DECLARE_METATYPE(CAN::CANBitrateDesc)
Q_DECLARE_METATYPE(CAN::CANClassicBusParameter)
Q_DECLARE_METATYPE(CAN::CANFDBusParameter)
