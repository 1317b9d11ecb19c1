// SPDX-License-Identifier: MIT
#include "busdump/id_argument.h"

#include "common/number_argument.h"

#include <algorithm>
#include <optional>

namespace buslink {

namespace {

constexpr quint64 IdentifierMax = 0x1FFFFFFF;

// Returns why the argument is no range; empty if it is one.
QString parseRange(const QString &argument, IdRange &range)
{
    const int dash = argument.indexOf(QLatin1Char('-'));
    const std::optional<quint64> first = numberOfDigits(argument.left(dash), 16);
    const std::optional<quint64> last = dash < 0 ? first : numberOfDigits(argument.mid(dash + 1), 16);
    if (!first || !last)
        return QStringLiteral("--id takes a hexadecimal identifier or a range such as 100-1FF: '%1'").arg(argument);
    if (*first > IdentifierMax || *last > IdentifierMax)
        return QStringLiteral("--id: no identifier is above 1FFFFFFF: '%1'").arg(argument);
    if (*last < *first)
        return QStringLiteral("--id: the lower end of a range comes first: '%1'").arg(argument);
    range = {static_cast<quint32>(*first), static_cast<quint32>(*last)};
    return {};
}

// An identifier that two arguments ask for is there once, and so its frames are printed once.
std::vector<IdRange> withoutOverlap(std::vector<IdRange> ranges)
{
    std::sort(ranges.begin(), ranges.end(), [](const IdRange &a, const IdRange &b) { return a.first < b.first; });
    std::vector<IdRange> result;
    for (const IdRange &range : ranges) {
        if (!result.empty() && range.first <= result.back().last)
            result.back().last = std::max(result.back().last, range.last);
        else
            result.push_back(range);
    }
    return result;
}

} // namespace

IdArgument parseIdRanges(const QStringList &arguments)
{
    IdArgument result;
    for (const QString &argument : arguments) {
        result.error = parseRange(argument, result.ranges.emplace_back());
        if (!result.error.isEmpty())
            return result;
    }
    result.ranges = withoutOverlap(std::move(result.ranges));
    return result;
}

IdArgument parseIds(const QStringList &arguments)
{
    IdArgument result = parseIdRanges(arguments);
    if (!result.error.isEmpty())
        return result;
    quint64 identifiers = 0;
    for (const IdRange &range : result.ranges)
        identifiers += range.last - range.first + 1;
    if (identifiers > IdArgument::IdentifiersMax)
        result.error = QStringLiteral("--id: %1 identifiers, but each costs memory, and %2 are the most")
                           .arg(identifiers)
                           .arg(IdArgument::IdentifiersMax);
    return result;
}

} // namespace buslink
