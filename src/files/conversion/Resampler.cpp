#include "files/conversion/Resampler.h"

#include <algorithm>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kHalfLobes = 32.0;
constexpr double kCutOff = 0.9;
constexpr qint64 kMaxTable = 1'000'000; // weights

} // namespace

namespace bp {

Resampler::Resampler(Ratio inRate, Ratio outRate)
    : m_ratio(Ratio::of(inRate.num * outRate.den, inRate.den * outRate.num))
    , m_cut(kCutOff * std::min(1.0, 1.0 / m_ratio.value()))
    , m_half(static_cast<int>(std::ceil(kHalfLobes / m_cut)))
{
    if (m_ratio.den * 2 * m_half <= kMaxTable) {
        for (qint64 phase = 0; phase < m_ratio.den; ++phase) {
            m_table.push_back(weights(phase));
        }
    }
}

std::vector<double> Resampler::weights(qint64 phase) const
{
    const double fraction = static_cast<double>(phase) / static_cast<double>(m_ratio.den);
    std::vector<double> taps(static_cast<std::size_t>(2 * m_half));
    double sum = 0.0;
    for (std::size_t i = 0; i < taps.size(); ++i) {
        const double distance = static_cast<double>(i) + 1.0 - m_half - fraction;
        const double x = kPi * m_cut * distance;
        const double angle = kPi * distance / m_half;
        const double window = std::max(0.0, 0.42 + 0.5 * std::cos(angle) + 0.08 * std::cos(2.0 * angle));
        taps[i] = window * (std::fabs(x) < 1e-12 ? 1.0 : std::sin(x) / x);
        sum += taps[i];
    }
    for (double &tap : taps) {
        tap /= sum; // a constant stays what it is
    }
    return taps;
}

int Resampler::inputCount(qint64 first, int count) const
{
    return static_cast<int>(at(first + count - 1) - at(first)) + 2 * m_half;
}

void Resampler::process(const std::vector<qint32> &in, qint64 first, int count, double *out) const
{
    std::vector<double> own;
    for (int k = 0; k < count; ++k) {
        const qint64 phase = (first + k) * m_ratio.num % m_ratio.den;
        if (m_table.empty()) {
            own = weights(phase);
        }
        const std::vector<double> &taps = m_table.empty() ? own : m_table[static_cast<std::size_t>(phase)];
        const qint32 *samples = in.data() + (at(first + k) - at(first));
        double sum = 0.0;
        for (std::size_t i = 0; i < taps.size(); ++i) {
            sum += taps[i] * samples[i];
        }
        out[k] = sum;
    }
}

} // namespace bp
