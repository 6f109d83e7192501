#include "bci/EMGBCIProcessor.h"

#include "bci/model/ModelJson.h"
#include "bci/numerics/FiniteRow.h"
#include "bci/numerics/MarkedRuns.h"
#include "bci/utilities.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

QString kind()
{
    return QStringLiteral("EMGBCIProcessor");
}

constexpr int kMinRunDivisor = 3; ///< a third of a second
constexpr int kMaxRunSeconds = 10;
constexpr double kOutlierShare = 0.05;
constexpr float kActiveScore = 1.0f;

void say(const QString &text)
{
    qDebug().noquote() << text;
}

bool isAnyTrained(const std::vector<float> &thresholds)
{
    return std::any_of(thresholds.begin(), thresholds.end(), [](float threshold) { return threshold > 0.0f; });
}

/// Samples further than limit deviations from the mean. At most 4 % of any samples lie five of their own deviations
/// away (Chebyshev), so mean and deviation are those of the 95 % nearest to the median. The rise of the envelope from
/// zero at the window's start doesn't count. Without any deviation, every other value is an outlier.
std::size_t countOutliers(const std::vector<float> &envelope, float limit)
{
    std::vector<float> core = envelope;
    const float median = utilities::Median(core);
    std::sort(core.begin(), core.end(),
              [median](float a, float b) { return std::abs(a - median) < std::abs(b - median); });
    core.resize(core.size() - static_cast<std::size_t>(kOutlierShare * static_cast<double>(core.size())));
    const float mean = utilities::Mean(core);
    const float width = limit * utilities::StdDev(core);
    const auto first =
        std::find_if(envelope.begin(), envelope.end(), [=](float sample) { return sample >= mean - width; });
    return static_cast<std::size_t>(
        std::count_if(first, envelope.end(), [=](float sample) { return std::abs(sample - mean) > width; }));
}

} // namespace

EMGBCIProcessor::EMGBCIProcessor(QObject *parent)
    : Processor(parent)
{
}

void EMGBCIProcessor::preTrain(vector<vector<float>> &window, int label)
{
    m_labels.push_back(label);
    m_minRun = m_fs / kMinRunDivisor;
    m_maxRun = std::min(m_fs, std::numeric_limits<int>::max() / kMaxRunSeconds) * kMaxRunSeconds;
    if (label == 0) {
        trainRest(window);
    } else if (label > 0) {
        trainMovement(window, static_cast<std::size_t>(label) - 1);
    }
}

void EMGBCIProcessor::trainRest(const vector<vector<float>> &window)
{
    for (std::size_t channel = 0; channel < window.size(); ++channel) {
        const std::vector<float> &envelope = window[channel];
        const float mean = utilities::Mean(envelope);
        const float deviation = utilities::StdDev(envelope);
        const bool isUsable = !envelope.empty() && std::isfinite(mean) && std::isfinite(deviation);
        const std::size_t outliers = isUsable ? countOutliers(envelope, static_cast<float>(m_movementZ)) : 0;
        const bool isBad = static_cast<double>(outliers) > kOutlierShare * static_cast<double>(envelope.size());
        if (!isUsable || isBad) {
            say(QStringLiteral("ERROR: bad REST training for channel № %1. Try retraining").arg(channel));
            return;
        }
        if (channel == m_restMean.size()) {
            m_restMean.push_back(0.0f);
            m_restDeviation.push_back(0.0f);
        }
        m_restMean[channel] = mean;
        m_restDeviation[channel] = deviation;
    }
}

void EMGBCIProcessor::trainMovement(const vector<vector<float>> &window, std::size_t channel)
{
    if (channel >= m_restMean.size()) {
        say(QStringLiteral("ERROR: Action data sent before rest training"));
        return;
    }
    bp::MarkedRun run;
    const float mean = m_restMean[channel];
    const float deviation = m_restDeviation[channel];
    if (channel < window.size() && deviation > 0.0f) {
        run =
            bp::findMarkedRun(window[channel], mean + static_cast<float>(m_movementZ) * deviation, m_minRun, m_maxRun);
    }
    if (run.state == bp::MarkedRun::TooLong) {
        say(QStringLiteral("ERROR: Movement in channel %1 too long").arg(channel));
        return;
    }
    if (run.state == bp::MarkedRun::NotFound) {
        say(QStringLiteral("WARNING: Movement in channel %1 not found").arg(channel));
        return;
    }
    if (channel >= m_threshold.size()) {
        m_threshold.resize(channel + 1, 0.0f);
    }
    m_threshold[channel] = (bp::meanOfRun(window[channel], run) - mean) * m_thresholdScale / deviation;
    ++m_trainedMovements;
}

void EMGBCIProcessor::postTrain()
{
    getUniqueLabels(m_distinctLabels);
}

bool EMGBCIProcessor::doValidate()
{
    for (std::size_t channel = 0; channel < m_threshold.size(); ++channel) {
        m_results[QStringLiteral("thresh_%1").arg(channel)] = m_threshold[channel];
    }
    return true;
}

bool EMGBCIProcessor::isTrained(std::size_t channel) const
{
    return channel < m_restMean.size() && channel < m_threshold.size() && m_restDeviation[channel] > 0.0f
        && m_threshold[channel] > 0.0f && std::isfinite(m_threshold[channel]);
}

bool EMGBCIProcessor::isJudgeable(const vector<vector<float>> &window) const
{
    for (std::size_t channel = 0; channel < std::min(window.size(), m_threshold.size()); ++channel) {
        if (isTrained(channel) && !bp::isFinite(window[channel])) {
            return false;
        }
    }
    return true;
}

float EMGBCIProcessor::scoreOf(const vector<float> &envelope, std::size_t channel) const
{
    const float mean = m_restMean[channel];
    const float deviation = m_restDeviation[channel];
    const bp::MarkedRun run = bp::findMarkedRun(envelope, mean + m_threshold[channel] * deviation, m_minRun, m_maxRun);
    if (run.state != bp::MarkedRun::Found) {
        return 0.0f;
    }
    return (bp::meanOfRun(envelope, run) - mean) / deviation / m_threshold[channel];
}

void EMGBCIProcessor::passThrough(vector<vector<float>> *in, vector<vector<float>> *out)
{
    if (!isJudgeable(*in)) {
        BPCommon::log(m_logLevel, "EMGBCIProcessor::passThrough the envelopes are not finite, there is no class");
        withdraw(m_results.keys().filter(QLatin1String("score_")) << QStringLiteral("Class"), out);
        return;
    }
    // Labels with a gap between them train channels beyond their number.
    const std::size_t movements = m_distinctLabels.empty() ? 0 : m_distinctLabels.size() - 1;
    std::vector<float> scores(std::max(movements, m_threshold.size()), 0.0f);
    for (std::size_t channel = 0; channel < scores.size(); ++channel) {
        if (!isTrained(channel)) {
            continue;
        }
        if (channel < in->size()) {
            scores[channel] = scoreOf((*in)[channel], channel);
        } else if (!m_complained) {
            m_complained = true;
            BPCommon::log(m_logLevel, "EMGBCIProcessor::passThrough channel %i is trained, but the window has %i",
                          channel, in->size());
        }
    }
    const auto best = std::max_element(scores.begin(), scores.end());
    const bool isActive = best != scores.end() && *best >= kActiveScore;
    for (std::size_t channel = 0; channel < scores.size(); ++channel) {
        m_results[QStringLiteral("score_%1").arg(channel)] = scores[channel];
    }
    m_results[QStringLiteral("Class")] = isActive ? static_cast<float>(best - scores.begin() + 1) : 0.0f;
    out->assign(1, scores);
    publishResults();
}

void EMGBCIProcessor::ResetEmgBci()
{
    m_restMean.clear();
    m_restDeviation.clear();
    m_threshold.clear();
    m_trainedMovements = 0;
}

QJsonObject EMGBCIProcessor::model() const
{
    if (m_trainedMovements == 0) {
        return {};
    }
    QJsonObject model = bp::header(kind());
    model[QLatin1String("labels")] = bp::fromLabels(m_distinctLabels);
    model[QLatin1String("minRun")] = m_minRun;
    model[QLatin1String("maxRun")] = m_maxRun;
    model[QLatin1String("movements")] = m_trainedMovements;
    model[QLatin1String("restMean")] = bp::fromFloats(m_restMean);
    model[QLatin1String("restDeviation")] = bp::fromFloats(m_restDeviation);
    model[QLatin1String("thresholds")] = bp::fromFloats(m_threshold);
    return model;
}

bool EMGBCIProcessor::setModel(const QJsonObject &model, QString &reason)
{
    if (!bp::checkHeader(model, kind(), reason)) {
        return false;
    }
    std::vector<int> labels;
    std::vector<float> means;
    std::vector<float> deviations;
    std::vector<float> thresholds;
    int minRun = 0;
    int maxRun = 0;
    int movements = 0;
    const auto read = [&model](const char *key) { return model[QLatin1String(key)]; };
    const auto readRow = [&read](const char *key, std::vector<float> &row) {
        return bp::toFloats(read(key), row) && bp::isFinite(row);
    };
    const char *bad = !bp::toLabels(read("labels"), labels)                          ? "labels"
        : !bp::toInt(read("minRun"), minRun) || minRun < 0                           ? "minRun"
        : !bp::toInt(read("maxRun"), maxRun) || maxRun < minRun                      ? "maxRun"
        : !bp::toInt(read("movements"), movements) || movements < 1                  ? "movements"
        : !readRow("restMean", means)                                                ? "restMean"
        : !readRow("restDeviation", deviations) || deviations.size() != means.size() ? "restDeviation"
        : !readRow("thresholds", thresholds) || thresholds.size() > means.size() || !isAnyTrained(thresholds)
        ? "thresholds"
        : nullptr;
    if (bad != nullptr) {
        return bp::damaged(kind(), bad, reason);
    }
    m_distinctLabels = labels;
    m_minRun = minRun;
    m_maxRun = maxRun;
    m_trainedMovements = movements;
    m_restMean = means;
    m_restDeviation = deviations;
    m_threshold = thresholds;
    return true;
}
