#pragma once

#include <cstddef>
#include <vector>

namespace bp {

/// Small dense matrix of the polynomial fit, row by row, in double.
class PolynomialMatrix
{
public:
    /// Zeros. @throws std::length_error "invalid matrix size" when there would be no element, or too many to count
    PolynomialMatrix(std::size_t rows, std::size_t columns);

    /// @throws std::out_of_range "position out of range"
    double &at(std::size_t row, std::size_t column) { return m_values[position(row, column)]; }
    double at(std::size_t row, std::size_t column) const { return m_values[position(row, column)]; }

    /// @throws std::invalid_argument "matrix dimensions are not multiplicable"
    PolynomialMatrix operator*(const PolynomialMatrix &right) const;

    /// The one column x that minimises |this · x − right|, by QR decomposition. From the first column on that depends
    /// on those before it, x is 0. Throws as the product does, and std::length_error "invalid matrix size" when there
    /// are fewer rows than columns.
    /// @param right  one column
    PolynomialMatrix leastSquares(const PolynomialMatrix &right) const;

private:
    std::size_t position(std::size_t row, std::size_t column) const;

    std::size_t m_rows = 0;
    std::size_t m_columns = 0;
    std::vector<double> m_values;
};

} // namespace bp
