// SPDX-License-Identifier: MIT
#pragma once

#include "support/quantile.h"

/// How periods scatter around their mean, in microseconds.
struct Pace
{
    double mean = 0.0;
    double median = 0.0;
    double deviation = 0.0;
    double worst = 0.0;
    int early = 0; ///< Periods that were shorter than asked for.
};

inline Pace paceOf(const std::vector<double> &periods, int intervalMs)
{
    Pace pace;
    pace.median = medianOf(periods);
    for (const double period : periods) {
        pace.mean += period / static_cast<double>(periods.size());
        pace.worst = std::max(pace.worst, period);
        pace.early += period < intervalMs * 1000.0 ? 1 : 0;
    }
    double squares = 0.0;
    for (const double period : periods)
        squares += (period - pace.mean) * (period - pace.mean);
    pace.deviation = std::sqrt(squares / static_cast<double>(periods.size()));
    return pace;
}
