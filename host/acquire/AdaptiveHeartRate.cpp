#include "acquire/AdaptiveHeartRate.h"

#include "algorithms/ParamFactory.h"
#include "devices/AmplifierInfo.h"
#include "filters/ButterworthFilter.h"
#include "filters/NotchFilter.h"
#include "montage/Montage.h"

#include <algorithm>
#include <cmath>

namespace {

const QString kAmpMin = QStringLiteral("ampMin");

constexpr double kLearnSeconds = 6.0;
constexpr double kSegmentSeconds = 2.0; ///< has a beat at 30 per minute
constexpr double kLostSeconds = 5.0;
constexpr double kShareOfBeat = 0.35; ///< between T waves and noise, which are steep nowhere, and the smallest beats
constexpr double kBlockSeconds = 0.1;
/// A beat rises and falls by at least "ampMin" times this.
constexpr double kMicrovoltPerAmplitude = 100.0 / 1.4142135623730951;

constexpr double kLargestAmplitude = 1000.0; ///< that the parameter takes

constexpr int kFilterOrder = 4;
constexpr float kMainsHz = 50.0f;
constexpr float kMainsBandwidthHz = 3.0f;

std::size_t samplesIn(double seconds, float rate)
{
    return static_cast<std::size_t>(std::max(1.0, std::ceil(seconds * static_cast<double>(rate))));
}

/// As the search filters them.
void filter(std::vector<float> &samples, const UnitParams &params, float rate)
{
    const auto pass = [&](AbstractFilter::FilterTypeEnum type, const char *key) {
        const float frequency = params.getParamValue(QLatin1String(key)).toFloat();
        if (frequency > 0.0f && 2.0f * frequency < rate) {
            ButterworthFilter::makeStable(type, kFilterOrder, rate, frequency)->Process(samples);
        }
    };
    pass(AbstractFilter::HighPass, "hp_freq");
    pass(AbstractFilter::LowPass, "lp_freq");
    if (2.0f * kMainsHz < rate) {
        NotchFilter(AbstractFilter::BandStop, rate, kMainsHz, kMainsBandwidthHz).Process(samples);
    }
}

/// What the steepest peak of the samples rises and falls at least.
float steepestPeak(const std::vector<float> &samples, std::size_t from, std::size_t to, std::size_t before,
                   std::size_t after)
{
    float steepest = 0.0f;
    for (std::size_t i = std::max(from, before); i < to && i + after < samples.size(); ++i) {
        const float edge = samples[i] - std::max(samples[i - before], samples[i + after]);
        const auto window = samples.begin() + static_cast<std::ptrdiff_t>(i - before);
        const auto end = window + static_cast<std::ptrdiff_t>(before + 1 + after);
        if (edge > steepest && *std::max_element(window, end) <= samples[i]) {
            steepest = edge;
        }
    }
    return steepest;
}

} // namespace

AdaptiveHeartRate::AdaptiveHeartRate(const UnitParams &params, const QSharedPointer<Montage> &montage,
                                     const AmplifierInfo &info)
    : ElectroCardiogram(params, montage, info)
    , m_isAdaptive(params.isCurrentValEmpty(kAmpMin))
{
    connect(this, &CustomAlgorithm::getData, this, [this] { m_sinceBeat = 0; });
}

void AdaptiveHeartRate::resetAlgorithm()
{
    ElectroCardiogram::resetAlgorithm();
    startAnew();
}

void AdaptiveHeartRate::startAnew()
{
    m_isLearning = true;
    m_learned.clear();
    m_sinceBeat = 0;
}

int AdaptiveHeartRate::channel() const
{
    return m_params.getParamValue(QStringLiteral("channel")).toInt() - 1;
}

void AdaptiveHeartRate::appendData(unsigned int count, const std::vector<float> &data, bool fromSender)
{
    const int row = channel();
    const bool isInside = count > 0 && row >= 0 && data.size() / count > static_cast<std::size_t>(row);
    if (!m_isAdaptive || fromSender || !isInside) {
        ElectroCardiogram::appendData(count, data, fromSender);
        return;
    }
    const float rate = amplifierInfo().getCurrentFreqValue();
    if (m_isLearning) {
        const auto first = data.begin() + static_cast<std::ptrdiff_t>(row) * static_cast<std::ptrdiff_t>(count);
        m_learned.insert(m_learned.end(), first, first + static_cast<std::ptrdiff_t>(count));
        if (m_learned.size() >= samplesIn(kLearnSeconds, rate)) {
            learn();
        }
        return;
    }
    m_sinceBeat += count;
    ElectroCardiogram::appendData(count, data, false);
    if (m_sinceBeat > static_cast<std::int64_t>(samplesIn(kLostSeconds, rate))) {
        ElectroCardiogram::resetAlgorithm(); // it publishes nothing more across a gap
        startAnew();
    }
}

void AdaptiveHeartRate::learn()
{
    const float rate = amplifierInfo().getCurrentFreqValue();
    std::vector<float> samples = std::move(m_learned);
    startAnew();
    m_isLearning = false;
    const auto measured = static_cast<std::ptrdiff_t>(std::min(samples.size(), samplesIn(kLearnSeconds, rate)));
    m_params.setParamValue(
        kAmpMin,
        QString::number(leastAmplitude({samples.begin(), samples.begin() + measured}, m_params, rate, sizes())));
    updateAlgorithm();
    search(samples);
}

/// Gives the search what was collected, in blocks of a live device's length.
void AdaptiveHeartRate::search(const std::vector<float> &samples)
{
    const std::size_t block = samplesIn(kBlockSeconds, amplifierInfo().getCurrentFreqValue());
    const auto row = static_cast<std::size_t>(channel());
    for (std::size_t from = 0; from < samples.size(); from += block) {
        const std::size_t count = std::min(block, samples.size() - from);
        m_planar.assign(count * (row + 1), 0.0f);
        const auto first = samples.begin() + static_cast<std::ptrdiff_t>(from);
        std::copy_n(first, count, m_planar.end() - static_cast<std::ptrdiff_t>(count));
        ElectroCardiogram::appendData(static_cast<unsigned>(count), m_planar, false);
    }
    m_planar.clear();
}

double AdaptiveHeartRate::leastAmplitude(std::vector<float> samples, const UnitParams &params, float rate,
                                         const Sizes &sizes)
{
    const float start = samples.empty() ? 0.0f : samples.front();
    for (float &sample : samples) {
        sample = std::isfinite(sample) ? start - sample : 0.0f;
    }
    filter(samples, params, rate);
    const std::size_t segment = samplesIn(kSegmentSeconds, rate);
    std::vector<float> steepest;
    for (std::size_t from = 0; from + segment <= samples.size(); from += segment) {
        steepest.push_back(steepestPeak(samples, from, from + segment, static_cast<std::size_t>(sizes.before),
                                        static_cast<std::size_t>(sizes.after)));
    }
    const UnitParams standard = ParamFactory::makeCustomProperty(QStringLiteral("ElectroCardiogram"));
    double amplitude = 0.0;
    if (!steepest.empty()) {
        // The median, so that neither a spike nor a loose electrode in one of them decides.
        const auto middle = steepest.begin() + static_cast<std::ptrdiff_t>(steepest.size() / 2);
        std::nth_element(steepest.begin(), middle, steepest.end());
        amplitude = kShareOfBeat * static_cast<double>(*middle) / kMicrovoltPerAmplitude;
    }
    return std::clamp(amplitude, standard[kAmpMin].toDouble(), kLargestAmplitude);
}
