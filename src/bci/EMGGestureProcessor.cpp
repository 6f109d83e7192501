#include "bci/EMGGestureProcessor.h"

#include "bci/model/ModelJson.h"
#include "bci/numerics/FiniteRow.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

namespace {

QString kind()
{
    return QStringLiteral("EMGGestureProcessor");
}

/// A deviation below this part of the mean is rounding: the feature doesn't vary.
constexpr double kConstantFeature = 1e-6;
/// Added to the diagonal of the covariance, in parts of its mean: features that repeat each other stay solvable.
constexpr double kRidge = 1e-6;
constexpr int kLeastExamples = 2;

using bp::isFinite;

std::vector<float> toFloat(const Eigen::VectorXd &values)
{
    std::vector<float> floats(static_cast<std::size_t>(values.size()));
    std::transform(values.data(), values.data() + values.size(), floats.begin(),
                   [](double value) { return static_cast<float>(value); });
    return floats;
}

/// Index of the label in the ascending classes.
Eigen::Index indexOf(const std::vector<int> &classes, int label)
{
    return std::lower_bound(classes.begin(), classes.end(), label) - classes.begin();
}

/// Column means of the examples of each class, one row per class.
Eigen::MatrixXd classMeans(const Eigen::MatrixXd &data, const std::vector<int> &labels, const std::vector<int> &classes)
{
    Eigen::MatrixXd means = Eigen::MatrixXd::Zero(static_cast<Eigen::Index>(classes.size()), data.cols());
    Eigen::VectorXd counts = Eigen::VectorXd::Zero(means.rows());
    for (Eigen::Index row = 0; row < data.rows(); ++row) {
        const Eigen::Index c = indexOf(classes, labels[static_cast<std::size_t>(row)]);
        means.row(c) += data.row(row);
        counts[c] += 1.0;
    }
    return counts.cwiseInverse().asDiagonal() * means;
}

/// The shrinkage with the least expected error (O. Ledoit and M. Wolf, "A well-conditioned estimator for
/// large-dimensional covariance matrices", J. Multivar. Anal. 88, 2004, lemma 3.2 ff.): b² / d². Their target is a
/// multiple of the identity; features of deviation 1 make the diagonal of the covariance that target.
/// @param data  rows around 0
double shrinkageFrom(const Eigen::MatrixXd &data)
{
    const auto count = static_cast<double>(data.rows());
    const Eigen::RowVectorXd squares = data.colwise().squaredNorm() / count;
    const Eigen::RowVectorXd factors = (squares.array() > 0.0).select(squares.array().rsqrt(), 0.0);
    const Eigen::MatrixXd scaled = data * factors.asDiagonal();
    const Eigen::MatrixXd sample = scaled.transpose() * scaled / count;
    const double whole = sample.squaredNorm();
    const double distance = whole - sample.diagonal().squaredNorm();
    const double error = (scaled.rowwise().squaredNorm().squaredNorm() / count - whole) / count;
    return distance > 0.0 ? std::clamp(error / distance, 0.0, 1.0) : 1.0;
}

/// Covariance around the class means with n − classes degrees of freedom, shrunk towards its diagonal.
/// @param shrinkage  0 … 1; negative: from the data
Eigen::MatrixXd pooledCovariance(Eigen::MatrixXd data, const Eigen::MatrixXd &means, const std::vector<int> &labels,
                                 const std::vector<int> &classes, double shrinkage)
{
    for (Eigen::Index row = 0; row < data.rows(); ++row) {
        data.row(row) -= means.row(indexOf(classes, labels[static_cast<std::size_t>(row)]));
    }
    Eigen::MatrixXd covariance =
        data.transpose() * data / static_cast<double>(data.rows() - static_cast<Eigen::Index>(classes.size()));
    const Eigen::VectorXd variances = covariance.diagonal();
    covariance *= 1.0 - (shrinkage < 0.0 ? shrinkageFrom(data) : shrinkage);
    covariance.diagonal() = variances.array() + kRidge * variances.mean();
    return covariance;
}

bool isAscending(const std::vector<int> &classes)
{
    return classes.size() > 1
        && std::adjacent_find(classes.begin(), classes.end(), std::greater_equal<int>()) == classes.end();
}

bool isShaped(const std::vector<std::vector<float>> &rows, std::size_t count, std::size_t length)
{
    return rows.size() == count && std::all_of(rows.begin(), rows.end(), [length](const std::vector<float> &row) {
               return row.size() == length && isFinite(row);
           });
}

Eigen::MatrixXd toMatrix(const std::vector<std::vector<float>> &examples)
{
    const auto columns = static_cast<Eigen::Index>(examples.front().size());
    Eigen::MatrixXd data(static_cast<Eigen::Index>(examples.size()), columns);
    for (std::size_t row = 0; row < examples.size(); ++row) {
        data.row(static_cast<Eigen::Index>(row)) =
            Eigen::Map<const Eigen::RowVectorXf>(examples[row].data(), columns).cast<double>();
    }
    return data;
}

/// Centres the columns, scales those that vary and moves them to the left.
/// @param scale  out: factor of each column, 0 for one that doesn't vary
/// @return how many vary
Eigen::Index scaleColumns(Eigen::MatrixXd &data, bool normalise, Eigen::RowVectorXd &mean, Eigen::RowVectorXd &scale)
{
    mean = data.colwise().mean();
    data.rowwise() -= mean;
    scale = Eigen::RowVectorXd::Zero(data.cols());
    Eigen::Index used = 0;
    for (Eigen::Index i = 0; i < data.cols(); ++i) {
        const double deviation = std::sqrt(data.col(i).squaredNorm() / static_cast<double>(data.rows() - 1));
        if (deviation > kConstantFeature * std::abs(mean[i])) {
            scale[i] = normalise ? 1.0 / deviation : 1.0;
            data.col(used) = data.col(i) * scale[i];
            ++used;
        }
    }
    return used;
}

} // namespace

EMGGestureProcessor::EMGGestureProcessor(float minimumRate, bool normalise, int shrinkagePercent, int minimumExamples,
                                         float rejectDistance, QObject *parent)
    : Processor(parent)
    , m_minimumRate(minimumRate)
    , m_normalise(normalise)
    , m_shrinkagePercent(std::clamp(shrinkagePercent, kShrinkageFromData, 100))
    , m_minimumExamples(std::max(minimumExamples, kLeastExamples))
    , m_rejectDistance(rejectDistance)
{
}

void EMGGestureProcessor::preTrain(vector<vector<float>> &window, int label)
{
    if (label < 0) {
        return;
    }
    const bool fits = !window.empty() && !window.front().empty() && isFinite(window.front())
        && (m_examples.empty() || m_examples.front().size() == window.front().size());
    if (!fits) {
        BPCommon::log(m_logLevel, "EMGGestureProcessor::preTrain features of class %i do not fit, left out", label);
        return;
    }
    m_labels.push_back(label);
    m_examples.push_back(window.front());
}

void EMGGestureProcessor::forget()
{
    m_classes.clear();
    m_mean.clear();
    m_scale.clear();
    m_whitening.clear();
    m_centres.clear();
    m_complained = false;
}

void EMGGestureProcessor::postTrain()
{
    forget();
    getUniqueLabels(m_classes);
    const QString fault = findFault();
    if (!fault.isEmpty() || !fit()) {
        BPCommon::log(m_logLevel, "EMGGestureProcessor::postTrain no classifier: %s",
                      fault.isEmpty() ? QStringLiteral("the features don't vary within the classes") : fault);
        forget();
    }
}

QString EMGGestureProcessor::findFault() const
{
    if (m_classes.size() < 2) {
        return QStringLiteral("%1 classes, at least 2 are needed").arg(m_classes.size());
    }
    for (const int label : m_classes) {
        const auto count = std::count(m_labels.begin(), m_labels.end(), label);
        if (count < m_minimumExamples) {
            return QStringLiteral("class %1 has %2 examples, at least %3 are needed")
                .arg(label)
                .arg(count)
                .arg(m_minimumExamples);
        }
    }
    return {};
}

bool EMGGestureProcessor::fit()
{
    Eigen::MatrixXd data = toMatrix(m_examples);
    Eigen::RowVectorXd mean;
    Eigen::RowVectorXd scale;
    const Eigen::Index used = scaleColumns(data, m_normalise, mean, scale);
    if (used == 0) {
        return false;
    }
    data.conservativeResize(Eigen::NoChange, used);
    m_mean = toFloat(mean.transpose());
    m_scale = toFloat(scale.transpose());
    const Eigen::MatrixXd means = classMeans(data, m_labels, m_classes);
    const double total = data.squaredNorm() / static_cast<double>(data.rows());
    const Eigen::MatrixXd covariance =
        pooledCovariance(std::move(data), means, m_labels, m_classes, m_shrinkagePercent / 100.0);
    const Eigen::LLT<Eigen::MatrixXd> cholesky(covariance);
    if (!(covariance.trace() > kConstantFeature * kConstantFeature * total) || cholesky.info() != Eigen::Success) {
        return false;
    }
    const Eigen::Index count = covariance.rows();
    const Eigen::MatrixXd whitening = cholesky.matrixL().solve(Eigen::MatrixXd::Identity(count, count));
    for (Eigen::Index row = 0; row < count; ++row) {
        m_whitening.push_back(toFloat(whitening.row(row).transpose()));
    }
    for (Eigen::Index c = 0; c < means.rows(); ++c) {
        m_centres.push_back(toFloat(whitening * means.row(c).transpose()));
    }
    return std::all_of(m_whitening.begin(), m_whitening.end(), isFinite)
        && std::all_of(m_centres.begin(), m_centres.end(), isFinite);
}

int EMGGestureProcessor::classify(const vector<float> &features, vector<float> &distances, float &nearest)
{
    distances.clear();
    nearest = 0.0f;
    if (m_classes.empty() || features.size() != m_scale.size()) {
        if (!m_complained) {
            m_complained = true;
            BPCommon::log(m_logLevel, "EMGGestureProcessor::classify %i features, the classifier has %i",
                          features.size(), m_scale.size());
        }
        return kRejected;
    }
    whiten(features);
    for (const std::vector<float> &centre : m_centres) {
        double sum = 0.0;
        for (std::size_t i = 0; i < centre.size(); ++i) {
            const double difference = static_cast<double>(m_whitened[i]) - static_cast<double>(centre[i]);
            sum += difference * difference;
        }
        distances.push_back(static_cast<float>(std::sqrt(sum / static_cast<double>(centre.size()))));
    }
    if (!isFinite(distances)) {
        BPCommon::log(m_logLevel, "EMGGestureProcessor::classify the features are not finite, rejected");
        distances.clear();
        return kRejected;
    }
    const auto best = std::min_element(distances.begin(), distances.end());
    nearest = *best;
    if (m_rejectDistance > 0.0f && nearest > m_rejectDistance) {
        return kRejected;
    }
    return m_classes[static_cast<std::size_t>(best - distances.begin())];
}

void EMGGestureProcessor::whiten(const vector<float> &features)
{
    m_scaled.clear();
    for (std::size_t i = 0; i < features.size(); ++i) {
        if (m_scale[i] > 0.0f) {
            m_scaled.push_back((features[i] - m_mean[i]) * m_scale[i]);
        }
    }
    m_whitened.assign(m_whitening.size(), 0.0f);
    for (std::size_t row = 0; row < m_whitening.size(); ++row) {
        m_whitened[row] = std::inner_product(m_scaled.begin(), m_scaled.begin() + static_cast<std::ptrdiff_t>(row) + 1,
                                             m_whitening[row].begin(), 0.0f);
    }
}

bool EMGGestureProcessor::doValidate()
{
    if (m_classes.empty() || m_examples.empty()) {
        return false;
    }
    std::vector<int> counts(m_classes.size(), 0);
    std::vector<int> right(m_classes.size(), 0);
    vector<float> distances;
    float nearest = 0.0f;
    for (std::size_t i = 0; i < m_examples.size(); ++i) {
        const auto found = std::find(m_classes.begin(), m_classes.end(), m_labels[i]);
        if (found == m_classes.end()) {
            continue;
        }
        const auto c = static_cast<std::size_t>(found - m_classes.begin());
        ++counts[c];
        right[c] += classify(m_examples[i], distances, nearest) == m_labels[i] ? 1 : 0;
    }
    bool isGood = true;
    for (std::size_t c = 0; c < m_classes.size(); ++c) {
        const float rate = counts[c] == 0 ? 0.0f : static_cast<float>(right[c]) / static_cast<float>(counts[c]);
        m_results[QStringLiteral("rate_%1").arg(c)] = rate;
        isGood = isGood && rate >= m_minimumRate;
    }
    return isGood;
}

void EMGGestureProcessor::passThrough(vector<vector<float>> *in, vector<vector<float>> *out)
{
    static const vector<float> kNothing;
    out->resize(1);
    float nearest = 0.0f;
    const int label = classify(in->empty() ? kNothing : in->front(), out->front(), nearest);
    m_results[QStringLiteral("Class")] = static_cast<float>(label);
    m_results[QStringLiteral("distance")] = nearest;
    publishResults();
}

QJsonObject EMGGestureProcessor::model() const
{
    if (m_classes.empty()) {
        return {};
    }
    QJsonObject model = bp::header(kind());
    model[QLatin1String("classes")] = bp::fromLabels(m_classes);
    model[QLatin1String("rejectDistance")] = static_cast<double>(m_rejectDistance);
    model[QLatin1String("mean")] = bp::fromFloats(m_mean);
    model[QLatin1String("scale")] = bp::fromFloats(m_scale);
    model[QLatin1String("whitening")] = bp::fromRows(m_whitening);
    model[QLatin1String("centres")] = bp::fromRows(m_centres);
    return model;
}

bool EMGGestureProcessor::setModel(const QJsonObject &model, QString &reason)
{
    if (!bp::checkHeader(model, kind(), reason)) {
        return false;
    }
    std::vector<int> classes;
    float rejectDistance = 0.0f;
    std::vector<float> mean;
    std::vector<float> scale;
    std::vector<std::vector<float>> whitening;
    std::vector<std::vector<float>> centres;
    const auto read = [&model](const char *key) { return model[QLatin1String(key)]; };
    const auto used = [&scale] {
        return static_cast<std::size_t>(std::count_if(scale.begin(), scale.end(), [](float s) { return s > 0.0f; }));
    };
    const char *bad = !bp::toLabels(read("classes"), classes) || !isAscending(classes)           ? "classes"
        : !bp::toFloat(read("rejectDistance"), rejectDistance)                                   ? "rejectDistance"
        : !bp::toFloats(read("mean"), mean) || !isFinite(mean)                                   ? "mean"
        : !bp::toFloats(read("scale"), scale) || !isFinite(scale) || scale.size() != mean.size() ? "scale"
        : !bp::toRows(read("whitening"), whitening) || used() == 0 || !isShaped(whitening, used(), used()) ? "whitening"
        : !bp::toRows(read("centres"), centres) || !isShaped(centres, classes.size(), used())              ? "centres"
                                                                                                           : nullptr;
    if (bad != nullptr) {
        return bp::damaged(kind(), bad, reason);
    }
    m_classes = std::move(classes);
    m_rejectDistance = rejectDistance;
    m_mean = std::move(mean);
    m_scale = std::move(scale);
    m_whitening = std::move(whitening);
    m_centres = std::move(centres);
    m_complained = false;
    return true;
}
