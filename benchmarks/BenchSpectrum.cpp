#include "algorithms/Spectrum.h"
#include "algorithms/SpectrumNorm.h"
#include "algorithms/engine/ValueHistory.h"
#include "common/BPCommon.h"
#include "devices/AmplifierInfo.h"
#include "montage/Montage.h"

#include <benchmark/benchmark.h>

#ifdef BP_HAVE_FFTW
#include <fftw3.h>
#endif

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

std::vector<float> signal(std::size_t count)
{
    std::vector<float> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        samples[i] = 50.0f * std::sin(0.2f * static_cast<float>(i)) + static_cast<float>(i * 7919 % 100);
    }
    return samples;
}

/// A window's spectrum: mean, taper over the whole window, correction, transform, amplitudes.
void spectrum(benchmark::State &state)
{
    const std::vector<float> samples = signal(static_cast<std::size_t>(state.range(0)));
    std::vector<float> amplitudes;
    Spectrum spectrum;
    for (auto _ : state) {
        spectrum.getSpectrum(samples, amplitudes);
        benchmark::DoNotOptimize(amplitudes.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(spectrum)->Arg(500)->Arg(1000)->Arg(4096);

#ifdef BP_HAVE_FFTW
/// The other library's transform alone, of the same padded length. The spectrum is to take at most 2.5 times as long.
void transformOfFftw(benchmark::State &state)
{
    std::size_t size = 1;
    while (size < static_cast<std::size_t>(state.range(0))) {
        size *= 2;
    }
    float *in = fftwf_alloc_real(size);
    fftwf_complex *out = fftwf_alloc_complex(size / 2 + 1);
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(static_cast<int>(size), in, out, FFTW_MEASURE);
    const std::vector<float> samples = signal(size);
    std::copy(samples.begin(), samples.end(), in);
    for (auto _ : state) {
        fftwf_execute(plan);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(plan);
    fftwf_free(out);
    fftwf_free(in);
}
BENCHMARK(transformOfFftw)->Arg(500)->Arg(1000)->Arg(4096);
#endif

/// Half a second of 32 channels at 500 Hz, through a rhythm index.
void rhythmIndex(benchmark::State &state)
{
    BPCommon::setLogMode(BPCommon::LogAlgorithm, false);
    BPCommon::setLogMode(BPCommon::LogMontage, false);
    const AmplifierInfo info(QStringLiteral("a"), QString(), QString(), 32, {500.0f});
    const auto montage = QSharedPointer<Montage>::create();
    montage->resize(32);
    SpectrumNorm rhythm(UnitParams(), montage, info);
    const std::vector<float> block = signal(32 * 250);
    for (auto _ : state) {
        rhythm.appendData(250, block, false);
    }
}
BENCHMARK(rhythmIndex)->Unit(benchmark::kMicrosecond);

/// A percentage into a history that is full, which is after six days.
void fullHistory(benchmark::State &state)
{
    bp::ValueHistory history;
    std::size_t i = 0;
    const auto next = [&i] { return static_cast<float>(i++ * 7919 % 1000) * 0.1f; };
    while (history.size() < bp::ValueHistory::kCapacity) {
        history.append(next());
    }
    for (auto _ : state) {
        history.append(next());
        benchmark::DoNotOptimize(history.average());
    }
}
BENCHMARK(fullHistory)->Unit(benchmark::kMicrosecond);

} // namespace
