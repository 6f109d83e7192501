#pragma once

#include <vector>

namespace bp {

/// The mean of the values below and above the threshold that parts them best.
struct TwoLevels
{
    double low = 0.0;
    double high = 0.0; ///< equal to low when there is nothing to part
};

/// N. Otsu's method (1979), exact: the split of the sorted values with the largest variance between the parts. Values
/// that are not finite don't count.
TwoLevels otsuLevels(std::vector<float> values);

} // namespace bp
