// SPDX-License-Identifier: MIT
#include "common/number_argument.h"

#include <charconv>
#include <limits>
#include <string>
#include <system_error>

namespace buslink {

std::optional<quint64> numberOfDigits(const QString &text, int base)
{
    const std::string digits = text.toStdString();
    const char *const end = digits.data() + digits.size();
    quint64 number = 0;
    const std::from_chars_result read = std::from_chars(digits.data(), end, number, base);
    if (read.ec == std::errc::invalid_argument || read.ptr != end)
        return std::nullopt;
    return read.ec == std::errc::result_out_of_range ? std::numeric_limits<quint64>::max() : number;
}

std::optional<quint64> numberBetween(const QString &text, quint64 min, quint64 max)
{
    const std::optional<quint64> number = numberOfDigits(text);
    return number && *number >= min && *number <= max ? number : std::nullopt;
}

} // namespace buslink
