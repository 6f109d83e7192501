#include "filters/ButterworthFilter.h"
#include "filters/NotchFilter.h"
#include "filters/engine/CascadeStage.h"
#include "filters/engine/ChannelFilterBank.h"
#include "filters/engine/FilterFeed.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr float kRate = 500.0f;
constexpr int kBlock = 500;

/// Opens the protected step of any filter. Not a subclass of the ready ones: those run sample by sample in blocks, too.
struct Step : AbstractFilter
{
    static float run(AbstractFilter &filter, float sample) { return (filter.*(&Step::InternalProcess))(sample); }
};

/// Low-pass and high-pass of order 4 and a notch: five second-order sections.
struct Chain
{
    std::shared_ptr<AbstractFilter> lowPass =
        std::make_shared<ButterworthFilter>(AbstractFilter::LowPass, 4, kRate, 70.0f, 70.0f);
    std::shared_ptr<AbstractFilter> highPass =
        std::make_shared<ButterworthFilter>(AbstractFilter::HighPass, 4, kRate, 0.5f, 0.5f);
    std::shared_ptr<AbstractFilter> notch = std::make_shared<NotchFilter>(AbstractFilter::BandStop, kRate, 50.0f, 1.0f);

    bp::FilterList::Filters list() const { return {lowPass, highPass, notch}; }
};

/// Planar block of microvolts: alpha rhythm, mains hum, drift and noise.
std::vector<float> signal(std::size_t channels)
{
    constexpr float kTwoPi = 6.2831853f;
    std::mt19937 generator(1);
    std::normal_distribution<float> noise(0.0f, 10.0f);
    std::vector<float> samples;
    for (std::size_t channel = 0; channel < channels; ++channel) {
        for (int i = 0; i < kBlock; ++i) {
            const float t = kTwoPi * static_cast<float>(i) / kRate;
            samples.push_back(200.0f + 40.0f * std::sin(10.0f * t) + 30.0f * std::sin(50.0f * t) + noise(generator));
        }
    }
    return samples;
}

void countSamples(benchmark::State &state, std::size_t channels)
{
    state.counters["samples"] =
        benchmark::Counter(static_cast<double>(channels * kBlock), benchmark::Counter::kIsIterationInvariantRate);
}

/// Every benchmark filters a fresh copy of the same block, so that no signal grows, dies or becomes denormal.
template <class Run> void runFilters(benchmark::State &state, std::size_t channels, Run run)
{
    const std::vector<float> source = signal(channels);
    std::vector<float> block(source.size());
    for (auto _ : state) {
        std::copy(source.begin(), source.end(), block.begin());
        run(block.data());
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    countSamples(state, channels);
}

/// The yardstick: what one would write without thinking of speed, the same five sections in double precision.
void doubleCascade(benchmark::State &state)
{
    struct Section
    {
        std::array<double, 3> b, a;
        std::array<double, 2> x, y;
    };
    Chain chain;
    std::vector<bp::CascadeStage> stages;
    for (const auto &filter : chain.list()) {
        filter->appendStages(stages);
    }
    std::vector<Section> sections;
    for (const bp::CascadeStage &stage : stages) {
        const double gain = stage.scaled ? static_cast<double>(stage.gain) : 1.0;
        Section section = {};
        for (std::size_t i = 0; i < 3; ++i) {
            section.b[i] = gain * static_cast<double>(stage.b[i]);
            section.a[i] = static_cast<double>(stage.a[i]);
        }
        sections.push_back(section);
    }
    runFilters(state, 1, [&](float *block) {
        for (int i = 0; i < kBlock; ++i) {
            double sample = static_cast<double>(block[i]);
            for (Section &s : sections) {
                const double out =
                    s.b[0] * sample + s.b[1] * s.x[0] + s.b[2] * s.x[1] - s.a[1] * s.y[0] - s.a[2] * s.y[1];
                s.x = {sample, s.x[0]};
                s.y = {out, s.y[0]};
                sample = out;
            }
            block[i] = static_cast<float>(sample);
        }
    });
}
BENCHMARK(doubleCascade);

void singleSamples(benchmark::State &state)
{
    Chain chain;
    runFilters(state, 1, [&](float *block) {
        for (int i = 0; i < kBlock; ++i) {
            const float low = Step::run(*chain.lowPass, block[i]);
            block[i] = Step::run(*chain.notch, Step::run(*chain.highPass, low));
        }
    });
}
BENCHMARK(singleSamples);

void singleChannel(benchmark::State &state)
{
    Chain chain;
    runFilters(state, 1, [&](float *block) {
        for (const auto &filter : chain.list()) {
            filter->Process(block, kBlock);
        }
    });
}
BENCHMARK(singleChannel);

void channelBank(benchmark::State &state)
{
    const auto channels = static_cast<std::size_t>(state.range(0));
    const auto feed = std::make_shared<bp::FilterFeed>(channels); // as a reader has one
    std::vector<bp::FilterList> lists(channels);
    for (std::size_t i = 0; i < channels; ++i) {
        lists[i].assign(Chain().list());
        lists[i].follow(feed, i);
    }
    bp::ChannelFilterBank bank;
    bank.follow(feed);
    runFilters(state, channels, [&](float *planar) { bank.process(planar, kBlock); });
}
BENCHMARK(channelBank)->Arg(1)->Arg(3)->Arg(4)->Arg(8)->Arg(21)->Arg(32);

} // namespace
