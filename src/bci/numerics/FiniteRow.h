#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

namespace bp {

/// Whether there is neither a NaN nor an infinity among the values.
inline bool isFinite(const std::vector<float> &values)
{
    return std::all_of(values.begin(), values.end(), [](float value) { return std::isfinite(value); });
}

} // namespace bp
