// SPDX-License-Identifier: MIT
#include "common/line_splitter.h"

#include <utility>

namespace buslink {

void LineSplitter::add(std::string_view bytes)
{
    mBytes.erase(0, std::exchange(mStart, 0));
    mBytes.append(bytes);
}

std::optional<LineSplitter::Line> LineSplitter::next()
{
    const std::size_t feed = mBytes.find('\n', mStart);
    const bool complete = feed != std::string::npos;
    const std::size_t size = (complete ? feed : mBytes.size()) - mStart;
    const bool tooLong = mDropping || size > LineSizeMax;
    if (!complete && !(mEnded && (size > 0 || mDropping))) {
        if (tooLong) {
            mDropping = true;
            mStart = mBytes.size();
        }
        return std::nullopt;
    }
    Line line{tooLong ? std::string() : mBytes.substr(mStart, size), tooLong};
    mStart += complete ? size + 1 : size;
    mDropping = false;
    return line;
}

} // namespace buslink
