// SPDX-License-Identifier: MIT
// A program that needs the records alone.
#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QMetaEnum>

int main()
{
    const CAN::CanRxMessage message;
    const QMetaEnum states = QMetaEnum::fromType<CAN::CanState>();
    return sizeof message.message == 76 && !message.isTx && states.keyCount() == 5 && canFdLengths.size() == 7 ? 0 : 1;
}
