#pragma once

namespace bp {

/// A view of one second-order section, its history and the gain that follows it, all owned by a filter object.
///
/// One step, in 32-bit floats and in this order of operations (direct form I; a[0] counts as 1):
/// acc = b[0]·in; acc += b[1]·x[0]; acc += b[2]·x[1]; acc −= a[1]·y[0]; acc −= a[2]·y[1]; where x[0], x[1] are the
/// last two inputs (newest first) and y[0], y[1] the last two outputs. The stage's output is acc, or acc·gain when
/// scaled.
struct CascadeStage
{
    const float *b; ///< 3 coefficients
    const float *a; ///< 3 coefficients
    float *x; ///< 3 inputs, newest first; the third, here and in y, is never read
    float *y; ///< 3 outputs, newest first
    float gain = 1.0f;
    bool scaled = false;
};

} // namespace bp
