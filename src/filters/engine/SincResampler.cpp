#include "filters/engine/SincResampler.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kPi = 3.141592653589793;

/// The input at position t (in samples), seen through a sinc under a Hann window of 2 · halfWidth samples.
float interpolate(const float *in, std::size_t length, double t, int halfWidth)
{
    double acc = 0.0;
    for (int j = -halfWidth; j < halfWidth; ++j) {
        const double at = std::round(j + t);
        if (at < 0.0 || at >= static_cast<double>(length)) {
            continue;
        }
        const double distance = at - t;
        const double window = 0.5 - 0.5 * std::cos(2.0 * kPi * (distance / (2.0 * halfWidth) + 0.5));
        const double x = kPi * distance;
        const double sinc = std::fabs(x) < 1e-14 ? 1.0 : std::sin(x) / x;
        acc += window * sinc * static_cast<double>(in[static_cast<std::size_t>(at)]);
    }
    return static_cast<float>(acc);
}

} // namespace

void bp::resampleToLength(const float *in, std::size_t inLength, float *out, std::size_t outLength, int halfWidth)
{
    if (inLength == outLength && halfWidth > 0) {
        std::copy_n(in, inLength, out); // the sinc is 1 at its own sample and 0 at all others
        return;
    }
    const double step = static_cast<double>(inLength) / static_cast<double>(outLength);
    double t = 0.0;
    for (std::size_t i = 0; i < outLength; ++i) {
        out[i] = interpolate(in, inLength, t, halfWidth);
        t += step;
    }
}
