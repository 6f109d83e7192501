#include "bci/EMGGaitProcessor.h"

#include "bci/model/ModelJson.h"
#include "bci/numerics/FiniteRow.h"
#include "bci/numerics/OtsuLevels.h"

#include <QStringList>

#include <algorithm>
#include <limits>
#include <map>
#include <numeric>

namespace {

QString kind()
{
    return QStringLiteral("EMGGaitProcessor");
}

/// Active level over resting level of a muscle that takes part in the gait; the envelope of plain noise stays below.
constexpr double kLeastContrast = 2.0;
constexpr float kNeverActive = std::numeric_limits<float>::max();
constexpr std::size_t kMaxPhases = 12;
constexpr float kSecondsPerMinute = 60.0f;
constexpr int kOutside = -1;

bool areFinite(const vector<vector<float>> &window, std::size_t rows)
{
    return std::all_of(window.begin(), window.begin() + static_cast<std::ptrdiff_t>(rows), bp::isFinite);
}

std::size_t shortestRow(const vector<vector<float>> &window, std::size_t rows)
{
    std::size_t length = rows == 0 ? 0 : window.front().size();
    for (std::size_t row = 1; row < rows; ++row) {
        length = std::min(length, window[row].size());
    }
    return length;
}

} // namespace

EMGGaitProcessor::EMGGaitProcessor(int minPhaseMs, int maxStepMs, float thresholdFactor, QObject *parent)
    : Processor(parent)
    , m_minPhaseMs(minPhaseMs)
    , m_maxStepMs(maxStepMs)
    , m_thresholdFactor(thresholdFactor)
{
}

void EMGGaitProcessor::preTrain(vector<vector<float>> &window, int label)
{
    if (label < 0) {
        return;
    }
    const std::size_t muscles = std::min(window.size(), kMaxMuscles);
    const std::size_t length = shortestRow(window, muscles);
    if (length == 0 || (!m_examples.empty() && muscles != m_muscles) || !areFinite(window, muscles)) {
        BPCommon::log(m_logLevel, "EMGGaitProcessor::preTrain a window of %i muscles does not fit, left out", muscles);
        return;
    }
    m_muscles = muscles;
    std::vector<float> example;
    example.reserve(muscles * length);
    for (std::size_t muscle = 0; muscle < muscles; ++muscle) {
        const auto first = window[muscle].begin();
        example.insert(example.end(), first, first + static_cast<std::ptrdiff_t>(length));
    }
    m_labels.push_back(label);
    m_examples.push_back(std::move(example));
}

void EMGGaitProcessor::postTrain()
{
    m_thresholds.clear();
    m_cycle.clear();
    m_complained = false;
    if (m_examples.empty()) {
        BPCommon::log(m_logLevel, "EMGGaitProcessor::postTrain no examples");
        return;
    }
    for (std::size_t muscle = 0; muscle < m_muscles; ++muscle) {
        std::vector<float> envelope;
        for (const std::vector<float> &example : m_examples) {
            const auto length = static_cast<std::ptrdiff_t>(example.size() / m_muscles);
            const auto first = example.begin() + static_cast<std::ptrdiff_t>(muscle) * length;
            envelope.insert(envelope.end(), first, first + length);
        }
        m_thresholds.push_back(findThresh(std::move(envelope)));
    }
    findCycle();
}

void EMGGaitProcessor::findCycle()
{
    std::map<std::vector<int>, int> found;
    vector<vector<float>> window(m_muscles);
    for (const std::vector<float> &example : m_examples) {
        const auto length = static_cast<std::ptrdiff_t>(example.size() / m_muscles);
        for (std::size_t muscle = 0; muscle < m_muscles; ++muscle) {
            const auto first = example.begin() + static_cast<std::ptrdiff_t>(muscle) * length;
            window[muscle].assign(first, first + length);
        }
        const ComboData combo = FindPatterns(segmentsOf(window));
        if (!combo.codes.empty()) {
            found[combo.codes] += combo.repeats;
        }
    }
    int repeats = 0;
    for (const auto &[codes, count] : found) {
        if (count > repeats) {
            repeats = count;
            m_cycle = codes;
        }
    }
    QStringList phases;
    for (const int code : m_cycle) {
        phases << CodeToString(code, m_muscles);
    }
    BPCommon::log(m_logLevel, "EMGGaitProcessor::postTrain cycle of %i phases seen %i times: %s", m_cycle.size(),
                  repeats, phases.join(QLatin1Char(' ')));
}

float EMGGaitProcessor::findThresh(std::vector<float> envelope) const
{
    const bp::TwoLevels levels = bp::otsuLevels(std::move(envelope));
    if (levels.high <= levels.low || levels.high < kLeastContrast * levels.low) {
        return kNeverActive;
    }
    return static_cast<float>(levels.low + static_cast<double>(m_thresholdFactor) * (levels.high - levels.low));
}

int EMGGaitProcessor::GetFromBinaryCode(const std::vector<bool> &active)
{
    int code = 0;
    for (std::size_t muscle = 0; muscle < active.size(); ++muscle) {
        code |= active[muscle] ? 1 << muscle : 0;
    }
    return code;
}

QString EMGGaitProcessor::CodeToString(int code, std::size_t muscles)
{
    QString text;
    for (std::size_t muscle = 0; muscle < muscles; ++muscle) {
        text += QLatin1Char((code >> muscle) % 2 == 1 ? '1' : '0');
    }
    return text;
}

std::vector<int> EMGGaitProcessor::SubArray(const std::vector<int> &values, std::size_t first, std::size_t count)
{
    const auto begin = values.begin() + static_cast<std::ptrdiff_t>(first);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

bool EMGGaitProcessor::allTrue(const std::vector<bool> &values, std::size_t first, std::size_t count)
{
    const auto begin = values.begin() + static_cast<std::ptrdiff_t>(first);
    return std::all_of(begin, begin + static_cast<std::ptrdiff_t>(count), [](bool value) { return value; });
}

EMGGaitProcessor::Step EMGGaitProcessor::newStep(int code, std::size_t first)
{
    return {code, first, 1};
}

EMGGaitProcessor::ComboData EMGGaitProcessor::newComboData(const std::vector<int> &codes, int repeats)
{
    const int quietest = *std::min_element(codes.begin(), codes.end());
    std::vector<int> rotated = codes;
    std::vector<int> best;
    for (std::size_t i = 0; i < codes.size(); ++i) {
        std::rotate(rotated.begin(), rotated.begin() + 1, rotated.end());
        if (rotated.back() == quietest && (best.empty() || rotated < best)) {
            best = rotated;
        }
    }
    return {best, repeats};
}

EMGGaitProcessor::ComboData EMGGaitProcessor::FindPatterns(const std::vector<Step> &segments) const
{
    std::vector<int> codes(segments.size());
    std::transform(segments.begin(), segments.end(), codes.begin(), [](const Step &step) { return step.code; });
    ComboData best{{}, 0};
    for (std::size_t length = 2; length <= std::min(kMaxPhases, codes.size() / 2); ++length) {
        const ComboData combo = findPattern(segments, codes, length);
        // A cycle also recurs as two cycles at once: the shorter of two that cover as much is the cycle.
        if (combo.codes.size() * static_cast<std::size_t>(combo.repeats)
            > best.codes.size() * static_cast<std::size_t>(best.repeats)) {
            best = combo;
        }
    }
    return best;
}

EMGGaitProcessor::ComboData EMGGaitProcessor::findPattern(const std::vector<Step> &segments,
                                                          const std::vector<int> &codes, std::size_t length) const
{
    std::vector<bool> recurs(codes.size() - length);
    for (std::size_t i = 0; i < recurs.size(); ++i) {
        recurs[i] = codes[i] == codes[i + length];
    }
    ComboData best{{}, 0};
    std::size_t i = 0;
    while (i + length <= recurs.size()) {
        const std::size_t first = i;
        int repeats = 1;
        while (i + length <= recurs.size() && allTrue(recurs, i, length) && isStep(segments, i, length)) {
            ++repeats;
            i += length;
        }
        if (repeats > 1 && repeats > best.repeats) {
            best = newComboData(SubArray(codes, first, length), repeats);
        }
        i = std::max(i, first + 1);
    }
    return best;
}

bool EMGGaitProcessor::isStep(const std::vector<Step> &segments, std::size_t first, std::size_t phases) const
{
    const auto begin = segments.begin() + static_cast<std::ptrdiff_t>(first);
    const std::size_t length = std::accumulate(begin, begin + static_cast<std::ptrdiff_t>(phases), std::size_t{0},
                                               [](std::size_t sum, const Step &step) { return sum + step.length; });
    return length <= samplesOf(m_maxStepMs);
}

std::size_t EMGGaitProcessor::samplesOf(int milliseconds) const
{
    return static_cast<std::size_t>(std::max(0.0, milliseconds / 1000.0 * m_fs));
}

std::vector<EMGGaitProcessor::Step> EMGGaitProcessor::segmentsOf(const vector<vector<float>> &window) const
{
    std::vector<Step> segments;
    const std::size_t length = shortestRow(window, m_thresholds.size());
    std::vector<bool> active(m_thresholds.size());
    for (std::size_t i = 0; i < length; ++i) {
        for (std::size_t muscle = 0; muscle < active.size(); ++muscle) {
            active[muscle] = window[muscle][i] > m_thresholds[muscle];
        }
        const int code = GetFromBinaryCode(active);
        if (!segments.empty() && segments.back().code == code) {
            ++segments.back().length;
        } else {
            segments.push_back(newStep(code, i));
        }
    }
    dropFlickers(segments);
    return segments;
}

void EMGGaitProcessor::dropFlickers(std::vector<Step> &segments) const
{
    const std::size_t shortest = samplesOf(m_minPhaseMs);
    std::vector<Step> kept;
    for (const Step &step : segments) {
        if (!kept.empty() && (step.length < shortest || step.code == kept.back().code)) {
            kept.back().length += step.length;
        } else if (kept.size() == 1 && kept.front().length < shortest) {
            kept.front() = {step.code, kept.front().first, kept.front().length + step.length};
        } else {
            kept.push_back(step);
        }
    }
    segments = std::move(kept);
}

bool EMGGaitProcessor::doValidate()
{
    for (std::size_t muscle = 0; muscle < m_thresholds.size(); ++muscle) {
        m_results[QStringLiteral("thresh_%1").arg(muscle)] = m_thresholds[muscle];
    }
    m_results[QStringLiteral("phases")] = static_cast<float>(m_cycle.size());
    return !m_cycle.empty();
}

void EMGGaitProcessor::passThrough(vector<vector<float>> *in, vector<vector<float>> *out)
{
    if (in->size() >= m_thresholds.size() && !m_thresholds.empty()) {
        if (areFinite(*in, m_thresholds.size())) {
            publish(segmentsOf(*in), out);
            return;
        }
        BPCommon::log(m_logLevel, "EMGGaitProcessor::passThrough the envelopes are not finite, there is no phase");
        withdraw({QStringLiteral("code"), QStringLiteral("phase"), QStringLiteral("steps"), QStringLiteral("cadence")},
                 out);
        return;
    }
    if (!m_complained) {
        m_complained = true;
        BPCommon::log(m_logLevel, "EMGGaitProcessor::passThrough %i muscles, the model has %i", in->size(),
                      m_thresholds.size());
    }
    publish({}, out);
}

void EMGGaitProcessor::publish(const std::vector<Step> &segments, vector<vector<float>> *out)
{
    int steps = 0;
    float cadence = 0.0f;
    countSteps(segments, steps, cadence);
    const int code = segments.empty() ? 0 : segments.back().code;
    const int phase = phaseOf(segments);
    m_results[QStringLiteral("code")] = static_cast<float>(code);
    m_results[QStringLiteral("phase")] = static_cast<float>(phase);
    m_results[QStringLiteral("steps")] = static_cast<float>(steps);
    m_results[QStringLiteral("cadence")] = cadence;
    out->resize(1);
    out->front() = {static_cast<float>(code), static_cast<float>(phase), static_cast<float>(steps), cadence};
    publishResults();
}

int EMGGaitProcessor::phaseOf(const std::vector<Step> &segments) const
{
    int phase = kOutside;
    std::size_t bestMatch = 0;
    const std::size_t most = std::min(segments.size(), m_cycle.size());
    for (std::size_t p = 0; p < m_cycle.size(); ++p) {
        std::size_t match = 0;
        while (match < most
               && m_cycle[(p + m_cycle.size() - match) % m_cycle.size()]
                   == segments[segments.size() - 1 - match].code) {
            ++match;
        }
        if (match > bestMatch) {
            bestMatch = match;
            phase = static_cast<int>(p);
        }
    }
    return phase;
}

void EMGGaitProcessor::countSteps(const std::vector<Step> &segments, int &steps, float &cadence) const
{
    const auto isSame = [](int code, const Step &step) { return code == step.code; };
    std::size_t previous = 0; // the first segment began before the window
    std::size_t distance = 0;
    int distances = 0;
    std::size_t i = 0;
    while (!m_cycle.empty() && i + m_cycle.size() <= segments.size()) {
        if (!std::equal(m_cycle.begin(), m_cycle.end(), segments.begin() + static_cast<std::ptrdiff_t>(i), isSame)
            || !isStep(segments, i, m_cycle.size() - 1)) {
            ++i;
            continue;
        }
        const std::size_t start = segments[i].first;
        if (previous > 0 && start - previous <= samplesOf(m_maxStepMs)) {
            distance += start - previous;
            ++distances;
        }
        previous = start;
        ++steps;
        i += m_cycle.size();
    }
    if (distance > 0) {
        cadence =
            kSecondsPerMinute * static_cast<float>(m_fs) * static_cast<float>(distances) / static_cast<float>(distance);
    }
}

QJsonObject EMGGaitProcessor::model() const
{
    if (m_cycle.empty()) {
        return {};
    }
    QJsonObject model = bp::header(kind());
    model[QLatin1String("minPhaseMs")] = m_minPhaseMs;
    model[QLatin1String("maxStepMs")] = m_maxStepMs;
    model[QLatin1String("thresholds")] = bp::fromFloats(m_thresholds);
    model[QLatin1String("cycle")] = bp::fromLabels(m_cycle);
    return model;
}

bool EMGGaitProcessor::setModel(const QJsonObject &model, QString &reason)
{
    if (!bp::checkHeader(model, kind(), reason)) {
        return false;
    }
    int minPhaseMs = 0;
    int maxStepMs = 0;
    std::vector<float> thresholds;
    std::vector<int> cycle;
    const auto read = [&model](const char *key) { return model[QLatin1String(key)]; };
    const auto isCode = [&thresholds](int code) { return code >= 0 && code < 1 << thresholds.size(); };
    const char *bad = !bp::toInt(read("minPhaseMs"), minPhaseMs) ? "minPhaseMs"
        : !bp::toInt(read("maxStepMs"), maxStepMs)               ? "maxStepMs"
        : !bp::toFloats(read("thresholds"), thresholds) || thresholds.empty() || thresholds.size() > kMaxMuscles
            || !bp::isFinite(thresholds)
        ? "thresholds"
        : !bp::toLabels(read("cycle"), cycle) || cycle.size() < 2 || !std::all_of(cycle.begin(), cycle.end(), isCode)
        ? "cycle"
        : nullptr;
    if (bad != nullptr) {
        return bp::damaged(kind(), bad, reason);
    }
    m_minPhaseMs = minPhaseMs;
    m_maxStepMs = maxStepMs;
    m_thresholds = std::move(thresholds);
    m_cycle = std::move(cycle);
    m_complained = false;
    return true;
}
