#pragma once

#include "algorithms/CustomAlgorithm.h"

#include <array>
#include <cstddef>
#include <vector>

/// Asymmetry of the band power of two channels in the online spectrum: |A − B| / max(A, B) · 100, A and B being the
/// sums of the channels' bins in the band; 0 when both are 0.
///
/// Listens to the SpectrumOnline named by its depend name and uses the rows of empty type, which are processed as the
/// spectrum's parameters say (squared, smoothed); a spectrum that searches artefacts sends none. Each of them publishes
/// one value with an empty type and a channel count of 1. Nothing is published while the band holds no bin or a channel
/// is not in the montage, which is logged.
///
/// The selections "channel1" and "channel2" are montage channel names; the first name of a list that the montage has
/// counts.
class BIOPROCESSING_EXPORT AsymmetryCoeff : public CustomAlgorithm
{
    Q_OBJECT
public:
    /// Bins [lower, upper) of a channel's spectrum.
    struct Band
    {
        std::size_t lower = 0;
        std::size_t upper = 0;
    };

    AsymmetryCoeff(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info);

    void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) override;

    /// The band begins one bin after the first bin at or above minFrequency. It ends with the next bin at or above
    /// maxFrequency, or with the last bin when there is none. Compatibility: stored results depend on it.
    /// @param frequencies of the bins, Hz, ascending
    static Band findBand(const std::vector<float> &frequencies, float minFrequency, float maxFrequency);

protected:
    void updateAlgorithm() override;
    void fillPropertyList() override;

private:
    int selectedChannel(const char *key) const;
    bool areChannelsInside(unsigned int channels);
    void updateSpectrumFreq(std::size_t bins);

    float m_minFrequency = 0.0f;
    float m_maxFrequency = 0.0f;
    std::array<int, 2> m_channels{-1, -1}; ///< positions in the montage, −1 for none
    std::vector<float> m_frequencies; ///< of the bins, Hz; empty when they must be calculated again
    std::vector<float> m_output;
    bool m_missingReported = false;
};
