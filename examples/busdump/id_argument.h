// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <vector>

namespace buslink {

/// The identifiers from `first` to `last`, both included.
struct IdRange
{
    quint32 first = 0;
    quint32 last = 0;

    bool operator==(const IdRange &) const = default;
};

/// What the `--id` arguments of a call stand for.
struct IdArgument
{
    /// How many identifiers one call may ask for: each costs an object of the scheduler and a connection.
    static constexpr quint64 IdentifiersMax = 1000000;

    std::vector<IdRange> ranges; ///< Ascending and without overlap; empty without arguments.
    QString error;               ///< Why the arguments make no sense; empty if they do.
};

/// Reads arguments as `parseIds` does, however many identifiers they stand for.
IdArgument parseIdRanges(const QStringList &arguments);

/// Reads arguments of the form `123` or `100-1FF`, hexadecimal.
IdArgument parseIds(const QStringList &arguments);

} // namespace buslink
