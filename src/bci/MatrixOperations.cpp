#include "bci/MatrixOperations.h"

#include "bci/numerics/DenseMath.h"
#include "common/HalvinException.h"

#include <Eigen/Jacobi>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

using bp::DenseMatrix;
using bp::DenseVector;
using bp::Rows;

constexpr int kMaxSweeps = 50;
constexpr double kOffDiagonal = 1e-20; ///< squares beside the diagonal over all squares

/// The decomposition in double, in place.
struct Decomposition
{
    DenseMatrix lu;
    vector<int> permutation;
    int sign = 1;
};

[[noreturn]] void fail(int code)
{
    throw HalvinException("MatrixOperations::MatrixDecompose", code);
}

/// Not Eigen's PartialPivLU, which works in blocks from 17 rows on: two equal rows then no longer get equal numbers,
/// and a matrix with a repeated channel can pass for regular.
Decomposition decomposeOrThrow(const Rows &matrix)
{
    if (matrix.empty()) {
        fail(1001);
    }
    if (!bp::isWellFormed(matrix) || matrix[0].size() != matrix.size()) {
        fail(1000);
    }
    Decomposition result{bp::toDense(matrix), vector<int>(matrix.size())};
    std::iota(result.permutation.begin(), result.permutation.end(), 0);
    DenseMatrix &lu = result.lu;
    const Eigen::Index size = lu.rows();
    const DenseVector rounding =
        static_cast<double>(size) * std::numeric_limits<double>::epsilon() * lu.cwiseAbs().colwise().maxCoeff();
    for (Eigen::Index k = 0; k < size; ++k) {
        Eigen::Index below = 0;
        const double pivot = lu.col(k).tail(size - k).cwiseAbs().maxCoeff(&below);
        if (!(pivot > rounding(k)) || !lu.col(k).allFinite()) {
            fail(1000);
        }
        if (below != 0) {
            lu.row(k).swap(lu.row(k + below));
            std::swap(result.permutation[static_cast<std::size_t>(k)],
                      result.permutation[static_cast<std::size_t>(k + below)]);
            result.sign = -result.sign;
        }
        const Eigen::Index rest = size - k - 1;
        lu.col(k).tail(rest) /= lu(k, k);
        lu.bottomRightCorner(rest, rest).noalias() -= lu.col(k).tail(rest) * lu.row(k).tail(rest);
    }
    return result;
}

/// Forward and back substitution of all columns, in place.
template <class Columns> void substitute(const DenseMatrix &lu, Columns &right)
{
    lu.triangularView<Eigen::UnitLower>().solveInPlace(right);
    lu.triangularView<Eigen::Upper>().solveInPlace(right);
}

bool isLabelled(const Rows &data, const vector<int> &labels)
{
    return bp::isWellFormed(data) && labels.size() == data.size();
}

/// a + factor · b.
void combine(const Rows &a, const Rows &b, float factor, Rows &out, bool transposed)
{
    if (!bp::isWellFormed(a) || !bp::isWellFormed(b) || a.size() != b.size() || a[0].size() != b[0].size()) {
        out.clear();
        return;
    }
    Rows result = a;
    for (std::size_t r = 0; r < a.size(); ++r) {
        std::transform(a[r].begin(), a[r].end(), b[r].begin(), result[r].begin(),
                       [factor](float x, float y) { return x + factor * y; });
    }
    MatrixOperations::MatrixTranspose(result, out, transposed);
}

Rows covarianceOf(const bp::Moments &moments, bool sample)
{
    const double divisor = std::max(sample ? moments.count - 1.0 : moments.count, 1.0);
    return moments.count == 0.0 ? Rows() : bp::toRows(moments.scatter / divisor);
}

double besideDiagonal(DenseMatrix matrix)
{
    matrix.diagonal().setZero();
    return matrix.squaredNorm();
}

/// Rotates rows and columns p and q so that the element where they meet becomes 0 (C. G. J. Jacobi 1846).
void rotate(DenseMatrix &matrix, DenseMatrix &vectors, Eigen::Index p, Eigen::Index q)
{
    Eigen::JacobiRotation<double> rotation;
    if (rotation.makeJacobi(matrix, p, q)) {
        matrix.applyOnTheLeft(p, q, rotation.adjoint());
        matrix.applyOnTheRight(p, q, rotation);
        vectors.applyOnTheRight(p, q, rotation);
    }
}

} // namespace

void MatrixOperations::MatrixCreate(unsigned int rows, unsigned int columns, vector<vector<float>> &out)
{
    out.assign(rows, vector<float>(columns));
}

void MatrixOperations::MatrixDuplicate(const vector<vector<float>> &matrix, vector<vector<float>> &out)
{
    out = matrix;
}

void MatrixOperations::MatrixFromVector(const vector<float> &values, vector<vector<float>> &out, bool transposed)
{
    Rows result(values.empty() ? 0 : 1, values);
    MatrixTranspose(result, out, !transposed);
}

void MatrixOperations::MatrixTranspose(const vector<vector<float>> &matrix, vector<vector<float>> &out, bool transposed)
{
    if (!bp::isWellFormed(matrix)) {
        out.clear();
        return;
    }
    if (!transposed) {
        out = matrix;
        return;
    }
    Rows result(matrix[0].size(), vector<float>(matrix.size()));
    for (std::size_t c = 0; c < result.size(); ++c) {
        for (std::size_t r = 0; r < matrix.size(); ++r) {
            result[c][r] = matrix[r][c];
        }
    }
    out = std::move(result);
}

void MatrixOperations::MatrixAdd(const vector<vector<float>> &a, const vector<vector<float>> &b,
                                 vector<vector<float>> &out, bool transposed)
{
    combine(a, b, 1.0f, out, transposed);
}

void MatrixOperations::MatrixSubstract(const vector<vector<float>> &a, const vector<vector<float>> &b,
                                       vector<vector<float>> &out, bool transposed)
{
    combine(a, b, -1.0f, out, transposed);
}

void MatrixOperations::MatrixProduct(const vector<vector<float>> &a, const vector<vector<float>> &b,
                                     vector<vector<float>> &out, bool transposed)
{
    if (!bp::isWellFormed(a) || !bp::isWellFormed(b) || a[0].size() != b.size()) {
        out.clear();
        return;
    }
    Rows result(a.size());
    std::vector<double> sums(b[0].size());
    for (std::size_t r = 0; r < a.size(); ++r) {
        std::fill(sums.begin(), sums.end(), 0.0);
        for (std::size_t k = 0; k < b.size(); ++k) {
            const double factor = static_cast<double>(a[r][k]);
            const float *row = b[k].data();
            for (std::size_t c = 0; c < sums.size(); ++c) {
                sums[c] += factor * static_cast<double>(row[c]);
            }
        }
        result[r].assign(sums.begin(), sums.end());
    }
    MatrixTranspose(result, out, transposed);
}

void MatrixOperations::MatrixDecompose(const vector<vector<float>> &matrix, vector<int> &permutation, int *sign,
                                       vector<vector<float>> &lu)
{
    Decomposition decomposition = decomposeOrThrow(matrix);
    permutation = std::move(decomposition.permutation);
    lu = bp::toRows(decomposition.lu);
    if (sign) {
        *sign = decomposition.sign;
    }
}

void MatrixOperations::HelperSolve(const vector<vector<float>> &lu, const vector<float> &right, vector<float> &solution)
{
    if (!bp::isWellFormed(lu) || lu[0].size() != lu.size() || right.size() != lu.size()) {
        solution.clear();
        return;
    }
    DenseVector x = bp::toDense({right}).row(0);
    substitute(bp::toDense(lu), x);
    solution.assign(x.data(), x.data() + x.size());
}

void MatrixOperations::MatrixInverse(const vector<vector<float>> &matrix, vector<vector<float>> &inverse)
{
    const Decomposition decomposition = decomposeOrThrow(matrix);
    const Eigen::Index size = decomposition.lu.rows();
    DenseMatrix result = DenseMatrix::Zero(size, size);
    for (Eigen::Index row = 0; row < size; ++row) {
        result(row, decomposition.permutation[static_cast<std::size_t>(row)]) = 1.0;
    }
    substitute(decomposition.lu, result);
    inverse = bp::toRows(result);
}

void MatrixOperations::Mean(const vector<vector<float>> &data, const vector<int> &labels, int label,
                            vector<vector<float>> &out, bool transposed)
{
    if (!isLabelled(data, labels)) {
        out.clear();
        return;
    }
    const DenseVector mean = bp::momentsOf(data, labels, label).mean;
    MatrixFromVector(vector<float>(mean.data(), mean.data() + mean.size()), out, !transposed);
}

void MatrixOperations::Covariance(const vector<vector<float>> &data, bool sample, vector<vector<float>> &out)
{
    out = bp::isWellFormed(data) ? covarianceOf(bp::momentsOf(data), sample) : Rows();
}

void MatrixOperations::ClassCovariance(const vector<vector<float>> &data, const vector<int> &labels, int label,
                                       bool sample, vector<vector<float>> &out)
{
    out = isLabelled(data, labels) ? covarianceOf(bp::momentsOf(data, labels, label), sample) : Rows();
}

void MatrixOperations::Scatter(const vector<vector<float>> &data, const vector<int> &labels, int label,
                               vector<vector<float>> &out)
{
    out = isLabelled(data, labels) ? bp::toRows(bp::momentsOf(data, labels, label).scatter) : Rows();
}

void MatrixOperations::ScatterWithin(const vector<vector<float>> &data, const vector<int> &labels,
                                     vector<vector<float>> &out)
{
    if (!isLabelled(data, labels)) {
        out.clear();
        return;
    }
    const auto columns = static_cast<Eigen::Index>(data[0].size());
    DenseMatrix within = DenseMatrix::Zero(columns, columns);
    for (const int label : bp::distinct(labels)) {
        within += bp::momentsOf(data, labels, label).scatter;
    }
    out = bp::toRows(within);
}

void MatrixOperations::Unitize(const vector<vector<float>> &matrix, vector<vector<float>> &out)
{
    if (!bp::isWellFormed(matrix)) {
        out.clear();
        return;
    }
    DenseMatrix columns = bp::toDense(matrix);
    for (Eigen::Index c = 0; c < columns.cols(); ++c) {
        columns.col(c).normalize(); // leaves zeros alone, which colwise() doesn't
    }
    out = bp::toRows(columns);
}

float MatrixOperations::triuSq(const vector<vector<float>> &matrix)
{
    double sum = 0.0;
    for (std::size_t r = 0; r < matrix.size(); ++r) {
        for (std::size_t c = r; c < matrix[r].size(); ++c) {
            sum += static_cast<double>(matrix[r][c]) * static_cast<double>(matrix[r][c]);
        }
    }
    return static_cast<float>(sum);
}

void MatrixOperations::calcEigenVectors(const vector<vector<float>> &matrix, bool sortDescending, int count,
                                        vector<vector<float>> &vectors, vector<float> &values)
{
    const bool square = bp::isWellFormed(matrix) && matrix[0].size() == matrix.size();
    const bp::EigenSystem spectrum = square ? bp::decompose(bp::toDense(matrix)) : bp::EigenSystem();
    const Eigen::Index size = spectrum.values.size();
    const Eigen::Index wanted = count < 0 ? size : count;
    if (size == 0 || wanted > size) {
        throw "MatrixOperations::calcEigenVectors code 1004"; // no HalvinException: callers catch it as a C string
    }
    DenseMatrix rows = spectrum.vectors.transpose();
    DenseVector sorted = spectrum.values;
    if (!sortDescending) {
        rows = rows.colwise().reverse().eval();
        sorted = sorted.reverse().eval();
    }
    vectors = bp::toRows(rows.topRows(wanted));
    values.assign(sorted.data(), sorted.data() + wanted);
}

void MatrixOperations::jacobiEigenValue(const vector<vector<float>> &matrix, int size, vector<vector<float>> *vectors,
                                        vector<float> *values)
{
    const bool fits = size > 0 && bp::isWellFormed(matrix)
        && std::min(matrix.size(), matrix[0].size()) >= static_cast<std::size_t>(size);
    DenseMatrix work = fits ? DenseMatrix(bp::toDense(matrix).topLeftCorner(size, size)) : DenseMatrix();
    vectors->clear();
    values->clear();
    if (!fits || !work.allFinite()) {
        return;
    }
    work = DenseMatrix(work.selfadjointView<Eigen::Upper>());
    DenseMatrix basis = DenseMatrix::Identity(size, size);
    const double limit = kOffDiagonal * work.squaredNorm();
    for (int sweep = 0; sweep < kMaxSweeps && besideDiagonal(work) > limit; ++sweep) {
        for (Eigen::Index p = 0; p < size; ++p) {
            for (Eigen::Index q = p + 1; q < size; ++q) {
                rotate(work, basis, p, q);
            }
        }
    }
    *vectors = bp::toRows(basis);
    const DenseVector diagonal = work.diagonal();
    values->assign(diagonal.data(), diagonal.data() + size);
}

void MatrixOperations::vecToMatXd(const vector<vector<float>> &matrix, EigenMatrix &out, bool transposed)
{
    const EigenMatrix dense = bp::isWellFormed(matrix) ? EigenMatrix(bp::toDense(matrix).cast<float>()) : EigenMatrix();
    out = transposed ? EigenMatrix(dense.transpose()) : dense;
}

void MatrixOperations::MatXdToVec(const EigenMatrix &matrix, vector<vector<float>> &out, bool transposed)
{
    out = bp::toRows(transposed ? DenseMatrix(matrix.transpose().cast<double>()) : DenseMatrix(matrix.cast<double>()));
}
