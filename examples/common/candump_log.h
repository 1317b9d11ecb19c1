// SPDX-License-Identifier: MIT
#pragma once

#include "common/line_splitter.h"

#include <BusLinkDesk/types/can_frames.h>

#include <string>
#include <string_view>

// The common text form of a recording, one frame a line: `(12.500000) can0 123#1122`.
namespace buslink {

/// A frame of a recording.
struct LogFrame
{
    qint64 timeUs = 0;         ///< Time stamp in µs; the epoch is the recorder's.
    std::string interfaceName; ///< Where the frame was recorded.
    CAN::CanMessage message;   ///< The frame.
};

/// What became of one line.
struct LogLine
{
    enum class Kind {
        Blank,   ///< Nothing but white space.
        Frame,   ///< `frame` has the frame.
        Damaged, ///< `error` tells why it is no frame.
    };

    Kind kind = Kind::Blank;
    LogFrame frame;
    std::string error;
};

/// Reads one line, without its line feed. Taken are 3-digit and 8-digit identifiers, `R` with an optional
/// length for remote frames, `##` with a digit of flags for CAN FD, dots between bytes, the raw length
/// code behind 8 bytes (`_9` to `_F`; a frame record has no place for it) and the direction `R` or `T` at
/// the end. The time stamp may have up to nine decimals; those beyond microseconds are cut off.
LogLine parseLogLine(std::string_view line);
/// The same for a line that was cut out of a stream; one that was too long is damaged.
LogLine parseLogLine(const LineSplitter::Line &line);

/// Reads the frame of a line alone, as `123#1122`, into a default frame. Returns why it is none; empty if it
/// is one.
std::string parseFrame(std::string_view text, CAN::CanMessage &message);

/// Writes one line, without a line feed. The frame is written as it is, also where no controller would
/// send it (a classic frame of 12 bytes): a damaged frame should be seen and not mended.
std::string formatLogLine(const LogFrame &frame);

} // namespace buslink
