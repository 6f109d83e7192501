#include "bci/EEGBCIProcessor.h"

#include "bci/DimReduction.h"
#include "bci/model/ModelJson.h"
#include "bci/numerics/AxisCoordinate.h"
#include "bci/numerics/FiniteRow.h"
#include "bci/utilities.h"
#include "common/HalvinException.h"

#include <QJsonArray>

#include <algorithm>
#include <cmath>
#include <functional>

namespace {

constexpr int kBadArguments = 2000; ///< of DimReduction::ProcessFLD, which stands behind the projection
const char *const kProjection = "projection";
const char *const kThreshold = "threshold";
const char *const kOrientation = "orientation";
const char *const kLabels = "labels";
const char *const kValues = "values";

template <class Predicate> float share(const std::vector<float> &values, Predicate predicate)
{
    const auto count = std::count_if(values.begin(), values.end(), predicate);
    return static_cast<float>(count) / static_cast<float>(values.size());
}

/// Rows of one length, of finite numbers.
bool isProjection(const std::vector<std::vector<float>> &rows)
{
    return !rows.empty() && !rows.front().empty() && std::all_of(rows.begin(), rows.end(), [&rows](const auto &row) {
        return row.size() == rows.front().size() && bp::isFinite(row);
    });
}

bool isAscending(const std::vector<int> &labels)
{
    return std::adjacent_find(labels.begin(), labels.end(), std::greater_equal<>()) == labels.end();
}

} // namespace

EEGBCIProcessor::EEGBCIProcessor(float minimumRate, QObject *parent)
    : Processor(parent)
    , m_minimumRate(minimumRate)
{
}

void EEGBCIProcessor::preTrain(vector<vector<float>> &window, int label)
{
    if (window.empty() || !bp::isFinite(window.front())) {
        BPCommon::log(m_logLevel, "EEGBCIProcessor::preTrain no finite features for label %i", label);
        return;
    }
    m_labels.push_back(label);
    m_examples.push_back(window.front());
}

void EEGBCIProcessor::postTrain()
{
    m_firstValues.clear();
    m_secondValues.clear();
    m_uniqueLabels.clear();
    getUniqueLabels(m_uniqueLabels);
    fitFirstTwo();
    if (m_projection.empty() || m_uniqueLabels.size() < 2) {
        m_projection.clear();
        BPCommon::log(m_logLevel, "EEGBCIProcessor::postTrain %i examples of %i classes allow no discriminant",
                      m_examples.size(), m_uniqueLabels.size());
        return;
    }
    for (std::size_t i = 0; i < m_examples.size(); ++i) {
        if (m_labels[i] == m_uniqueLabels[0]) {
            m_firstValues.push_back(project(m_examples[i]));
        } else if (m_labels[i] == m_uniqueLabels[1]) {
            m_secondValues.push_back(project(m_examples[i]));
        }
    }
    const float first = utilities::Median(m_firstValues);
    const float second = utilities::Median(m_secondValues);
    m_orientation = first > second;
    m_threshold = (first + second) * 0.5f;
}

/// Examples of further labels would change the discriminant, which distinguishes only the first two.
void EEGBCIProcessor::fitFirstTwo()
{
    if (m_uniqueLabels.size() <= 2) {
        DimReduction::TrainFLD(m_examples, m_labels, m_projection, -1);
        return;
    }
    std::vector<std::vector<float>> examples;
    std::vector<int> labels;
    for (std::size_t i = 0; i < m_labels.size(); ++i) {
        if (m_labels[i] <= m_uniqueLabels[1]) { // ascending
            examples.push_back(m_examples[i]);
            labels.push_back(m_labels[i]);
        }
    }
    DimReduction::TrainFLD(examples, labels, m_projection, -1);
}

bool EEGBCIProcessor::doValidate()
{
    if (m_firstValues.empty() || m_secondValues.empty()) {
        return false;
    }
    const float first = share(m_firstValues, [this](float value) { return isFirst(value); });
    const float second = share(m_secondValues, [this](float value) { return isSecond(value); });
    if (!((first + second) / 2.0f >= m_minimumRate && first >= m_minimumRate && second >= m_minimumRate)) {
        return false;
    }
    m_results[QStringLiteral("ValidationRate1")] = first;
    m_results[QStringLiteral("ValidationRate2")] = second;
    return true;
}

void EEGBCIProcessor::passThrough(vector<vector<float>> *in, vector<vector<float>> *out)
{
    const std::vector<float> none;
    const float value = project(in->empty() ? none : in->front());
    if (!std::isfinite(value)) {
        BPCommon::log(m_logLevel, "EEGBCIProcessor::passThrough the features are not finite, there is no label");
        withdraw({QStringLiteral("label")}, out);
        return;
    }
    out->resize(1);
    out->front().assign(1, value);
    m_results[QStringLiteral("label")] = static_cast<float>(m_uniqueLabels[isFirst(value) ? 0 : 1]);
    publishResults();
}

QJsonObject EEGBCIProcessor::model() const
{
    if (m_projection.empty()) {
        return {};
    }
    QJsonObject model = bp::header(QStringLiteral("EEGBCIProcessor"));
    model.insert(QStringLiteral("fs"), m_fs);
    model.insert(QLatin1String(kProjection), bp::fromRows(m_projection));
    model.insert(QLatin1String(kThreshold), static_cast<double>(m_threshold));
    model.insert(QLatin1String(kOrientation), m_orientation);
    model.insert(QLatin1String(kLabels), bp::fromLabels(m_uniqueLabels));
    model.insert(QLatin1String(kValues), bp::fromRows({m_firstValues, m_secondValues}));
    return model;
}

bool EEGBCIProcessor::setModel(const QJsonObject &model, QString &reason)
{
    const QString kind = QStringLiteral("EEGBCIProcessor");
    if (!bp::checkHeader(model, kind, reason)) {
        return false;
    }
    const auto part = [&model](const char *key) { return model.value(QLatin1String(key)); };
    const auto fail = [&](const char *key) { return bp::damaged(kind, key, reason); };
    int fs = 0;
    float threshold = 0.0f;
    bool orientation = false;
    std::vector<std::vector<float>> projection;
    std::vector<std::vector<float>> values;
    std::vector<int> labels;
    if (!bp::toInt(part("fs"), fs)) {
        return fail("fs");
    }
    if (!bp::toRows(part(kProjection), projection) || !isProjection(projection)) {
        return fail(kProjection);
    }
    if (!bp::toFloat(part(kThreshold), threshold)) {
        return fail(kThreshold);
    }
    if (!bp::toBool(part(kOrientation), orientation)) {
        return fail(kOrientation);
    }
    if (!bp::toLabels(part(kLabels), labels) || labels.size() < 2 || !isAscending(labels)) {
        return fail(kLabels);
    }
    if (!bp::toRows(part(kValues), values) || values.size() != 2
        || !std::all_of(values.begin(), values.end(), bp::isFinite)) {
        return fail(kValues);
    }
    setFs(fs);
    m_projection = std::move(projection);
    m_threshold = threshold;
    m_orientation = orientation;
    m_uniqueLabels = std::move(labels);
    m_firstValues = std::move(values[0]);
    m_secondValues = std::move(values[1]);
    return true;
}

float EEGBCIProcessor::project(const std::vector<float> &features) const
{
    if (features.empty() || m_projection.empty() || features.size() != m_projection.front().size()) {
        throw HalvinException("DimReduction::ProcessFLD", kBadArguments);
    }
    return bp::axisCoordinate(features, m_projection.front());
}
