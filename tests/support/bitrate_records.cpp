// SPDX-License-Identifier: MIT
#include "support/bitrate_records.h"

using CAN::CANBitrateDesc;
using CAN::CANBitTimingParameter;
using CAN::CANClassicBusParameter;
using CAN::CANFDBusParameter;

CANBitTimingParameter timing(quint16 prescaler, quint16 tSeg1, quint16 tSeg2, quint16 sjw, bool valid)
{
    return {prescaler, tSeg1, tSeg2, sjw, valid};
}

namespace {

QString text()
{
    return QStringLiteral("A\u20AC");
}

} // namespace

CANBitrateDesc descriptor(const QString &label, quint16 bitrate, double samplePoint)
{
    CANBitrateDesc record;
    record.label = label;
    record.bitrate = bitrate;
    record.samplePoint = samplePoint;
    return record;
}

CANClassicBusParameter classicRecord()
{
    return {-0x01234568, 0.875, timing(0x102, 13, 2, 4, true), text(), true};
}

CANFDBusParameter fdRecord()
{
    return {0x01234567, text(), -1.5, timing(0x102, 13, 2, 4, true), -2, true};
}

CANClassicBusParameter usedClassicRecord()
{
    return {7, 0.25, timing(70, 71, 72, 73, true), QStringLiteral("before"), false};
}

CANFDBusParameter usedFdRecord()
{
    return {7, QStringLiteral("before"), 0.25, timing(70, 71, 72, 73, true), 74, false};
}

QString described(const CANBitTimingParameter &t)
{
    return QStringLiteral("%1/%2/%3/%4/%5").arg(t.prescaler).arg(t.tSeg1).arg(t.tSeg2).arg(t.sjw).arg(t.valid);
}

QString described(const QString &text)
{
    return text.isNull() ? QStringLiteral("null") : QLatin1Char('"') + text + QLatin1Char('"');
}

QString described(const CANClassicBusParameter &p)
{
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(p.busValue)
        .arg(p.busRatio)
        .arg(described(p.timing), described(p.busText))
        .arg(p.busFlag);
}

QString described(const CANFDBusParameter &p)
{
    return QStringLiteral("%1 %2 %3 %4 %5 %6")
        .arg(p.busValue)
        .arg(described(p.busText))
        .arg(p.busRatio)
        .arg(described(p.timing))
        .arg(p.busOffset)
        .arg(p.busFlag);
}

QString described(const CANBitrateDesc &d)
{
    return QStringLiteral("%1 %2 %3").arg(described(d.label)).arg(d.bitrate).arg(d.samplePoint);
}

QStringList rowsOf(const QList<CAN::CANBitrateDesc> &table)
{
    QStringList rows;
    for (const CAN::CANBitrateDesc &row : table)
        rows.append(QStringLiteral("%1 | %2 | %3").arg(row.label).arg(row.bitrate).arg(row.samplePoint, 0, 'g', 17));
    return rows;
}
