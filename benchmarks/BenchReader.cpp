#include "algorithms/ParamFactory.h"
#include "common/BPCommon.h"
#include "devices/Amplifier.h"
#include "devices/AmplifierChannel.h"
#include "montage/Montage.h"
#include "pipeline/DataReader.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstring>

namespace {

constexpr int kChannels = 32;
constexpr float kRate = 1000.0f;
constexpr int kBlock = 500;
constexpr int kBlocks = 240; // two minutes of signal

/// Hands out one ready-made block again and again, then ends.
class BlockDevice : public Amplifier
{
public:
    BlockDevice()
        : Amplifier(AmplifierInfo(QStringLiteral("Blocks"), {}, QStringLiteral("B-1"), kChannels, {kRate}))
        , m_block(kChannels * kBlock)
    {
        unsigned state = 1;
        for (float &sample : m_block) {
            state = state * 1664525u + 1013904223u;
            sample = static_cast<float>(state >> 16) / 655.36f - 50.0f;
        }
    }
    bool startAcquisition() override
    {
        m_reads = 0;
        return true;
    }
    void stopAcquisition() override { }
    int readPeriodMs() override { return 0; }
    bool isAcquisitionRunning() const override { return true; }
    QString getErrorText(int) const override { return {}; }
    bool setFreqValue(float) override { return false; }
    bool isFilterFreeData() override { return false; }
    bool isImpedanceSupported() const override { return false; }
    bool isBatterySupported() const override { return false; }
    void setReadBufferSize(int) override { }
    int getReadBufferSize() const override { return 0; }
    bool openDevice() override { return true; }
    void closeDevice() override { }
    void resetDevice() override { }
    int readData(int, float *block, int &) override
    {
        if (m_reads++ == kBlocks) {
            return kEndOfData;
        }
        std::memcpy(block, m_block.data(), m_block.size() * sizeof(float));
        return kBlock;
    }

private:
    std::vector<float> m_block;
    int m_reads = 0;
};

QSharedPointer<Montage> filteredMontage()
{
    auto montage = QSharedPointer<Montage>::create();
    for (unsigned c = 1; c <= kChannels; ++c) {
        auto *channel = new AmplifierChannel(c, 1.0f, BPCommon::EEG);
        channel->setChannelName(QStringLiteral("C%1").arg(c));
        channel->setGroup1(c);
        channel->setGroup2(c == 1 ? 2 : 1);
        channel->setLPF(40.0f);
        channel->setHPF(0.5f);
        channel->setBSF(50.0f);
        montage->push_back(channel);
    }
    return montage;
}

std::vector<UnitParams> spectrumAndRhythms()
{
    std::vector<UnitParams> params{ParamFactory::makeCustomProperty(QStringLiteral("SpectrumOnline"))};
    for (const auto make :
         {&ParamFactory::makeRhythmDelta, &ParamFactory::makeRhythmTheta, &ParamFactory::makeRhythmAlpha,
          &ParamFactory::makeRhythmMu, &ParamFactory::makeRhythmBeta, &ParamFactory::makeRhythmGamma}) {
        params.push_back(make(QString()));
    }
    return params;
}

enum Stage { Publish = 1, Edf = 2, Algorithms = 4, Spreadsheet = 8, Outlet = 16 };

/// The reader's whole pass, on this thread, with more and more stages. The loop sleeps 5 ms per block; the time of the
/// benchmark is the CPU's.
void readerPass(benchmark::State &state)
{
    for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
        BPCommon::setLogMode(static_cast<BPCommon::LogEvent>(event), false);
    }
    int argc = 1;
    char name[] = "bench_reader";
    char *argv[] = {name, nullptr};
    QCoreApplication application(argc, argv);
    QTemporaryDir folder;
    BlockDevice device;
    DataReader reader;
    QObject receiver;
    qint64 samples = 0;
    const auto has = [&state](Stage stage) { return (state.range(0) & stage) != 0; };
    if (has(Publish)) {
        QObject::connect(
            &reader, &DataReader::newData, &receiver,
            [&samples](const std::vector<float> &, int count) { samples += count; }, Qt::QueuedConnection);
    }
    reader.setNewMontage(&device, filteredMontage());
    reader.setWriteStateTime(0);
    reader.setRecordPath(folder.filePath(QStringLiteral("bench.edf")));
    if (has(Algorithms)) {
        reader.setAlgorithmParams(nullptr, spectrumAndRhythms());
    }
    for (auto _ : state) {
        if (has(Outlet)) {
            reader.addLSLStreamParams(QStringLiteral("bench"), false, QString());
        }
        reader.runningThread(true);
        reader.setWriteDataFlag(has(Edf), has(Spreadsheet));
        reader.run();
        reader.setWriteDataFlag(false, false);
        QCoreApplication::processEvents();
    }
    const double seconds = static_cast<double>(kBlocks) * kBlock / static_cast<double>(kRate);
    state.counters["x_real_time"] =
        benchmark::Counter(seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(readerPass)
    ->ArgName("stages")
    ->Arg(0)
    ->Arg(Publish)
    ->Arg(Publish | Edf)
    ->Arg(Publish | Edf | Algorithms)
    ->Arg(Publish | Edf | Algorithms | Spreadsheet)
    ->Arg(Publish | Edf | Algorithms | Spreadsheet | Outlet)
    ->Unit(benchmark::kMillisecond);

} // namespace
