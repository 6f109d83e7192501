#pragma once

#include "algorithms/CustomAlgorithm.h"

#include <cstddef>
#include <vector>

namespace bp {
class ValueHistory;
}

/// One rhythm value per channel for one frequency band, from the spectra of another algorithm, and a normalised value
/// between 0 and 1 for display.
///
/// Uses the processed rows (empty type) of the algorithm that "depend" names. Publishes for each, with an empty type
/// and the spectra's channel count: the largest normalised value, its running maximum and running average (see
/// bp::ValueHistory), −1, then the channels' rhythm values, then their normalised values. A band that does not lie
/// below half the rate publishes nothing; this is logged once.
class BIOPROCESSING_EXPORT DependSpectrumNorm : public CustomAlgorithm
{
    Q_OBJECT
public:
    /// The choices of "calc_mode" ("Average;Integration;Max;Summa;Power") are these numbers, though not these meanings
    /// (Compatibility: stored parameters hold the numbers).
    enum RhythmCalculationMode {
        RhythmPowerIndex = 0, ///< power of the band, in percent of that of the global band or of all bins
        RhythmPower = 1, ///< Σ s²
        RhythmPowerSum = 2, ///< Σ s² / bin spacing
        RhythmSum = 3, ///< Σ s
        RhythmMaximum = 4,
        RhythmAverage = 5,
        RhythmDominantMax = 6 ///< a frequency, Hz: see setFrequencyCalculation()
    };
    Q_ENUM(RhythmCalculationMode)

    DependSpectrumNorm(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info);
    ~DependSpectrumNorm() override;

    /// Forgets the running maximum and average.
    void resetAlgorithm() override;
    void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) override;

    /// Band limits, Hz.
    float getMinFreq() const { return m_minFreq; }
    float getMaxFreq() const { return m_maxFreq; }
    /// Band in Hz, thresholds of the normalised value in the unit of the spectrum.
    void setSpectrumParam(float minFreq, float maxFreq, float minThres, float maxThres);
    /// Band that RhythmPowerIndex refers to, Hz; all bins unless the minimum is at least 0 and the maximum above it. A
    /// global band that ends above the spectrum makes every index 100. Compatibility: published indices depend on it.
    void setGlobalMinFreq(float frequency);
    void setGlobalMaxFreq(float frequency);
    /// Whether the normalised value comes from the mean of the band instead of its largest bin.
    void setSpectrumAverageRange(bool average) { m_average = average; }
    void setCalculationMode(RhythmCalculationMode mode) { m_mode = mode; }
    /// 0: RhythmDominantMax is the weighted average frequency; 1: the frequency of the band's largest bin.
    void setFrequencyCalculation(int calculation) { m_frequencyCalculation = calculation; }

    /// Rebuilds the bin frequencies when the bin count or the rate has changed.
    void updateSpectrumFreq(std::size_t bins);
    /// Calculates and publishes.
    /// @param spectra one row per channel, with the bin count given to updateSpectrumFreq()
    void normalizeAll(const std::vector<float> &spectra, unsigned int channels);
    /// Normalised value of one channel's spectrum; 0 without a valid band or for a spectrum that does not hold it.
    float normalize(const std::vector<float> &spectrum) const;
    /// As above, for a spectrum with the bin count given to updateSpectrumFreq().
    float normalize(const float *spectrum) const;

protected:
    struct Bins
    {
        std::size_t lower = 0;
        std::size_t upper = 0; ///< one past the last

        bool isValid() const { return upper > lower; }
    };

    void updateAlgorithm() override;
    void fillPropertyList() override;

    const QString &expectedType() const { return m_expectedType; }
    void setExpectedType(const QString &type) { m_expectedType = type; }
    const Bins &band() const { return m_band; }
    const bp::ValueHistory &history() const { return *m_history; }
    std::size_t binCount() const { return m_frequencies.size(); }

    float rhythmValue(const float *spectrum) const;
    void setOutputChannels(std::size_t channels);
    void setOutput(std::size_t channel, const float *spectrum);
    void appendCurrentValue(float value);
    void fillOutputVectors(unsigned int channels);
    /// The record to publish; four leading values at least.
    std::vector<float> &record() { return m_record; }
    void zeroOutput();

private:
    Bins findMinMaxIndexes(float minFreq, float maxFreq) const;
    void updateBands();
    float calcPowerChannel(const float *spectrum, double divisor, const Bins &bins) const;
    float calcPowerIndex(const float *spectrum) const;
    float calcWeightedAverageFrequency(const float *spectrum) const;
    float calcMaximumDominantFrequency(const float *spectrum, float spacing) const;

    RhythmCalculationMode m_mode = RhythmPowerIndex;
    int m_frequencyCalculation = 0;
    bool m_average = true;
    float m_minFreq = 0.0f;
    float m_maxFreq = 0.0f;
    float m_minThres = 0.0f;
    float m_maxThres = 1.0f;
    float m_globalMinFreq = -1.0f;
    float m_globalMaxFreq = -1.0f;
    QString m_expectedType;

    float m_rate = 0.0f; ///< Hz, that the frequencies were made for
    std::vector<float> m_frequencies; ///< of the bins, Hz
    Bins m_band;
    Bins m_globalBand;
    std::vector<float> m_rhythms; ///< per channel
    std::vector<float> m_normalized; ///< per channel
    std::vector<float> m_record = std::vector<float>(4);
    std::unique_ptr<bp::ValueHistory> m_history;
};
