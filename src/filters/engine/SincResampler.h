#pragma once

#include <cstddef>

namespace bp {

/// Resamples a channel to another length with a Hann-windowed sinc of 2 · halfWidth input samples.
///
/// Output sample i lies at i · inLength / outLength of the input. Nothing is padded at the ends, and a shorter output
/// gets no extra low-pass. in and out may not overlap.
void resampleToLength(const float *in, std::size_t inLength, float *out, std::size_t outLength, int halfWidth);

} // namespace bp
