#pragma once

#include "bci/MatrixOperations.h"
#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <cstddef>

/// Independent components by the fixed-point iteration of A. Hyvärinen (IEEE Trans. Neural Networks 10, 1999): one
/// component at a time (deflation), nonlinearity tanh, no separate fine-tuning; these are the values 1 of the method's
/// three options.
///
/// The start values come from std::rand, which the library does not seed: a host that needs the same components each
/// time calls std::srand before. Train() must not run on two threads at once.
class BIOPROCESSING_EXPORT FastICA
{
public:
    struct Options
    {
        int components = -1; ///< to find; −1: as many as the data's rank allows, which is the most in any case
        int maxIterations = 1000; ///< per component
        double epsilon = 1e-4; ///< of the change of a component's unit vector, in its Euclidean norm
        double a = 1.0; ///< of tanh(a · x)
        double sampleFraction = 1.0; ///< of the samples that the iteration uses, chosen at random
    };

    /// Writes its progress to the debug stream. All outputs are empty when the data has fewer than two directions (see
    /// DimReduction::TrainPCA) or more than five runs for a component didn't converge.
    /// @param data      a row per channel
    /// @param mixing    channels × components; may be null
    /// @param unmixing  components × channels. Channels that depend on each other give fewer components than channels.
    /// @param separated  unmixing × data, offsets included
    static void Train(const vector<vector<float>> &data, vector<vector<float>> *mixing, vector<vector<float>> &unmixing,
                      vector<vector<float>> &separated);
    static void Train(const vector<vector<float>> &data, vector<vector<float>> *mixing, vector<vector<float>> &unmixing,
                      vector<vector<float>> &separated, const Options &options);

private:
    using Matrix = Eigen::Matrix<double, -1, -1, 0, -1, -1>;
    struct Whitened;

    static void whitenv(const vector<vector<float>> &centred, const vector<float> &eigenvalues,
                        const vector<vector<float>> &eigenvectors, Whitened &whitened);
    static bool fpica(const Whitened &whitened, const Options &options, Matrix &directions);
    static bool iterate(const Whitened &whitened, const Options &options, const Matrix &found, Matrix &w,
                        int &iterations);
    static void fixedPointStep(const Whitened &whitened, float a, Matrix &w);
    static void updateW(const Matrix &found, Matrix &w);
    static void mytanh(float a, float *values, std::size_t count);
    static double myNorm(const Matrix &column);
    static vector<vector<float>> sampled(const vector<vector<float>> &rows, double fraction);
    static vector<std::size_t> getSamples(std::size_t count, double fraction);
};
