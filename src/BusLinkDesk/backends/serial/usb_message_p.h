// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QByteArray>
#include <QtCore/QVarLengthArray>

#include <array>

// The messages that travel between the host and the USB device, the same in both directions. Bit 7 marks
// the first byte of a message and no other; the bits 7 of the other bytes travel in extra bytes behind
// them, followed by a checksum.
namespace buslink {

/// A message as it goes out.
struct UsbMessage
{
    /// The longest: a CAN FD frame of 64 bytes with a 29-bit identifier.
    static constexpr int MaxSize = 82;

    std::array<char, MaxSize> bytes{}; ///< The first `size` count.
    int size = 0;                      ///< Bytes of the message, head and checksum included.
};

/// The message for a frame. The bit-rate switch and the error state indicator do not travel. A length above
/// 64 counts as 64 for the payload, but a classic one goes into the control byte as it stands.
UsbMessage encodeUsbMessage(const CAN::CanMessage &message);

/// What one step over a buffer of received bytes came to.
struct UsbDecodeStep
{
    enum class Outcome {
        StrayByte,   ///< The first byte begins no message and is to be removed.
        Incomplete,  ///< The message is not complete, `cuts` may tell where later ones begin.
        StartInside, ///< Bytes of the complete message begin others, `cuts` tells which.
        BadChecksum, ///< The message is damaged and is to be removed.
        UnknownType, ///< The message is left where it is.
        Frame,       ///< The frame was taken over, its message is to be removed.
    };

    Outcome outcome = Outcome::Incomplete;
    int lengthByte = 0; ///< The low seven bits of the first byte.
    int remove = 0;     ///< Bytes to remove from the front.
    /// Bytes to remove from the front one after the other, each counted behind the removal before it.
    QVarLengthArray<int, 32> cuts;
};

/// Looks at the front of a buffer of received bytes, which may hold anything. A frame found there goes
/// into `message`, of which `isBrs` and the payload bytes behind the length are left as they are. The caller
/// removes what the result tells; the buffer changes only where the bits 7 of a whole message are put back.
///
/// *Kept on purpose:* they are put back over a fixed count of bytes, for which the buffer grows by up to
/// five zero bytes if the message ends it. Nothing checks that a payload ends within its message;
/// what lies behind the end of the buffer reads as 0. A message of an unknown type stays.
UsbDecodeStep decodeUsbMessage(QByteArray &buffer, CAN::CanMessage &message);

} // namespace buslink
