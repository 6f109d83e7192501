#include "algorithms/SpectrumOnline.h"

#include "algorithms/ParamFactory.h"
#include "algorithms/freqspace.h"
#include "common/BPCommon.h"
#include "devices/AmplifierInfo.h"
#include "montage/Montage.h"

#include <algorithm>
#include <cmath>

namespace {

/// Per channel; only a device that reports an absurd rate gets there.
constexpr float kMaxWindowSamples = 1048576.0f;

/// In float, so that 0.1 s at 250 Hz are 25 samples.
std::size_t toSamples(float seconds, float rate)
{
    const float samples = seconds * rate;
    return samples > 0.0f ? static_cast<std::size_t>(std::min(samples, kMaxWindowSamples)) : 0;
}

/// NaN counts as 0.
float limitedSeconds(float seconds)
{
    return seconds > 0.0f ? std::min(seconds, SpectrumOnline::kMaxSeconds) : 0.0f;
}

bool isSet(const UnitParams &params, const char *key)
{
    return params.getParamValue(QLatin1String(key)).toInt() == 1;
}

float realValue(const UnitParams &params, const char *key)
{
    return params.getParamValue(QLatin1String(key)).toFloat();
}

} // namespace

SpectrumOnline::SpectrumOnline(const UnitParams &params, const QSharedPointer<Montage> &montage,
                               const AmplifierInfo &info)
    : CustomAlgorithm(params, montage, info)
{
    if (m_params.isEmpty()) {
        SpectrumOnline::fillPropertyList();
    }
    SpectrumOnline::updateAlgorithm();
}

SpectrumOnline::~SpectrumOnline() = default;

void SpectrumOnline::resetAlgorithm()
{
    resetAllBufferShifts();
}

void SpectrumOnline::appendData(unsigned int count, const std::vector<float> &data, bool fromSender)
{
    if (!fromSender) {
        appendNewData(count, data);
    }
}

void SpectrumOnline::appendNewData(unsigned int count, const std::vector<float> &data)
{
    BPCommon::log(BPCommon::LogAlgorithm, "SpectrumOnline::appendNewData %i", count);
    if (count == 0 || data.empty() || !m_enabled) {
        return;
    }
    if (isRateChanged()) {
        prepareBuffers();
        resetAllBufferShifts();
    }
    if (m_channels == 0 || m_windowLength == 0) {
        return;
    }
    if (data.size() / m_channels < count) {
        BPCommon::log(BPCommon::LogAlgorithm, "SpectrumOnline::appendNewData %i values for %i channels", data.size(),
                      m_channels);
        return;
    }
    if (m_fill + count < m_windowLength) {
        copySamples(data.data(), count, m_fill, count);
        m_fill += count;
    } else if (count < m_windowLength) {
        slide(count);
        copySamples(data.data(), count, m_windowLength - count, count);
        m_fill = m_windowLength;
        m_received += count;
        if (m_received >= m_stepLength) {
            m_received = 0;
            (this->*m_calculation)();
        }
    } else {
        copySamples(data.data(), m_windowLength, 0, m_windowLength);
        m_fill = m_windowLength;
        m_received = 0;
        (this->*m_calculation)();
    }
}

void SpectrumOnline::setParam(float windowSeconds, float stepSeconds, float hannPercent)
{
    m_windowSeconds = limitedSeconds(windowSeconds);
    m_stepSeconds = limitedSeconds(stepSeconds);
    setHanningSize(hannPercent);
    prepareBuffers();
    resetAllBufferShifts();
    BPCommon::log(BPCommon::LogAlgorithm, "SpectrumOnline::setParam %f, %f, %f, %f, %i", m_windowSeconds, m_stepSeconds,
                  100.0f * m_hann, m_rate, m_channels);
}

void SpectrumOnline::setWindowSizeSeconds(float seconds)
{
    m_windowSeconds = limitedSeconds(seconds);
    prepareBuffers();
    resetAllBufferShifts();
}

void SpectrumOnline::setStepSizeSeconds(float seconds)
{
    m_stepSeconds = limitedSeconds(seconds);
    prepareBuffers();
    resetAllBufferShifts();
}

void SpectrumOnline::setHanningSize(float percent)
{
    m_hann = percent > 0.0f ? std::min(percent, 50.0f) / 100.0f : 0.0f;
    m_spectrum.setSmoothingWindowSize(m_hann);
}

void SpectrumOnline::setSquareCalculation(bool square)
{
    m_square = square;
    setCurrentCalculation();
}

void SpectrumOnline::setSmoothCalculation(bool smooth)
{
    m_smooth = smooth;
    setCurrentCalculation();
}

void SpectrumOnline::setArtefactParam(bool enabled, float lfzsfz, float hfzifz)
{
    m_artefacts = enabled;
    m_lfzsfz = lfzsfz;
    m_hfzifz = hfzifz;
    setCurrentCalculation();
}

void SpectrumOnline::updateAlgorithm()
{
    m_enabled = isSet(m_params, "enable");
    m_square = isSet(m_params, "square");
    m_smooth = isSet(m_params, "smooth");
    m_artefacts = isSet(m_params, "artefact");
    m_lfzsfz = realValue(m_params, "lfzsfz");
    m_hfzifz = realValue(m_params, "hfzifz");
    setParam(realValue(m_params, "time"), realValue(m_params, "step"), realValue(m_params, "hann"));
    setCurrentCalculation();
}

void SpectrumOnline::fillPropertyList()
{
    m_params = ParamFactory::makeCustomProperty(QStringLiteral("SpectrumOnline"));
}

void SpectrumOnline::setCurrentCalculation()
{
    if (m_artefacts) {
        m_calculation = &SpectrumOnline::makeSpectrArtefacts;
    } else if (m_square) {
        m_calculation = m_smooth ? &SpectrumOnline::makeSpectrSquareAndSmooth : &SpectrumOnline::makeSpectrSquare;
    } else {
        m_calculation = m_smooth ? &SpectrumOnline::makeSpectrSmooth : &SpectrumOnline::makeSpectr;
    }
}

void SpectrumOnline::prepareBuffers()
{
    m_rate = amplifierInfo().getCurrentFreqValue();
    m_channels = montage() ? montage()->size() : 0;
    m_windowLength = toSamples(m_windowSeconds, m_rate);
    m_stepLength = toSamples(m_stepSeconds, m_rate);
    m_bins = Spectrum::binCount(m_windowLength);
    m_window.resize(m_channels * m_windowLength);
    m_raw.reserve(m_channels * m_bins + 1);
    m_processed.resize(m_channels * m_bins + 1);
    m_squared.resize(m_bins);
    m_frequencies.reserve(m_bins);
    if (m_windowLength == 0) {
        BPCommon::log(BPCommon::LogAlgorithm, "SpectrumOnline::prepareBuffers no window: %f s at %f Hz",
                      m_windowSeconds, m_rate);
    }
}

void SpectrumOnline::resetAllBufferShifts()
{
    BPCommon::log(BPCommon::LogAlgorithm, "SpectrumOnline::resetAllBufferShifts");
    std::fill(m_window.begin(), m_window.end(), 0.0f);
    m_fill = 0;
    m_received = 0;
}

/// The device's description is seen by reference and changes without a word.
bool SpectrumOnline::isRateChanged() const
{
    return std::fabs(amplifierInfo().getCurrentFreqValue() - m_rate) > 0.0f;
}

/// Every channel's samples into its window.
void SpectrumOnline::copySamples(const float *from, std::size_t fromStride, std::size_t at, std::size_t count)
{
    for (std::size_t c = 0; c < m_channels; ++c) {
        std::copy_n(from + c * fromStride, count, &m_window[c * m_windowLength] + at);
    }
}

/// The windows lose their oldest samples.
void SpectrumOnline::slide(std::size_t count)
{
    for (std::size_t c = 0; c < m_channels; ++c) {
        float *window = &m_window[c * m_windowLength];
        std::copy(window + count, window + m_windowLength, window);
    }
}

void SpectrumOnline::makeSpectr()
{
    makeSpectra([this](const float *raw, float *processed) { std::copy_n(raw, m_bins, processed); });
}

void SpectrumOnline::makeSpectrSquare()
{
    makeSpectra([this](const float *raw, float *processed) { Spectrum::calcSpectrumSquared(raw, m_bins, processed); });
}

void SpectrumOnline::makeSpectrSmooth()
{
    makeSpectra([this](const float *raw, float *processed) { Spectrum::calcSmoothing(raw, m_bins, processed); });
}

void SpectrumOnline::makeSpectrSquareAndSmooth()
{
    makeSpectra([this](const float *raw, float *processed) {
        Spectrum::calcSpectrumSquared(raw, m_bins, m_squared.data());
        Spectrum::calcSmoothing(m_squared.data(), m_bins, processed);
    });
}

void SpectrumOnline::makeSpectrArtefacts()
{
    freqspace::getSpectrumWithArtefact(m_spectrum, m_channels, m_window, m_rate, Spectrum::Hann, m_raw, m_frequencies,
                                       m_lfzsfz, m_hfzifz);
    emit getData(QStringLiteral("raw"), m_params, static_cast<unsigned int>(m_channels), m_raw);
}

/// @param process writes a channel's processed row from its amplitudes
template <class Process> void SpectrumOnline::makeSpectra(Process process)
{
    m_raw.resize(m_channels * m_bins);
    for (std::size_t c = 0; c < m_channels; ++c) {
        float *raw = &m_raw[c * m_bins];
        m_spectrum.getSpectrum(&m_window[c * m_windowLength], m_windowLength, raw);
        process(raw, &m_processed[c * m_bins]);
    }
    m_processed.back() = 0.0f;
    const auto channels = static_cast<unsigned int>(m_channels);
    emit getData(QStringLiteral("raw"), m_params, channels, m_raw);
    emit getData(QString(), m_params, channels, m_processed);
}
