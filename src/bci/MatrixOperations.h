#pragma once

#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <QObject>

namespace Eigen {
// Declared here so that users of this header need no Eigen. It is the same type as in Eigen/Core.
template <typename Scalar, int Rows, int Columns, int Options, int MaxRows, int MaxColumns> class Matrix;
} // namespace Eigen

/// Dense matrices of rows of float. Inner sums run in double; any thread.
///
/// A matrix is well formed when its rows have one length. Matrices that are not well formed, or whose shapes don't fit
/// each other, give an empty output unless the function says otherwise. An output may be the same object as an input.
/// The class is a QObject only for its translation helpers.
class BIOPROCESSING_EXPORT MatrixOperations : public QObject
{
    Q_OBJECT
public:
    using EigenMatrix = Eigen::Matrix<float, -1, -1, 0, -1, -1>; ///< Eigen::MatrixXf

    /// Zeros.
    static void MatrixCreate(unsigned int rows, unsigned int columns, vector<vector<float>> &out);
    static void MatrixDuplicate(const vector<vector<float>> &matrix, vector<vector<float>> &out);
    /// @param transposed  one row instead of one column
    static void MatrixFromVector(const vector<float> &values, vector<vector<float>> &out, bool transposed = false);
    /// @param transposed  false only copies
    static void MatrixTranspose(const vector<vector<float>> &matrix, vector<vector<float>> &out,
                                bool transposed = true);
    /// @param transposed  of these three: transposes the result
    static void MatrixAdd(const vector<vector<float>> &a, const vector<vector<float>> &b, vector<vector<float>> &out,
                          bool transposed = false);
    static void MatrixSubstract(const vector<vector<float>> &a, const vector<vector<float>> &b,
                                vector<vector<float>> &out, bool transposed = false);
    static void MatrixProduct(const vector<vector<float>> &a, const vector<vector<float>> &b,
                              vector<vector<float>> &out, bool transposed = false);

    /// LU decomposition with partial pivoting (Doolittle): the lower triangle's unit diagonal is implied.
    /// @param permutation  row i of the decomposition is row permutation[i] of the matrix
    /// @param sign         of the row swaps, 1 or −1; may be null
    /// @throws HalvinException 1001 for an empty matrix; 1000 for one that is not square, has an infinite or NaN
    /// element,
    ///         or a pivot that is zero within the rounding of double
    static void MatrixDecompose(const vector<vector<float>> &matrix, vector<int> &permutation, int *sign,
                                vector<vector<float>> &lu);
    /// Forward and back substitution.
    /// @param right  in the order of the decomposition's rows: element i is that of row permutation[i]
    static void HelperSolve(const vector<vector<float>> &lu, const vector<float> &right, vector<float> &solution);
    /// Throws as MatrixDecompose does. All steps run in double.
    static void MatrixInverse(const vector<vector<float>> &matrix, vector<vector<float>> &inverse);

    /// Mean of the rows (observations) of one class, as one row; empty when the class has none.
    /// @param labels      one per row, here and below; another number of them gives an empty output
    /// @param transposed  as one column
    static void Mean(const vector<vector<float>> &data, const vector<int> &labels, int label,
                     vector<vector<float>> &out, bool transposed = false);
    /// Columns × columns, from rows of observations.
    /// @param sample  divisor n − 1; n otherwise. A single observation gives zeros.
    static void Covariance(const vector<vector<float>> &data, bool sample, vector<vector<float>> &out);
    static void ClassCovariance(const vector<vector<float>> &data, const vector<int> &labels, int label, bool sample,
                                vector<vector<float>> &out);
    /// Σ (x − mean)(x − mean)ᵀ over one class; empty when the class has no rows.
    static void Scatter(const vector<vector<float>> &data, const vector<int> &labels, int label,
                        vector<vector<float>> &out);
    /// The sum of all classes' scatter.
    static void ScatterWithin(const vector<vector<float>> &data, const vector<int> &labels, vector<vector<float>> &out);
    /// Scales each column to unit length; a column of zeros stays.
    static void Unitize(const vector<vector<float>> &matrix, vector<vector<float>> &out);
    /// Sum of the squares of the upper triangle, the diagonal included.
    static float triuSq(const vector<vector<float>> &matrix);

    /// Eigenvectors of a symmetric matrix (its lower triangle is read), of unit length, one per row.
    /// @param sortDescending  by eigenvalue; ascending otherwise
    /// @param count           the first so many of that order; −1 all
    /// @throws const char * "MatrixOperations::calcEigenVectors code 1004" when there are fewer eigenvalues than asked
    ///         for, or none: the matrix is too small, empty, not square or has an infinite or NaN element
    static void calcEigenVectors(const vector<vector<float>> &matrix, bool sortDescending, int count,
                                 vector<vector<float>> &vectors, vector<float> &values);
    /// The same decomposition by Jacobi's cyclic rotations (upper triangle), in the diagonal's order.
    ///
    /// Ends when the squares beside the diagonal sum up to less than 1e-20 of all, or after 50 sweeps (10 are plenty).
    /// @param size     of the leading part that is decomposed; more than there is, or an argument that is not finite:
    ///                 both outputs are empty
    /// @param vectors  one per column; neither output may be null
    static void jacobiEigenValue(const vector<vector<float>> &matrix, int size, vector<vector<float>> *vectors,
                                 vector<float> *values);

    static void vecToMatXd(const vector<vector<float>> &matrix, EigenMatrix &out, bool transposed = false);
    static void MatXdToVec(const EigenMatrix &matrix, vector<vector<float>> &out, bool transposed = false);
};
