#include "algorithms/AsymmetryCoeff.h"

#include "algorithms/ParamFactory.h"
#include "algorithms/freqspace.h"
#include "base/TextHelper.h"
#include "common/BPCommon.h"
#include "devices/AmplifierInfo.h"
#include "montage/Montage.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr float kPercent = 100.0f;

} // namespace

AsymmetryCoeff::AsymmetryCoeff(const UnitParams &params, const QSharedPointer<Montage> &montage,
                               const AmplifierInfo &info)
    : CustomAlgorithm(params, montage, info)
{
    if (m_params.isEmpty()) {
        AsymmetryCoeff::fillPropertyList();
    }
    AsymmetryCoeff::updateAlgorithm();
}

void AsymmetryCoeff::fillPropertyList()
{
    m_params = ParamFactory::makeCustomProperty(QStringLiteral("AsymmetryCoeff"));
}

void AsymmetryCoeff::updateAlgorithm()
{
    m_minFrequency = m_params.getParamValue(QStringLiteral("min_freq")).toFloat();
    m_maxFrequency = m_params.getParamValue(QStringLiteral("max_freq")).toFloat();
    m_channels = {selectedChannel("channel1"), selectedChannel("channel2")};
    m_frequencies.clear();
    m_missingReported = false;
}

/// Position in the montage of the first selected channel that it has, −1 when there is none.
int AsymmetryCoeff::selectedChannel(const char *key) const
{
    const QStringList names =
        m_params.getParamValue(QLatin1String(key)).split(QLatin1Char(';'), TextHelper::SkipEmptyParts);
    for (const QString &name : names) {
        const int index = montage() != nullptr ? montage()->getIndexByName(name) : -1;
        if (index >= 0) {
            return index;
        }
    }
    return -1;
}

void AsymmetryCoeff::appendData(unsigned int count, const std::vector<float> &data, bool fromSender)
{
    if (!fromSender || !inputType().isEmpty() || count == 0 || data.size() < count || !areChannelsInside(count)) {
        return;
    }
    const std::size_t bins = data.size() / count;
    if (bins != m_frequencies.size()) {
        updateSpectrumFreq(bins);
    }
    const Band band = findBand(m_frequencies, m_minFrequency, m_maxFrequency);
    if (band.upper == band.lower) {
        return;
    }
    const auto power = [&](int channel) {
        const auto row = data.cbegin() + static_cast<std::ptrdiff_t>(static_cast<std::size_t>(channel) * bins);
        return std::accumulate(row + static_cast<std::ptrdiff_t>(band.lower),
                               row + static_cast<std::ptrdiff_t>(band.upper), 0.0f);
    };
    const float a = power(m_channels[0]);
    const float b = power(m_channels[1]);
    const float larger = std::max(a, b);
    const float coefficient = larger > 0.0f ? std::fabs(a - b) / larger * kPercent : 0.0f;
    if (std::isfinite(a) && std::isfinite(b)) {
        m_output.assign(1, coefficient);
        emit getData(QString(), m_params, 1, m_output);
    }
}

bool AsymmetryCoeff::areChannelsInside(unsigned int channels)
{
    const auto isInside = [channels](int channel) {
        return channel >= 0 && static_cast<unsigned int>(channel) < channels;
    };
    const bool areInside = std::all_of(m_channels.cbegin(), m_channels.cend(), isInside);
    if (!areInside && !m_missingReported) {
        m_missingReported = true;
        BPCommon::log(BPCommon::LogAlgorithm, "AsymmetryCoeff::appendData %s and %s are not both among %i channels",
                      m_params.getParamValue(QStringLiteral("channel1")),
                      m_params.getParamValue(QStringLiteral("channel2")), channels);
    }
    return areInside;
}

void AsymmetryCoeff::updateSpectrumFreq(std::size_t bins)
{
    freqspace::getSpectrumFrequencies(amplifierInfo().getCurrentFreqValue(), bins, m_frequencies);
    // The words of the rhythm index, which hosts look for in the trace.
    BPCommon::log(BPCommon::LogAlgorithm, "DependSpectrumNorm::updateSpectrumFreq %i", bins);
}

AsymmetryCoeff::Band AsymmetryCoeff::findBand(const std::vector<float> &frequencies, float minFrequency,
                                              float maxFrequency)
{
    const auto firstFrom = [&frequencies](std::size_t start, float frequency) {
        const auto found = std::find_if(frequencies.cbegin() + static_cast<std::ptrdiff_t>(start), frequencies.cend(),
                                        [frequency](float f) { return f >= frequency; });
        return static_cast<std::size_t>(found - frequencies.cbegin());
    };
    const std::size_t bins = frequencies.size();
    const std::size_t lower = std::min(firstFrom(0, minFrequency) + 1, bins);
    return {lower, std::min(firstFrom(lower, maxFrequency) + 1, bins)};
}
