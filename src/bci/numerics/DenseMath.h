#pragma once

#include "common/MetaTypes.h"

#include <Eigen/Core>

// Shared by the matrix classes.
namespace bp {

using Rows = vector<vector<float>>;
using DenseMatrix = Eigen::MatrixXd;
using DenseVector = Eigen::VectorXd;

/// Whether all rows have one length, above 0, and there is a row.
bool isWellFormed(const Rows &rows);

/// Of a well-formed matrix.
DenseMatrix toDense(const Rows &rows);
Rows toRows(const DenseMatrix &matrix);

/// Scatter of the rows around their mean.
struct Moments
{
    DenseMatrix scatter;
    DenseVector mean;
    double count = 0.0;
};
/// @param rows  of one length, at least one; converted to double and multiplied in tiles
Moments momentsOf(const vector<const vector<float> *> &rows);
/// Of all rows.
Moments momentsOf(const Rows &rows);
/// Of the rows of one label; count 0 when there are none.
Moments momentsOf(const Rows &rows, const vector<int> &labels, int label);

/// Ascending, each once.
vector<int> distinct(vector<int> labels);

/// Eigenvectors in the columns, values descending.
struct EigenSystem
{
    DenseMatrix vectors;
    DenseVector values;
};
/// Eigenvalues and -vectors of a symmetric matrix; reads its lower triangle. Empty when an element is not finite.
EigenSystem decompose(const DenseMatrix &symmetric);
/// The same of the covariance (divisor n − 1) of the rows of a well-formed matrix: as many values as columns.
/// Directions in which the rows don't vary have the value 0. With fewer rows than columns there are only as many
/// vectors as rows: the others would need a decomposition of the size of the columns.
EigenSystem principalAxes(const Rows &rows);

} // namespace bp
