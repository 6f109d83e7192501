#include "bci/numerics/BandFeatures.h"

#include "algorithms/freqspace.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace bp {

void BandFeatures::setRow(const std::vector<float> &row, int fs, float from)
{
    m_from = from;
    prepareFrequencies(Spectrum::binCount(row.size()), fs);
    freqspace::getSpectrum(m_spectrum, row.data(), row.size(), Spectrum::Hann, m_amplitudes.data());
}

float BandFeatures::mean(float low, float high) const
{
    const std::size_t lower = firstBin(std::max(low, m_from));
    const std::size_t upper = firstBin(high);
    if (upper <= lower) {
        return 0.0f;
    }
    const float *amplitudes = m_amplitudes.data();
    const double sum = std::accumulate(amplitudes + lower, amplitudes + upper, 0.0);
    return static_cast<float>(sum / static_cast<double>(static_cast<float>(upper - lower)));
}

void BandFeatures::means(const std::vector<std::pair<float, float>> &bands, float *out) const
{
    for (const auto &[low, high] : bands) {
        *out++ = mean(low, high);
    }
}

void BandFeatures::append(float low, float high, std::vector<float> &out) const
{
    const std::size_t lower = firstBin(std::max(low, m_from));
    const std::size_t upper = firstBin(high);
    if (lower < upper) {
        out.insert(out.end(), m_amplitudes.data() + lower, m_amplitudes.data() + upper);
    }
}

std::size_t BandFeatures::firstBin(float frequency) const
{
    const auto first = std::lower_bound(m_frequencies.begin(), m_frequencies.end(), frequency);
    return static_cast<std::size_t>(std::distance(m_frequencies.begin(), first));
}

void BandFeatures::prepareFrequencies(std::size_t bins, int fs)
{
    m_amplitudes.resize(bins);
    if (bins != m_frequencies.size() || fs != m_fs) {
        freqspace::getSpectrumFrequencies(static_cast<float>(fs), bins, m_frequencies);
        m_fs = fs;
    }
}

} // namespace bp
