#include "bci/ClassificationSM.h"
#include "bci/EEGBCIPreprocessor.h"
#include "bci/EEGBCIProcessor.h"
#include "bci/PortalProcessor.h"
#include "common/BPCommon.h"
#include "pipeline/DataSource.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr std::size_t kRows = 10000;
constexpr std::size_t kFeatures = 512;
constexpr std::size_t kBytes = kRows * kFeatures * sizeof(float);

void silence()
{
    for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
        BPCommon::setLogMode(static_cast<BPCommon::LogEvent>(event), false);
    }
}

void reportPace(benchmark::State &state)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(kBytes) * state.iterations());
}

/// The pace of the memory: as many bytes as the examples have, read and added up.
void memory(benchmark::State &state)
{
    const std::vector<float> values(kRows * kFeatures, 0.5f);
    for (auto _ : state) {
        std::array<float, 32> sums{};
        for (std::size_t i = 0; i < values.size(); i += sums.size()) {
            for (std::size_t j = 0; j < sums.size(); ++j) {
                sums[j] += values[i + j];
            }
        }
        benchmark::DoNotOptimize(sums);
    }
    reportPace(state);
}
BENCHMARK(memory)->Unit(benchmark::kMillisecond);

std::vector<std::vector<float>> example(std::mt19937 &random, int label)
{
    std::normal_distribution<float> noise(static_cast<float>(label));
    std::vector<float> features(kFeatures);
    for (float &feature : features) {
        feature = noise(random);
    }
    return {features};
}

/// One window against 10,000 examples of 512 features. The share of the pace of memory is what counts.
void nearestExamples(benchmark::State &state)
{
    silence();
    std::mt19937 random(1);
    PortalProcessor portal(15, 0.5f, 4, -1.0f, 1, PortalPreprocessor::Spectral);
    for (std::size_t i = 0; i < kRows; ++i) {
        std::vector<std::vector<float>> window = example(random, static_cast<int>(i % 2));
        portal.preTrain(window, static_cast<int>(i % 2));
    }
    portal.postTrain();
    std::vector<std::vector<float>> window = example(random, 1);
    std::vector<std::vector<float>> out;
    for (auto _ : state) {
        portal.passThrough(&window, &out);
        benchmark::DoNotOptimize(out);
    }
    if (out.empty()) {
        state.SkipWithError("The training failed");
    }
    reportPace(state);
}
BENCHMARK(nearestExamples)->Unit(benchmark::kMillisecond);

/// What the model asks its source for: the rate.
class SilentSource : public DataSource
{
public:
    explicit SilentSource(int fs) { m_fs = fs; }
    void SendData(bool) override { }

protected:
    void run() override { }
};

/// A second of 250 Hz completes a window of four: window update, features, classification.
void eegWindow(benchmark::State &state)
{
    silence();
    constexpr int kRate = 250;
    SilentSource source(kRate);
    EEGBCIPreprocessor preprocessor({{4.0f, 8.0f}, {8.0f, 13.0f}, {13.0f, 30.0f}});
    EEGBCIProcessor processor(0.5f);
    ClassificationSM model(nullptr, &preprocessor, &processor, &source);
    model.Initialize(4.0f, 1.0f, 1, true, false);
    std::mt19937 random(1);
    std::normal_distribution<float> noise;
    for (int i = 0; i < 40; ++i) {
        std::vector<std::vector<float>> window{{noise(random), noise(random), noise(random), noise(random)}};
        window[0][0] += static_cast<float>(i % 2 * 4);
        processor.preTrain(window, i % 2);
    }
    processor.postTrain();
    std::vector<std::vector<float>> block(1, std::vector<float>(kRate));
    for (float &sample : block[0]) {
        sample = noise(random);
    }
    for (int second = 0; second < 4; ++second) {
        model.ProcessDataBuffer(block);
    }
    for (auto _ : state) {
        model.ProcessDataBuffer(block);
    }
    if (processor.getResults().isEmpty()) {
        state.SkipWithError("No window was classified");
    }
}
BENCHMARK(eegWindow)->Unit(benchmark::kMicrosecond);

} // namespace
