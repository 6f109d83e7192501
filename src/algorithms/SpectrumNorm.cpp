#include "algorithms/SpectrumNorm.h"

#include "algorithms/ParamFactory.h"
#include "algorithms/SpectrumOnline.h"
#include "algorithms/engine/ValueHistory.h"
#include "common/BPCommon.h"
#include "montage/Montage.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr float kNoValue = -1.0f;
constexpr float kArtefactMark = 1.0f;

UnitParams defaultParams()
{
    return ParamFactory::makeCustomProperty(QStringLiteral("SpectrumNorm"));
}

} // namespace

SpectrumNorm::SpectrumNorm(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info)
    : DependSpectrumNorm(params.isEmpty() ? defaultParams() : params, montage, info)
    , m_online(new SpectrumOnline(UnitParams(), montage, info))
{
    m_online->setParent(this);
    connect(m_online, &CustomAlgorithm::getData, this, &CustomAlgorithm::takeData, Qt::DirectConnection);
    SpectrumNorm::updateAlgorithm();
}

SpectrumNorm::~SpectrumNorm() = default;

void SpectrumNorm::resetAlgorithm()
{
    DependSpectrumNorm::resetAlgorithm();
    m_online->resetAlgorithm();
}

void SpectrumNorm::appendData(unsigned int count, const std::vector<float> &data, bool fromSender)
{
    BPCommon::log(BPCommon::LogAlgorithm, "SpectrumNorm::appendData %i %i", count, data.size());
    if (!fromSender) {
        m_online->appendData(count, data, false);
    } else if (inputType() == expectedType() && count > 0) {
        takeSpectra(count, data);
    }
}

void SpectrumNorm::updateAlgorithm()
{
    BPCommon::log(BPCommon::LogAlgorithm, "SpectrumNorm::updateAlgorithm");
    DependSpectrumNorm::updateAlgorithm();
    readChannels();
    m_maxPercent = m_params.getParamValue(QStringLiteral("p_max_thres")).toFloat();
    m_minPercent = m_params.getParamValue(QStringLiteral("p_min_thres")).toFloat();
    const int calculation = m_params.getParamValue(QStringLiteral("calc_mode")).toInt();
    if (calculation != m_calculation) {
        resetAlgorithm();
        m_calculation = calculation;
    }
    setCalculationMode(RhythmMaximum); // "calc_mode" is the switch between µV and percent here
    zeroOutput();
    m_percentages.assign(montage() ? montage()->size() : 0, 0.0f);
    configureSpectrum();
}

void SpectrumNorm::fillPropertyList()
{
    m_params = defaultParams();
}

void SpectrumNorm::readChannels()
{
    m_selected.clear();
    if (!montage()) {
        return; // a montage that comes later has the names read again
    }
    const QStringList names =
        m_params.getParamValue(QStringLiteral("channel")).split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString &name : names) {
        const int index = montage()->getIndexByName(name);
        if (index >= 0) {
            m_selected.push_back(static_cast<unsigned int>(index));
        } else {
            BPCommon::log(BPCommon::LogAlgorithm, "SpectrumNorm::updateAlgorithm no channel %s", name);
        }
    }
}

void SpectrumNorm::configureSpectrum()
{
    const auto real = [this](const char *key) { return m_params.getParamValue(QLatin1String(key)).toFloat(); };
    const auto isSet = [this](const char *key) { return m_params.getParamValue(QLatin1String(key)).toInt() == 1; };
    const bool square = isSet("square");
    setExpectedType(square ? QString() : QStringLiteral("raw"));
    m_online->setMontage(montage());
    m_online->setEnabled(true);
    m_online->setSmoothCalculation(false);
    m_online->setSquareCalculation(square);
    m_online->setArtefactParam(isSet("artefact"), real("lfzsfz"), real("hfzifz"));
    m_online->setParam(real("time"), real("step"), real("hann"));
}

void SpectrumNorm::takeSpectra(unsigned int channels, const std::vector<float> &spectra)
{
    if (m_calculation != 0 && m_calculation != 1) {
        return;
    }
    updateSpectrumFreq(spectra.size() / channels);
    if (m_calculation == 1) {
        relativePowerOfRhythm(spectra);
    } else if (!isHasArtefacts(channels, spectra)) {
        if (m_selected.empty()) {
            normalizeAll(spectra, channels);
        } else {
            normalizeSelectChannels(spectra, channels);
        }
    }
}

/// Publishes that it has, so that a display goes on.
bool SpectrumNorm::isHasArtefacts(unsigned int channels, const std::vector<float> &spectra)
{
    if (spectra.empty() || spectra.back() < kArtefactMark || spectra.back() > kArtefactMark) {
        return false;
    }
    const auto count = m_selected.empty() ? channels : static_cast<unsigned int>(m_selected.size());
    std::vector<float> &out = record();
    out.resize(4 + 2 * std::size_t{count});
    out[0] = kNoValue;
    out[1] = history().maximum();
    out[2] = history().average();
    out[3] = kNoValue;
    emit getData(QString(), m_params, count, out);
    return true;
}

void SpectrumNorm::normalizeSelectChannels(const std::vector<float> &spectra, unsigned int channels)
{
    BPCommon::log(BPCommon::LogAlgorithm, "DependSpectrumNorm::normalizeAll sz = %i chans %i", spectra.size(),
                  channels);
    setOutputChannels(m_selected.size());
    const unsigned int last = *std::max_element(m_selected.cbegin(), m_selected.cend());
    if (!band().isValid() || last >= channels) {
        return;
    }
    for (std::size_t i = 0; i < m_selected.size(); ++i) {
        setOutput(i, &spectra[m_selected[i] * binCount()]);
    }
    fillOutputVectors(static_cast<unsigned int>(m_selected.size()));
}

void SpectrumNorm::relativePowerOfRhythm(const std::vector<float> &spectra)
{
    const std::size_t channels = m_percentages.size();
    if (!band().isValid() || channels == 0) {
        return;
    }
    m_results.resize(m_selected.empty() ? channels : m_selected.size());
    for (std::size_t i = 0; i < m_results.size(); ++i) {
        m_results[i] = calcCurrentChannel(spectra, m_selected.empty() ? i : m_selected[i]);
    }
    prepareOutData();
}

/// Bins are summed as they are, not squared.
float SpectrumNorm::calcCurrentChannel(const std::vector<float> &spectra, std::size_t channel)
{
    const std::size_t bins = spectra.size() / m_percentages.size();
    float &percent = m_percentages[channel];
    percent = 0.0f;
    if (bins < band().upper) {
        return 0.0f;
    }
    const float *row = spectra.data() + channel * bins;
    const float total = std::accumulate(row, row + bins, 0.0f);
    if (!(total > 0.0f)) {
        return 0.0f;
    }
    percent = std::accumulate(row + band().lower, row + band().upper, 0.0f) * 100.0f / total;
    const float range = m_maxPercent - m_minPercent;
    return range > 0.0f ? std::clamp((percent - m_minPercent) * 100.0f / range, 0.0f, 100.0f) : 0.0f;
}

void SpectrumNorm::prepareOutData()
{
    const float largest = *std::max_element(m_results.cbegin(), m_results.cend());
    appendCurrentValue(largest);
    std::vector<float> &out = record();
    out.clear();
    out.insert(out.end(),
               {largest, history().maximum(), history().average(),
                *std::max_element(m_percentages.cbegin(), m_percentages.cend())});
    out.insert(out.end(), m_results.cbegin(), m_results.cend());
    emit getData(QString(), m_params, static_cast<unsigned int>(m_results.size()), out);
}
