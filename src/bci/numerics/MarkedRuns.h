#pragma once

#include <cstddef>
#include <vector>

namespace bp {

/// A segment of consecutive samples above a level.
struct MarkedRun
{
    enum State { NotFound, Found, TooLong };
    State state = NotFound;
    std::size_t first = 0;
    std::size_t length = 0;
};

/// The first run of samples strictly above the level that is at least shortest samples long (never fewer than one). A
/// run that is longer than longest ends the search with TooLong.
MarkedRun findMarkedRun(const std::vector<float> &samples, float level, int shortest, int longest);
/// Mean of the run's samples, summed in double; 0 for an empty run.
float meanOfRun(const std::vector<float> &samples, const MarkedRun &run);

} // namespace bp
