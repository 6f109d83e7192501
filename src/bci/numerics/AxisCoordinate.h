#pragma once

#include <cstddef>
#include <vector>

namespace bp {

/// Where features lie along one row of a projection: a value of DimReduction::ProcessFLD and ProcessPCA, bit for bit,
/// without the matrices that they make for it. Both have the same length.
inline float axisCoordinate(const std::vector<float> &features, const std::vector<float> &axis)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < features.size(); ++i) {
        sum += static_cast<double>(axis[i]) * static_cast<double>(features[i]);
    }
    return static_cast<float>(sum);
}

} // namespace bp
