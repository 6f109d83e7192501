#pragma once

#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <QObject>

/// Trains and applies linear projections: principal components (PCA), Fisher's discriminants (FLD), a linear
/// classifier of two classes (LDA) and independent components (ICA).
///
/// Data: a row per observation, a column per feature, for ICA a row per channel. Covariances and decompositions run in
/// double. Data that is empty, of rows of different lengths or not finite trains nothing: the output is empty. Any
/// thread, TrainICA apart. A QObject only for its translation helpers.
class BIOPROCESSING_EXPORT DimReduction : public QObject
{
    Q_OBJECT
public:
    /// Traces on the debug stream. False when the covariance leaves fewer than two directions.
    /// @param projection  a row per component, in descending order of variance
    /// @param dims        components to keep; negative: one fewer than there are features
    static bool TrainPCA(const vector<vector<float>> &data, vector<vector<float>> &projection, int dims);
    /// As the next form, from component 0 to component dims − 1.
    static bool TrainPCA(const vector<vector<float>> &data, vector<float> &eigenvalues,
                         vector<vector<float>> &projection, int dims);
    /// Keeps every component from the first to the last index. (The form without eigenvalues drops the last component
    /// that it selects.) If the rank of the data allows fewer components, the projection has fewer rows.
    /// @param eigenvalues  one per row of the projection
    /// @param last         negative: the last component
    static bool TrainPCA(const vector<vector<float>> &data, vector<float> &eigenvalues,
                         vector<vector<float>> &projection, int first, int last);
    /// @param out  a value per component; empty when the lengths don't go together
    static void ProcessPCA(const vector<float> &features, const vector<vector<float>> &projection, vector<float> &out);

    /// R. A. Fisher's discriminants (1936), for more than two classes in C. R. Rao's form (1948): the directions with
    /// the largest scatter between the classes over that within them; with two classes Sw⁻¹(m₁ − m₂).
    ///
    /// Features are scaled by their deviation within the classes and 1e-6 is added to the diagonal of the within-class
    /// covariance: a feature that never varies gets no weight, and fewer examples than features still give finite
    /// weights.
    /// @param projection  a row of unit length per discriminant, the best first; the class with the smallest label lies
    ///                    on its upper side. Empty with fewer than two classes.
    /// @param dims        at most classes − 1, which −1 stands for
    static void TrainFLD(const vector<vector<float>> &data, const vector<int> &labels,
                         vector<vector<float>> &projection, int dims);
    /// @param out  a value per discriminant
    /// @throws HalvinException 2000 when one of the arguments is empty or the lengths don't go together
    static void ProcessFLD(const vector<float> &features, const vector<vector<float>> &projection, vector<float> &out);

    /// Distinguishes the two smallest labels by one linear score (normal classes of one covariance, which is pooled and
    /// regularised as in TrainFLD); examples of other labels are ignored.
    /// @param lda     one row: a weight per feature, then the bias. Empty with fewer than two classes.
    /// @param priors  weighs the classes by their numbers of examples; otherwise the border lies halfway
    static void TrainLDA(const vector<vector<float>> &data, const vector<int> &labels, vector<vector<float>> &lda,
                         bool priors);
    /// Above 0: the smaller label, below: the other.
    /// @throws HalvinException 2000 when one of the arguments is empty or the lengths don't go together
    static float ProcessLDA(const vector<float> &features, const vector<vector<float>> &lda);

    /// Independent components, see FastICA. Not from two threads at once: the start values come from std::rand.
    /// @param unmixing    components × channels; empty when the training failed, fewer rows than channels when the
    ///                    channels depend on each other
    /// @param components  −1: as many as channels
    static void TrainICA(const vector<vector<float>> &data, vector<vector<float>> &unmixing, int components);
    /// Unmixing × data; empty when the shapes don't go together.
    static vector<vector<float>> ProcessICA(vector<vector<float>> data, vector<vector<float>> unmixing);
};
