// SPDX-License-Identifier: MIT
#include "busdesk/frame_texts.h"

#include <QtCore/QByteArray>

#include <algorithm>
#include <limits>

namespace buslink {

namespace {

const QLatin1String InterfacePrefix("adapter");

} // namespace

qint64 timeUs(const CAN::CanRxMessage &frame)
{
    return frame.timeStamp.seconds * Q_INT64_C(1000000) + frame.timeStamp.microseconds;
}

QString timeText(qint64 timeUs)
{
    return QString::number(static_cast<double>(timeUs) / 1e6, 'f', 6);
}

QString identifierText(const CAN::CanMessage &message)
{
    return QString::number(message.id, 16).toUpper().rightJustified(message.isExtended ? 8 : 3, QLatin1Char('0'));
}

QString kindText(const CAN::CanMessage &message)
{
    if (!message.isFd)
        return message.isRtr ? QStringLiteral("remote") : QStringLiteral("classic");
    return QStringLiteral("FD") + (message.isBrs ? QStringLiteral(" BRS") : QString())
           + (message.isEsi ? QStringLiteral(" ESI") : QString());
}

QString payloadText(const CAN::CanMessage &message)
{
    if (message.isRtr && !message.isFd)
        return {};
    const int length = std::min<int>(message.length, sizeof message.data);
    const QByteArray bytes(reinterpret_cast<const char *>(message.data), length);
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

QString logText(const CAN::CanRxMessage &frame)
{
    return QString::fromStdString(
        formatLogLine({timeUs(frame), InterfacePrefix.data() + std::to_string(frame.adapterId), frame.message}));
}

// Twelve digits of seconds find no room in a stamp.
CAN::CanRxMessage recordOf(const LogFrame &frame)
{
    CAN::CanRxMessage record;
    record.timeStamp.seconds =
        static_cast<qint32>(std::min<qint64>(frame.timeUs / 1000000, std::numeric_limits<qint32>::max()));
    record.timeStamp.microseconds = static_cast<qint32>(frame.timeUs % 1000000);
    record.message = frame.message;
    const QString name = QString::fromStdString(frame.interfaceName);
    if (name.startsWith(InterfacePrefix))
        record.adapterId = name.midRef(InterfacePrefix.size()).toUShort();
    return record;
}

} // namespace buslink
