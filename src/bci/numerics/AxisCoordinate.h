#pragma once

#include <cstddef>
#include <vector>

namespace bp {

/// Scalar product of features and one row of a projection of the same length. Equals the value of
/// DimReduction::ProcessFLD and ProcessPCA bit for bit, but builds no matrices.
inline float axisCoordinate(const std::vector<float> &features, const std::vector<float> &axis)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < features.size(); ++i) {
        sum += static_cast<double>(axis[i]) * static_cast<double>(features[i]);
    }
    return static_cast<float>(sum);
}

} // namespace bp
