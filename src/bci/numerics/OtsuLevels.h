#pragma once

#include <vector>

namespace bp {

/// The means of the values below and above the threshold that separates them best.
struct TwoLevels
{
    double low = 0.0;
    double high = 0.0; ///< equal to low when all values are equal or there is none
};

/// N. Otsu's method (1979), exact: the split of the sorted values with the largest variance between the parts.
/// Infinite and NaN values are ignored.
TwoLevels otsuLevels(std::vector<float> values);

} // namespace bp
