#include "bci/numerics/PolynomialMatrix.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace {

/// A diagonal element this much smaller than the column that it came from is rounding.
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

void bp::PolynomialMatrix::resize(std::size_t rows, std::size_t columns)
{
    m_values.assign(elements(rows, columns), 0.0);
    m_rows = rows;
    m_columns = columns;
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
    // Reflections bring the columns, and the right-hand side beside them, to upper triangular form.
    PolynomialMatrix work(m_rows, m_columns + 1);
    for (std::size_t r = 0; r < m_rows; ++r) {
        std::copy_n(&m_values[r * m_columns], m_columns, &work.m_values[r * work.m_columns]);
        work.at(r, m_columns) = right.at(r, 0);
    }
    std::vector<bool> open(m_columns);
    for (std::size_t k = 0; k < m_columns; ++k) {
        open[k] = !work.reflect(k);
    }
    PolynomialMatrix solution(m_columns, 1);
    for (std::size_t k = m_columns; k-- > 0;) {
        double rest = work.at(k, m_columns);
        for (std::size_t c = k + 1; c < m_columns; ++c) {
            rest -= work.at(k, c) * solution.at(c, 0);
        }
        solution.at(k, 0) = open[k] ? 0.0 : rest / work.at(k, k);
    }
    return solution;
}

bool bp::PolynomialMatrix::reflect(std::size_t pivot)
{
    double whole = 0.0;
    double below = 0.0;
    for (std::size_t r = 0; r < m_rows; ++r) {
        const double square = at(r, pivot) * at(r, pivot);
        whole += square;
        below += r < pivot ? 0.0 : square;
    }
    if (std::sqrt(below) <= kRankTolerance * std::sqrt(whole)) {
        return false;
    }
    const double target = at(pivot, pivot) > 0.0 ? -std::sqrt(below) : std::sqrt(below);
    std::vector<double> mirror(m_rows - pivot);
    for (std::size_t r = pivot; r < m_rows; ++r) {
        mirror[r - pivot] = at(r, pivot) - (r == pivot ? target : 0.0);
    }
    const double scale = 1.0 / (below - target * at(pivot, pivot)); // 2 / |mirror|²
    for (std::size_t c = pivot; c < m_columns; ++c) {
        double product = 0.0;
        for (std::size_t r = pivot; r < m_rows; ++r) {
            product += mirror[r - pivot] * at(r, c);
        }
        for (std::size_t r = pivot; r < m_rows; ++r) {
            at(r, c) -= scale * product * mirror[r - pivot];
        }
    }
    return true;
}
