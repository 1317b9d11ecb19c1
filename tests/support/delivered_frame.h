// SPDX-License-Identifier: MIT
#pragma once

#include "support/frame_recorder.h"

#include <QtCore/QString>

/// A delivered frame of which no field has its default.
inline CAN::CanRxMessage deliveredFrame(quint32 id, const QByteArray &payload = "\x11\x22\x33")
{
    CAN::CanRxMessage frame;
    frame.message = makeFrame(id, payload);
    frame.message.isExtended = true;
    frame.message.isFd = true;
    frame.message.reservedFlag = 0x5A;
    frame.timeStamp.seconds = 17;
    frame.timeStamp.microseconds = 250000;
    frame.isTx = true;
    frame.packetWord = 0xCAFEBABE;
    frame.adapterId = 4660;
    return frame;
}

/// All fields of a delivered frame, so that comparisons leave nothing out.
inline QString textOf(const CAN::CanRxMessage &frame)
{
    return QStringLiteral("%1.%2 %3 %4 %5 %6")
        .arg(frame.timeStamp.seconds)
        .arg(frame.timeStamp.microseconds)
        .arg(QString::fromLatin1(bytesOf(frame.message).toHex()))
        .arg(frame.isTx)
        .arg(frame.packetWord)
        .arg(frame.adapterId);
}
