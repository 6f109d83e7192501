#include "bci/numerics/OtsuLevels.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace bp {

TwoLevels otsuLevels(std::vector<float> values)
{
    values.erase(std::remove_if(values.begin(), values.end(), [](float value) { return !std::isfinite(value); }),
                 values.end());
    std::sort(values.begin(), values.end());
    const auto count = static_cast<double>(values.size());
    const double sum = std::accumulate(values.begin(), values.end(), 0.0);
    double below = 0.0;
    double bestVariance = 0.0;
    TwoLevels best;
    for (std::size_t i = 1; i < values.size(); ++i) {
        below += static_cast<double>(values[i - 1]);
        const auto n = static_cast<double>(i);
        const double low = below / n;
        const double high = (sum - below) / (count - n);
        const double variance = n * (count - n) * (high - low) * (high - low);
        if (variance > bestVariance) {
            bestVariance = variance;
            best = {low, high};
        }
    }
    return best;
}

} // namespace bp
