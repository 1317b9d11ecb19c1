// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include "common/candump_log.h"
#include "common/line_splitter.h"

#include <algorithm>
#include <cstring>
#include <vector>

// The first byte of the input tells how large the pieces are in which the rest comes, as from a pipe. The lines are
// the same however they come; a frame of one can be written and read again, and an error fits a terminal.

namespace {

using buslink::LineSplitter;
using buslink::LogLine;

constexpr std::size_t ErrorSizeMax = 200;

std::vector<std::string> linesOf(std::string_view bytes, std::size_t pieceSize)
{
    LineSplitter splitter;
    std::vector<std::string> lines;
    const auto take = [&] {
        while (const std::optional<LineSplitter::Line> line = splitter.next()) {
            require(line->text.size() <= LineSplitter::LineSizeMax && (!line->tooLong || line->text.empty()));
            require(line->text.find('\n') == std::string::npos);
            lines.push_back(line->tooLong ? "\n" : line->text);
        }
    };
    for (std::size_t at = 0; at < bytes.size(); at += pieceSize) {
        splitter.add(bytes.substr(at, pieceSize));
        take();
    }
    splitter.end();
    take();
    return lines;
}

void requireFrame(const buslink::LogFrame &frame)
{
    const CAN::CanMessage &message = frame.message;
    require(message.id <= (message.isExtended ? 0x1FFFFFFFU : 0x7FFU));
    require(message.length <= (message.isFd ? sizeof message.data : 8));
    require(!(message.isRtr && message.isFd) && frame.timeUs >= 0 && !frame.interfaceName.empty());
    const LogLine again = buslink::parseLogLine(buslink::formatLogLine(frame));
    require(again.kind == LogLine::Kind::Frame);
    require(again.frame.timeUs == frame.timeUs && again.frame.interfaceName == frame.interfaceName);
    require(std::memcmp(&again.frame.message, &message, sizeof message) == 0);
}

void requireLine(const std::string &line)
{
    const LogLine read = buslink::parseLogLine(line);
    require((read.kind == LogLine::Kind::Damaged) == !read.error.empty());
    require(read.error.size() <= ErrorSizeMax);
    require(std::all_of(read.error.begin(), read.error.end(), [](char c) { return c >= ' ' && c <= '~'; }));
    if (read.kind == LogLine::Kind::Frame)
        requireFrame(read.frame);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::vector<std::string> lines = linesOf(bytes, bytes.size() + 1);
    require(linesOf(bytes, data[0] + std::size_t(1)) == lines);
    std::for_each(lines.begin(), lines.end(), requireLine);
    return 0;
}
