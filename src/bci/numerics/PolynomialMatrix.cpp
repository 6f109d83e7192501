#include "bci/numerics/PolynomialMatrix.h"

#include <Eigen/QR>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace {

using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

/// A column whose part that is orthogonal to the columns before it is this much smaller than the column depends on
/// them.
constexpr double kRankTolerance = 1e-13;

std::size_t elements(std::size_t rows, std::size_t columns)
{
    constexpr std::size_t kMost = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(double);
    if (rows == 0 || columns == 0 || rows > kMost / columns) {
        throw std::length_error("invalid matrix size");
    }
    return rows * columns;
}

} // namespace

bp::PolynomialMatrix::PolynomialMatrix(std::size_t rows, std::size_t columns)
    : m_rows(rows)
    , m_columns(columns)
    , m_values(elements(rows, columns))
{
}

std::size_t bp::PolynomialMatrix::position(std::size_t row, std::size_t column) const
{
    if (row >= m_rows || column >= m_columns) {
        throw std::out_of_range("position out of range");
    }
    return row * m_columns + column;
}

bp::PolynomialMatrix bp::PolynomialMatrix::operator*(const PolynomialMatrix &right) const
{
    if (m_columns != right.m_rows) {
        throw std::invalid_argument("matrix dimensions are not multiplicable");
    }
    PolynomialMatrix product(m_rows, right.m_columns);
    for (std::size_t r = 0; r < m_rows; ++r) {
        for (std::size_t k = 0; k < m_columns; ++k) {
            for (std::size_t c = 0; c < right.m_columns; ++c) {
                product.at(r, c) += at(r, k) * right.at(k, c);
            }
        }
    }
    return product;
}

bp::PolynomialMatrix bp::PolynomialMatrix::leastSquares(const PolynomialMatrix &right) const
{
    if (right.m_rows != m_rows || right.m_columns != 1) {
        throw std::invalid_argument("matrix dimensions are not multiplicable");
    }
    if (m_rows < m_columns) {
        throw std::length_error("invalid matrix size");
    }
    const auto rows = static_cast<Eigen::Index>(m_rows);
    const auto columns = static_cast<Eigen::Index>(m_columns);
    const Eigen::Map<const RowMajor> matrix(m_values.data(), rows, columns);
    // Without column pivoting: where points coincide, the lowest powers get the coefficients.
    const Eigen::HouseholderQR<Eigen::MatrixXd> qr(matrix);
    Eigen::Index rank = 0;
    while (rank < columns && !(std::abs(qr.matrixQR()(rank, rank)) <= kRankTolerance * matrix.col(rank).norm())) {
        ++rank; // NaN counts, so that it shows in the solution
    }
    Eigen::VectorXd rotated = Eigen::Map<const Eigen::VectorXd>(right.m_values.data(), rows);
    rotated.applyOnTheLeft(qr.householderQ().adjoint());
    PolynomialMatrix solution(m_columns, 1);
    Eigen::Map<Eigen::VectorXd>(solution.m_values.data(), rank) =
        qr.matrixQR().topLeftCorner(rank, rank).triangularView<Eigen::Upper>().solve(rotated.head(rank));
    return solution;
}
