// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMetaType>
#include <QtCore/QtGlobal>

/// Packets of the peer behind a packet bridge.
namespace PxrFdTypes {

/// One packet, of whichever type the peer exchanges; bits 12 to 15 of its first word tell which. Here it has
/// room for a CAN frame, the one type that the bridge converts.
union UnionPacket
{
    /// The packet of a CAN frame: 92 bytes, numbers in the byte order of the host, a name for every byte.
    struct StructCanMsg
    {
        quint32 packetHeader = 0;     ///< Bits 12 to 15: type of the packet, 1 for a CAN frame.
        quint32 packetSeconds = 0;    ///< Seconds of the stamp; of a packet that goes out, since the epoch.
        qint32 packetNanoseconds = 0; ///< Nanoseconds of the stamp within the second.
        quint16 lengthFormat = 0;     ///< Bits 0 to 10: payload length in bytes; bits 13 to 15: 1 for CAN FD.
        quint16 fillWord = 0;         ///< Zero.
        quint8 dlc = 0;               ///< DLC code of the length, 0xFF for one that no frame has.
        quint8 fillByte = 0;          ///< Zero.
        quint8 frameFlags = 0;        ///< Bit 7: 29-bit identifier; of CAN FD, bit 6: ESI, bit 5: BRS.
        quint8 frameFlags2 = 0;       ///< Bit 7: the frame was transmitted by the peer.
        quint32 canId = 0;            ///< Bits 0 to 28: identifier; bit 31: it has 29 bits.
        quint8 payload[64] = {};      ///< Payload; the bytes within the length count.
        quint32 packetTail = 0;       ///< Delivered as `CAN::CanRxMessage::packetWord`.
    };

    /// The packet as one of a CAN frame; all bytes of a new packet are zero.
    StructCanMsg stcCanMsg = {};
};

} // namespace PxrFdTypes

Q_DECLARE_METATYPE(PxrFdTypes::UnionPacket)
