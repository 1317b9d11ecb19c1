// SPDX-License-Identifier: MIT
#include "common/candump_log.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace buslink {

namespace {

constexpr std::string_view HexDigits = "0123456789ABCDEF";

std::string timeStampText(qint64 timeUs)
{
    const quint64 magnitude = timeUs < 0 ? 0 - static_cast<quint64>(timeUs) : static_cast<quint64>(timeUs);
    std::array<char, 32> text{};
    const int size = std::snprintf(text.data(), text.size(), "(%s%llu.%06llu)", timeUs < 0 ? "-" : "",
                                   static_cast<unsigned long long>(magnitude / 1000000),
                                   static_cast<unsigned long long>(magnitude % 1000000));
    return std::string(text.data(), static_cast<std::size_t>(size));
}

std::string identifierText(const CAN::CanMessage &message)
{
    std::array<char, 16> text{};
    const int size = std::snprintf(text.data(), text.size(), message.isExtended ? "%08X" : "%03X", message.id);
    return std::string(text.data(), static_cast<std::size_t>(size));
}

} // namespace

std::string formatLogLine(const LogFrame &frame)
{
    const CAN::CanMessage &message = frame.message;
    std::string line = timeStampText(frame.timeUs) + ' ' + frame.interfaceName + ' ' + identifierText(message) + '#';
    if (message.isRtr && !message.isFd) {
        line += 'R';
        if (message.length > 0)
            line += std::to_string(message.length);
        return line;
    }
    if (message.isFd) {
        line += '#';
        line += HexDigits[(message.isBrs ? 1U : 0U) | (message.isEsi ? 2U : 0U)];
    }
    const std::size_t length = std::min<std::size_t>(message.length, sizeof message.data);
    for (std::size_t i = 0; i < length; ++i) {
        line += HexDigits[message.data[i] >> 4U];
        line += HexDigits[message.data[i] & 0xFU];
    }
    return line;
}

} // namespace buslink
