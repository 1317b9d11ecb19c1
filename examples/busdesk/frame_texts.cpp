// SPDX-License-Identifier: MIT
#include "busdesk/frame_texts.h"

#include "common/candump_log.h"

#include <QtCore/QByteArray>

#include <algorithm>

namespace buslink {

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
        formatLogLine({timeUs(frame), "adapter" + std::to_string(frame.adapterId), frame.message}));
}

} // namespace buslink
