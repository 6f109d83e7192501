#include "common/BPCommon.h"
#include "files/EDFReader.h"
#include "files/EDFWriter.h"

#include <benchmark/benchmark.h>

#include <QFile>
#include <QTemporaryDir>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

constexpr int kChannels = 32;
constexpr int kRate = 500;
constexpr unsigned kBlock = 250; ///< the reader's half second
constexpr int kSeconds = 60;

/// A folder with a recording of a minute; the trace is silent.
class Recording
{
public:
    Recording()
    {
        BPCommon::setLogMode(BPCommon::LogEdfWriter, false);
        BPCommon::setLogMode(BPCommon::LogEdfReader, false);
        BPCommon::setLogMode(BPCommon::LogMontage, false);
        for (std::size_t i = 0; i < m_block.size(); ++i) {
            m_block[i] = 100.0f * std::sin(0.1f * static_cast<float>(i));
        }
        write();
    }
    QString path() const { return m_folder.filePath(QStringLiteral("recording.edf")); }
    QString copyPath() const { return m_folder.filePath(QStringLiteral("copy.edf")); }

    bool write() const
    {
        EDFWriter writer(path(), kChannels, kRate);
        bool written = writer.isFileOpened();
        for (unsigned sample = 0; sample < kSeconds * kRate; sample += kBlock) {
            written = writer.writeData(kBlock, m_block.data()) && written;
        }
        return writer.close() && written;
    }

    /// Speed in bytes of the file.
    void countBytes(benchmark::State &state) const
    {
        state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * QFile(path()).size());
    }

private:
    QTemporaryDir m_folder;
    std::vector<float> m_block = std::vector<float>(kChannels * kBlock);
};

void writeEdf(benchmark::State &state)
{
    const Recording recording;
    for (auto _ : state) {
        if (!recording.write()) {
            state.SkipWithError("the recording could not be written");
            break;
        }
    }
    recording.countBytes(state);
}
BENCHMARK(writeEdf)->Unit(benchmark::kMillisecond)->UseRealTime();

void readEdf(benchmark::State &state)
{
    const Recording recording;
    std::vector<double> values(kChannels * kSeconds * kRate);
    for (auto _ : state) {
        EDFReader reader(recording.path());
        if (!reader.open() || reader.getBuffData(0, kSeconds * kRate, values.data()) != 0) {
            state.SkipWithError("the recording could not be read");
            break;
        }
        benchmark::DoNotOptimize(values.data());
    }
    recording.countBytes(state);
}
BENCHMARK(readEdf)->Unit(benchmark::kMillisecond)->UseRealTime();

/// What the file system itself takes for the same bytes, read and written in blocks of 64 kB. Writing a recording
/// should take at most three times as long, reading it at most twice. Time by the clock: part of it is the disk's.
void copyFile(benchmark::State &state)
{
    const Recording recording;
    for (auto _ : state) {
        QFile from(recording.path());
        QFile to(recording.copyPath());
        if (!from.open(QIODevice::ReadOnly) || !to.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            state.SkipWithError("the recording could not be copied");
            break;
        }
        while (!from.atEnd()) {
            to.write(from.read(65536));
        }
    }
    recording.countBytes(state);
}
BENCHMARK(copyFile)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
