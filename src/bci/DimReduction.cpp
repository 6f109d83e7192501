#include "bci/DimReduction.h"

#include "bci/FastICA.h"
#include "bci/MatrixOperations.h"
#include "bci/numerics/DenseMath.h"
#include "common/HalvinException.h"

#include <QDebug>

#include <algorithm>
#include <cmath>

namespace {

using bp::DenseMatrix;
using bp::DenseVector;
using bp::Moments;
using bp::Rows;

// Absolute, in the square of the data's unit: data in volts has to be scaled up first, as the trace says.
constexpr double kLeastEigenvalue = 1e-5;
constexpr double kRegularisation = 1e-6; ///< of features scaled to a deviation of 1
constexpr int kBadArguments = 2000;

/// A line of the debug stream that ends with a number.
void trace(const char *text, Eigen::Index number, const char *end = "")
{
    qDebug().noquote().nospace() << text << number << end;
}

/// Components first … last of a sorted spectrum: those eigenvalues strictly between two limits.
struct Selection
{
    Eigen::Index begin = 0;
    Eigen::Index size = 0;
};

Selection select(const DenseVector &e, Eigen::Index first, Eigen::Index last)
{
    const Eigen::Index columns = e.size();
    const double upper = first == 0 ? e(0) + 1.0 : (e(first - 1) + e(first)) / 2.0;
    double lower = upper; // a last index below the first selects nothing
    if (last >= columns - 1) {
        lower = e(columns - 1) - 1.0;
    } else if (last >= 0) {
        lower = (e(last) + e(last + 1)) / 2.0;
    }
    const auto isSelected = [lower, upper](double value) { return lower < value && value < upper; };
    const double *begin = std::find_if(e.data(), e.data() + columns, isSelected);
    return {begin - e.data(), std::count_if(e.data(), e.data() + columns, isSelected)};
}

/// The search that the forms of TrainPCA have in common.
bool searchComponents(const Rows &data, int first, int dims, bp::EigenSystem &spectrum, Selection &selection)
{
    qDebug("Train PCA init");
    const bool regular = bp::isWellFormed(data);
    const Eigen::Index columns = regular ? static_cast<Eigen::Index>(data[0].size()) : 0;
    qDebug("Train PCA Covariance");
    // In double: eigenvalues near the threshold below may be rounding errors of floats.
    spectrum = regular ? bp::principalAxes(data) : bp::EigenSystem();
    const DenseVector &e = spectrum.values;
    if (e.size() == 0 || first < 0 || first >= columns) {
        qDebug("ERROR! Bad eigenvectors in PCA!");
        return false;
    }
    // Starts at −1, so that it is an index: 0 stands for a single direction.
    const Eigen::Index rank = (e.array() > kLeastEigenvalue).count() - 1;
    if (rank == 0) {
        qDebug("Eigenvalues of the covariance matrix are too small. Try rescaling the data matrix");
        return false;
    }
    Eigen::Index last = dims < 0 ? columns - 1 : dims;
    if (last <= rank) {
        qDebug("%s", columns == last + 1 ? "Dimension not reduced" : "Reducing dimension...");
    } else {
        last = rank;
        trace("WARNING: Dimension reduced to ", last, " due to singularity of covariance matrix");
    }
    selection = select(e, first, last);
    trace("Selected ", selection.size, " dimensions");
    if (selection.size != last) { // a last index is one less than the number: every normal run is warned of
        qDebug("WARNING! Wrong number of dimensions");
    }
    trace("Number of dimensions ", selection.size);
    if (selection.size < 2) {
        qDebug("ERROR! Bad eigenvectors in PCA!");
        return false;
    }
    return true;
}

/// The classes of labelled data, in the order of their labels.
struct Classes
{
    vector<Moments> moments; ///< not scaled
    DenseVector mean; ///< of all, not scaled
    double count = 0.0;
    DenseVector scale; ///< brings features to a deviation of 1 within classes, or of 1 over all where that is 0
    /// whitening · whiteningᵀ is the inverse of the regularised within-class covariance of scaled features.
    DenseMatrix whitening;
};

/// Without moments when there are fewer than two classes or the data is not usable.
Classes classesOf(const Rows &data, const vector<int> &labels, std::size_t most)
{
    Classes classes;
    if (!bp::isWellFormed(data) || labels.size() != data.size()) {
        return {};
    }
    const auto size = static_cast<Eigen::Index>(data[0].size());
    classes.mean = DenseVector::Zero(size);
    DenseMatrix within = DenseMatrix::Zero(size, size);
    for (const int label : bp::distinct(labels)) {
        if (classes.moments.size() == most) {
            break;
        }
        const Moments &moments = classes.moments.emplace_back(bp::momentsOf(data, labels, label));
        classes.mean += moments.count * moments.mean;
        classes.count += moments.count;
        within += moments.scatter;
    }
    if (classes.moments.size() < 2 || !within.allFinite()) {
        return {};
    }
    classes.mean /= classes.count;
    DenseVector total = within.diagonal();
    for (const Moments &moments : classes.moments) {
        total.array() += moments.count * (moments.mean - classes.mean).array().square();
    }
    const double freedom = std::max(classes.count - static_cast<double>(classes.moments.size()), 1.0);
    const DenseVector spread = (within.diagonal().array() > 0.0).select(within.diagonal(), total);
    classes.scale = (spread.array() > 0.0).select((spread.array() / freedom).rsqrt(), 1.0);
    const DenseMatrix scaled = classes.scale.asDiagonal() * within * classes.scale.asDiagonal();
    const bp::EigenSystem spectrum = bp::decompose(scaled / freedom);
    const DenseVector widths = (spectrum.values.array().max(0.0) + kRegularisation).rsqrt();
    classes.whitening = spectrum.vectors * widths.asDiagonal();
    return classes;
}

void requireProjection(const char *function, const vector<float> &features, const Rows &projection, std::size_t excess)
{
    if (features.empty() || !bp::isWellFormed(projection) || projection[0].size() != features.size() + excess) {
        throw HalvinException(function, kBadArguments);
    }
}

} // namespace

bool DimReduction::TrainPCA(const vector<vector<float>> &data, vector<vector<float>> &projection, int dims)
{
    bp::EigenSystem spectrum;
    Selection selection;
    const bool ok = searchComponents(data, 0, dims, spectrum, selection);
    // Compatibility: the last selected component is dropped, as trained models have that many components.
    projection = ok ? bp::toRows(spectrum.vectors.leftCols(selection.size - 1).transpose()) : Rows();
    return ok;
}

bool DimReduction::TrainPCA(const vector<vector<float>> &data, vector<float> &eigenvalues,
                            vector<vector<float>> &projection, int dims)
{
    return TrainPCA(data, eigenvalues, projection, 0, dims - 1);
}

bool DimReduction::TrainPCA(const vector<vector<float>> &data, vector<float> &eigenvalues,
                            vector<vector<float>> &projection, int first, int last)
{
    bp::EigenSystem spectrum;
    Selection selection;
    eigenvalues.clear();
    if (!searchComponents(data, first, last, spectrum, selection)) {
        projection.clear();
        return false;
    }
    projection = bp::toRows(spectrum.vectors.middleCols(selection.begin, selection.size).transpose());
    const DenseVector chosen = spectrum.values.segment(selection.begin, selection.size);
    eigenvalues.assign(chosen.data(), chosen.data() + chosen.size());
    return true;
}

void DimReduction::ProcessPCA(const vector<float> &features, const vector<vector<float>> &projection,
                              vector<float> &out)
{
    Rows row;
    Rows columns;
    MatrixOperations::MatrixFromVector(features, row, true);
    MatrixOperations::MatrixTranspose(projection, columns);
    MatrixOperations::MatrixProduct(row, columns, row);
    out = row.empty() ? vector<float>() : std::move(row[0]);
}

void DimReduction::TrainFLD(const vector<vector<float>> &data, const vector<int> &labels,
                            vector<vector<float>> &projection, int dims)
{
    projection.clear();
    const Classes classes = classesOf(data, labels, data.size());
    if (classes.moments.empty() || dims == 0) {
        return;
    }
    const auto most =
        std::min<Eigen::Index>(static_cast<Eigen::Index>(classes.moments.size()) - 1, classes.mean.size());
    const Eigen::Index wanted = dims < 0 ? most : std::min<Eigen::Index>(dims, most);
    DenseMatrix between = DenseMatrix::Zero(classes.mean.size(), classes.mean.size());
    for (const Moments &moments : classes.moments) {
        const DenseVector away =
            classes.whitening.transpose() * classes.scale.cwiseProduct(moments.mean - classes.mean);
        between += moments.count * away * away.transpose();
    }
    const bp::EigenSystem spectrum = bp::decompose(between);
    DenseMatrix rows = (classes.scale.asDiagonal() * classes.whitening * spectrum.vectors.leftCols(wanted)).transpose();
    const DenseVector first = rows * (classes.moments[0].mean - classes.mean);
    for (Eigen::Index i = 0; i < rows.rows(); ++i) {
        rows.row(i) *= (first(i) < 0.0 ? -1.0 : 1.0) / rows.row(i).norm();
    }
    projection = bp::toRows(rows);
}

void DimReduction::ProcessFLD(const vector<float> &features, const vector<vector<float>> &projection,
                              vector<float> &out)
{
    requireProjection("DimReduction::ProcessFLD", features, projection, 0);
    Rows column;
    MatrixOperations::MatrixFromVector(features, column);
    MatrixOperations::MatrixProduct(projection, column, column);
    out.clear();
    std::transform(column.begin(), column.end(), std::back_inserter(out), [](const auto &row) { return row[0]; });
}

void DimReduction::TrainLDA(const vector<vector<float>> &data, const vector<int> &labels, vector<vector<float>> &lda,
                            bool priors)
{
    lda.clear();
    const Classes classes = classesOf(data, labels, 2);
    if (classes.moments.empty()) {
        return;
    }
    const Moments &a = classes.moments[0];
    const Moments &b = classes.moments[1];
    const DenseVector scaled = classes.scale.cwiseProduct(a.mean - b.mean);
    const DenseVector weights =
        classes.scale.cwiseProduct(classes.whitening * (classes.whitening.transpose() * scaled));
    const double bias = (priors ? std::log(a.count / b.count) : 0.0) - weights.dot(a.mean + b.mean) / 2.0;
    lda.emplace_back(weights.data(), weights.data() + weights.size());
    lda[0].push_back(static_cast<float>(bias));
}

float DimReduction::ProcessLDA(const vector<float> &features, const vector<vector<float>> &lda)
{
    requireProjection("DimReduction::ProcessLDA", features, lda, 1);
    double score = static_cast<double>(lda[0].back());
    for (std::size_t i = 0; i < features.size(); ++i) {
        score += static_cast<double>(lda[0][i]) * static_cast<double>(features[i]);
    }
    return static_cast<float>(score);
}

void DimReduction::TrainICA(const vector<vector<float>> &data, vector<vector<float>> &unmixing, int components)
{
    FastICA::Options options;
    options.components = components;
    Rows separated;
    FastICA::Train(data, nullptr, unmixing, separated, options);
}

// By value, as published. NOLINTNEXTLINE(performance-unnecessary-value-param)
vector<vector<float>> DimReduction::ProcessICA(vector<vector<float>> data, vector<vector<float>> unmixing)
{
    MatrixOperations::MatrixProduct(unmixing, data, data);
    return data;
}
