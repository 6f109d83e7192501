#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "algorithms/ElectroCardiogram.h"
#include "algorithms/ParamFactory.h"
#include "devices/AmplifierInfo.h"
#include "montage/AverageMontage.h"
#include "montage/BipolarMontage.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

namespace {

using Samples = std::vector<float>;
using Values = QVector<double>;

/// As the generator of heartrate_reference.py.
struct Random
{
    unsigned state;

    int below(int limit)
    {
        state = (state * 1103515245u + 12345u) % 2147483648u;
        return static_cast<int>(state >> 16) % limit;
    }
};

int wave(int distance, int halfWidth, int height)
{
    return height * std::max(0, halfWidth - std::abs(distance)) / halfWidth;
}

/// A wave of 1 mV at every beat, downwards as the algorithm needs it, and a T wave of 0.15 mV behind it.
void addBeats(Samples &samples, int rate, const std::vector<int> &beats)
{
    for (const int beat : beats) {
        const int last = std::min(static_cast<int>(samples.size()), beat + rate / 2);
        for (int i = std::max(0, beat - rate / 2); i < last; ++i) {
            samples[static_cast<std::size_t>(i)] -= static_cast<float>(
                wave(i - beat, rate / 25, 1000) + wave(i - beat - rate * 3 / 10, rate * 4 / 25, 150));
        }
    }
}

Samples clean(int rate, const std::vector<int> &beats)
{
    Samples samples(static_cast<std::size_t>(beats.back() + rate));
    addBeats(samples, rate, beats);
    return samples;
}

Samples noisy(int rate, int seconds, int seed)
{
    Random random{static_cast<unsigned>(seed)};
    std::vector<int> beats;
    for (int position = rate / 2; position < rate * seconds;) {
        beats.push_back(position);
        const bool early = beats.size() % 9 == 0;
        position += early ? rate * 7 / 20 : rate * 7 / 10 + random.below(rate * 3 / 10);
    }
    Samples samples(static_cast<std::size_t>(rate * seconds));
    std::generate(samples.begin(), samples.end(), [&random] { return static_cast<float>(random.below(21) - 10); });
    addBeats(samples, rate, beats);
    return samples;
}

std::vector<int> every(int interval, int first, int count)
{
    std::vector<int> beats;
    for (int i = 0; i < count; ++i) {
        beats.push_back(first + i * interval);
    }
    return beats;
}

AmplifierInfo device(int rate)
{
    return AmplifierInfo(QStringLiteral("Test"), QString(), QString(), 2, {static_cast<float>(rate)});
}

/// @param text "key=value" separated by blanks
UnitParams withValues(const QString &text)
{
    UnitParams params = ParamFactory::makeCustomProperty(QStringLiteral("ElectroCardiogram"));
    for (const QString &value : text.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        params.setParamValue(value.section(QLatin1Char('='), 0, 0), value.section(QLatin1Char('='), 1));
    }
    return params;
}

/// The second channel, and a threshold above the T waves.
const QString kValues = QStringLiteral("channel=2 ampMin=2.5 ");

/// An algorithm on the second of two channels, and the records that it published.
class Run
{
public:
    explicit Run(int rate, const QString &values = QString())
        : m_info(device(rate))
        , m_montage(QSharedPointer<Montage>::create())
    {
        m_montage->resize(2);
        algorithm = std::make_unique<ElectroCardiogram>(withValues(kValues + values), m_montage, m_info);
        QObject::connect(
            algorithm.get(), &CustomAlgorithm::getData,
            [this](const QString &type, const UnitParams &, unsigned int channel, const vector<float> &data) {
                QVERIFY(type.isEmpty() && channel == 1 && data.size() == 3);
                rates << static_cast<double>(data[0]);
                milliseconds << static_cast<double>(data[1]);
                peaks << static_cast<double>(data[2]);
            });
    }

    /// The first channel carries something else, and the block is longer than what is valid.
    void feed(const Samples &samples, std::size_t block)
    {
        for (std::size_t i = 0; i + block <= samples.size(); i += block) {
            Samples planar(2 * block + 5, -3000.0f);
            std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(i), block,
                        planar.begin() + static_cast<std::ptrdiff_t>(block));
            algorithm->appendData(static_cast<unsigned int>(block), planar, false);
        }
    }

    std::unique_ptr<ElectroCardiogram> algorithm;
    Values rates;
    Values milliseconds;
    Values peaks;

private:
    AmplifierInfo m_info;
    QSharedPointer<Montage> m_montage;
};

QString joined(const Values &values)
{
    QStringList texts;
    for (const double value : values) {
        texts << QString::number(value, 'g', 6);
    }
    return texts.join(QLatin1Char(' '));
}

} // namespace

class TestHeartRate : public QObject
{
    Q_OBJECT

private slots:
    void sizesFollowFromTheRate_data();
    void sizesFollowFromTheRate();
    void regularBeats_data();
    void regularBeats();
    void earlyBeatIsDropped_data();
    void earlyBeatIsDropped();
    void lateBeatNeedsAReset();
    void positivePeaksAreNotFound();
    void goldenBeats_data();
    void goldenBeats();
    void unusableConfigurationIsTraced_data();
    void unusableConfigurationIsTraced();
    void unchangedParametersKeepTheMeasurement();
    void bipolarMontageHasFilteredBlocksOnly();
};

void TestHeartRate::sizesFollowFromTheRate_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<QString>("values");
    QTest::addColumn<QVector<int>>("sizes");
    QTest::newRow("500 Hz") << 500 << QString() << QVector<int>{2001, 10, 12, 75};
    QTest::newRow("360 Hz") << 360 << QString() << QVector<int>{1441, 7, 9, 54};
    QTest::newRow("250 Hz, 45 bpm") << 250 << QStringLiteral("bpmMin=45") << QVector<int>{667, 5, 6, 37};
    QTest::newRow("limited") << 500 << QStringLiteral("bpmMin=0.001") << QVector<int>{4194304, 10, 12, 75};
}

void TestHeartRate::sizesFollowFromTheRate()
{
    QFETCH(int, rate);
    QFETCH(QString, values);
    const Run run(rate, values);
    const ElectroCardiogram::Sizes &sizes = run.algorithm->sizes();
    QTEST(QVector<int>({sizes.buffer, sizes.before, sizes.after, sizes.search}), "sizes");
}

void TestHeartRate::regularBeats_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("block");
    QTest::addColumn<int>("interval");
    QTest::addColumn<QString>("values");
    QTest::addColumn<int>("published"); // of 10 beats
    for (const int block : {1, 7, 25, 100, 333}) {
        QTest::addRow("75 bpm in blocks of %d", block) << 500 << block << 400 << QString() << 9;
    }
    QTest::newRow("60 bpm, no filter but the notch") << 250 << 10 << 250 << QStringLiteral("hp_freq=0 lp_freq=0") << 9;
    QTest::newRow("too slow for the filters") << 64 << 4 << 48 << QString() << 9;
    QTest::newRow("fastest") << 500 << 25 << 200 << QString() << 9;
    QTest::newRow("slowest") << 500 << 25 << 1000 << QString() << 9;
    QTest::newRow("slower than the slowest") << 500 << 25 << 1001 << QString() << 0;
    QTest::newRow("as many samples as the buffer") << 500 << 2001 << 400 << QString() << 0;
    QTest::newRow("R peaks below the threshold") << 500 << 25 << 400 << QStringLiteral("ampMin=12") << 0;
}

void TestHeartRate::regularBeats()
{
    QFETCH(int, rate);
    QFETCH(int, block);
    QFETCH(int, interval);
    QFETCH(QString, values);
    QFETCH(int, published);
    const std::vector<int> beats = every(interval, 2 * rate, 10);
    Samples samples = clean(rate, beats);
    samples[static_cast<std::size_t>(2 * rate - 150 * rate / 500)] = std::numeric_limits<float>::quiet_NaN();
    Run run(rate, values);
    run.feed(samples, static_cast<std::size_t>(block));
    QCOMPARE(run.rates.size(), published);
    for (int i = 0; i < published; ++i) {
        QCOMPARE(static_cast<float>(run.rates[i]), 60.0f * static_cast<float>(rate) / static_cast<float>(interval));
        QCOMPARE(static_cast<float>(run.milliseconds[i]),
                 1000.0f * static_cast<float>(interval) / static_cast<float>(rate));
        QCOMPARE(run.peaks[i], static_cast<double>(beats[static_cast<std::size_t>(i) + 1]));
    }
}

void TestHeartRate::earlyBeatIsDropped_data()
{
    QTest::addColumn<int>("block");
    QTest::addColumn<QString>("peaks");
    QTest::addColumn<QString>("milliseconds");
    QTest::newRow("short blocks") << 50 << QStringLiteral("820 1220 1620") << QStringLiteral("1040 800 800");
    // The first block is too short of samples before it, and the third is searched only up to the early beat.
    QTest::newRow("the block's other beat is lost") << 500 << QStringLiteral("1620") << QStringLiteral("1600");
}

void TestHeartRate::earlyBeatIsDropped()
{
    QFETCH(int, block);
    Run run(500);
    run.feed(clean(500, {300, 820, 1000, 1220, 1620}), static_cast<std::size_t>(block));
    QTEST(joined(run.peaks), "peaks");
    QTEST(joined(run.milliseconds), "milliseconds");
}

void TestHeartRate::lateBeatNeedsAReset()
{
    const TraceCapture trace;
    Run run(500);
    run.feed(clean(500, {500, 900, 2000, 2400, 2800}), 25);
    QCOMPARE(joined(run.peaks), QStringLiteral("900"));
    QCOMPARE(trace.count(QStringLiteral("ElectroCardiogram::acceptPeak no beat for 2.2")), 1);
    QCOMPARE(trace.count(QStringLiteral("ElectroCardiogram::acceptPeak")), 1);

    run.algorithm->resetAlgorithm();
    run.feed(clean(500, {500, 900}), 25);
    QCOMPARE(joined(run.peaks), QStringLiteral("900 900"));
}

void TestHeartRate::positivePeaksAreNotFound()
{
    Samples samples = clean(500, every(400, 1000, 10));
    std::transform(samples.begin(), samples.end(), samples.begin(), [](float x) { return -x; });
    Run run(500);
    run.feed(samples, 25);
    QCOMPARE(joined(run.peaks), QString());
}

/// Beats of heartrate_reference.py, every ninth of which comes too early: lines "rate milliseconds peak".
void TestHeartRate::goldenBeats_data()
{
    QTest::addColumn<QStringList>("settings"); // rate, block, ampMin, seconds, seed
    QTest::addColumn<QStringList>("beats");
    QFile file(QStringLiteral(BP_REFERENCE_DIR "/golden/heartrate.txt"));
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList cases = QString::fromLatin1(file.readAll()).split(QStringLiteral("case "), Qt::SkipEmptyParts);
    QCOMPARE(cases.size(), 3);
    for (const QString &text : cases) {
        const QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        const QStringList head = lines.first().split(QLatin1Char(' '));
        QTest::newRow(qPrintable(head.first())) << QStringList(head.mid(1)) << QStringList(lines.mid(1));
    }
}

void TestHeartRate::goldenBeats()
{
    QFETCH(QStringList, settings);
    QFETCH(QStringList, beats);
    const int rate = settings[0].toInt();
    Run run(rate, QStringLiteral("ampMin=") + settings[2]);
    run.feed(noisy(rate, settings[3].toInt(), settings[4].toInt()), settings[1].toUInt());
    QCOMPARE(run.rates.size(), beats.size());
    for (int i = 0; i < beats.size(); ++i) {
        const QStringList values = beats[i].split(QLatin1Char(' '));
        QCOMPARE(static_cast<float>(run.rates[i]), values[0].toFloat());
        QCOMPARE(static_cast<float>(run.milliseconds[i]), values[1].toFloat());
        QCOMPARE(run.peaks[i], values[2].toDouble());
    }
}

void TestHeartRate::unusableConfigurationIsTraced_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<QString>("values");
    QTest::addColumn<QString>("line");
    QTest::newRow("no least rate") << 500 << QStringLiteral("bpmMin=0") << QStringLiteral("calcParametrs");
    QTest::newRow("negative rate") << 500 << QStringLiteral("bpmMax=-1") << QStringLiteral("calcParametrs");
    QTest::newRow("no number") << 500 << QStringLiteral("bpmMin=nan") << QStringLiteral("calcParametrs");
    QTest::newRow("no sample rate") << 0 << QString() << QStringLiteral("calcParametrs");
    QTest::newRow("channel 0") << 500 << QStringLiteral("channel=0") << QStringLiteral("no channel 0 among 2");
    QTest::newRow("channel behind the last")
        << 500 << QStringLiteral("channel=3") << QStringLiteral("no channel 3 among 2");
}

void TestHeartRate::unusableConfigurationIsTraced()
{
    QFETCH(int, rate);
    QFETCH(QString, values);
    QFETCH(QString, line);
    const TraceCapture trace;
    Run run(rate, values);
    run.feed(clean(500, every(400, 1000, 10)), 25);
    QCOMPARE(joined(run.peaks), QString());
    QCOMPARE(trace.count(QStringLiteral("ElectroCardiogram::")), 1);
    QCOMPARE(trace.count(line), 1);
}

void TestHeartRate::unchangedParametersKeepTheMeasurement()
{
    const Samples samples = clean(500, every(400, 500, 2));
    Run run(500);
    run.feed(samples, 25);
    run.algorithm->setParam(withValues(kValues));
    run.feed(samples, 25);
    // 1400 samples from one start to the next: the first beat of the second pass comes 1000 samples after 900.
    QCOMPARE(joined(run.peaks), QStringLiteral("900 1900 2300"));
    run.algorithm->setParam(withValues(kValues + QStringLiteral("bpmMax=160")));
    run.feed(samples, 25);
    QCOMPARE(joined(run.peaks), QStringLiteral("900 1900 2300 3700"));
}

void TestHeartRate::bipolarMontageHasFilteredBlocksOnly()
{
    const AmplifierInfo info = device(500);
    const auto needsRaw = [&info](const QSharedPointer<Montage> &montage) {
        return ElectroCardiogram(UnitParams(), montage, info).isNeedRawData();
    };
    QVERIFY(needsRaw(QSharedPointer<Montage>::create()));
    QVERIFY(needsRaw(QSharedPointer<AverageMontage>::create(Montage())));
    QVERIFY(!needsRaw(QSharedPointer<BipolarMontage>::create(Montage())));
}

BP_TEST_MAIN(TestHeartRate)
#include "TestHeartRate.moc"
