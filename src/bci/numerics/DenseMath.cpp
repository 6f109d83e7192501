#include "bci/numerics/DenseMath.h"

#include <Eigen/Eigenvalues>

#include <algorithm>

namespace {

constexpr Eigen::Index kTileRows = 256;

Eigen::Map<const Eigen::VectorXf> view(const vector<float> &row)
{
    return {row.data(), static_cast<Eigen::Index>(row.size())};
}

} // namespace

bool bp::isWellFormed(const Rows &rows)
{
    return !rows.empty() && !rows[0].empty()
        && std::all_of(rows.begin(), rows.end(), [&rows](const auto &row) { return row.size() == rows[0].size(); });
}

bp::DenseMatrix bp::toDense(const Rows &rows)
{
    DenseMatrix dense(static_cast<Eigen::Index>(rows.size()), static_cast<Eigen::Index>(rows[0].size()));
    for (Eigen::Index r = 0; r < dense.rows(); ++r) {
        dense.row(r) = view(rows[static_cast<std::size_t>(r)]).cast<double>();
    }
    return dense;
}

bp::Rows bp::toRows(const DenseMatrix &matrix)
{
    Rows rows(static_cast<std::size_t>(matrix.rows()), vector<float>(static_cast<std::size_t>(matrix.cols())));
    for (Eigen::Index r = 0; r < matrix.rows(); ++r) {
        for (Eigen::Index c = 0; c < matrix.cols(); ++c) {
            rows[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)] = static_cast<float>(matrix(r, c));
        }
    }
    return rows;
}

bp::Moments bp::momentsOf(const vector<const vector<float> *> &rows)
{
    const auto count = static_cast<Eigen::Index>(rows.size());
    const auto columns = static_cast<Eigen::Index>(rows[0]->size());
    Moments moments{DenseMatrix::Zero(columns, columns), DenseVector::Zero(columns), static_cast<double>(count)};
    for (const vector<float> *row : rows) {
        moments.mean += view(*row).cast<double>();
    }
    moments.mean /= moments.count;
    DenseMatrix tile(columns, std::min(kTileRows, count));
    for (Eigen::Index first = 0; first < count; first += kTileRows) {
        const Eigen::Index size = std::min(kTileRows, count - first);
        for (Eigen::Index i = 0; i < size; ++i) {
            tile.col(i) = view(*rows[static_cast<std::size_t>(first + i)]).cast<double>() - moments.mean;
        }
        moments.scatter.selfadjointView<Eigen::Lower>().rankUpdate(tile.leftCols(size));
    }
    moments.scatter.triangularView<Eigen::StrictlyUpper>() = moments.scatter.transpose();
    return moments;
}

bp::Moments bp::momentsOf(const Rows &rows)
{
    vector<const vector<float> *> all(rows.size());
    std::transform(rows.begin(), rows.end(), all.begin(), [](const vector<float> &row) { return &row; });
    return momentsOf(all);
}

bp::Moments bp::momentsOf(const Rows &rows, const vector<int> &labels, int label)
{
    vector<const vector<float> *> chosen;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (labels[i] == label) {
            chosen.push_back(&rows[i]);
        }
    }
    return chosen.empty() ? Moments{} : momentsOf(chosen);
}

vector<int> bp::distinct(vector<int> labels)
{
    std::sort(labels.begin(), labels.end());
    labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
    return labels;
}

bp::EigenSystem bp::decompose(const DenseMatrix &symmetric)
{
    if (!symmetric.allFinite()) {
        return {};
    }
    const Eigen::SelfAdjointEigenSolver<DenseMatrix> solver(symmetric);
    if (solver.info() != Eigen::Success) {
        return {};
    }
    return {solver.eigenvectors().rowwise().reverse(), solver.eigenvalues().reverse()};
}

bp::EigenSystem bp::principalAxes(const Rows &rows)
{
    const double freedom = std::max(static_cast<double>(rows.size()) - 1.0, 1.0);
    const std::size_t columns = rows[0].size();
    if (rows.size() > columns) {
        return decompose(momentsOf(rows).scatter / freedom);
    }
    // X Xᵀ and Xᵀ X have the same values above 0, and their vectors follow from each other (M. Turk and A. Pentland,
    // Eigenfaces for recognition, J. Cogn. Neurosci. 3, 1991).
    DenseMatrix centred = toDense(rows);
    centred.rowwise() -= centred.colwise().mean().eval();
    EigenSystem axes = decompose(centred * centred.transpose() / freedom);
    if (axes.values.size() == 0) {
        return axes;
    }
    axes.vectors = centred.transpose() * axes.vectors;
    for (Eigen::Index i = 0; i < axes.vectors.cols(); ++i) {
        const double length = axes.vectors.col(i).norm();
        axes.vectors.col(i) /= length > 0.0 ? length : 1.0;
    }
    DenseVector values = DenseVector::Zero(static_cast<Eigen::Index>(columns));
    values.head(axes.values.size()) = axes.values.cwiseMax(0.0);
    axes.values = values;
    return axes;
}
