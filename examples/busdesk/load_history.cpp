// SPDX-License-Identifier: MIT
#include "busdesk/load_history.h"

namespace buslink {

void LoadHistory::add(quint16 adapterId, const Second &seen, qint64 nowMs)
{
    auto &counts = mCounts[adapterId];
    const qint64 second = nowMs / 1000;
    Count &count = counts.at(static_cast<std::size_t>(second) % counts.size());
    if (count.second != second)
        count = {second, {}};
    count.sum.frames += seen.frames;
    count.sum.busyNs += seen.busyNs;
}

std::vector<LoadHistory::Second> LoadHistory::seconds(quint16 adapterId, qint64 nowMs) const
{
    std::vector<Second> past(Seconds);
    const auto counts = mCounts.find(adapterId);
    if (counts == mCounts.end())
        return past;
    const qint64 first = nowMs / 1000 - Seconds;
    for (const Count &count : counts->second) {
        if (count.second >= first && count.second < first + Seconds)
            past.at(static_cast<std::size_t>(count.second - first)) = count.sum;
    }
    return past;
}

std::vector<quint16> LoadHistory::adapters(qint64 nowMs) const
{
    std::vector<quint16> ids;
    for (const auto &[id, counts] : mCounts) {
        if (seconds(id, nowMs) != std::vector<Second>(Seconds))
            ids.push_back(id);
    }
    return ids;
}

} // namespace buslink
