#include "support/AllocationCounter.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "algorithms/AlgorithmManager.h"
#include "algorithms/ParamFactory.h"
#include "algorithms/SpectrumNorm.h"
#include "algorithms/SpectrumOnline.h"
#include "algorithms/engine/ValueHistory.h"
#include "algorithms/freqspace.h"
#include "devices/AmplifierChannel.h"
#include "devices/AmplifierInfo.h"
#include "montage/Montage.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>

namespace {

using Samples = std::vector<float>;
using Values = QVector<float>;

constexpr double kPi = 3.141592653589793;
constexpr int kRate = 250;

struct Result
{
    QString type;
    unsigned channels;
    Samples data;
};

/// What an algorithm published.
class Results
{
public:
    explicit Results(CustomAlgorithm &algorithm)
    {
        QObject::connect(&algorithm, &CustomAlgorithm::getData, &m_context,
                         [this](const QString &type, const UnitParams &, unsigned channels, const Samples &data) {
                             all.push_back({type, channels, data});
                         });
    }
    std::vector<Result> all;

private:
    QObject m_context;
};

/// The integers of spectrum_reference.py.
Samples noise(std::size_t count, unsigned seed)
{
    Samples samples(count);
    for (float &sample : samples) {
        seed = (seed * 1103515245u + 12345u) % 2147483648u;
        sample = static_cast<float>(static_cast<int>((seed >> 16) % 2001u) - 1000);
    }
    return samples;
}

Samples sine(std::size_t count, double cycles, double amplitude = 1.0)
{
    Samples samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double phase = 2.0 * kPi * cycles * static_cast<double>(i) / static_cast<double>(count);
        samples[i] = static_cast<float>(amplitude * std::sin(phase + 0.5));
    }
    return samples;
}

AmplifierInfo device(float rate)
{
    return AmplifierInfo(QStringLiteral("a"), QString(), QString(), 8, {rate});
}

QSharedPointer<Montage> montageOf(unsigned channels)
{
    auto montage = QSharedPointer<Montage>::create();
    montage->resize(channels);
    for (unsigned i = 0; i < channels; ++i) {
        (*montage)[i]->setChannelName(QStringLiteral("C%1").arg(i));
    }
    return montage;
}

/// "key=value;key=value", with "," for the ";" of a list.
UnitParams makeParams(const QString &name, const QString &values)
{
    UnitParams params = ParamFactory::makeCustomProperty(name);
    for (const QString &value : values.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        QString text = value.section(QLatin1Char('='), 1);
        params.setParamValue(value.section(QLatin1Char('='), 0, 0), text.replace(QLatin1Char(','), QLatin1Char(';')));
    }
    return params;
}

Samples spectrumOf(const Samples &window, float fraction = 0.5f)
{
    Spectrum spectrum;
    spectrum.setSmoothingWindowSize(fraction);
    Samples out;
    spectrum.getSpectrum(window, out);
    return out;
}

QHash<QString, Values> readGolden()
{
    QHash<QString, Values> golden;
    QFile file(QStringLiteral(BP_REFERENCE_DIR "/golden/spectrum.txt"));
    if (file.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : file.readAll().split('\n')) {
            const QStringList words = QString::fromLatin1(line).split(QLatin1Char(' '));
            for (int i = 1; i < words.size(); ++i) {
                golden[words.front()].push_back(words[i].toFloat());
            }
        }
    }
    return golden;
}

bool isNear(float value, float expected, float tolerance = 1e-4f)
{
    return std::fabs(value - expected) <= tolerance * std::max(std::fabs(expected), 1e-3f);
}

/// Every nth value is the expected one, as near as the requirement asks and closer.
bool areNear(const Samples &values, const Values &expected, std::size_t every = 1)
{
    bool near = (values.size() + every - 1) / every == static_cast<std::size_t>(expected.size());
    for (std::size_t i = 0; near && i < values.size(); i += every) {
        near = isNear(values[i], expected[static_cast<int>(i / every)]);
        if (!near) {
            qWarning("value %zu is %g, expected %g", i, double(values[i]), double(expected[int(i / every)]));
        }
    }
    return near;
}

Samples head(const Samples &values, std::size_t count)
{
    return Samples(values.cbegin(), values.cbegin() + static_cast<std::ptrdiff_t>(std::min(count, values.size())));
}

} // namespace

class TestSpectrum : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_golden = readGolden(); }

    void spectrumIsTheReference_data();
    void spectrumIsTheReference();
    void sinusoidKeepsItsAmplitude_data();
    void sinusoidKeepsItsAmplitude();
    void offsetLeavesNothing();
    void correctionFactor_data();
    void correctionFactor();
    void oneObjectForManyLengths();
    void smoothing();
    void frequencies();
    void bandMeans();
    void bandMeansNeedEveryBand();

    void windowFillsAndSlides_data();
    void windowFillsAndSlides();
    void windowKeepsTheNewestSamples();
    void blockAsLongAsTheWindow();
    void publishedRows_data();
    void publishedRows();
    void artefactMark_data();
    void artefactMark();
    void badSettingsPublishNothing_data();
    void badSettingsPublishNothing();
    void rateChangesUnderWay();

    void rhythmByMode_data();
    void rhythmByMode();
    void rhythmIsTheReference();
    void bandOfBins_data();
    void bandOfBins();
    void normalizedValue_data();
    void normalizedValue();
    void recordOfARhythm();
    void onlyTheExpectedType();

    void percentOfABand_data();
    void percentOfABand();
    void selectedChannels();
    void artefactRecord();
    void switchResets();
    void containerFeedsTheRhythm();
    void blocksAllocateNothing();

    void historyIsTheLongSum_data();
    void historyIsTheLongSum();
    void historyIgnoresWhatIsNoValue();

private:
    QHash<QString, Values> m_golden;
};

void TestSpectrum::spectrumIsTheReference_data()
{
    QTest::addColumn<int>("samples");
    QTest::addColumn<float>("fraction");
    QTest::addColumn<bool>("hamming");
    QTest::addColumn<int>("every");
    QTest::newRow("whole500") << 500 << 0.5f << false << 1;
    QTest::newRow("edges500") << 500 << 0.1f << false << 4;
    QTest::newRow("hamming1000") << 1000 << 0.25f << true << 8;
    QTest::newRow("bare4096") << 4096 << 0.0f << false << 32;
    QTest::newRow("whole2047") << 2047 << 0.5f << false << 32;
    QTest::newRow("odd129") << 129 << 0.3f << false << 2;
    QTest::newRow("few17") << 17 << 0.5f << false << 1;
    QTest::newRow("few5") << 5 << 0.5f << false << 1;
}

void TestSpectrum::spectrumIsTheReference()
{
    QFETCH(int, samples);
    QFETCH(float, fraction);
    QFETCH(bool, hamming);
    QFETCH(int, every);
    Spectrum spectrum;
    spectrum.setSmoothingWindowSize(fraction);
    spectrum.setSmoothingWindowType(hamming ? Spectrum::Hamming : Spectrum::Hann);
    Samples out;
    const auto count = static_cast<std::size_t>(samples);
    const std::size_t bins = spectrum.getSpectrum(noise(count, static_cast<unsigned>(samples)), out);
    QCOMPARE(out.size(), bins);
    QVERIFY(
        areNear(out, m_golden.value(QString::fromLatin1(QTest::currentDataTag())), static_cast<std::size_t>(every)));
}

void TestSpectrum::sinusoidKeepsItsAmplitude_data()
{
    QTest::addColumn<int>("samples");
    QTest::addColumn<float>("fraction");
    for (const int samples : {16, 32, 64, 128, 256, 512, 1024, 2048, 8192, 16384}) {
        QTest::addRow("%i samples", samples) << samples << 0.0f;
        QTest::addRow("%i samples, tapered", samples) << samples << 0.5f;
    }
}

/// On a bin: its amplitude there, half of it in the neighbours under a Hann window, nothing elsewhere.
void TestSpectrum::sinusoidKeepsItsAmplitude()
{
    QFETCH(int, samples);
    QFETCH(float, fraction);
    const auto count = static_cast<std::size_t>(samples);
    for (const std::size_t bin : {std::size_t{3}, count / 4 + 1, count / 2 - 3}) {
        const Samples out = spectrumOf(sine(count, static_cast<double>(bin), 20.0), fraction);
        QCOMPARE(out.size(), count / 2 + 1);
        for (std::size_t k = 0; k < out.size(); ++k) {
            const std::size_t distance = k > bin ? k - bin : bin - k;
            const float beside = fraction > 0.0f ? 10.0f : 0.0f;
            QVERIFY(std::fabs(out[k] - (distance == 0 ? 20.0f : distance == 1 ? beside : 0.0f)) < 1e-4f);
        }
    }
}

void TestSpectrum::offsetLeavesNothing()
{
    Samples samples = sine(512, 40.0);
    for (float &sample : samples) {
        sample += 30000.0f; // an electrode's half-cell potential, µV
    }
    const Samples out = spectrumOf(samples, 0.1f);
    QVERIFY(std::fabs(out[40] - 1.0f) < 1e-2f);
    QVERIFY(out[0] < 1e-3f);
}

void TestSpectrum::correctionFactor_data()
{
    QTest::addColumn<float>("fraction");
    QTest::addColumn<bool>("hamming");
    QTest::addColumn<float>("before");
    QTest::addColumn<float>("after");
    QTest::newRow("whole window") << 0.5f << false << 2.0f << 2.0f;
    QTest::newRow("quarters") << 0.25f << false << 1.5f << 4.0f / 3.0f;
    QTest::newRow("none") << 0.0f << false << 1.0f << 1.0f;
    QTest::newRow("Hamming") << 0.5f << true << 2.0f << 1.0f / 0.54f;
    QTest::newRow("clamped above") << 0.8f << false << 2.0f << 2.0f;
    QTest::newRow("clamped below") << -1.0f << false << 1.0f << 1.0f;
    QTest::newRow("no number") << std::numeric_limits<float>::quiet_NaN() << false << 1.0f << 1.0f;
}

void TestSpectrum::correctionFactor()
{
    QFETCH(float, fraction);
    QFETCH(bool, hamming);
    Spectrum spectrum;
    spectrum.setSmoothingWindowSize(fraction);
    spectrum.setSmoothingWindowType(hamming ? Spectrum::Hamming : Spectrum::Hann);
    QTEST(spectrum.correctionFactor(), "before");
    Samples out;
    spectrum.getSpectrum(noise(500, 1), out);
    QTEST(spectrum.correctionFactor(), "after");
}

void TestSpectrum::oneObjectForManyLengths()
{
    Spectrum spectrum;
    Samples out;
    QCOMPARE(spectrum.getSpectrum(Samples(), out), std::size_t{0});
    for (const std::size_t count : {500u, 512u, 500u, 100u, 1u, 2u, 3u, 1000u, 500u}) {
        const Samples in = noise(count, 7);
        spectrum.getSpectrum(in, out);
        QCOMPARE(out, spectrumOf(in));
        QCOMPARE(spectrum.getSizeNFFT(), count == 1 ? 1u : 2 * (out.size() - 1));
    }
}

void TestSpectrum::smoothing()
{
    Samples out(257);
    const Samples power = spectrumOf(noise(500, 500));
    Samples squared(257);
    Spectrum::calcSpectrumSquared(power.data(), power.size(), squared.data());
    Spectrum::calcSmoothing(squared.data(), squared.size(), out.data());
    QVERIFY(areNear(out, m_golden.value(QStringLiteral("smoothedPower500")), 4));

    const Samples few = noise(99, 1);
    out.resize(few.size());
    Spectrum::calcSmoothing(few.data(), few.size(), out.data());
    QCOMPARE(out, few);
}

void TestSpectrum::frequencies()
{
    Samples bins;
    freqspace::getSpectrumFrequencies(250.0f, 257, bins);
    QCOMPARE(bins.size(), std::size_t{257});
    QCOMPARE(bins[0], 0.0f);
    QCOMPARE(bins[1], 0.48828125f);
    QCOMPARE(bins[256], 125.0f);
    freqspace::getSpectrumFrequencies(250.0f, 1, bins);
    QCOMPARE(bins, Samples{0.0f});
}

/// Bins every half hertz that hold their own number: a band's mean is the middle of its first and last bin.
void TestSpectrum::bandMeans()
{
    Samples bins;
    freqspace::getSpectrumFrequencies(100.0f, 101, bins);
    Samples spectrum(101);
    for (std::size_t k = 0; k < spectrum.size(); ++k) {
        spectrum[k] = static_cast<float>(k);
    }
    std::array<float, 4> means{};
    QVERIFY(freqspace::findArtifact(bins, spectrum.data(), means));
    QCOMPARE(means, (std::array<float, 4>{6.0f, 59.5f, 41.0f, 23.5f})); // bins 3–9, 40–79, 3–79, 12–35
}

void TestSpectrum::bandMeansNeedEveryBand()
{
    Samples bins;
    freqspace::getSpectrumFrequencies(38.0f, 39, bins); // up to 19 Hz
    const Samples spectrum(39, 1.0f);
    std::array<float, 4> means{7.0f, 7.0f, 7.0f, 7.0f};
    QVERIFY(!freqspace::findArtifact(bins, spectrum.data(), means));
    QCOMPARE(means, (std::array<float, 4>{7.0f, 7.0f, 7.0f, 7.0f}));
}

void TestSpectrum::windowFillsAndSlides_data()
{
    QTest::addColumn<int>("block");
    QTest::addColumn<QString>("values");
    QTest::addColumn<QVector<int>>("calculations"); ///< numbers of the blocks after which there is one
    // 500 samples, a step of 125: the tenth block slides in, the step is reached with the third of those.
    QTest::newRow("50 at a time") << 50 << "time=2;step=0.5" << QVector<int>{12, 15, 18};
    QTest::newRow("step in one block") << 125 << "time=2;step=0.5"
                                       << QVector<int>{4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    QTest::newRow("without a step") << 100 << "time=2;step=0"
                                    << QVector<int>{5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    QTest::newRow("negative step") << 250 << "time=7;step=-1"
                                   << QVector<int>{7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    QTest::newRow("as long as the window")
        << 500 << "time=2;step=2" << QVector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    QTest::newRow("disabled") << 50 << "time=2;step=0.5;enable=0" << QVector<int>();
    QTest::newRow("capped at 10 s") << 250 << "time=1e9;step=1" << QVector<int>{10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
}

void TestSpectrum::windowFillsAndSlides()
{
    QFETCH(int, block);
    QFETCH(QString, values);
    const AmplifierInfo info = device(kRate);
    SpectrumOnline algorithm(makeParams(QStringLiteral("SpectrumOnline"), values), montageOf(1), info);
    const Results results(algorithm);
    QVector<int> calculations;
    std::size_t seen = 0;
    for (int i = 1; i < 20; ++i) {
        algorithm.appendData(static_cast<unsigned>(block), Samples(static_cast<std::size_t>(block)), false);
        if (results.all.size() > seen) {
            calculations << i;
        }
        seen = results.all.size();
    }
    QTEST(calculations, "calculations");
}

/// After filling, uneven blocks leave the newest samples in the window, of each channel.
void TestSpectrum::windowKeepsTheNewestSamples()
{
    const AmplifierInfo info = device(kRate);
    SpectrumOnline algorithm(makeParams(QStringLiteral("SpectrumOnline"), QStringLiteral("time=2;step=0")),
                             montageOf(2), info);
    const Results results(algorithm);
    const Samples first = noise(2000, 1);
    const Samples second = noise(2000, 2);
    std::size_t at = 0;
    for (const std::size_t count : {450u, 60u, 30u, 1u, 499u, 7u, 300u}) {
        const bool filling = at == 0;
        Samples block(first.begin() + int(at), first.begin() + int(at + count));
        block.insert(block.end(), second.begin() + int(at), second.begin() + int(at + count));
        block.resize(block.size() + 20, 1e6f); // blocks may be longer than what is valid
        algorithm.appendData(static_cast<unsigned>(count), block, false);
        at += count;
        QCOMPARE(results.all.empty(), filling);
    }
    const Samples &raw = results.all[results.all.size() - 2].data;
    QCOMPARE(head(raw, 257), spectrumOf(Samples(first.begin() + int(at - 500), first.begin() + int(at))));
    QCOMPARE(Samples(raw.begin() + 257, raw.end()),
             spectrumOf(Samples(second.begin() + int(at - 500), second.begin() + int(at))));

    algorithm.resetAlgorithm();
    algorithm.appendData(450, Samples(900), false);
    const std::size_t before = results.all.size();
    algorithm.appendData(40, Samples(80), false);
    QCOMPARE(results.all.size(), before);
    algorithm.appendData(60, Samples(120, 1.0f), false); // does not fit behind them
    QCOMPARE(results.all.size(), before + 2);
}

void TestSpectrum::blockAsLongAsTheWindow()
{
    const AmplifierInfo info = device(kRate);
    SpectrumOnline algorithm(makeParams(QStringLiteral("SpectrumOnline"), QStringLiteral("time=2;hann=80")),
                             montageOf(2), info);
    const Results results(algorithm);
    const Samples block = noise(1200, 3);
    algorithm.appendData(600, block, false);
    QCOMPARE(results.all.size(), std::size_t{2});
    QCOMPARE(head(results.all[0].data, 257), spectrumOf(head(block, 500)));
    QCOMPARE(Samples(results.all[0].data.begin() + 257, results.all[0].data.end()),
             spectrumOf(Samples(block.begin() + 500, block.begin() + 1000)));
}

void TestSpectrum::publishedRows_data()
{
    QTest::addColumn<QString>("values");
    QTest::addColumn<bool>("square");
    QTest::addColumn<bool>("smooth");
    QTest::newRow("amplitudes") << "square=0;smooth=0" << false << false;
    QTest::newRow("power") << "square=1;smooth=0" << true << false;
    QTest::newRow("smoothed") << "square=0;smooth=1" << false << true;
    QTest::newRow("smoothed power") << "square=1;smooth=1" << true << true;
}

void TestSpectrum::publishedRows()
{
    QFETCH(bool, square);
    QFETCH(bool, smooth);
    QFETCH(QString, values);
    const AmplifierInfo info = device(kRate);
    SpectrumOnline algorithm(makeParams(QStringLiteral("SpectrumOnline"), values), montageOf(2), info);
    const Results results(algorithm);
    algorithm.appendData(500, noise(1000, 4), false);
    QCOMPARE(results.all.size(), std::size_t{2});
    QCOMPARE(results.all[0].type, QStringLiteral("raw"));
    QCOMPARE(results.all[0].channels, 2u);
    QCOMPARE(results.all[0].data.size(), std::size_t{514});
    QVERIFY(results.all[1].type.isEmpty());
    QCOMPARE(results.all[1].data.size(), std::size_t{515});
    QCOMPARE(results.all[1].data.back(), 0.0f);
    const Samples amplitudes(results.all[0].data.begin() + 257, results.all[0].data.end());
    const Samples processed(results.all[1].data.begin() + 257, results.all[1].data.end() - 1);
    const auto at = [&](std::size_t k) { return square ? amplitudes[k] * amplitudes[k] : amplitudes[k]; };
    for (std::size_t k = 1; k < 256; ++k) {
        const float mean = (at(k - 1) * at(k - 1) + at(k) * at(k) + at(k + 1) * at(k + 1)) / 3.0f;
        QVERIFY(isNear(processed[k], smooth ? std::sqrt(mean) : at(k)));
    }
}

void TestSpectrum::artefactMark_data()
{
    QTest::addColumn<float>("hertz");
    QTest::addColumn<float>("lfzsfz");
    QTest::addColumn<float>("mark");
    QTest::newRow("slow wave") << 3.0f << 3.5f << 1.0f;
    QTest::newRow("slow wave below the threshold") << 3.0f << 30.0f << 0.0f;
    QTest::newRow("muscle tension") << 30.0f << 3.5f << 1.0f;
    QTest::newRow("alpha") << 10.0f << 3.5f << 0.0f;
    QTest::newRow("silence") << 0.0f << 3.5f << 0.0f;
}

void TestSpectrum::artefactMark()
{
    QFETCH(float, hertz);
    QFETCH(float, lfzsfz);
    const AmplifierInfo info = device(kRate);
    const QString values = QStringLiteral("artefact=1;lfzsfz=%1").arg(double(lfzsfz));
    SpectrumOnline algorithm(makeParams(QStringLiteral("SpectrumOnline"), values), montageOf(2), info);
    const Results results(algorithm);
    Samples block = hertz > 0.0f ? sine(500, 2.0 * double(hertz), 50.0) : Samples(500);
    const Samples copy = block;
    block.insert(block.end(), copy.begin(), copy.end());
    algorithm.appendData(500, block, false);
    QCOMPARE(results.all.size(), std::size_t{1});
    QCOMPARE(results.all[0].type, QStringLiteral("raw"));
    QCOMPARE(results.all[0].data.size(), std::size_t{515});
    QTEST(results.all[0].data.back(), "mark");
}

void TestSpectrum::badSettingsPublishNothing_data()
{
    QTest::addColumn<QString>("values");
    QTest::addColumn<float>("rate");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("trace");
    QTest::newRow("no window") << "time=0" << 250.0f << 2 << 1000 << "no window";
    QTest::newRow("window is no number") << "time=nan" << 250.0f << 2 << 1000 << "no window";
    QTest::newRow("no rate") << "" << 0.0f << 2 << 1000 << "no window";
    QTest::newRow("no channels") << "" << 250.0f << 0 << 1000 << "";
    QTest::newRow("no montage") << "" << 250.0f << -1 << 1000 << "";
    QTest::newRow("too few values") << "" << 250.0f << 2 << 999 << "999 values for 2 channels";
    QTest::newRow("no values") << "" << 250.0f << 2 << 0 << "";
}

void TestSpectrum::badSettingsPublishNothing()
{
    QFETCH(QString, values);
    QFETCH(float, rate);
    QFETCH(int, channels);
    QFETCH(int, size);
    QFETCH(QString, trace);
    const TraceCapture capture;
    const AmplifierInfo info = device(rate);
    const auto montage = channels < 0 ? QSharedPointer<Montage>() : montageOf(static_cast<unsigned>(channels));
    SpectrumOnline online(makeParams(QStringLiteral("SpectrumOnline"), values), montage, info);
    SpectrumNorm rhythm(makeParams(QStringLiteral("SpectrumNorm"), values), montage, info);
    const Results spectra(online);
    const Results rhythms(rhythm);
    online.appendData(500, Samples(static_cast<std::size_t>(size)), false);
    rhythm.appendData(500, Samples(static_cast<std::size_t>(size)), false);
    QVERIFY(spectra.all.empty());
    QVERIFY(rhythms.all.empty());
    QVERIFY(trace.isEmpty() || capture.count(trace) > 0);
}

void TestSpectrum::rateChangesUnderWay()
{
    AmplifierInfo info = device(kRate);
    info.addNewFrequencyValue(500.0f);
    SpectrumOnline algorithm(makeParams(QStringLiteral("SpectrumOnline"), QStringLiteral("time=2")), montageOf(1),
                             info);
    const Results results(algorithm);
    algorithm.appendData(500, noise(500, 1), false);
    info.setCurrentFreqValue(500.0f);
    algorithm.appendData(500, noise(500, 1), false);
    QCOMPARE(results.all.size(), std::size_t{2}); // half a window of 1000 samples now
    algorithm.appendData(500, noise(500, 1), false);
    QCOMPARE(results.all.size(), std::size_t{4});
    QCOMPARE(results.all[2].data.size(), std::size_t{513});
}

namespace {

/// 11 bins, every 2 Hz at a rate of 40 Hz.
const Samples kBins{0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 2.0f, 1.0f, 0.0f, 1.0f, 0.0f, 2.0f};
constexpr int kBinsRate = 40;

Samples recordOf(const QString &values, const Samples &spectra, unsigned channels)
{
    const AmplifierInfo info = device(kBinsRate);
    DependSpectrumNorm algorithm(makeParams(QStringLiteral("DependSpectrumNorm"), values), montageOf(channels), info);
    const Results results(algorithm);
    algorithm.takeData(QString(), UnitParams(), channels, spectra);
    return results.all.empty() ? Samples() : results.all.back().data;
}

} // namespace

void TestSpectrum::rhythmByMode_data()
{
    QTest::addColumn<QString>("values");
    QTest::addColumn<QVector<float>>("global");
    QTest::addColumn<float>("expected");
    // The band is bins 3 to 5: 3, 4 and 2 at 6, 8 and 10 Hz.
    QTest::newRow("index") << "calc_mode=0" << Values() << 100.0f * 29.0f / 40.0f;
    QTest::newRow("index of a global band") << "calc_mode=0" << Values{2.0f, 18.0f} << 100.0f * 29.0f / 36.0f;
    QTest::newRow("index of a global band beyond") << "calc_mode=0" << Values{2.0f, 21.0f} << 100.0f;
    QTest::newRow("power") << "calc_mode=1" << Values() << 29.0f;
    QTest::newRow("power by spacing") << "calc_mode=2" << Values() << 14.5f;
    QTest::newRow("sum") << "calc_mode=3" << Values() << 9.0f;
    QTest::newRow("largest") << "calc_mode=4" << Values() << 4.0f;
    QTest::newRow("mean") << "calc_mode=5" << Values() << 3.0f;
    QTest::newRow("mean frequency") << "calc_mode=6;frequency_calc=0" << Values() << 70.0f / 9.0f;
    QTest::newRow("largest frequency") << "calc_mode=6;frequency_calc=1" << Values() << 8.0f;
    QTest::newRow("mode beyond the last") << "calc_mode=7;frequency_calc=1" << Values() << 8.0f;
    QTest::newRow("mode before the first") << "calc_mode=-1" << Values() << 72.5f;
}

void TestSpectrum::rhythmByMode()
{
    QFETCH(QString, values);
    QFETCH(QVector<float>, global);
    QFETCH(float, expected);
    const AmplifierInfo info = device(kBinsRate);
    values += QStringLiteral(";min_freq=6;max_freq=12");
    DependSpectrumNorm algorithm(makeParams(QStringLiteral("DependSpectrumNorm"), values), montageOf(2), info);
    if (!global.isEmpty()) {
        algorithm.setGlobalMinFreq(global[0]);
        algorithm.setGlobalMaxFreq(global[1]);
    }
    const Results results(algorithm);
    Samples spectra(11, 0.0f); // a silent channel first
    spectra.insert(spectra.end(), kBins.begin(), kBins.end());
    algorithm.takeData(QString(), UnitParams(), 2, spectra);
    QCOMPARE(results.all.size(), std::size_t{1});
    QCOMPARE(results.all[0].data.size(), std::size_t{8});
    QVERIFY(isNear(results.all[0].data[5], expected));
    QVERIFY(std::isfinite(results.all[0].data[4]));
}

void TestSpectrum::rhythmIsTheReference()
{
    const AmplifierInfo info = device(kRate);
    SpectrumOnline online(makeParams(QStringLiteral("SpectrumOnline"), QStringLiteral("time=3;square=0;smooth=0")),
                          montageOf(2), info);
    Samples block = noise(750, 1);
    const Samples second = noise(750, 2);
    block.insert(block.end(), second.begin(), second.end());
    std::vector<std::unique_ptr<DependSpectrumNorm>> rhythms;
    std::vector<std::unique_ptr<Results>> results;
    for (int mode = 0; mode < 8; ++mode) {
        const QString values = QStringLiteral("calc_mode=%1;frequency_calc=%2").arg(mode).arg(mode == 7 ? 1 : 0);
        rhythms.push_back(std::make_unique<DependSpectrumNorm>(makeParams(QStringLiteral("DependSpectrumNorm"), values),
                                                               montageOf(2), info));
        rhythms.back()->setSenderAlgorithm(&online);
        results.push_back(std::make_unique<Results>(*rhythms.back()));
    }
    online.appendData(750, block, false);
    for (std::size_t mode = 0; mode < results.size(); ++mode) {
        QCOMPARE(results[mode]->all.size(), std::size_t{1});
        const Samples &record = results[mode]->all[0].data;
        QVERIFY(isNear(record[4], m_golden[QStringLiteral("modes1")][int(mode)]));
        QVERIFY(isNear(record[5], m_golden[QStringLiteral("modes2")][int(mode)]));
    }
}

void TestSpectrum::bandOfBins_data()
{
    QTest::addColumn<QString>("values");
    QTest::addColumn<float>("sum"); ///< of the band's bins; −1 without output
    QTest::newRow("limits on bins") << "min_freq=6;max_freq=12" << 9.0f;
    QTest::newRow("limits between bins") << "min_freq=4.5;max_freq=10.5" << 9.0f;
    QTest::newRow("up to the last bin, without it") << "min_freq=14;max_freq=20" << 1.0f;
    QTest::newRow("beyond the last bin") << "min_freq=6;max_freq=20.1" << -1.0f;
    QTest::newRow("no width") << "min_freq=6;max_freq=6" << -1.0f;
    QTest::newRow("upside down") << "min_freq=12;max_freq=6" << -1.0f;
    QTest::newRow("from below 0") << "min_freq=-5;max_freq=6" << 3.0f;
    QTest::newRow("no number") << "min_freq=nan;max_freq=nan" << -1.0f;
}

void TestSpectrum::bandOfBins()
{
    QFETCH(QString, values);
    QFETCH(float, sum);
    const TraceCapture trace;
    const AmplifierInfo info = device(kBinsRate);
    values += QStringLiteral(";calc_mode=3");
    DependSpectrumNorm algorithm(makeParams(QStringLiteral("DependSpectrumNorm"), values), montageOf(1), info);
    const Results results(algorithm);
    for (int i = 0; i < 3; ++i) {
        algorithm.takeData(QString(), UnitParams(), 1, kBins);
    }
    QCOMPARE(results.all.size(), sum < 0.0f ? std::size_t{0} : std::size_t{3});
    QCOMPARE(trace.count(QStringLiteral("findMinMaxIndexes")), sum < 0.0f ? 1 : 0);
    QVERIFY(results.all.empty() || isNear(results.all[0].data[4], sum));
}

void TestSpectrum::normalizedValue_data()
{
    QTest::addColumn<QString>("values");
    QTest::addColumn<float>("expected");
    QTest::newRow("mean") << "average=1;min_thres=1;max_thres=9" << 0.25f;
    QTest::newRow("largest") << "average=0;min_thres=1;max_thres=9" << 0.375f;
    QTest::newRow("below") << "average=0;min_thres=5;max_thres=9" << 0.0f;
    QTest::newRow("above") << "average=0;min_thres=1;max_thres=3" << 1.0f;
    QTest::newRow("no range") << "average=0;min_thres=4;max_thres=4" << 0.0f;
}

void TestSpectrum::normalizedValue()
{
    QFETCH(QString, values);
    const Samples record = recordOf(values + QStringLiteral(";min_freq=6;max_freq=12"), kBins, 1);
    QCOMPARE(record.size(), std::size_t{6});
    QTEST(record[5], "expected");
    QTEST(record[0], "expected");
}

void TestSpectrum::recordOfARhythm()
{
    const AmplifierInfo info = device(kBinsRate);
    const QString values = QStringLiteral("min_freq=6;max_freq=12;calc_mode=3;average=0;min_thres=0.1;max_thres=4.1");
    DependSpectrumNorm algorithm(makeParams(QStringLiteral("DependSpectrumNorm"), values), montageOf(2), info);
    const Results results(algorithm);
    Samples spectra(22, 0.0f);
    spectra[3] = 2.1f;
    spectra[14] = 3.1f;
    spectra[15] = 1.0f;
    algorithm.takeData(QString(), UnitParams(), 2, spectra);
    spectra[14] = 10.0f;
    algorithm.takeData(QString(), UnitParams(), 2, spectra);
    spectra[14] = spectra[3] = spectra[15] = 0.0f;
    algorithm.takeData(QString(), UnitParams(), 2, spectra);
    QCOMPARE(results.all.size(), std::size_t{3});
    const std::array<Values, 3> expected{Values{0.75f, 0.75f, 0.0f, -1.0f, 2.1f, 4.1f, 0.5f, 0.75f},
                                         Values{1.0f, 1.0f, 0.5f, -1.0f, 2.1f, 11.0f, 0.5f, 1.0f},
                                         Values{0.0f, 1.0f, 0.5f, -1.0f, 0.0f, 0.0f, 0.0f, 0.0f}};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        QVERIFY(areNear(results.all[i].data, expected[i]));
        QVERIFY(results.all[i].type.isEmpty());
        QCOMPARE(results.all[i].channels, 2u);
    }
}

void TestSpectrum::onlyTheExpectedType()
{
    const AmplifierInfo info = device(kBinsRate);
    DependSpectrumNorm algorithm(makeParams(QStringLiteral("DependSpectrumNorm"), QString()), montageOf(1), info);
    const Results results(algorithm);
    algorithm.takeData(QStringLiteral("raw"), UnitParams(), 1, kBins);
    algorithm.takeData(QString(), UnitParams(), 0, kBins);
    algorithm.takeData(QString(), UnitParams(), 1, Samples());
    algorithm.takeData(QString(), UnitParams(), 100, kBins);
    algorithm.appendData(11, kBins, false);
    QVERIFY(results.all.empty());
    algorithm.takeData(QString(), UnitParams(), 1, kBins);
    QCOMPARE(results.all.size(), std::size_t{1});
}

void TestSpectrum::percentOfABand_data()
{
    QTest::addColumn<QString>("values");
    QTest::addColumn<Values>("share"); ///< of the channels: the thresholds' range in percent taken away and scaled
    const float first = 5.75032395f; // percent1 and percent2 of the reference
    const float second = 7.6248712f;
    QTest::newRow("all channels") << "p_min_thres=0;p_max_thres=100" << Values{first, second};
    QTest::newRow("range") << "p_min_thres=5;p_max_thres=25" << Values{(first - 5) * 5, (second - 5) * 5};
    QTest::newRow("below and above") << "p_min_thres=6;p_max_thres=7" << Values{0.0f, 100.0f};
    QTest::newRow("no range") << "p_min_thres=7;p_max_thres=7" << Values{0.0f, 0.0f};
    QTest::newRow("selection") << "p_min_thres=0;p_max_thres=100;channel=C1" << Values{second};
    QTest::newRow("selection in its order") << "p_min_thres=0;p_max_thres=100;channel=C1,,C0" << Values{second, first};
    QTest::newRow("unknown name") << "p_min_thres=0;p_max_thres=100;channel=C1,Cz" << Values{second};
}

void TestSpectrum::percentOfABand()
{
    QFETCH(QString, values);
    QFETCH(Values, share);
    const TraceCapture trace;
    const AmplifierInfo info = device(kRate);
    const QString all = QStringLiteral("calc_mode=1;time=3;") + values;
    SpectrumNorm algorithm(makeParams(QStringLiteral("SpectrumNorm"), all), montageOf(2), info);
    QCOMPARE(trace.count(QStringLiteral("no channel Cz")), values.contains(QStringLiteral("Cz")) ? 1 : 0);
    const Results results(algorithm);
    Samples block = noise(750, 1);
    const Samples second = noise(750, 2);
    block.insert(block.end(), second.begin(), second.end());
    algorithm.appendData(750, block, false);
    QCOMPARE(results.all.size(), std::size_t{1});
    QVERIFY(m_golden[QStringLiteral("percent1")][0] > 5.75f);
    const float largest = *std::max_element(share.cbegin(), share.cend());
    const float percent = m_golden[QStringLiteral("percent2")][0];
    QVERIFY(areNear(results.all[0].data, Values{largest, largest, std::floor(largest), percent} + share));
    QCOMPARE(results.all[0].channels, static_cast<unsigned>(share.size()));
}

void TestSpectrum::selectedChannels()
{
    const AmplifierInfo info = device(kBinsRate);
    const QString values = QStringLiteral("min_freq=6;max_freq=12;min_thres=0;max_thres=8;channel=C2,C0");
    SpectrumNorm algorithm(makeParams(QStringLiteral("SpectrumNorm"), values), montageOf(3), info);
    const Results results(algorithm);
    Samples spectra = kBins;
    spectra.resize(33, 0.0f);
    spectra[11 + 4] = 7.0f; // of the channel that isn't selected
    spectra[22 + 4] = 2.0f;
    algorithm.takeData(QStringLiteral("raw"), UnitParams(), 3, spectra);
    QCOMPARE(results.all.size(), std::size_t{1});
    QVERIFY(areNear(results.all[0].data, Values{0.5f, 0.5f, 0.0f, -1.0f, 2.0f, 4.0f, 0.25f, 0.5f}));
    QCOMPARE(results.all[0].channels, 2u);
}

void TestSpectrum::artefactRecord()
{
    const AmplifierInfo info = device(kRate);
    const QString values = QStringLiteral("time=2;artefact=1;lfzsfz=3.5;max_thres=60;min_thres=0.01");
    SpectrumNorm algorithm(makeParams(QStringLiteral("SpectrumNorm"), values), montageOf(1), info);
    const Results results(algorithm);
    algorithm.appendData(500, sine(500, 20.0, 30.0), false);
    algorithm.appendData(500, sine(500, 6.0, 30.0), false);
    QCOMPARE(results.all.size(), std::size_t{2});
    const float largest = results.all[0].data[0];
    QVERIFY(largest > 0.4f && largest < 0.6f);
    QCOMPARE(head(results.all[1].data, 4), (Samples{-1.0f, largest, 0.0f, -1.0f}));
}

void TestSpectrum::switchResets()
{
    const AmplifierInfo info = device(kRate);
    UnitParams params = makeParams(QStringLiteral("SpectrumNorm"), QStringLiteral("time=2;step=0;max_thres=60"));
    SpectrumNorm algorithm(params, montageOf(1), info);
    const Results results(algorithm);
    algorithm.appendData(500, sine(500, 20.0, 30.0), false);
    params.setParamValue(QStringLiteral("max_thres"), QStringLiteral("50"));
    algorithm.setParam(params);
    algorithm.appendData(500, sine(500, 20.0, 3.0), false);
    QVERIFY(results.all[1].data[1] > 0.4f); // other thresholds leave the running maximum
    params.setParamValue(QStringLiteral("calc_mode"), QStringLiteral("1"));
    algorithm.setParam(params);
    algorithm.appendData(400, Samples(400), false);
    QCOMPARE(results.all.size(), std::size_t{2}); // the window begins anew
    algorithm.appendData(500, Samples(500), false);
    QCOMPARE(head(results.all[2].data, 4), (Samples{0.0f, 0.0f, 0.0f, 0.0f}));
}

void TestSpectrum::containerFeedsTheRhythm()
{
    AlgorithmManager manager;
    manager.setMontage(device(kRate), QSharedPointer<Montage>());
    manager.setAlgorithmParams(nullptr,
                               {ParamFactory::makeRhythmAlpha(QStringLiteral("C1")),
                                ParamFactory::makeCustomProperty(QStringLiteral("SpectrumOnline")),
                                ParamFactory::makeStandardRhythmList().front()});
    manager.setMontage(device(kRate), montageOf(2));
    const Results rhythm(*manager.findAlgorithms(QStringLiteral("SpectrumNorm")).front());
    const Results dependent(*manager.findAlgorithms(QStringLiteral("DependSpectrumNorm")).front());
    Samples raw(1500);
    Samples filtered(1500, 0.0f);
    const Samples alpha = sine(750, 30.0, 40.0);
    std::copy(alpha.begin(), alpha.end(), raw.begin() + 750);
    manager.processData(750, raw, filtered);
    QCOMPARE(rhythm.all.size(), std::size_t{1}); // of the block without channel filters
    QVERIFY(rhythm.all[0].data[3] > 90.0f);
    QCOMPARE(dependent.all.size(), std::size_t{1});
    QCOMPARE(dependent.all[0].data[0], 0.0f);
}

void TestSpectrum::blocksAllocateNothing()
{
    if (!AllocationCounter::isActive) {
        QSKIP("allocations are not counted");
    }
    BPCommon::setLogMode(BPCommon::LogAlgorithm, false);
    const AmplifierInfo info = device(kRate);
    const auto montage = montageOf(4);
    SpectrumOnline online(makeParams(QStringLiteral("SpectrumOnline"), QStringLiteral("step=0")), montage, info);
    DependSpectrumNorm dependent(makeParams(QStringLiteral("DependSpectrumNorm"), QString()), montage, info);
    dependent.setSenderAlgorithm(&online);
    SpectrumNorm values(makeParams(QStringLiteral("SpectrumNorm"), QStringLiteral("step=0;artefact=1")), montage, info);
    SpectrumNorm percents(makeParams(QStringLiteral("SpectrumNorm"), QStringLiteral("step=0;calc_mode=1")), montage,
                          info);
    const Samples block = noise(4 * 125, 1);
    long before = 0;
    for (int i = 0; i < 20; ++i) {
        before = i == 10 ? AllocationCounter::count.load() : before;
        for (CustomAlgorithm *algorithm : std::initializer_list<CustomAlgorithm *>{&online, &values, &percents}) {
            algorithm->appendData(125, block, false);
        }
    }
    QCOMPARE(AllocationCounter::count.load() - before, 0L);
    BPCommon::setLogMode(BPCommon::LogAlgorithm, true);
}

void TestSpectrum::historyIsTheLongSum_data()
{
    QTest::addColumn<float>("largest");
    QTest::newRow("around 1") << 2.0f;
    QTest::newRow("percents") << 100.0f;
    QTest::newRow("beyond 32 bits") << 1e6f;
}

/// Past its capacity, every average is that of the sum over the values which are left.
void TestSpectrum::historyIsTheLongSum()
{
    QFETCH(float, largest);
    std::mt19937 generator(5);
    std::uniform_real_distribution<float> any(0.0f, largest);
    Samples values(bp::ValueHistory::kCapacity + 12);
    std::generate(values.begin(), values.end(), [&] { return any(generator); });
    const auto average = [&](std::size_t from, std::size_t to) {
        int sum = 0;
        for (std::size_t i = from; i < to; ++i) {
            sum = static_cast<int>(std::min(static_cast<float>(sum) + values[i], 2147483520.0f));
        }
        return static_cast<float>(sum) / static_cast<float>(to - from);
    };
    bp::ValueHistory history;
    for (std::size_t i = 0; i < values.size(); ++i) {
        history.append(values[i]);
        const std::size_t from = i + 1 - std::min(i + 1, bp::ValueHistory::kCapacity);
        if (i == 0 || i == 1000 || from > 0) {
            QCOMPARE(history.average(), average(from, i + 1));
        }
    }
    QCOMPARE(history.size(), bp::ValueHistory::kCapacity);
    QCOMPARE(history.maximum(), *std::max_element(values.cbegin(), values.cend()));
    history.clear();
    history.append(2.5f);
    QCOMPARE(history.average(), 2.0f);
}

void TestSpectrum::historyIgnoresWhatIsNoValue()
{
    bp::ValueHistory history;
    QCOMPARE(history.average(), 0.0f);
    for (const float value : {-1.0f, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        history.append(value);
    }
    QCOMPARE(history.size(), std::size_t{0});
    QCOMPARE(history.maximum(), 0.0f);
}

BP_TEST_MAIN(TestSpectrum)
#include "TestSpectrum.moc"
