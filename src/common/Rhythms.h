#pragma once

#include <array>

/// A named EEG rhythm: its band in Hz and its display colour.
struct RhythmBand
{
    const char *name;
    float minFrequency;
    float maxFrequency;
    const char *color;
};

namespace Rhythms {

constexpr RhythmBand kDelta{"delta", 0.5f, 4.0f, "#657"};
constexpr RhythmBand kTheta{"theta", 4.0f, 8.0f, "#28D"};
constexpr RhythmBand kAlpha{"alpha", 8.0f, 14.0f, "#7C2"};
constexpr RhythmBand kMu{"mu", 8.0f, 11.0f, "#7BF"};
constexpr RhythmBand kBeta{"beta", 14.0f, 35.0f, "#C21"};
constexpr RhythmBand kGamma{"gamma", 35.0f, 50.0f, "#EB0"};

constexpr std::array<RhythmBand, 6> kAll{kDelta, kTheta, kAlpha, kMu, kBeta, kGamma};

/// Colour of an algorithm that no rhythm name colours.
constexpr const char *kDefaultColor = "#C3D6F3";

} // namespace Rhythms
