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

    std::size_t rows() const { return m_rows; }
    std::size_t columns() const { return m_columns; }

    /// @throws std::out_of_range "position out of range"
    double &at(std::size_t row, std::size_t column) { return m_values[position(row, column)]; }
    double at(std::size_t row, std::size_t column) const { return m_values[position(row, column)]; }

    /// Zeros in another shape; throws as the constructor does.
    void resize(std::size_t rows, std::size_t columns);

    /// @throws std::invalid_argument "matrix dimensions are not multiplicable"
    PolynomialMatrix operator*(const PolynomialMatrix &right) const;

    /// The x, one column, that brings this · x closest to a column of as many rows (Householder's QR decomposition).
    /// Directions that the columns leave open get 0. Throws as the product does, and "invalid matrix size" when there
    /// are fewer rows than columns.
    PolynomialMatrix leastSquares(const PolynomialMatrix &right) const;

private:
    /// Householder's reflection that clears a column below the diagonal; false when there is nothing but rounding left.
    bool reflect(std::size_t pivot);
    std::size_t position(std::size_t row, std::size_t column) const;

    std::size_t m_rows = 0;
    std::size_t m_columns = 0;
    std::vector<double> m_values;
};

} // namespace bp
