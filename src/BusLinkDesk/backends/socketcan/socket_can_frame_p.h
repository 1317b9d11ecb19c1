// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <array>
#include <linux/can.h>
#include <optional>

// Frames as they pass through a raw CAN socket, and frame records.
namespace buslink {

/// Room for the largest frame that a socket delivers, aligned as the kernel's structures are.
struct alignas(canfd_frame) KernelFrame
{
    std::array<unsigned char, CANFD_MTU> bytes{}; ///< Starts with the identifier word.
};

/// What a read from the socket brought.
enum class KernelFrameKind {
    Bad,   ///< A size that no frame has, or a failed read.
    Error, ///< An error frame.
    Frame, ///< A frame from the bus.
};

/// Takes what a socket that reads `CAN_MTU` bytes delivered: of a CAN FD frame, its beginning. `size` is
/// the result of the read. Only a frame changes `message`, and of its payload only what lies within the
/// length; `isFd`, `isEsi` and `isBrs` are not touched.
KernelFrameKind takeClassicFrame(const KernelFrame &frame, qint64 size, CAN::CanMessage &message);

/// Takes what a socket that reads `CANFD_MTU` bytes delivered, a CAN FD frame or a classic one. `size` is
/// the result of the read. Only a frame changes `message`, and of its payload only what lies within the
/// length. The length is taken as it came, at most the 64 bytes of the record if there is a payload.
KernelFrameKind takeFdOrClassicFrame(const KernelFrame &frame, qint64 size, CAN::CanMessage &message);

/// The bus state that an error frame announces, if any.
std::optional<CAN::CanState> stateOfErrorFrame(const KernelFrame &frame);

/// The classic frame that goes out for a record. A length above 8 is kept, for the kernel to refuse; no
/// byte of the payload is taken from behind the eighth.
can_frame classicFrameOf(const CAN::CanMessage &message);

/// The CAN FD frame that goes out for a record with a length that CAN FD has. A length above 64 is kept,
/// for the kernel to refuse.
canfd_frame fdFrameOf(const CAN::CanMessage &message);

} // namespace buslink
