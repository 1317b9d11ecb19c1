// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

/// The value below which `fraction` (0 to 1) of the measurements lie.
inline double quantileOf(std::vector<double> values, double fraction)
{
    if (values.empty())
        return 0.0;
    const auto place = static_cast<std::size_t>(std::lround(fraction * static_cast<double>(values.size() - 1)));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(place), values.end());
    return values[place];
}

/// The middle one of some measurements.
inline double medianOf(std::vector<double> values)
{
    return quantileOf(std::move(values), 0.5);
}
