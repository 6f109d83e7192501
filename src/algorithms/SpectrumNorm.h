#pragma once

#include "algorithms/DependSpectrumNorm.h"

#include <vector>

class SpectrumOnline;

/// Rhythm index: a DependSpectrumNorm with a spectrum unit of its own, which acquisition feeds with blocks that passed
/// no channel filters.
///
/// "calc_mode" 0 publishes as DependSpectrumNorm does, with the band's largest bin as rhythm value, for the channels
/// that "channel" names, or for all when it names none that the montage has (the channel count published is that of the
/// selected ones). A spectrum marked as an artefact publishes −1, running maximum, running average and −1, before the
/// values of the last one.
///
/// "calc_mode" 1 publishes the band's part of the sum of all bins: the largest of the channels' results, running
/// maximum, running average, the largest percentage, then the channels' results: where the percentage lies between
/// "p_min_thres" and "p_max_thres", 0 … 100.
///
/// "square" uses the spectra of power, which the artefact search does not publish: the two together publish nothing.
class BIOPROCESSING_EXPORT SpectrumNorm : public DependSpectrumNorm
{
    Q_OBJECT
public:
    SpectrumNorm(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info);
    ~SpectrumNorm() override;

    bool isNeedRawData() const override { return true; }
    /// Forgets running maximum, running average and the signal gathered so far.
    void resetAlgorithm() override;
    void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) override;

protected:
    /// Another "calc_mode" resets the algorithm.
    void updateAlgorithm() override;
    void fillPropertyList() override;

private:
    void readChannels();
    void configureSpectrum();
    void takeSpectra(unsigned int channels, const std::vector<float> &spectra);
    bool isHasArtefacts(unsigned int channels, const std::vector<float> &spectra);
    void normalizeSelectChannels(const std::vector<float> &spectra, unsigned int channels);
    void relativePowerOfRhythm(const std::vector<float> &spectra);
    float calcCurrentChannel(const std::vector<float> &spectra, std::size_t channel);
    void prepareOutData();

    SpectrumOnline *m_online; ///< a child
    std::vector<unsigned int> m_selected; ///< montage channels, in the order of their names; empty for all
    std::vector<float> m_percentages; ///< per montage channel
    std::vector<float> m_results; ///< per selected channel, 0 … 100
    float m_minPercent = 0.0f;
    float m_maxPercent = 100.0f;
    int m_calculation = 0;
};
