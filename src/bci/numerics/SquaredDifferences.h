#pragma once

#include <Eigen/Core>

#include <cstddef>

namespace bp {

/// Σ (a[i] − b[i])² in Lanes partial sums: lane k has the elements i with i mod Lanes = k, in ascending order. Only
/// whole groups of Lanes elements are read; what remains at the end is the caller's.
template <int Lanes> Eigen::Array<float, Lanes, 1> squaredDifferences(const float *a, const float *b, std::size_t count)
{
    using Group = Eigen::Array<float, Lanes, 1>;
    Group sums = Group::Zero();
    for (std::size_t i = 0; i + std::size_t{Lanes} <= count; i += std::size_t{Lanes}) {
        sums += (Eigen::Map<const Group>(a + i) - Eigen::Map<const Group>(b + i)).square();
    }
    return sums;
}

} // namespace bp
