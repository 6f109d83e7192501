#pragma once

#include <vector>

namespace bp {

/// A device's block: planar, channel c (counted from 1) at [(c − 1)·samples, c·samples).
struct RawBlock
{
    const float *data;
    unsigned channels;
    unsigned samples;

    const float *channel(unsigned number) const { return data + static_cast<std::size_t>(number - 1) * samples; }
};

/// The inputs and the scale of each montage channel. What the groups mean depends on the montage's kind (Montage.h);
/// those that are device channel numbers lie in 1 … channels of the device, 0 being none.
struct MontageTable
{
    std::vector<unsigned> group1;
    std::vector<unsigned> group2;
    std::vector<float> scale;
    std::vector<unsigned> averaged; ///< device channels that make up the average

    unsigned size() const { return static_cast<unsigned>(scale.size()); }
};

/// Each function writes montage channel i to out[i·samples, (i + 1)·samples), in 32-bit float arithmetic.

/// scale · (active − reference); an input that is 0 is left out, both 0 give zeros.
void mixUsual(const RawBlock &raw, const MontageTable &table, float *out);

/// scale · (active − referent) by group 2: 0 none, 1 left, 2 right, 3 the mean of both.
///
/// Kept as hosts know it: active input 0 reads device channel 1; without a left referent both referents read device
/// channel 1; a channel whose group 2 is above 3, or that asks for a referent which is 0 (the right one for 3), is not
/// written at all.
void mixBipolar(const RawBlock &raw, const MontageTable &table, unsigned left, unsigned right, float *out);

/// Per sample the mean of the averaged device channels; not finite when there is none.
/// @param average samples values
void averageReference(const RawBlock &raw, const MontageTable &table, float *average);

/// scale · (active − average) for group 2 = 0, where active input 0 reads device channel 1; unreferenced for 1 and 2;
/// minus device channel group 2 − 2 from 3 on.
void mixAverage(const RawBlock &raw, const MontageTable &table, const float *average, float *out);

} // namespace bp
