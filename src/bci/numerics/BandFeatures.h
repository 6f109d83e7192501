#pragma once

#include "algorithms/Spectrum.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace bp {

/// Amplitude spectrum of one row of samples, read band by band.
///
/// The spectrum is that of Spectrum with its Hann taper over the whole row, from 0 Hz to half the rate: the bins above
/// are mirror images. A band covers the bins from the first at or above its low edge through the
/// last below its high edge. A row as long as the one before allocates nothing.
class BandFeatures
{
public:
    /// @param fs    sampling rate, Hz
    /// @param from  Hz; no band includes bins below it
    void setRow(const std::vector<float> &row, int fs, float from);

    /// Mean amplitude of a band; 0 for a band without bins.
    float mean(float low, float high) const;
    /// The means of all bands (low and high edges, Hz), one after another.
    void means(const std::vector<std::pair<float, float>> &bands, float *out) const;
    /// Appends the amplitudes of a band.
    void append(float low, float high, std::vector<float> &out) const;

private:
    std::size_t firstBin(float frequency) const;
    void prepareFrequencies(std::size_t bins, int fs);

    Spectrum m_spectrum;
    std::vector<float> m_frequencies; ///< Hz, one per amplitude
    std::vector<float> m_amplitudes;
    int m_fs = 0; ///< that the frequencies were made for
    float m_from = 0.0f;
};

} // namespace bp
