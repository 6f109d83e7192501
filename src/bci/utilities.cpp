#include "bci/utilities.h"

#include "bci/numerics/SquaredDifferences.h"
#include "common/BPCommon.h"
#include "filters/engine/SincResampler.h"

#include <QByteArray>
#include <QDebug>
#include <QFile>
#include <QSaveFile>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr std::size_t kLanes = 16;

/// An order that also holds with NaN, which comes last.
bool isBelow(float a, float b)
{
    return std::isnan(b) ? !std::isnan(a) : a < b;
}

double sumOf(const vector<float> &values)
{
    return std::accumulate(values.begin(), values.end(), 0.0);
}

double meanOf(const vector<float> &values)
{
    return values.empty() ? 0.0 : sumOf(values) / static_cast<double>(values.size());
}

bool parse(const QByteArray &word, float &value)
{
    bool ok = false;
    value = word.toFloat(&ok); // QByteArray reads in the C locale
    return ok && std::isfinite(value);
}

bool parse(const QByteArray &word, int &value)
{
    bool ok = false;
    value = word.toInt(&ok);
    return ok;
}

QByteArray format(float value)
{
    return QByteArray::number(static_cast<double>(value), 'g', 9); // nine digits bring the same float back
}

QByteArray format(int value)
{
    return QByteArray::number(value);
}

template <class T> bool load(const QString &path, vector<vector<T>> &matrix)
{
    QFile file(path);
    bool ok = file.open(QIODevice::ReadOnly);
    vector<vector<T>> rows;
    while (ok && !file.atEnd()) {
        const QByteArray line = file.readLine().simplified();
        if (line.isEmpty()) {
            continue;
        }
        vector<T> &row = rows.emplace_back();
        for (const QByteArray &word : line.split(' ')) {
            ok = parse(word, row.emplace_back()) && ok;
        }
        ok = ok && row.size() == rows[0].size();
    }
    if (!ok || file.error() != QFileDevice::NoError) {
        BPCommon::log(BPCommon::LogProcessor, "utilities::loadSomeMat cannot read %s", path);
        return false;
    }
    matrix = std::move(rows);
    return true;
}

template <class T> QByteArray lineOf(const vector<T> &values)
{
    QByteArray line;
    for (const T &value : values) {
        line += (line.isEmpty() ? QByteArray() : QByteArray(" ")) + format(value);
    }
    return line + '\n';
}

template <class T> bool save(const char *function, const QString &path, const T *rows, std::size_t count)
{
    QSaveFile file(path);
    // Unbuffered: commit() does not notice when the disk has no room for what is left in a buffer.
    bool ok = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    for (std::size_t i = 0; ok && i < count; ++i) {
        const QByteArray line = lineOf(rows[i]);
        ok = file.write(line) == line.size();
    }
    if (!ok || !file.commit()) {
        BPCommon::log(BPCommon::LogProcessor, "utilities::%s cannot write %s", function, path);
        return false;
    }
    return true;
}

/// Mean and deviation of a column, its artefacts replaced; returns their number.
int normColumn(const vector<vector<float>> &in, std::size_t column, float limit, vector<vector<float>> &out,
               float &mean, float &deviation)
{
    vector<float> values(in.size());
    std::transform(in.begin(), in.end(), values.begin(), [column](const auto &row) { return row[column]; });
    mean = utilities::Mean(values);
    deviation = utilities::StdDev(values);
    int artefacts = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        float z = deviation == 0.0f ? 0.0f : (values[i] - mean) / deviation;
        if (limit > 0.0f && z > limit) { // only above: a low value is as good a sign of a class as any
            z = mean; // not 0: trained models were built on the raw mean
            ++artefacts;
        }
        out[i][column] = z;
    }
    return artefacts;
}

} // namespace

void utilities::Add(vector<float> &values, float value)
{
    std::for_each(values.begin(), values.end(), [value](float &element) { element += value; });
}

void utilities::Subtract(vector<float> &values, float value)
{
    Add(values, -value);
}

float utilities::Sum(const vector<float> &values)
{
    return static_cast<float>(sumOf(values));
}

int utilities::Sum(const vector<int> &values)
{
    return static_cast<int>(std::accumulate(values.begin(), values.end(), qint64{0}));
}

float utilities::Mean(const vector<float> &values)
{
    return static_cast<float>(meanOf(values));
}

float utilities::StdDev(const vector<float> &values)
{
    if (values.size() < 2) {
        return 0.0f;
    }
    const double mean = meanOf(values);
    double squares = 0.0;
    for (const float value : values) {
        const double difference = static_cast<double>(value) - mean;
        squares += difference * difference;
    }
    return static_cast<float>(std::sqrt(squares / static_cast<double>(values.size() - 1)));
}

float utilities::Max(const vector<float> &values)
{
    return values.empty() ? 0.0f : *std::max_element(values.begin(), values.end());
}

float utilities::Min(const vector<float> &values)
{
    return values.empty() ? 0.0f : *std::min_element(values.begin(), values.end());
}

int utilities::IndexOfMax(const vector<float> &values)
{
    return values.empty() ? -1 : static_cast<int>(std::max_element(values.begin(), values.end()) - values.begin());
}

float utilities::Median(vector<float> &values)
{
    if (values.empty()) {
        return 0.0f;
    }
    std::sort(values.begin(), values.end(), isBelow);
    const std::size_t middle = values.size() / 2;
    if (values.size() % 2 == 1) {
        return values[middle];
    }
    return static_cast<float>((static_cast<double>(values[middle - 1]) + static_cast<double>(values[middle])) / 2.0);
}

int utilities::Median(vector<int> &values)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle]
                                  : static_cast<int>((qint64{values[middle - 1]} + values[middle]) / 2);
}

float utilities::eucDist(const vector<float> &a, const vector<float> &b)
{
    if (a.size() != b.size()) {
        qDebug("ERROR! Wrong dimensions in eucDist");
        return 0.0f;
    }
    auto lanes = bp::squaredDifferences<kLanes>(a.data(), b.data(), a.size());
    for (std::size_t i = a.size() - a.size() % kLanes; i < a.size(); ++i) {
        const float difference = a[i] - b[i];
        lanes[static_cast<Eigen::Index>(i % kLanes)] += difference * difference;
    }
    return std::sqrt(std::accumulate(lanes.data(), lanes.data() + kLanes, 0.0f));
}

float utilities::cosineDist(const vector<float> &a, const vector<float> &b)
{
    if (a.size() != b.size()) {
        qDebug("ERROR! Wrong dimensions in cosineDist");
        return 0.0f;
    }
    if (a.empty()) {
        return 0.0f;
    }
    const double product = std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
    const double lengths = std::sqrt(std::inner_product(a.begin(), a.end(), a.begin(), 0.0))
        * std::sqrt(std::inner_product(b.begin(), b.end(), b.begin(), 0.0));
    return lengths == 0.0 ? 1.0f : static_cast<float>(1.0 - product / lengths);
}

void utilities::normFeatures(const vector<vector<float>> &in, vector<float> &means, vector<float> &deviations,
                             vector<vector<float>> &out, float limit)
{
    const bool regular =
        std::all_of(in.begin(), in.end(), [&in](const vector<float> &row) { return row.size() == in[0].size(); });
    const std::size_t columns = in.empty() || !regular ? 0 : in[0].size();
    vector<vector<float>> normal(columns == 0 ? 0 : in.size(), vector<float>(columns));
    means.assign(columns, 0.0f);
    deviations.assign(columns, 0.0f);
    int artefacts = 0;
    for (std::size_t column = 0; column < columns; ++column) {
        artefacts += normColumn(in, column, limit, normal, means[column], deviations[column]);
    }
    out = std::move(normal);
    qDebug("Found %d artifacts", artefacts);
}

void utilities::resampleToLen(const float *in, unsigned int inLength, float *out, unsigned int outLength, int halfWidth)
{
    bp::resampleToLength(in, inLength, out, outLength, std::max(halfWidth, 1));
}

void utilities::resampleToLen(const vector<float> &in, vector<float> &out, unsigned int outLength, int halfWidth)
{
    vector<float> resampled(outLength);
    resampleToLen(in.data(), static_cast<unsigned int>(in.size()), resampled.data(), outLength, halfWidth);
    out = std::move(resampled);
}

void utilities::smoothByRMS(const float *in, float *out, unsigned int length, unsigned int window)
{
    // A window overlaps two tiles of its own length. Its sum is the end of one tile plus the start of the next, so that
    // nothing is subtracted and a loud segment leaves no rounding error behind.
    const std::size_t width = std::max(window, 1u);
    std::vector<double> fromStart(length);
    std::vector<double> toEnd(length);
    for (std::size_t i = 0; i < length; ++i) {
        const double square = static_cast<double>(in[i]) * static_cast<double>(in[i]);
        toEnd[i] = square;
        fromStart[i] = i % width == 0 ? square : fromStart[i - 1] + square;
    }
    for (std::size_t i = length; i-- > 1;) {
        toEnd[i - 1] += i % width == 0 ? 0.0 : toEnd[i];
    }
    for (std::size_t i = 0; i < length; ++i) {
        const std::size_t first = i - std::min(i, width / 2);
        const std::size_t last = std::min<std::size_t>(i + width - width / 2, length) - 1;
        const bool isOneTile = first / width == last / width;
        const double squares = !isOneTile ? toEnd[first] + fromStart[last]
            : first % width == 0          ? fromStart[last]
                                          : toEnd[first];
        out[i] = static_cast<float>(std::sqrt(squares / static_cast<double>(last - first + 1)));
    }
}

void utilities::smoothByRMS(const vector<float> &in, vector<float> &out, unsigned int window)
{
    vector<float> smooth(in.size());
    smoothByRMS(in.data(), smooth.data(), static_cast<unsigned int>(in.size()), window);
    out = std::move(smooth);
}

bool utilities::loadSomeMat(const QString &path, vector<vector<float>> &matrix)
{
    return load(path, matrix);
}

bool utilities::loadSomeMat(const QString &path, vector<vector<int>> &matrix)
{
    return load(path, matrix);
}

bool utilities::saveSomeMat(const QString &path, const vector<vector<float>> &matrix)
{
    return save("saveSomeMat", path, matrix.data(), matrix.size());
}

bool utilities::saveSomeMat(const QString &path, const vector<vector<int>> &matrix)
{
    return save("saveSomeMat", path, matrix.data(), matrix.size());
}

bool utilities::saveSomeVec(const QString &path, const vector<float> &values)
{
    return save("saveSomeVec", path, &values, 1);
}

bool utilities::saveSomeVec(const QString &path, const vector<int> &values)
{
    return save("saveSomeVec", path, &values, 1);
}
