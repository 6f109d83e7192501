#include "algorithms/ElectroCardiogram.h"

#include "algorithms/ParamFactory.h"
#include "common/BPCommon.h"
#include "devices/AmplifierInfo.h"
#include "filters/ButterworthFilter.h"
#include "filters/NotchFilter.h"
#include "montage/Montage.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace {

constexpr float kSecondsPerMinute = 60.0f;
constexpr float kMillisecondsPerSecond = 1000.0f;
/// From µV to the units of the search, which are a tenth of a volt.
constexpr float kScale = 100000.0f;
/// From the amplitude parameters, mV, to what is stored.
constexpr float kAmplitudeScale = 1000.0f;

constexpr double kBeforeSeconds = 0.02;
constexpr double kAfterSeconds = 0.025;
constexpr double kSearchSeconds = 0.15;

constexpr int kFilterOrder = 4;
constexpr float kMainsHz = 50.0f;
constexpr float kMainsBandwidthHz = 3.0f;

bool isPositive(float value)
{
    return std::isfinite(value) && value > 0.0f;
}

/// Moves the buffer on by the block; a longer block fills it with its first samples.
void append(std::vector<float> &buffer, const std::vector<float> &block)
{
    const auto taken = static_cast<std::ptrdiff_t>(std::min(block.size(), buffer.size()));
    std::copy(buffer.begin() + taken, buffer.end(), buffer.begin());
    std::copy_n(block.begin(), taken, buffer.end() - taken);
}

} // namespace

bool ElectroCardiogram::Config::operator==(const Config &other) const
{
    const auto values = [](const Config &config) {
        return std::tie(config.highPass, config.lowPass, config.minBpm, config.maxBpm, config.minAmplitude,
                        config.maxAmplitude, config.rate);
    };
    return values(*this) == values(other);
}

ElectroCardiogram::ElectroCardiogram(const UnitParams &params, const QSharedPointer<Montage> &montage,
                                     const AmplifierInfo &info)
    : CustomAlgorithm(params, montage, info)
{
    if (m_params.isEmpty()) {
        ElectroCardiogram::fillPropertyList();
    }
    ElectroCardiogram::updateAlgorithm();
}

ElectroCardiogram::~ElectroCardiogram() = default;

void ElectroCardiogram::fillPropertyList()
{
    m_params = ParamFactory::makeCustomProperty(QStringLiteral("ElectroCardiogram"));
}

bool ElectroCardiogram::isNeedRawData() const
{
    return montage() == nullptr || montage()->getType() != Montage_Bipolar;
}

void ElectroCardiogram::updateAlgorithm()
{
    const auto number = [this](const char *key) { return m_params.getParamValue(QLatin1String(key)).toFloat(); };
    const Config config{number("hp_freq"),
                        number("lp_freq"),
                        number("bpmMin"),
                        number("bpmMax"),
                        number("ampMin") / kAmplitudeScale,
                        number("ampMax") / kAmplitudeScale,
                        amplifierInfo().getCurrentFreqValue()};
    const int channel = m_params.getParamValue(QStringLiteral("channel")).toInt() - 1;
    m_missingReported = false;
    if (channel != m_channel || !(config == m_config)) {
        m_channel = channel;
        setConfig(config.highPass, config.lowPass, config.minBpm, config.maxBpm, config.minAmplitude,
                  config.maxAmplitude);
    }
}

void ElectroCardiogram::setConfig(float highPass, float lowPass, float minBpm, float maxBpm, float minAmplitude,
                                  float maxAmplitude)
{
    m_config = {highPass, lowPass, minBpm, maxBpm, minAmplitude, maxAmplitude, amplifierInfo().getCurrentFreqValue()};
    removeFilters();
    m_usable = calcParametrs();
    if (m_usable) {
        createFilters();
    }
    clearBuffers();
}

void ElectroCardiogram::resetAlgorithm()
{
    if (m_usable) {
        removeFilters();
        createFilters();
    }
    clearBuffers();
    m_total = 0;
}

bool ElectroCardiogram::calcParametrs()
{
    m_sizes = Sizes();
    if (!isPositive(m_config.rate) || !isPositive(m_config.minBpm) || !isPositive(m_config.maxBpm)) {
        BPCommon::log(BPCommon::LogAlgorithm,
                      "ElectroCardiogram::calcParametrs no heart rate from %f to %f bpm at %f Hz", m_config.minBpm,
                      m_config.maxBpm, m_config.rate);
        return false;
    }
    const auto rate = static_cast<double>(m_config.rate);
    const double samples = 2.0 * 60.0 * rate / static_cast<double>(m_config.minBpm) + 1.0;
    if (samples > kMaxBufferSize) {
        BPCommon::log(BPCommon::LogAlgorithm, "ElectroCardiogram::calcParametrs the buffer is limited to %i samples",
                      kMaxBufferSize);
    }
    m_sizes.buffer = static_cast<int>(std::min<double>(samples, kMaxBufferSize));
    const auto sizeOf = [this, rate](double seconds) {
        return static_cast<int>(std::min<double>(rate * seconds, m_sizes.buffer));
    };
    m_sizes.before = sizeOf(kBeforeSeconds);
    m_sizes.after = sizeOf(kAfterSeconds);
    m_sizes.search = sizeOf(kSearchSeconds);
    // Compatibility: volts are compared with samples in tenths of a volt, so the threshold is a tenth of what the
    // parameter says. Stored parameters are tuned to it.
    m_threshold = static_cast<float>(static_cast<double>(m_config.minAmplitude) / std::sqrt(2.0));
    return true;
}

void ElectroCardiogram::createFilters()
{
    const Config &config = m_config;
    if (isBelowHalfRate("high-pass", config.highPass)) {
        m_highPass =
            ButterworthFilter::makeStable(AbstractFilter::HighPass, kFilterOrder, config.rate, config.highPass);
    }
    if (isBelowHalfRate("low-pass", config.lowPass)) {
        m_lowPass = std::make_unique<ButterworthFilter>(AbstractFilter::LowPass, kFilterOrder, config.rate,
                                                        config.lowPass, config.lowPass);
    }
    if (isBelowHalfRate("notch", kMainsHz)) {
        m_notch = std::make_unique<NotchFilter>(AbstractFilter::BandStop, config.rate, kMainsHz, kMainsBandwidthHz);
    }
}

void ElectroCardiogram::removeFilters()
{
    m_highPass.reset();
    m_lowPass.reset();
    m_notch.reset();
}

/// False for 0 too, which leaves a filter out on purpose and is not logged.
bool ElectroCardiogram::isBelowHalfRate(const char *name, float frequency) const
{
    const bool isBelow = frequency > 0.0f && 2.0f * frequency < m_config.rate;
    if (!isBelow && !(frequency <= 0.0f)) {
        BPCommon::log(BPCommon::LogAlgorithm, "ElectroCardiogram::createFilters no %s of %f Hz at %f Hz", name,
                      frequency, m_config.rate);
    }
    return isBelow;
}

/// Forgets the signal and the last peak; the samples are counted on.
void ElectroCardiogram::clearBuffers()
{
    const auto size = static_cast<std::size_t>(m_sizes.buffer);
    m_unfiltered.assign(size, 0.0f);
    m_filtered.assign(size, 0.0f);
    m_filled = 0;
    m_lastPeak = 0;
    m_lost = false;
}

void ElectroCardiogram::appendData(unsigned int count, const std::vector<float> &data, bool fromSender)
{
    if (fromSender || !m_usable || count == 0 || !takeChannel(count, data)) {
        return;
    }
    append(m_unfiltered, m_block);
    filterBlock();
    append(m_filtered, m_block);
    const auto samples = static_cast<std::int64_t>(count);
    m_filled = static_cast<int>(std::min<std::int64_t>(m_filled + samples, m_sizes.buffer));
    m_total += samples;
    if (m_filled > m_sizes.before + 1 + m_sizes.after + samples) {
        makeElectroCardiogram(static_cast<int>(count));
    }
}

bool ElectroCardiogram::takeChannel(unsigned int count, const std::vector<float> &data)
{
    const int channels = montage() != nullptr ? static_cast<int>(montage()->size()) : 0;
    const bool isInside =
        m_channel >= 0 && m_channel < channels && data.size() / count > static_cast<std::size_t>(m_channel);
    if (!isInside) {
        if (!m_missingReported) {
            BPCommon::log(BPCommon::LogAlgorithm, "ElectroCardiogram::appendData no channel %i among %i", m_channel + 1,
                          channels);
        }
        m_missingReported = true;
        return false;
    }
    const auto first = data.cbegin() + static_cast<std::ptrdiff_t>(m_channel) * static_cast<std::ptrdiff_t>(count);
    m_block.resize(count);
    // NaN would stay in the history of the filters forever.
    std::transform(first, first + static_cast<std::ptrdiff_t>(count), m_block.begin(),
                   [](float x) { return std::isfinite(x) ? x / kScale * -1.0f : 0.0f; });
    return true;
}

void ElectroCardiogram::filterBlock()
{
    if (m_highPass != nullptr) {
        m_highPass->Process(m_block);
    }
    if (m_lowPass != nullptr) {
        m_lowPass->Process(m_block);
    }
    if (m_notch != nullptr) {
        m_notch->Process(m_block);
    }
}

void ElectroCardiogram::makeElectroCardiogram(int count)
{
    const int first = m_sizes.buffer - m_sizes.after - count;
    for (int position = first; position < first + count; ++position) {
        if (isBeat(position) && !acceptPeak(searchPeak(position))) {
            return;
        }
    }
}

bool ElectroCardiogram::isBeat(int position) const
{
    const auto window = m_filtered.cbegin() + (position - m_sizes.before);
    const auto largest = std::max_element(window, window + (m_sizes.before + 1 + m_sizes.after)); // the first of equals
    return largest - window == m_sizes.before && calcFrontAmpl(position) >= m_threshold
        && calcRearAmpl(position) >= m_threshold;
}

float ElectroCardiogram::calcFrontAmpl(int position) const
{
    const float *peak = m_filtered.data() + position;
    return peak[0] - peak[-m_sizes.before];
}

float ElectroCardiogram::calcRearAmpl(int position) const
{
    const float *peak = m_filtered.data() + position;
    return peak[0] - peak[m_sizes.after];
}

/// The filters delay the signal, so that the peak lies before the position: its index among all samples, the first of
/// equal values.
std::int64_t ElectroCardiogram::searchPeak(int position) const
{
    const int oldest = m_sizes.buffer - m_filled;
    const int first = std::min(position, std::max(oldest, position - m_sizes.search + 1));
    const auto peak = std::max_element(m_unfiltered.cbegin() + first, m_unfiltered.cbegin() + position + 1);
    return m_total - m_sizes.buffer + (peak - m_unfiltered.cbegin());
}

/// Publishes the interval since the peak before, if there is one. False when it is outside the limits.
bool ElectroCardiogram::acceptPeak(std::int64_t peak)
{
    if (m_lastPeak == 0) {
        m_lastPeak = peak;
        return true;
    }
    const float seconds = static_cast<float>(peak - m_lastPeak) / m_config.rate;
    const bool isTooLong = seconds > kSecondsPerMinute / m_config.minBpm;
    if (isTooLong && !m_lost) {
        m_lost = true;
        BPCommon::log(BPCommon::LogAlgorithm, "ElectroCardiogram::acceptPeak no beat for %f s, waiting for a reset",
                      seconds);
    }
    if (isTooLong || seconds < kSecondsPerMinute / m_config.maxBpm) {
        return false;
    }
    m_lastPeak = peak;
    m_output = {kSecondsPerMinute / seconds, seconds * kMillisecondsPerSecond, static_cast<float>(peak)};
    emit getData(QString(), m_params, static_cast<unsigned int>(m_channel), m_output);
    return true;
}
