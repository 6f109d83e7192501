#pragma once

#include "common/BPExport.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace bp {
class RealFft;
}

/// Amplitude spectrum of one window: mean removal, edge taper, zero-padded FFT, amplitude scaling.
///
/// A sinusoid of amplitude a on a bin gives a there (in the unit of the input), whatever the taper. Tables and buffers
/// are kept from one window to the next; a window of a length seen before allocates nothing. One thread at a time.
class BIOPROCESSING_EXPORT Spectrum
{
public:
    enum SmoothingWindowType { Hann = 0, Hamming = 1 };

    Spectrum();
    ~Spectrum();
    Spectrum(const Spectrum &) = delete;
    Spectrum &operator=(const Spectrum &) = delete;

    /// Resizes out to the bin count.
    /// @return the bin count, 0 for empty input
    std::size_t getSpectrum(const std::vector<float> &in, std::vector<float> &out);
    /// As above; out has room for binCount(count) values. in and out may not overlap.
    std::size_t getSpectrum(const float *in, std::size_t count, float *out);

    /// Size of the smallest power of two that holds count samples, halved, plus one; 0 for 0.
    static std::size_t binCount(std::size_t count);

    /// How much of the window each of the two edges takes.
    /// @param fraction clamped to 0 (no taper) … 0.5 (the whole window)
    void setSmoothingWindowSize(float fraction);
    void setSmoothingWindowType(SmoothingWindowType type);
    /// What the tapered samples are multiplied by to make up for the taper: window length / sum of its weights, from
    /// the last spectrum; before there is one for the taper that was set, 2 · fraction + 1.
    float correctionFactor() const { return m_correction; }
    /// FFT size of the last spectrum, a power of two; 0 before the first.
    std::size_t getSizeNFFT() const { return m_fftSize; }

    /// The square of each of count amplitudes; in and out may be the same.
    static void calcSpectrumSquared(const float *in, std::size_t count, float *out);
    /// Smooths a row of count bins: resampled to its own length, then the centred root mean square over 3 bins (2 at
    /// either end). Rows of fewer than 100 bins are only resampled. in and out may not overlap.
    static void calcSmoothing(const float *in, std::size_t count, float *out);

private:
    void prepareSize(std::size_t count);
    void prepareTaper(std::size_t count);
    void correctInputData(const float *in, std::size_t count);

    float m_fraction = 0.5f;
    SmoothingWindowType m_type = Hann;
    bool m_taperChanged = true;
    float m_correction = 2.0f;
    std::size_t m_count = 0; ///< samples that buffers and taper were made for
    std::size_t m_fftSize = 0;
    std::vector<float> m_taper; ///< its rising half and then its falling half, the correction included
    std::vector<float> m_input; ///< corrected and padded to the FFT size
    std::vector<std::unique_ptr<bp::RealFft>> m_transforms; ///< tables of every size used so far
    bp::RealFft *m_transform = nullptr;
};
