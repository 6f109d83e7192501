#include "algorithms/DependSpectrumNorm.h"

#include "algorithms/engine/ValueHistory.h"

#include "algorithms/ParamFactory.h"
#include "algorithms/freqspace.h"
#include "common/BPCommon.h"
#include "devices/AmplifierInfo.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr float kNoValue = -1.0f;
constexpr int kLastMode = DependSpectrumNorm::RhythmDominantMax;

float sum(const float *from, const float *to)
{
    return std::accumulate(from, to, 0.0f);
}

} // namespace

DependSpectrumNorm::DependSpectrumNorm(const UnitParams &params, const QSharedPointer<Montage> &montage,
                                       const AmplifierInfo &info)
    : CustomAlgorithm(params, montage, info)
    , m_history(std::make_unique<bp::ValueHistory>())
{
    if (m_params.isEmpty()) {
        DependSpectrumNorm::fillPropertyList();
    }
    DependSpectrumNorm::updateAlgorithm();
}

DependSpectrumNorm::~DependSpectrumNorm() = default;

void DependSpectrumNorm::resetAlgorithm()
{
    m_history->clear();
}

void DependSpectrumNorm::appendData(unsigned int count, const std::vector<float> &data, bool fromSender)
{
    if (!fromSender || inputType() != m_expectedType || count == 0) {
        return;
    }
    updateSpectrumFreq(data.size() / count);
    normalizeAll(data, count);
}

void DependSpectrumNorm::setSpectrumParam(float minFreq, float maxFreq, float minThres, float maxThres)
{
    BPCommon::log(BPCommon::LogAlgorithm, "DependSpectrumNorm::setSpectrumParam %f, %f, %f, %f", minFreq, maxFreq,
                  minThres, maxThres);
    m_minFreq = minFreq;
    m_maxFreq = maxFreq;
    m_minThres = minThres;
    m_maxThres = maxThres;
    updateBands();
}

void DependSpectrumNorm::setGlobalMinFreq(float frequency)
{
    m_globalMinFreq = frequency;
    updateBands();
}

void DependSpectrumNorm::setGlobalMaxFreq(float frequency)
{
    m_globalMaxFreq = frequency;
    updateBands();
}

void DependSpectrumNorm::updateSpectrumFreq(std::size_t bins)
{
    const float rate = amplifierInfo().getCurrentFreqValue();
    if (bins == m_frequencies.size() && !(std::fabs(rate - m_rate) > 0.0f)) {
        return;
    }
    BPCommon::log(BPCommon::LogAlgorithm, "DependSpectrumNorm::updateSpectrumFreq %i", bins);
    m_rate = rate;
    freqspace::getSpectrumFrequencies(rate, bins, m_frequencies);
    updateBands();
}

void DependSpectrumNorm::normalizeAll(const std::vector<float> &spectra, unsigned int channels)
{
    BPCommon::log(BPCommon::LogAlgorithm, "DependSpectrumNorm::normalizeAll sz = %i chans %i", spectra.size(),
                  channels);
    setOutputChannels(channels);
    if (channels == 0 || !m_band.isValid() || spectra.size() / channels < binCount()) {
        return;
    }
    for (std::size_t c = 0; c < channels; ++c) {
        setOutput(c, &spectra[c * binCount()]);
    }
    fillOutputVectors(channels);
}

float DependSpectrumNorm::normalize(const std::vector<float> &spectrum) const
{
    return m_band.isValid() && spectrum.size() >= m_band.upper ? normalize(spectrum.data()) : 0.0f;
}

void DependSpectrumNorm::updateAlgorithm()
{
    const auto real = [this](const char *key) { return m_params.getParamValue(QLatin1String(key)).toFloat(); };
    const auto number = [this](const char *key) { return m_params.getParamValue(QLatin1String(key)).toInt(); };
    m_average = number("average") == 1;
    m_mode = static_cast<RhythmCalculationMode>(std::clamp(number("calc_mode"), 0, kLastMode));
    m_frequencyCalculation = number("frequency_calc");
    setSpectrumParam(real("min_freq"), real("max_freq"), real("min_thres"), real("max_thres"));
}

void DependSpectrumNorm::fillPropertyList()
{
    m_params = ParamFactory::makeCustomProperty(QStringLiteral("DependSpectrumNorm"));
}

/// Needs a valid band that the spectrum holds.
float DependSpectrumNorm::normalize(const float *spectrum) const
{
    const float *from = spectrum + m_band.lower;
    const float *to = spectrum + m_band.upper;
    const float value = m_average ? sum(from, to) / static_cast<float>(to - from) : *std::max_element(from, to);
    const float normalized = (value - m_minThres) / (m_maxThres - m_minThres);
    return normalized > 0.0f ? std::min(normalized, 1.0f) : 0.0f; // NaN (equal thresholds) becomes 0
}

float DependSpectrumNorm::rhythmValue(const float *spectrum) const
{
    const float *from = spectrum + m_band.lower;
    const float *to = spectrum + m_band.upper;
    const float spacing = m_frequencies[1] - m_frequencies[0];
    switch (m_mode) {
    case RhythmPowerIndex:
        return calcPowerIndex(spectrum);
    case RhythmPower:
        return calcPowerChannel(spectrum, 1.0, m_band);
    case RhythmPowerSum:
        return calcPowerChannel(spectrum, static_cast<double>(spacing), m_band); // the definition of this mode
    case RhythmSum:
        return sum(from, to);
    case RhythmMaximum:
        return *std::max_element(from, to);
    case RhythmAverage:
        return sum(from, to) / static_cast<float>(to - from);
    case RhythmDominantMax:
        return m_frequencyCalculation == 0 ? calcWeightedAverageFrequency(spectrum)
                                           : calcMaximumDominantFrequency(spectrum, spacing);
    }
    return 0.0f;
}

void DependSpectrumNorm::setOutputChannels(std::size_t channels)
{
    m_rhythms.resize(channels);
    m_normalized.resize(channels);
}

void DependSpectrumNorm::setOutput(std::size_t channel, const float *spectrum)
{
    m_rhythms[channel] = rhythmValue(spectrum);
    m_normalized[channel] = normalize(spectrum);
}

void DependSpectrumNorm::appendCurrentValue(float value)
{
    if (value > 0.0f) {
        m_history->append(value);
    }
    BPCommon::log(BPCommon::LogAlgorithm, "DependSpectrumNorm::appendCurrentValue max = %f", value);
}

void DependSpectrumNorm::fillOutputVectors(unsigned int channels)
{
    const float largest = *std::max_element(m_normalized.cbegin(), m_normalized.cend());
    appendCurrentValue(largest);
    m_record.clear();
    m_record.insert(m_record.end(), {largest, m_history->maximum(), m_history->average(), kNoValue});
    m_record.insert(m_record.end(), m_rhythms.cbegin(), m_rhythms.cend());
    m_record.insert(m_record.end(), m_normalized.cbegin(), m_normalized.cend());
    emit getData(QString(), m_params, channels, m_record);
}

void DependSpectrumNorm::zeroOutput()
{
    std::fill(m_rhythms.begin(), m_rhythms.end(), 0.0f);
    std::fill(m_normalized.begin(), m_normalized.end(), 0.0f);
    std::fill(m_record.begin(), m_record.end(), 0.0f);
}

/// First bins that reach the limits; one that is not found is 0.
DependSpectrumNorm::Bins DependSpectrumNorm::findMinMaxIndexes(float minFreq, float maxFreq) const
{
    const auto firstAt = [this](float limit) {
        const auto found = std::find_if(m_frequencies.cbegin(), m_frequencies.cend(),
                                        [limit](float frequency) { return frequency >= limit; });
        return found == m_frequencies.cend() ? 0 : static_cast<std::size_t>(found - m_frequencies.cbegin());
    };
    return {firstAt(minFreq), firstAt(maxFreq)};
}

void DependSpectrumNorm::updateBands()
{
    m_band = findMinMaxIndexes(m_minFreq, m_maxFreq);
    m_globalBand = findMinMaxIndexes(m_globalMinFreq, m_globalMaxFreq);
    if (!m_frequencies.empty() && !m_band.isValid()) {
        BPCommon::log(BPCommon::LogAlgorithm, "DependSpectrumNorm::findMinMaxIndexes no bins from %f to %f Hz at %f Hz",
                      m_minFreq, m_maxFreq, m_rate);
    }
}

float DependSpectrumNorm::calcPowerChannel(const float *spectrum, double divisor, const Bins &bins) const
{
    double power = 0.0;
    for (std::size_t i = bins.lower; i < bins.upper; ++i) {
        power += static_cast<double>(spectrum[i]) * static_cast<double>(spectrum[i]);
    }
    return static_cast<float>(power / divisor);
}

/// Percent; 0 when there is no power at all.
float DependSpectrumNorm::calcPowerIndex(const float *spectrum) const
{
    Bins reference{0, binCount()};
    if (m_globalMinFreq >= 0.0f && m_globalMaxFreq > 0.0f) {
        if (!m_globalBand.isValid()) {
            return 100.0f;
        }
        reference = m_globalBand;
    }
    const float whole = calcPowerChannel(spectrum, 1.0, reference);
    return whole > 0.0f ? 100.0f * calcPowerChannel(spectrum, 1.0, m_band) / whole : 0.0f;
}

/// Centre of gravity of the band, Hz; 0 without any amplitude in it.
float DependSpectrumNorm::calcWeightedAverageFrequency(const float *spectrum) const
{
    float weighted = 0.0f;
    float whole = 0.0f;
    for (std::size_t i = m_band.lower; i < m_band.upper; ++i) {
        weighted += m_frequencies[i] * spectrum[i];
        whole += spectrum[i];
    }
    return whole > 0.0f ? weighted / whole : 0.0f;
}

/// Frequency of the band's largest bin (the first of equal ones), Hz.
float DependSpectrumNorm::calcMaximumDominantFrequency(const float *spectrum, float spacing) const
{
    const float *largest = std::max_element(spectrum + m_band.lower, spectrum + m_band.upper);
    return static_cast<float>(largest - spectrum) * spacing;
}
