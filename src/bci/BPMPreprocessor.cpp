#include "bci/BPMPreprocessor.h"

#include "bci/numerics/WindowFilter.h"

#include "bci/model/ModelJson.h"
#include "bci/utilities.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

QString kind()
{
    return QStringLiteral("BPMPreprocessor");
}

constexpr float kSecondsPerMinute = 60.0f;
constexpr int kFilterOrder = 2;
struct Band
{
    float low; ///< Hz
    float high; ///< Hz
    float settleSeconds;
};
constexpr Band kEcgBand{5.0f, 15.0f, 0.5f};
constexpr Band kPpgBand{0.5f, 5.0f, 2.0f};

constexpr float kIntegrationSeconds = 0.15f;
/// A beat's part of the typical maximum.
constexpr float kBeatLevel = 0.25f;
/// Intervals further from the median, in parts of it, are no heart beats.
constexpr float kIntervalTolerance = 0.2f;

/// The pulse wave is thinned out to about this rate: enough for 5 Hz, and a parabola gives the fraction.
constexpr float kPulseRate = 60.0f;
constexpr float kLeastCorrelation = 0.3f;
/// The first maximum of this part of the highest is the period, later ones its multiples.
constexpr float kFirstMaximum = 0.85f;

bool isRange(float minBpm, float maxBpm)
{
    return minBpm > 0.0f && minBpm < maxBpm && std::isfinite(maxBpm);
}

/// Truncated; rates of next to no beats a minute would make more than can be counted.
std::size_t samplesIn(float seconds, float rate)
{
    constexpr float kMost = 1e9f;
    return static_cast<std::size_t>(std::min(seconds * rate, kMost));
}

/// Correlation of the signal with itself, lag samples later; −1 … 1.
float correlationAt(const std::vector<float> &signal, std::size_t lag)
{
    double product = 0.0;
    double early = 0.0;
    double late = 0.0;
    for (std::size_t i = lag; i < signal.size(); ++i) {
        const auto a = static_cast<double>(signal[i - lag]);
        const auto b = static_cast<double>(signal[i]);
        product += a * b;
        early += a * a;
        late += b * b;
    }
    const double scale = std::sqrt(early * late);
    return scale > 0.0 ? static_cast<float>(product / scale) : 0.0f;
}

} // namespace

BPMPreprocessor::BPMPreprocessor(Source source, float minBpm, float maxBpm, QObject *parent)
    : Preprocessor(parent)
    , m_source(source)
    , m_minBpm(isRange(minBpm, maxBpm) ? minBpm : kDefaultMinBpm)
    , m_maxBpm(isRange(minBpm, maxBpm) ? maxBpm : kDefaultMaxBpm)
    , m_filter(std::make_unique<bp::WindowFilter>())
{
}

BPMPreprocessor::~BPMPreprocessor() = default;

void BPMPreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    const Band &band = m_source == Ecg ? kEcgBand : kPpgBand;
    const bool isReady =
        m_filter->prepare(AbstractFilter::BandPass, kFilterOrder, static_cast<float>(m_fs), band.low, band.high);
    if (!isReady && m_complainedFs != m_fs) {
        m_complainedFs = m_fs;
        BPCommon::log(m_logLevel, "BPMPreprocessor::doPreprocess no heart rate at %i Hz", m_fs);
    }
    out->resize(in->size());
    for (std::size_t row = 0; row < in->size(); ++row) {
        Rate rate;
        const float mean = utilities::Mean((*in)[row]);
        if (isReady && std::isfinite(mean)) {
            m_signal = (*in)[row];
            utilities::Subtract(m_signal, mean);
            m_filter->runSettled(m_signal, static_cast<std::size_t>(band.settleSeconds * static_cast<float>(m_fs)));
            rate = m_source == Ecg ? rateOfEcg() : rateOfPpg();
        }
        (*out)[row].assign({rate.bpm, rate.quality});
    }
}

BPMPreprocessor::Rate BPMPreprocessor::rateOfEcg()
{
    integrateSlopes();
    findBeats();
    if (m_beats.size() < 2) {
        return {};
    }
    m_work.clear();
    for (std::size_t i = 1; i < m_beats.size(); ++i) {
        m_work.push_back(static_cast<float>(m_beats[i] - m_beats[i - 1]) / static_cast<float>(m_fs));
    }
    const float median = utilities::Median(m_work);
    float sum = 0.0f;
    int count = 0;
    for (const float interval : m_work) {
        if (std::abs(interval - median) <= kIntervalTolerance * median && interval >= kSecondsPerMinute / m_maxBpm
            && interval <= kSecondsPerMinute / m_minBpm) {
            sum += interval;
            ++count;
        }
    }
    if (count == 0) {
        return {};
    }
    const float mean = sum / static_cast<float>(count);
    // Wherever a window begins, it has at least one interval fewer than would fit into it.
    const float seconds = static_cast<float>(m_signal.size()) / static_cast<float>(m_fs);
    const float expected = std::max(1.0f, std::floor(seconds / mean) - 1.0f);
    return {kSecondsPerMinute / mean, std::min(1.0f, static_cast<float>(count) / expected)};
}

void BPMPreprocessor::integrateSlopes()
{
    const std::size_t count = m_signal.size();
    m_work.assign(count, 0.0f);
    for (std::size_t i = 1; i + 1 < count; ++i) {
        const float slope = m_signal[i + 1] - m_signal[i - 1];
        m_work[i] = slope * slope;
    }
    const auto half = static_cast<std::size_t>(kIntegrationSeconds * static_cast<float>(m_fs) / 2.0f);
    m_energy.resize(count);
    double sum = 0.0;
    for (std::size_t i = 0; i < count + half; ++i) {
        sum += i < count ? static_cast<double>(m_work[i]) : 0.0;
        sum -= i > 2 * half ? static_cast<double>(m_work[i - 2 * half - 1]) : 0.0;
        if (i >= half) {
            m_energy[i - half] = static_cast<float>(sum);
        }
    }
}

float BPMPreprocessor::typicalMaximum()
{
    // A segment as long as the longest interval has at least one beat.
    const auto longest = std::max(std::size_t{1}, samplesIn(kSecondsPerMinute / m_minBpm, static_cast<float>(m_fs)));
    m_work.clear();
    for (std::size_t first = 0; first < m_energy.size(); first += longest) {
        const std::size_t end = std::min(first + longest, m_energy.size());
        if (end - first == longest || first == 0) {
            m_work.push_back(*std::max_element(m_energy.begin() + static_cast<std::ptrdiff_t>(first),
                                               m_energy.begin() + static_cast<std::ptrdiff_t>(end)));
        }
    }
    return utilities::Median(m_work);
}

void BPMPreprocessor::findBeats()
{
    m_beats.clear();
    const float level = kBeatLevel * typicalMaximum();
    const std::size_t closest = samplesIn(kSecondsPerMinute / m_maxBpm, static_cast<float>(m_fs));
    std::size_t i = 0;
    while (level > 0.0f && i < m_energy.size()) {
        if (!(m_energy[i] > level)) {
            ++i;
            continue;
        }
        std::size_t peak = i;
        for (; i < m_energy.size() && m_energy[i] > level; ++i) {
            peak = std::abs(m_signal[i]) > std::abs(m_signal[peak]) ? i : peak;
        }
        if (m_beats.empty() || peak - m_beats.back() >= closest) {
            m_beats.push_back(peak);
        } else if (std::abs(m_signal[peak]) > std::abs(m_signal[m_beats.back()])) {
            m_beats.back() = peak;
        }
    }
}

BPMPreprocessor::Rate BPMPreprocessor::rateOfPpg()
{
    const auto step = std::max(std::size_t{1}, static_cast<std::size_t>(static_cast<float>(m_fs) / kPulseRate));
    const float rate = static_cast<float>(m_fs) / static_cast<float>(step);
    m_work.clear();
    for (std::size_t i = 0; i < m_signal.size(); i += step) {
        m_work.push_back(m_signal[i]);
    }
    const auto shortest = std::max(std::size_t{2}, samplesIn(std::ceil(kSecondsPerMinute / m_maxBpm * rate), 1.0f));
    const std::size_t longest = std::min(samplesIn(kSecondsPerMinute / m_minBpm, rate), m_work.size() / 2);
    if (longest < shortest) {
        return {};
    }
    m_energy.resize(longest + 2); // correlations by lag
    for (std::size_t lag = shortest - 1; lag <= longest + 1; ++lag) {
        m_energy[lag] = correlationAt(m_work, lag);
    }
    const auto isMaximum = [this](std::size_t lag) {
        return m_energy[lag] >= m_energy[lag - 1] && m_energy[lag] > m_energy[lag + 1];
    };
    float highest = kLeastCorrelation / kFirstMaximum;
    for (std::size_t lag = shortest; lag <= longest; ++lag) {
        highest = isMaximum(lag) ? std::max(highest, m_energy[lag]) : highest;
    }
    for (std::size_t lag = shortest; lag <= longest; ++lag) {
        const float height = m_energy[lag];
        if (isMaximum(lag) && height >= kFirstMaximum * highest) {
            const float before = m_energy[lag - 1];
            const float after = m_energy[lag + 1];
            const float shift = 0.5f * (before - after) / (before - 2.0f * height + after);
            return {kSecondsPerMinute * rate / (static_cast<float>(lag) + shift), std::min(height, 1.0f)};
        }
    }
    return {};
}

QJsonObject BPMPreprocessor::model() const
{
    QJsonObject model = bp::header(kind());
    model[QLatin1String("source")] = static_cast<int>(m_source);
    model[QLatin1String("minBpm")] = static_cast<double>(m_minBpm);
    model[QLatin1String("maxBpm")] = static_cast<double>(m_maxBpm);
    return model;
}

bool BPMPreprocessor::setModel(const QJsonObject &model, QString &reason)
{
    if (!bp::checkHeader(model, kind(), reason)) {
        return false;
    }
    int source = 0;
    float minBpm = 0.0f;
    float maxBpm = 0.0f;
    if (!bp::toInt(model[QLatin1String("source")], source) || (source != Ecg && source != Ppg)) {
        return bp::damaged(kind(), "source", reason);
    }
    if (!bp::toFloat(model[QLatin1String("minBpm")], minBpm) || !bp::toFloat(model[QLatin1String("maxBpm")], maxBpm)
        || !isRange(minBpm, maxBpm)) {
        return bp::damaged(kind(), "minBpm", reason);
    }
    m_source = source == Ecg ? Ecg : Ppg;
    m_minBpm = minBpm;
    m_maxBpm = maxBpm;
    m_complainedFs = -1;
    return true;
}
