#include "filters/FIRfilter.h"

#include <algorithm>
#include <cmath>
#include <typeinfo>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr std::size_t kReservedTaps = 128;
constexpr std::size_t kTile = 64;
constexpr std::size_t kOutputs = 8;

std::size_t tapCount(int order)
{
    return order < 0 ? 0 : static_cast<std::size_t>(order) + 1;
}

/// Tap of the ideal response n samples from the centre; with an even number of taps n lies halfway between samples.
double idealTap(AbstractFilter::FilterTypeEnum type, bool oddLength, double n, double w1, double w2)
{
    const double low = std::sin(n * w1) / (n * kPi);
    const double high = std::sin(n * w2) / (n * kPi);
    switch (type) {
    case AbstractFilter::LowPass:
        return low;
    case AbstractFilter::HighPass:
        return oddLength ? -high : std::sin(n * kPi) / (n * kPi) - high;
    case AbstractFilter::BandPass:
        return high - low;
    case AbstractFilter::BandStop:
        // Compatibility: the sign of the band-pass, and nothing for an even length; results in the field depend on it.
        return oddLength ? high - low : 0.0;
    }
    return 0.0;
}

double centreTap(AbstractFilter::FilterTypeEnum type, double f1, double f2)
{
    switch (type) {
    case AbstractFilter::LowPass:
        return 2.0 * f1;
    case AbstractFilter::HighPass:
        return 1.0 - 2.0 * f1;
    case AbstractFilter::BandPass:
        return 2.0 * (f2 - f1);
    case AbstractFilter::BandStop:
        return 1.0 - 2.0 * (f2 - f1);
    }
    return 0.0;
}

} // namespace

FIRfilter::FIRfilter(FilterTypeEnum type, WindowTypeEnum window, int order, float sampleRate, float f1, float f2,
                     QObject *parent)
    : AbstractFilter(type, FiniteResponse, QStringLiteral("FIRFilter"), parent)
{
    for (std::vector<float> *vector : {&m_windowed, &m_ideal, &m_history}) {
        vector->reserve(kReservedTaps);
    }
    if (type == LowPass) {
        calcCoefs(type, order, f1, f1, sampleRate);
    } else if (type == HighPass) {
        calcCoefs(type, order, f2, f2, sampleRate);
    } else {
        calcCoefs(type, order, f1, f2, sampleRate);
    }
    m_windowed.assign(m_ideal.size(), 0.0f);
    m_history.assign(m_ideal.size(), 0.0f);
    m_line.assign(m_ideal.size() + kTile + kOutputs, 0.0f);
    if (window == BlackmanWindow) {
        applyBlackmanWindow();
    }
}

void FIRfilter::calcCoefs(FilterTypeEnum type, int order, float f1, float f2, float sampleRate)
{
    const std::size_t taps = tapCount(order);
    m_ideal.assign(taps, 0.0f);
    const double cut1 = static_cast<double>(f1) / static_cast<double>(sampleRate);
    const double cut2 = static_cast<double>(f2) / static_cast<double>(sampleRate);
    const bool oddLength = taps % 2 != 0;
    const std::size_t half = taps / 2;
    if (oddLength) {
        m_ideal[half] = static_cast<float>(centreTap(type, cut1, cut2));
    }
    for (std::size_t i = 0; i < half; ++i) {
        const double n = static_cast<double>(i) + (oddLength ? 1.0 : 0.5);
        const double tap = idealTap(type, oddLength, n, 2.0 * kPi * cut1, 2.0 * kPi * cut2);
        m_ideal[half - 1 - i] = static_cast<float>(tap);
        m_ideal[taps - half + i] = static_cast<float>(tap);
    }
}

void FIRfilter::applyBlackmanWindow()
{
    // A single tap is the window's peak.
    const double last = std::max(1.0, static_cast<double>(m_ideal.size()) - 1.0);
    const double shift = m_ideal.size() == 1 ? 0.5 : 0.0;
    for (std::size_t n = 0; n < m_ideal.size(); ++n) {
        const double phase = 2.0 * kPi * (static_cast<double>(n) + shift) / last;
        const double weight = 0.42 - 0.5 * std::cos(phase) + 0.08 * std::cos(2.0 * phase);
        m_windowed[n] = static_cast<float>(weight * static_cast<double>(m_ideal[n]));
    }
}

void FIRfilter::Reset()
{
    m_history.resize(m_ideal.size());
}

float FIRfilter::InternalProcess(float sample)
{
    if (m_history.empty()) {
        return 0.0f;
    }
    std::copy(m_history.begin() + 1, m_history.end(), m_history.begin());
    m_history.back() = sample;
    float acc = 0.0f;
    for (std::size_t i = 0; i < m_windowed.size(); ++i) {
        acc += m_windowed[i] * m_history[i];
    }
    return acc;
}

// Eight outputs at a time: each sums its taps in the order of InternalProcess.
void FIRfilter::processBlock(float *samples, std::size_t count)
{
    if (typeid(*this) != typeid(FIRfilter)) {
        AbstractFilter::processBlock(samples, count);
        return;
    }
    const std::size_t taps = m_history.size();
    if (taps == 0) {
        std::fill_n(samples, count, 0.0f);
        return;
    }
    for (std::size_t first = 0; first < count; first += kTile) {
        const std::size_t length = std::min(kTile, count - first);
        std::copy(m_history.begin(), m_history.end(), m_line.begin());
        std::copy_n(samples + first, length, m_line.begin() + static_cast<std::ptrdiff_t>(taps));
        for (std::size_t at = 0; at < length; at += kOutputs) {
            const float *line = m_line.data() + at + 1;
            float acc[kOutputs] = {};
            for (std::size_t i = 0; i < taps; ++i) {
                for (std::size_t o = 0; o < kOutputs; ++o) {
                    acc[o] += m_windowed[i] * line[i + o];
                }
            }
            std::copy_n(acc, std::min(kOutputs, length - at), samples + first + at);
        }
        std::copy_n(m_line.begin() + static_cast<std::ptrdiff_t>(length), taps, m_history.begin());
    }
}
