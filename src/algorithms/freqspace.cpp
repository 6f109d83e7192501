#include "algorithms/freqspace.h"

#include "algorithms/Spectrum.h"

#include <numeric>

namespace {

struct Band
{
    float from;
    float to;
};

/// Slow waves, muscle tension, and what each is compared with. Hz.
constexpr std::array<Band, 4> kBands{{{1.5f, 5.0f}, {20.0f, 40.0f}, {1.5f, 40.0f}, {6.0f, 18.0f}}};

std::size_t binsBelow(const std::vector<float> &frequencies, float limit)
{
    std::size_t bins = 0;
    while (bins < frequencies.size() && frequencies[bins] < limit) {
        ++bins;
    }
    return bins;
}

bool isArtefact(const std::array<float, 4> &means, float lfzsfz, float hfzifz)
{
    const auto [slow, fast, broad, middle] = means;
    return broad > 0.0f && middle > 0.0f && (slow / broad > lfzsfz || fast / middle > hfzifz);
}

} // namespace

void freqspace::getSpectrumFrequencies(float rate, std::size_t bins, std::vector<float> &frequencies)
{
    frequencies.resize(bins);
    const double step = bins < 2 ? 0.0 : 0.5 * static_cast<double>(rate) / static_cast<double>(bins - 1);
    for (std::size_t k = 0; k < bins; ++k) {
        frequencies[k] = static_cast<float>(static_cast<double>(k) * step);
    }
}

std::size_t freqspace::getSpectrum(Spectrum &spectrum, const float *window, std::size_t count, int windowType,
                                   float *out)
{
    spectrum.setSmoothingWindowType(windowType == Spectrum::Hamming ? Spectrum::Hamming : Spectrum::Hann);
    return spectrum.getSpectrum(window, count, out);
}

std::size_t freqspace::getSpectrumWithArtefact(Spectrum &spectrum, std::size_t channels,
                                               const std::vector<float> &window, float rate, int windowType,
                                               std::vector<float> &spectra, std::vector<float> &frequencies,
                                               float lfzsfz, float hfzifz)
{
    const std::size_t count = channels == 0 ? 0 : window.size() / channels;
    const std::size_t bins = Spectrum::binCount(count);
    if (bins == 0) {
        return 0;
    }
    getSpectrumFrequencies(rate, bins, frequencies);
    spectra.resize(channels * bins + 1);
    std::array<float, 4> sums{};
    for (std::size_t c = 0; c < channels; ++c) {
        float *row = &spectra[c * bins];
        getSpectrum(spectrum, &window[c * count], count, windowType, row);
        std::array<float, 4> means{};
        findArtifact(frequencies, row, means);
        for (std::size_t i = 0; i < sums.size(); ++i) {
            sums[i] += means[i];
        }
    }
    for (float &sum : sums) {
        sum /= static_cast<float>(channels);
    }
    spectra.back() = isArtefact(sums, lfzsfz, hfzifz) ? 1.0f : 0.0f;
    return bins;
}

bool freqspace::findArtifact(const std::vector<float> &frequencies, const float *spectrum, std::array<float, 4> &means)
{
    std::array<float, 4> found{};
    for (std::size_t i = 0; i < kBands.size(); ++i) {
        const std::size_t lower = binsBelow(frequencies, kBands[i].from);
        const std::size_t upper = binsBelow(frequencies, kBands[i].to);
        if (upper <= lower) {
            return false;
        }
        found[i] = std::accumulate(spectrum + lower, spectrum + upper, 0.0f) / static_cast<float>(upper - lower);
    }
    means = found;
    return true;
}
