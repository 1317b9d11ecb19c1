// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#include <array>
#include <map>
#include <vector>

namespace buslink {

/// How many frames each adapter saw, and how busy they kept its bus, second by second over the last minute. Time is
/// told by the caller, in ms since any moment, and never goes back.
class LoadHistory
{
public:
    static constexpr int Seconds = 60;

    /// One second.
    struct Second
    {
        quint32 frames = 0;
        double busyNs = 0;

        /// Of the second, in percent.
        double loadPercent() const { return busyNs / 1e7; }
        bool operator==(const Second &) const = default;
    };

    /// Adds what an adapter saw to the second that is under way.
    void add(quint16 adapterId, const Second &seen, qint64 nowMs);
    /// The seconds that are over, the oldest first; the one under way is not among them.
    std::vector<Second> seconds(quint16 adapterId, qint64 nowMs) const;
    /// The adapters that saw frames in these seconds, in ascending order.
    std::vector<quint16> adapters(qint64 nowMs) const;

private:
    struct Count
    {
        qint64 second = -Seconds - 1; // which one it is
        Second sum;
    };

    // With the one under way.
    std::map<quint16, std::array<Count, Seconds + 1>> mCounts;
};

} // namespace buslink
