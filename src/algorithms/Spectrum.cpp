#include "algorithms/Spectrum.h"

#include "algorithms/engine/RealFft.h"
#include "filters/engine/SincResampler.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr int kSmoothingHalfWidth = 10;
constexpr std::size_t kLeastSmoothedBins = 100;

std::size_t fftSize(std::size_t count)
{
    std::size_t size = 1;
    while (size < count) {
        size *= 2;
    }
    return size;
}

double mean(const float *in, std::size_t count)
{
    std::array<double, 8> sums{};
    const std::size_t whole = count - count % sums.size();
    for (std::size_t i = 0; i < whole; i += sums.size()) {
        for (std::size_t j = 0; j < sums.size(); ++j) {
            sums[j] += static_cast<double>(in[i + j]);
        }
    }
    double sum = 0.0;
    for (const double part : sums) {
        sum += part;
    }
    for (std::size_t i = whole; i < count; ++i) {
        sum += static_cast<double>(in[i]);
    }
    return sum / static_cast<double>(count);
}

/// Centred root mean square over 3 bins, over 2 at the ends.
void smoothingByRMS(float *row, std::size_t count)
{
    if (count < kLeastSmoothedBins) {
        return;
    }
    float before = 0.0f;
    float here = row[0] * row[0];
    for (std::size_t i = 0; i < count; ++i) {
        const bool isLast = i + 1 == count;
        const float after = isLast ? 0.0f : row[i + 1] * row[i + 1];
        row[i] = std::sqrt((before + here + after) / (i == 0 || isLast ? 2.0f : 3.0f));
        before = here;
        here = after;
    }
}

} // namespace

Spectrum::Spectrum() = default;
Spectrum::~Spectrum() = default;

std::size_t Spectrum::getSpectrum(const std::vector<float> &in, std::vector<float> &out)
{
    out.resize(binCount(in.size()));
    return getSpectrum(in.data(), in.size(), out.data());
}

std::size_t Spectrum::getSpectrum(const float *in, std::size_t count, float *out)
{
    if (count == 0) {
        return 0;
    }
    prepareSize(count);
    correctInputData(in, count);
    m_transform->magnitudes(m_input.data(), 2.0f / static_cast<float>(count), out);
    return binCount(count);
}

std::size_t Spectrum::binCount(std::size_t count)
{
    return count == 0 ? 0 : fftSize(count) / 2 + 1;
}

void Spectrum::setSmoothingWindowSize(float fraction)
{
    m_fraction = fraction > 0.0f ? std::min(fraction, 0.5f) : 0.0f;
    m_taperChanged = true;
    m_correction = 2.0f * m_fraction + 1.0f;
}

void Spectrum::setSmoothingWindowType(SmoothingWindowType type)
{
    m_taperChanged = m_taperChanged || type != m_type;
    m_type = type;
}

void Spectrum::calcSpectrumSquared(const float *in, std::size_t count, float *out)
{
    for (std::size_t i = 0; i < count; ++i) {
        out[i] = in[i] * in[i];
    }
}

void Spectrum::calcSmoothing(const float *in, std::size_t count, float *out)
{
    bp::resampleToLength(in, count, out, count, kSmoothingHalfWidth);
    smoothingByRMS(out, count);
}

void Spectrum::prepareSize(std::size_t count)
{
    if (count == m_count) {
        return;
    }
    m_count = count;
    m_taperChanged = true;
    m_fftSize = fftSize(count);
    m_input.assign(m_fftSize, 0.0f);
    const auto known = std::find_if(m_transforms.cbegin(), m_transforms.cend(),
                                    [this](const auto &transform) { return transform->size() == m_fftSize; });
    if (known != m_transforms.cend()) {
        m_transform = known->get();
        return;
    }
    m_transforms.push_back(std::make_unique<bp::RealFft>(m_fftSize));
    m_transform = m_transforms.back().get();
}

void Spectrum::prepareTaper(std::size_t count)
{
    if (!m_taperChanged) {
        return;
    }
    m_taperChanged = false;
    const auto size = static_cast<std::size_t>(2.0f * static_cast<float>(count) * m_fraction);
    m_taper.resize(std::min(size, count));
    const double length = static_cast<double>(m_taper.size());
    const double base = m_type == Hann ? 0.5 : 0.54;
    double sum = 0.0;
    for (std::size_t i = 0; i < m_taper.size(); ++i) {
        const double weight = base - (1.0 - base) * std::cos(2.0 * kPi * static_cast<double>(i) / length);
        m_taper[i] = static_cast<float>(weight);
        sum += weight;
    }
    const double all = static_cast<double>(count);
    const double weights = all - length + sum;
    const double correction = weights > 0.0 ? all / weights : 1.0; // a lone sample has no weight
    m_correction = static_cast<float>(correction);
    for (float &weight : m_taper) {
        weight = static_cast<float>(correction * static_cast<double>(weight));
    }
}

/// The order of the loops is that of the samples: rising edge, middle, falling edge.
void Spectrum::correctInputData(const float *in, std::size_t count)
{
    prepareTaper(count);
    const double average = mean(in, count);
    const auto offset = static_cast<float>(average);
    const auto rest = static_cast<float>(average - static_cast<double>(offset)); // counts below a large offset
    const std::size_t rising = m_taper.size() / 2;
    const std::size_t falling = count - (m_taper.size() - rising);
    float *to = m_input.data();
    const float *weights = m_taper.data();
    for (std::size_t i = 0; i < rising; ++i) {
        to[i] = (in[i] - offset - rest) * weights[i];
    }
    for (std::size_t i = rising; i < falling; ++i) {
        to[i] = (in[i] - offset - rest) * m_correction;
    }
    weights += rising;
    for (std::size_t i = falling; i < count; ++i) {
        to[i] = (in[i] - offset - rest) * weights[i - falling];
    }
}
