#include "bci/FastICA.h"

#include "bci/DimReduction.h"
#include "bci/numerics/DenseMath.h"
#include "bci/utilities.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>

namespace {

using bp::DenseMatrix;
using bp::DenseVector;
using bp::Rows;

constexpr Eigen::Index kTileSamples = 512; ///< a tile of 32 channels is read twice from the second-level cache
constexpr int kMaxFailures = 5;

Eigen::Map<const Eigen::VectorXf> view(const vector<float> &row, Eigen::Index first, Eigen::Index count)
{
    return {row.data() + first, count};
}

/// Columns of samples of all channels, side by side.
void fillTile(const Rows &rows, Eigen::Index first, Eigen::MatrixXf &tile)
{
    for (Eigen::Index c = 0; c < tile.cols(); ++c) {
        tile.col(c) = view(rows[static_cast<std::size_t>(c)], first, tile.rows());
    }
}

/// matrix · rows + offsets, tile by tile.
Rows applied(const DenseMatrix &matrix, const Rows &rows, const DenseVector &offsets)
{
    const auto count = static_cast<Eigen::Index>(rows[0].size());
    const Eigen::MatrixXf factors = matrix.transpose().cast<float>();
    const Eigen::RowVectorXf shift = offsets.transpose().cast<float>();
    Rows out(static_cast<std::size_t>(matrix.rows()), vector<float>(rows[0].size()));
    for (Eigen::Index first = 0; first < count; first += kTileSamples) {
        Eigen::MatrixXf tile(std::min(kTileSamples, count - first), matrix.cols());
        fillTile(rows, first, tile);
        const Eigen::MatrixXf product = (tile * factors).rowwise() + shift;
        for (Eigen::Index r = 0; r < product.cols(); ++r) {
            std::copy_n(product.col(r).data(), product.rows(), out[static_cast<std::size_t>(r)].data() + first);
        }
    }
    return out;
}

/// A start vector with all elements in [−2, 0]; the sign of a component is arbitrary. Compatibility: the same sequence
/// of std::rand gives the same components as in earlier releases. RAND_MAX is 32767 on some platforms.
DenseMatrix drawStart(Eigen::Index size)
{
    DenseMatrix w(size, 1);
    for (Eigen::Index i = 0; i < size; ++i) {
        w(i) = 2.0 * (static_cast<double>(std::rand()) / static_cast<double>(RAND_MAX) - 1.0);
    }
    return w;
}

} // namespace

/// Whitened signals in tiles of up to kTileSamples samples: a tile is a column-major matrix, samples × components, so
/// that projecting it and weighting it are one pass over memory.
struct FastICA::Whitened
{
    DenseMatrix whitening; ///< components × channels
    DenseMatrix dewhitening; ///< channels × components
    vector<float> samples;
    Eigen::Index count = 0;

    template <class Visit> void forEachTile(Visit visit) const
    {
        const float *data = samples.data();
        for (Eigen::Index first = 0; first < count; first += kTileSamples) {
            const Eigen::Index rows = std::min(kTileSamples, count - first);
            visit(Eigen::Map<const Eigen::MatrixXf>(data, rows, whitening.rows()));
            data += rows * whitening.rows();
        }
    }
};

void FastICA::Train(const vector<vector<float>> &data, vector<vector<float>> *mixing, vector<vector<float>> &unmixing,
                    vector<vector<float>> &separated)
{
    Train(data, mixing, unmixing, separated, Options());
}

void FastICA::Train(const vector<vector<float>> &data, vector<vector<float>> *mixing, vector<vector<float>> &unmixing,
                    vector<vector<float>> &separated, const Options &options)
{
    Rows centred = data;
    DenseVector means(static_cast<Eigen::Index>(data.size()));
    for (std::size_t c = 0; c < centred.size(); ++c) {
        const float mean = utilities::Mean(centred[c]);
        means(static_cast<Eigen::Index>(c)) = static_cast<double>(mean);
        utilities::Subtract(centred[c], mean);
    }
    if (mixing) {
        mixing->clear();
    }
    unmixing.clear();
    separated.clear();
    Rows observations;
    MatrixOperations::MatrixTranspose(centred, observations);
    vector<float> eigenvalues;
    Rows eigenvectors;
    if (!DimReduction::TrainPCA(observations, eigenvalues, eigenvectors, 0, static_cast<int>(data.size()) - 1)) {
        return;
    }
    qDebug("PrinComp done");
    Whitened whitened;
    whitenv(options.sampleFraction < 1.0 ? sampled(centred, options.sampleFraction) : centred, eigenvalues,
            eigenvectors, whitened);
    DenseMatrix directions;
    if (!fpica(whitened, options, directions)) {
        return;
    }
    const DenseMatrix separation = directions.transpose() * whitened.whitening;
    qDebug("Adding the mean back to the data");
    separated = applied(separation, centred, separation * means);
    unmixing = bp::toRows(separation);
    if (mixing) {
        *mixing = bp::toRows(whitened.dewhitening * directions);
    }
}

void FastICA::whitenv(const vector<vector<float>> &centred, const vector<float> &eigenvalues,
                      const vector<vector<float>> &eigenvectors, Whitened &whitened)
{
    const DenseMatrix e = bp::toDense(eigenvectors);
    const DenseVector d = bp::toDense({eigenvalues}).row(0).cwiseSqrt();
    whitened.whitening = d.cwiseInverse().asDiagonal() * e;
    whitened.dewhitening = e.transpose() * d.asDiagonal();
    whitened.count = static_cast<Eigen::Index>(centred[0].size());
    whitened.samples.resize(centred[0].size() * eigenvalues.size());
    const Eigen::MatrixXf factors = whitened.whitening.transpose().cast<float>();
    float *out = whitened.samples.data();
    for (Eigen::Index first = 0; first < whitened.count; first += kTileSamples) {
        Eigen::MatrixXf tile(std::min(kTileSamples, whitened.count - first), e.cols());
        fillTile(centred, first, tile);
        Eigen::Map<Eigen::MatrixXf>(out, tile.rows(), e.rows()).noalias() = tile * factors;
        out += tile.rows() * e.rows();
    }
}

bool FastICA::fpica(const Whitened &whitened, const Options &options, Matrix &directions)
{
    const Eigen::Index size = whitened.whitening.rows();
    const Eigen::Index wanted = options.components < 0 ? size : std::min<Eigen::Index>(options.components, size);
    directions.resize(size, 0);
    int failures = 0;
    while (directions.cols() < wanted) {
        const Eigen::Index number = directions.cols() + 1;
        Matrix w = drawStart(size);
        int iterations = 0;
        if (iterate(whitened, options, directions, w, iterations)) {
            directions.conservativeResize(Eigen::NoChange, number);
            directions.col(number - 1) = w;
            qDebug().nospace().noquote() << "Component " << number << " converged in " << iterations << " iterations";
            continue;
        }
        qDebug().nospace().noquote() << "Component number" << number << "did not converge"; // joined without blanks
        if (++failures > kMaxFailures) {
            qDebug("Too many failures to converge");
            return false;
        }
    }
    return wanted > 0;
}

bool FastICA::iterate(const Whitened &whitened, const Options &options, const Matrix &found, Matrix &w, int &iterations)
{
    updateW(found, w);
    for (iterations = 1; iterations <= options.maxIterations; ++iterations) {
        const Matrix old = w;
        fixedPointStep(whitened, static_cast<float>(options.a), w);
        updateW(found, w);
        if (myNorm(w - old) < options.epsilon || myNorm(w + old) < options.epsilon) {
            return true;
        }
        if (!w.allFinite()) {
            return false;
        }
    }
    return false;
}

/// w ← E[x g(wᵀx)] − E[g′(wᵀx)] w, g = tanh(a ·).
void FastICA::fixedPointStep(const Whitened &whitened, float a, Matrix &w)
{
    const Eigen::VectorXf direction = w.col(0).cast<float>();
    DenseVector weighted = DenseVector::Zero(w.rows());
    double squares = 0.0;
    Eigen::VectorXf g(kTileSamples);
    Eigen::VectorXf tileSum(w.rows());
    // Floats sum up within a tile, doubles over the tiles.
    whitened.forEachTile([&](const Eigen::Map<const Eigen::MatrixXf> &tile) {
        auto values = g.head(tile.rows());
        values.noalias() = tile * direction;
        mytanh(a, g.data(), static_cast<std::size_t>(tile.rows()));
        squares += static_cast<double>(values.squaredNorm());
        tileSum.noalias() = tile.transpose() * values;
        weighted += tileSum.cast<double>();
    });
    const auto count = static_cast<double>(whitened.count);
    w = weighted / count - static_cast<double>(a) * (1.0 - squares / count) * w;
}

void FastICA::updateW(const Matrix &found, Matrix &w)
{
    w -= found * (found.transpose() * w);
    w /= myNorm(w);
}

void FastICA::mytanh(float a, float *values, std::size_t count)
{
    // This form needs one exponential and no branch: one that overflows gives 1, one that underflows −1.
    Eigen::Map<Eigen::ArrayXf> x(values, static_cast<Eigen::Index>(count));
    x = 1.0f - 2.0f / ((2.0f * a * x).exp() + 1.0f);
}

double FastICA::myNorm(const Matrix &column)
{
    return column.norm();
}

vector<vector<float>> FastICA::sampled(const vector<vector<float>> &rows, double fraction)
{
    const vector<std::size_t> chosen = getSamples(rows[0].size(), fraction);
    Rows out(rows.size());
    for (std::size_t c = 0; c < rows.size(); ++c) {
        for (const std::size_t i : chosen) {
            out[c].push_back(rows[c][i]);
        }
    }
    return chosen.empty() ? rows : out;
}

vector<std::size_t> FastICA::getSamples(std::size_t count, double fraction)
{
    vector<std::size_t> chosen;
    for (std::size_t i = 0; i < count; ++i) {
        if (static_cast<double>(std::rand()) < fraction * (static_cast<double>(RAND_MAX) + 1.0)) {
            chosen.push_back(i);
        }
    }
    return chosen;
}
