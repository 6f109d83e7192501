#include "bci/model/PortalModel.h"

#include "bci/model/ModelJson.h"
#include "bci/numerics/AxisCoordinate.h"
#include "bci/numerics/FiniteRow.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace {

const char *const kLabels = "labels";
const char *const kMeans = "means";
const char *const kDeviations = "deviations";
const char *const kProjection = "projection";
const char *const kRows = "rows";
const char *const kRowLabels = "rowLabels";

/// A row of so many finite numbers.
bool isRow(const std::vector<float> &values, std::size_t size)
{
    return values.size() == size && bp::isFinite(values);
}

bool areRows(const std::vector<std::vector<float>> &rows, std::size_t size)
{
    return std::all_of(rows.begin(), rows.end(), [size](const auto &row) { return isRow(row, size); });
}

} // namespace

namespace bp {

void PortalModel::place(const std::vector<float> &features, std::vector<float> &normalised,
                        std::vector<float> &out) const
{
    std::vector<float> &z = projection.empty() ? out : normalised;
    z.resize(features.size());
    for (std::size_t i = 0; i < features.size(); ++i) {
        z[i] = deviations[i] > 0.0f ? (features[i] - means[i]) / deviations[i] : 0.0f;
    }
    if (!projection.empty()) {
        project(z, out);
    }
}

void PortalModel::project(const std::vector<float> &z, std::vector<float> &out) const
{
    out.resize(projection.size());
    for (std::size_t i = 0; i < projection.size(); ++i) {
        out[i] = axisCoordinate(z, projection[i]);
    }
}

void PortalModel::write(QJsonObject &json) const
{
    std::vector<std::vector<float>> values;
    std::vector<int> rowLabels;
    for (std::size_t i = 0; i < rows.rowCount(); ++i) {
        values.emplace_back(rows.row(i), rows.row(i) + rows.width());
        rowLabels.push_back(labels[rows.classOf(i)]);
    }
    json.insert(QLatin1String(kLabels), fromLabels(labels));
    json.insert(QLatin1String(kMeans), fromFloats(means));
    json.insert(QLatin1String(kDeviations), fromFloats(deviations));
    json.insert(QLatin1String(kProjection), fromRows(projection));
    json.insert(QLatin1String(kRows), fromRows(values));
    json.insert(QLatin1String(kRowLabels), fromLabels(rowLabels));
}

bool PortalModel::read(const QJsonObject &json, const char *&damaged)
{
    const auto part = [&json](const char *key) { return json.value(QLatin1String(key)); };
    damaged = kLabels;
    if (!toLabels(part(kLabels), labels) || labels.empty()
        || std::adjacent_find(labels.begin(), labels.end(), std::greater_equal<>()) != labels.end()) {
        return false;
    }
    damaged = kMeans;
    if (!toFloats(part(kMeans), means) || means.empty() || !isRow(means, means.size())) {
        return false;
    }
    damaged = kDeviations;
    if (!toFloats(part(kDeviations), deviations) || !isRow(deviations, means.size())
        || *std::min_element(deviations.begin(), deviations.end()) < 0.0f) {
        return false;
    }
    damaged = kProjection;
    if (!toRows(part(kProjection), projection) || !areRows(projection, means.size())) {
        return false;
    }
    damaged = kRows;
    return readRows(json);
}

bool PortalModel::readRows(const QJsonObject &json)
{
    std::vector<std::vector<float>> values;
    std::vector<int> rowLabels;
    const std::size_t width = projection.empty() ? means.size() : projection.size();
    if (!toRows(json.value(QLatin1String(kRows)), values) || values.empty() || !areRows(values, width)
        || !toLabels(json.value(QLatin1String(kRowLabels)), rowLabels) || rowLabels.size() != values.size()) {
        return false;
    }
    std::vector<std::size_t> classes;
    for (const int label : rowLabels) {
        const auto found = std::lower_bound(labels.begin(), labels.end(), label);
        if (found == labels.end() || *found != label) {
            return false;
        }
        classes.push_back(static_cast<std::size_t>(std::distance(labels.begin(), found)));
    }
    rows.assign(values, classes, labels.size());
    return true;
}

} // namespace bp
