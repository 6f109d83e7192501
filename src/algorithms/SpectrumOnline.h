#pragma once

#include "algorithms/CustomAlgorithm.h"
#include "algorithms/Spectrum.h"

#include <cstddef>
#include <vector>

/// Sliding amplitude spectrum of every montage channel, published each update step.
///
/// Window: the last N = "time" · rate samples per channel. Spectra have FFT size / 2 + 1 bins (the FFT size is the
/// power of two that holds N), evenly from 0 Hz to half the rate, in the unit of the input (µV). Each calculation
/// publishes twice, with the montage's channel count:
/// - type "raw": the amplitudes, channel after channel;
/// - empty type: the processed rows ("square": amplitudes squared; "smooth": smoothed, see Spectrum::calcSmoothing()),
///   followed by one value that is 0.
///
/// With the artefact search it publishes only type "raw", followed by one value: 1 for an artefact, 0 otherwise (see
/// freqspace::getSpectrumWithArtefact()).
///
/// Buffers are made when parameters, montage or rate change; later blocks allocate nothing.
class BIOPROCESSING_EXPORT SpectrumOnline : public CustomAlgorithm
{
    Q_OBJECT
public:
    /// Upper limit of window and step; longer ones are shortened.
    static constexpr float kMaxSeconds = 10.0f;

    SpectrumOnline(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info);
    ~SpectrumOnline() override;

    /// Empties the window.
    void resetAlgorithm() override;
    /// Results of other algorithms are ignored: they are not signals.
    void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) override;
    /// @param count samples per channel. A block at least as long as the window replaces it. Compatibility: each
    ///              channel's samples are then read from channel · N instead of channel · count, so parts of the window
    ///              belong to other channels; such blocks only come after the acquisition was delayed
    /// @param data  planar; a block with fewer than channels · count values is logged and ignored
    void appendNewData(unsigned int count, const std::vector<float> &data);

    /// Window, step and taper at once. Empties the window.
    void setParam(float windowSeconds, float stepSeconds, float hannPercent);
    using CustomAlgorithm::setParam;
    /// Seconds; 0, a negative value or NaN makes a window of no samples, which publishes nothing. Empties the window.
    void setWindowSizeSeconds(float seconds);
    /// Seconds; 0 or less calculates with every block. Empties the window.
    void setStepSizeSeconds(float seconds);
    /// Part of the window that the taper takes at both edges together, halved: 0 none … 50 all of it. Clamped.
    void setHanningSize(float percent);
    void setEnabled(bool enabled) { m_enabled = enabled; }
    void setSquareCalculation(bool square);
    void setSmoothCalculation(bool smooth);
    void setArtefactParam(bool enabled, float lfzsfz, float hfzifz);

protected:
    void updateAlgorithm() override;
    void fillPropertyList() override;

private:
    void setCurrentCalculation();
    void prepareBuffers();
    void resetAllBufferShifts();
    bool isRateChanged() const;
    void copySamples(const float *from, std::size_t fromStride, std::size_t at, std::size_t count);
    void slide(std::size_t count);

    void makeSpectr();
    void makeSpectrSquare();
    void makeSpectrSmooth();
    void makeSpectrSquareAndSmooth();
    void makeSpectrArtefacts();
    template <class Process> void makeSpectra(Process process);

    void (SpectrumOnline::*m_calculation)() = &SpectrumOnline::makeSpectr;
    bool m_enabled = true;
    bool m_square = false;
    bool m_smooth = false;
    bool m_artefacts = false;
    float m_lfzsfz = 3.5f;
    float m_hfzifz = 0.7f;
    float m_windowSeconds = 2.0f;
    float m_stepSeconds = 0.5f;
    float m_hann = 0.5f; ///< fraction of the window at each edge

    float m_rate = 0.0f; ///< Hz, that the buffers were made for
    std::size_t m_channels = 0;
    std::size_t m_windowLength = 0; ///< N
    std::size_t m_stepLength = 0;
    std::size_t m_fill = 0; ///< samples per channel; N from the first slide on
    std::size_t m_received = 0; ///< samples per channel since the last calculation
    std::size_t m_bins = 0;

    Spectrum m_spectrum;
    std::vector<float> m_window; ///< N samples per channel, the newest last
    std::vector<float> m_raw; ///< amplitudes; with the artefact search one value more
    std::vector<float> m_processed; ///< and one value more
    std::vector<float> m_squared; ///< one channel's
    std::vector<float> m_frequencies;
};
