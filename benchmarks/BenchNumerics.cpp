#include "bci/FastICA.h"
#include "bci/MatrixOperations.h"
#include "bci/utilities.h"

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QtGlobal>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using Rows = std::vector<std::vector<float>>;

constexpr std::size_t kChannels = 32;
constexpr std::size_t kSamples = 60000;

/// Between −1 and 1, from a number: the same in fastica_reference.py.
double noise(std::uint64_t number)
{
    std::uint64_t z = number * 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return static_cast<double>((z ^ (z >> 31)) >> 11) / 4503599627370496.0 - 1.0;
}

/// Laplacian and uniform noise in turn.
double source(std::size_t channel, std::size_t i)
{
    const double u = noise((channel + 1) * 1000003 + i);
    return channel % 2 == 1 ? u : std::copysign(std::log(1.0 - std::fabs(u)), u);
}

const Rows &mixture()
{
    static const Rows rows = [] {
        Rows mixed(kChannels, std::vector<float>(kSamples));
        std::vector<double> at(kChannels);
        for (std::size_t i = 0; i < kSamples; ++i) {
            for (std::size_t c = 0; c < kChannels; ++c) {
                at[c] = source(c, i);
            }
            for (std::size_t r = 0; r < kChannels; ++r) {
                double sum = 0.0;
                for (std::size_t c = 0; c < kChannels; ++c) {
                    sum += noise(r * kChannels + c + 1) * at[c];
                }
                mixed[r][i] = static_cast<float>(10.0 * sum);
            }
        }
        return mixed;
    }();
    return rows;
}

int s_iterations = 0;
int s_components = 0;

void countIterations(QtMsgType, const QMessageLogContext &, const QString &message)
{
    if (message.contains(QLatin1String(" converged in "))) {
        s_iterations += message.section(QLatin1Char(' '), 4, 4).toInt();
        ++s_components;
    }
}

/// 32 channels of two minutes at 500 Hz, all components. BP_ICA_EPSILON in the environment sets another tolerance.
void fastIca(benchmark::State &state)
{
    FastICA::Options options;
    bool isSet = false;
    const double epsilon = qgetenv("BP_ICA_EPSILON").toDouble(&isSet);
    options.epsilon = isSet ? epsilon : options.epsilon;
    const Rows &data = mixture();
    Rows unmixing;
    Rows separated;
    const QtMessageHandler previous = qInstallMessageHandler(countIterations);
    s_iterations = 0;
    s_components = 0;
    std::srand(1);
    for (auto _ : state) {
        FastICA::Train(data, nullptr, unmixing, separated, options);
        benchmark::DoNotOptimize(unmixing.data());
    }
    qInstallMessageHandler(previous);
    state.counters["iterations_per_run"] = benchmark::Counter(s_iterations, benchmark::Counter::kAvgIterations);
    state.counters["components"] = benchmark::Counter(s_components, benchmark::Counter::kAvgIterations);
}
BENCHMARK(fastIca)->Unit(benchmark::kMillisecond)->UseRealTime();

void covariance(benchmark::State &state)
{
    Rows observations;
    MatrixOperations::MatrixTranspose(mixture(), observations);
    Rows result;
    for (auto _ : state) {
        MatrixOperations::Covariance(observations, true, result);
        benchmark::DoNotOptimize(result.data());
    }
}
BENCHMARK(covariance)->Unit(benchmark::kMillisecond);

/// A feature vector of 32 channels × 40 bins against 500 examples.
void distances(benchmark::State &state)
{
    const std::vector<float> features(mixture()[0].begin(), mixture()[0].begin() + 1280);
    const Rows examples(500, std::vector<float>(mixture()[1].begin(), mixture()[1].begin() + 1280));
    for (auto _ : state) {
        float sum = 0.0f;
        for (const std::vector<float> &example : examples) {
            sum += utilities::eucDist(features, example);
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(distances)->Unit(benchmark::kMicrosecond);

} // namespace
