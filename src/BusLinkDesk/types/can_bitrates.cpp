// SPDX-License-Identifier: MIT
#include <BusLinkDesk/types/can_bitrates.h>

#include <QtCore/QDataStream>
#include <QtCore/QIODevice>

namespace CAN {

namespace {

constexpr qint32 StreamMagic = 0x43434250;
constexpr qint16 StreamVersion = 1;

enum class StreamForm { WithoutHeader, Version, Unknown };

void writeHeader(QDataStream &stream)
{
    stream << StreamMagic << StreamVersion;
}

// Data from before the header existed begins with the record itself, so its first word decides.
template <typename VersionTest>
StreamForm readHeader(QDataStream &stream, VersionTest isKnownVersion)
{
    QIODevice *device = stream.device();
    if (!device)
        return StreamForm::Unknown;
    const qint64 start = device->pos();
    qint32 magic = 0;
    stream >> magic;
    if (magic != StreamMagic) {
        device->seek(start);
        return StreamForm::WithoutHeader;
    }
    quint16 version = 0;
    stream >> version;
    return isKnownVersion(version) ? StreamForm::Version : StreamForm::Unknown;
}

} // namespace

CANBitrateDesc::CANBitrateDesc() = default;

CANBitrateDesc::CANBitrateDesc(QVariant value)
{
    if (value.canConvert<CANBitrateDesc>())
        *this = value.value<CANBitrateDesc>();
    else if (value.canConvert(QMetaType::UShort))
        bitrate = static_cast<quint16>(value.toUInt());
}

QString CANBitTimingParameter::toString() const
{
    if (!valid)
        return QStringLiteral("not valid");
    return QStringLiteral("CANBitTimings(Prescaler: %1, tSeg1: %2, tSeg2: %3, sjw: %4)")
        .arg(prescaler)
        .arg(tSeg1)
        .arg(tSeg2)
        .arg(sjw);
}

QDataStream &operator<<(QDataStream &stream, const CANClassicBusParameter &parameter)
{
    writeHeader(stream);
    return stream << parameter.busValue << parameter.timing.sjw << parameter.timing.tSeg1 << parameter.timing.tSeg2
                  << parameter.busText << parameter.busFlag << parameter.busRatio << parameter.timing.prescaler;
}

QDataStream &operator>>(QDataStream &stream, CANClassicBusParameter &parameter)
{
    const StreamForm form = readHeader(stream, [](quint16 version) { return version == StreamVersion; });
    if (form == StreamForm::Unknown)
        return stream;
    stream >> parameter.busValue >> parameter.timing.sjw >> parameter.timing.tSeg1 >> parameter.timing.tSeg2
        >> parameter.busText >> parameter.busFlag;
    if (form == StreamForm::Version)
        stream >> parameter.busRatio >> parameter.timing.prescaler;
    return stream;
}

QDataStream &operator<<(QDataStream &stream, const CANFDBusParameter &parameter)
{
    writeHeader(stream);
    return stream << parameter.busValue << parameter.timing.prescaler << parameter.timing.sjw << parameter.timing.tSeg1
                  << parameter.timing.tSeg2 << parameter.busText << parameter.busFlag << parameter.busOffset
                  << parameter.busRatio;
}

QDataStream &operator>>(QDataStream &stream, CANFDBusParameter &parameter)
{
    // Unlike the classic record, this one has always been read for version 0 too.
    const StreamForm form = readHeader(stream, [](quint16 version) { return version <= StreamVersion; });
    if (form == StreamForm::Unknown)
        return stream;
    stream >> parameter.busValue >> parameter.timing.prescaler >> parameter.timing.sjw >> parameter.timing.tSeg1
        >> parameter.timing.tSeg2 >> parameter.busText >> parameter.busFlag >> parameter.busOffset;
    if (form == StreamForm::Version)
        stream >> parameter.busRatio;
    return stream;
}

} // namespace CAN
