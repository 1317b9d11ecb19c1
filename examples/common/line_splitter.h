// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace buslink {

/// Cuts a stream of bytes into lines. Of a line that never ends it keeps no more than `LineSizeMax` bytes.
class LineSplitter
{
public:
    /// Far longer than any frame is in text.
    static constexpr std::size_t LineSizeMax = 4096;

    struct Line
    {
        std::string text;     ///< Without the line feed; empty if it was too long.
        bool tooLong = false; ///< The line had more than `LineSizeMax` bytes.
    };

    /// Adds what was read.
    void add(std::string_view bytes);
    /// Says that nothing more comes, which completes a last line without a line feed.
    void end() { mEnded = true; }
    /// Returns the next complete line.
    std::optional<Line> next();

private:
    std::string mBytes;
    std::size_t mStart = 0;
    bool mDropping = false;
    bool mEnded = false;
};

} // namespace buslink
