#include "bci/numerics/MarkedRuns.h"

#include <algorithm>
#include <numeric>

namespace bp {

MarkedRun findMarkedRun(const std::vector<float> &samples, float level, int shortest, int longest)
{
    const auto least = static_cast<std::size_t>(std::max(shortest, 1));
    const auto most = static_cast<std::size_t>(std::max(longest, 0));
    std::size_t first = 0;
    while (first < samples.size()) {
        std::size_t end = first;
        while (end < samples.size() && samples[end] > level) {
            ++end;
        }
        const std::size_t length = end - first;
        if (length >= least) {
            return {length > most ? MarkedRun::TooLong : MarkedRun::Found, first, length};
        }
        first = end + 1;
    }
    return {};
}

float meanOfRun(const std::vector<float> &samples, const MarkedRun &run)
{
    if (run.length == 0) {
        return 0.0f;
    }
    const auto first = samples.begin() + static_cast<std::ptrdiff_t>(run.first);
    const double sum = std::accumulate(first, first + static_cast<std::ptrdiff_t>(run.length), 0.0);
    return static_cast<float>(sum / static_cast<double>(run.length));
}

} // namespace bp
