#include "bci/BPMPreprocessor.h"
#include "bci/EMGBCIPreprocessor.h"
#include "bci/EMGBCIProcessor.h"
#include "bci/EMGGaitPreprocessor.h"
#include "bci/EMGGaitProcessor.h"
#include "bci/EMGGesturePreprocessor.h"
#include "bci/EMGGestureProcessor.h"

#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QJsonDocument>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

using Row = std::vector<float>;
using Block = std::vector<Row>;

namespace {

constexpr int kFs = 300; // the shortest run: 100 samples, the longest: 3000
constexpr double kPi = 3.141592653589793;

/// Rest of mean 1: 0.9, 1.1, 0.9, …
Row rest(std::size_t count)
{
    Row row(count);
    for (std::size_t i = 0; i < count; ++i) {
        row[i] = i % 2 == 0 ? 0.9f : 1.1f;
    }
    return row;
}

/// Rest with a run of one value in it, in a window that is 200 samples longer than the run.
Row movement(std::size_t run, float value)
{
    Row row = rest(run + 200);
    std::fill_n(row.begin() + 100, run, value);
    return row;
}

float result(const Processor &processor, const char *name)
{
    return processor.getResults().value(QLatin1String(name), std::numeric_limits<float>::quiet_NaN());
}

void train(Processor &processor, Block window, int label)
{
    processor.preTrain(window, label);
}

Row classify(Processor &processor, Block window)
{
    Block out;
    processor.passThrough(&window, &out);
    return out.empty() ? Row() : out.front();
}

Block preprocess(Preprocessor &preprocessor, Block window)
{
    Block out;
    preprocessor.doPreprocess(&window, &out);
    return out;
}

/// Through text, as models are kept.
QJsonObject stored(const QJsonObject &model)
{
    return QJsonDocument::fromJson(QJsonDocument(model).toJson(QJsonDocument::Compact)).object();
}

/// Noise of one tone's colour: a decaying resonance at hz, excited by seeded noise.
Row noise(std::mt19937 &generator, std::size_t count, float amplitude, double hz, int fs)
{
    std::normal_distribution<float> normal(0.0f, amplitude);
    const auto a1 = static_cast<float>(2.0 * 0.9 * std::cos(2.0 * kPi * hz / fs));
    Row row(count + 50);
    for (std::size_t i = 0; i < row.size(); ++i) {
        row[i] = normal(generator) + (i > 0 ? a1 * row[i - 1] : 0.0f) - (i > 1 ? 0.81f * row[i - 2] : 0.0f);
    }
    row.erase(row.begin(), row.begin() + 50);
    return row;
}

/// Two channels of a gesture: 0 rest, 1 the first muscle, 2 the second one, 3 both, in other colours.
Block gesture(std::mt19937 &generator, int kind)
{
    const float first = kind == 1 || kind == 3 ? 20.0f : 1.0f;
    const float second = kind == 2 || kind == 3 ? 20.0f : 1.0f;
    return {noise(generator, 300, first, kind == 3 ? 300.0 : 80.0, 1000),
            noise(generator, 300, second, kind == 3 ? 20.0 : 120.0, 1000)};
}

/// Raw EMG of two muscles at 1000 Hz, as many steps as asked for after 2 s of standing; muscle 0 is active in the first
/// 60 % of a step, muscle 1 from 40 % to 80 %: the codes 1, 3, 2, 0.
Block gait(int steps, std::size_t stepSamples)
{
    std::mt19937 generator(7);
    std::normal_distribution<float> normal(0.0f, 1.0f);
    const std::size_t standing = 2000;
    Block raw(2, Row(standing + static_cast<std::size_t>(steps) * stepSamples));
    for (std::size_t i = 0; i < raw[0].size(); ++i) {
        const double part =
            i < standing ? 0.9 : static_cast<double>((i - standing) % stepSamples) / static_cast<double>(stepSamples);
        raw[0][i] = 500.0f + normal(generator) * (part < 0.6 ? 50.0f : 2.0f);
        raw[1][i] = -300.0f + normal(generator) * (part >= 0.4 && part < 0.8 ? 30.0f : 2.0f);
    }
    return raw;
}

} // namespace

class TestEmg : public QObject
{
    Q_OBJECT
private slots:
    void bciEnvelope();
    void bciTraining_data();
    void bciTraining();
    void bciScore_data();
    void bciScore();
    void bciRecoversFromBadInput();
    void gestures_data();
    void gestures();
    void gestureRejects();
    void gestureShrinksAsDataCallFor();
    void invalidNumbersGetNoClass();
    void gestureDegenerate_data();
    void gestureDegenerate();
    void gestureUnmixes();
    void gaitSteps_data();
    void gaitSteps();
    void gaitWithoutCycle();
    void heartRate_data();
    void heartRate();
    void damagedModels_data();
    void damagedModels();
};

void TestEmg::bciEnvelope()
{
    EMGBCIPreprocessor preprocessor(5);
    preprocessor.setFs(1000);
    Row alternating(1000, 3.0f);
    for (std::size_t i = 0; i < alternating.size(); i += 2) {
        alternating[i] = -3.0f;
    }
    const Block out = preprocess(preprocessor, {alternating, Row(1000, 0.0f), alternating});
    QVERIFY(out[0].front() < 0.01f); // the filter starts from zero in every row
    QVERIFY(std::abs(out[0].back() - 3.0f) < 0.01f); // and lets the level of the rectified signal through
    QCOMPARE(out[1], Row(1000, 0.0f));
    QCOMPARE(out[2], out[0]);

    TraceCapture trace;
    EMGBCIPreprocessor tooHigh(500);
    tooHigh.setFs(1000);
    QCOMPARE(preprocess(tooHigh, {{-1.0f, 2.0f}}), (Block{{1.0f, 2.0f}}));
    preprocess(tooHigh, {{-1.0f}});
    QCOMPARE(trace.count(QStringLiteral("EMGBCIPreprocessor::doPreprocess")), 1);
}

void TestEmg::bciTraining_data()
{
    QTest::addColumn<int>("outliers"); // of 1000 samples of rest in channel 1; negative: no rest at all
    QTest::addColumn<int>("run");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("trained");
    const QString none;
    const QString tooLong = QStringLiteral("ERROR: Movement in channel 1 too long");
    QTest::newRow("run of exactly a third of a second") << 0 << 100 << none << true;
    QTest::newRow("one sample less") << 0 << 99 << QStringLiteral("WARNING: Movement in channel 1 not found") << false;
    QTest::newRow("run of exactly ten seconds") << 0 << 3000 << none << true;
    QTest::newRow("one sample more") << 0 << 3001 << tooLong << false;
    QTest::newRow("5 % outliers") << 50 << 100 << none << true;
    QTest::newRow("movement before rest")
        << -1 << 100 << QStringLiteral("ERROR: Action data sent before rest training") << false;
}

void TestEmg::bciTraining()
{
    QFETCH(int, outliers);
    QFETCH(int, run);
    QFETCH(QString, message);
    QFETCH(bool, trained);
    EMGBCIProcessor processor;
    processor.setFs(kFs);
    if (outliers >= 0) {
        Row quiet = rest(1000);
        std::fill_n(quiet.begin() + 500, outliers, 20.0f);
        train(processor, {rest(1000), quiet}, 0);
    }
    if (!message.isEmpty()) {
        QTest::ignoreMessage(QtDebugMsg, qPrintable(message));
    }
    train(processor, {rest(10), movement(static_cast<std::size_t>(run), 1000.0f)}, 2);
    processor.postTrain();
    QVERIFY(processor.doValidate());
    QCOMPARE(processor.getResults().contains(QStringLiteral("thresh_1")), trained);
    if (trained && outliers == 0) {
        // 0.7 · 999 / 0.1, the sample deviation being 0.1 · √(1000 / 999)
        QVERIFY(std::abs(result(processor, "thresh_1") - 6993.0 / std::sqrt(1000.0 / 999.0)) < 0.5);
        QCOMPARE(result(processor, "thresh_0"), 0.0f);
    }
}

void TestEmg::bciScore_data()
{
    QTest::addColumn<int>("run");
    QTest::addColumn<float>("value");
    QTest::addColumn<float>("score");
    QTest::addColumn<float>("label");
    QTest::newRow("trained strength") << 150 << 11.0f << 1.0f / 0.7f << 1.0f;
    QTest::newRow("three quarters of it") << 150 << 8.5f << 0.75f / 0.7f << 1.0f;
    QTest::newRow("below 70 % of it") << 150 << 7.9f << 0.0f << 0.0f;
    QTest::newRow("too short") << 99 << 11.0f << 0.0f << 0.0f;
    QTest::newRow("longer than ten seconds") << 3001 << 11.0f << 0.0f << 0.0f;
}

void TestEmg::bciScore()
{
    QFETCH(int, run);
    QFETCH(float, value);
    QFETCH(float, score);
    QFETCH(float, label);
    EMGBCIProcessor processor;
    processor.setFs(kFs);
    train(processor, {rest(1000), Row(1000, 2.0f)}, 0); // channel 1 never varies
    train(processor, {movement(200, 11.0f), rest(400)}, 1);
    QTest::ignoreMessage(QtDebugMsg, "WARNING: Movement in channel 1 not found");
    train(processor, {rest(400), movement(200, 11.0f)}, 2);
    processor.postTrain();

    EMGBCIProcessor restored;
    QString reason;
    QVERIFY2(restored.setModel(stored(processor.model()), reason), qPrintable(reason));
    for (EMGBCIProcessor *each : {&processor, &restored}) {
        QSignalSpy spy(each, SIGNAL(newResults(ProcessResult)));
        const Row row = movement(static_cast<std::size_t>(run), value);
        const Row scores = classify(*each, {row, row});
        QCOMPARE(spy.size(), 1);
        QCOMPARE(scores.size(), std::size_t{2});
        QVERIFY(std::abs(scores[0] - score) < 1e-3f);
        QCOMPARE(scores[1], 0.0f);
        QCOMPARE(result(*each, "score_0"), scores[0]);
        QCOMPARE(result(*each, "Class"), label);
    }
    processor.ResetEmgBci();
    QCOMPARE(classify(processor, {movement(150, 11.0f)}), (Row{0.0f, 0.0f}));
    QVERIFY(processor.model().isEmpty());
}

void TestEmg::bciRecoversFromBadInput()
{
    EMGBCIProcessor processor;
    processor.setFs(kFs);
    Row spikes = rest(1000);
    std::fill_n(spikes.begin() + 500, 60, 20.0f); // 6 %
    train(processor, {rest(1000), rest(1000)}, 0);
    QTest::ignoreMessage(QtDebugMsg, "ERROR: bad REST training for channel № 1. Try retraining");
    train(processor, {rest(1000), spikes}, 0);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    QTest::ignoreMessage(QtDebugMsg, "ERROR: bad REST training for channel № 0. Try retraining");
    train(processor, {Row(1000, nan)}, 0);
    train(processor, {rest(10)}, -3);
    QTest::ignoreMessage(QtDebugMsg, "WARNING: Movement in channel 1 not found");
    train(processor, {rest(10)}, 2); // a window without channel 1
    train(processor, {rest(10), movement(200, 11.0f)}, 2); // the earlier rest still counts
    processor.postTrain();

    TraceCapture trace;
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(classify(processor, {}).at(1), 0.0f);
    }
    QCOMPARE(trace.count(QStringLiteral("EMGBCIProcessor::passThrough")), 1);
    QCOMPARE(classify(processor, {rest(400), movement(200, 11.0f)}).size(), std::size_t{2}); // −3, 0 and 2, less one
    QCOMPARE(result(processor, "Class"), 2.0f);
}

void TestEmg::gestures_data()
{
    QTest::addColumn<bool>("normalise");
    QTest::addColumn<int>("shrinkage");
    QTest::addColumn<int>("order");
    QTest::newRow("normalised") << true << 10 << 4;
    QTest::newRow("as they are") << false << 10 << 4;
    QTest::newRow("independent features") << true << 100 << 4;
    QTest::newRow("more features than degrees of freedom") << true << 30 << 20;
    QTest::newRow("shrunk as the data call for") << true << EMGGestureProcessor::kShrinkageFromData << 20;
}

void TestEmg::gestures()
{
    QFETCH(bool, normalise);
    QFETCH(int, shrinkage);
    QFETCH(int, order);
    std::mt19937 generator(1);
    EMGGesturePreprocessor preprocessor(order, true);
    EMGGestureProcessor processor(0.9f, normalise, shrinkage, 8, 0.0f);
    const int labels[]{3, 10, 20, 31};
    for (int example = 0; example < 12; ++example) {
        for (int kind = 0; kind < 4; ++kind) {
            train(processor, preprocess(preprocessor, gesture(generator, kind)), labels[kind]);
        }
    }
    processor.postTrain();
    QVERIFY(processor.doValidate());
    QVERIFY(result(processor, "rate_3") >= 0.9f);
    EMGGestureProcessor restored(0.5f, true, 0, 2, 1.0f);
    QString reason;
    QVERIFY2(restored.setModel(stored(processor.model()), reason), qPrintable(reason));
    int right = 0;
    for (int trial = 0; trial < 80; ++trial) {
        const Block features = preprocess(preprocessor, gesture(generator, trial % 4));
        const Row distances = classify(processor, features);
        right += result(processor, "Class") == static_cast<float>(labels[trial % 4]) ? 1 : 0;
        QCOMPARE(classify(restored, features), distances);
        QCOMPARE(result(restored, "Class"), result(processor, "Class"));
    }
    QVERIFY2(right >= 78, qPrintable(QString::number(right)));
}

void TestEmg::gestureRejects()
{
    // Two features, independent, of deviation 1 within the classes; centres (0, 0) and (20, 0). The third never varies.
    EMGGestureProcessor processor(1.0f, false, 100, 4, 3.0f);
    for (const float x : {0.0f, 20.0f}) {
        const float d = std::sqrt(0.75f); // 8 examples, 6 degrees of freedom: Σd² / 6 = 8 · 0.75 / 6 = 1
        for (const float sign : {-1.0f, 1.0f}) {
            train(processor, {{x + sign * d, d, 5.0f}}, x == 0.0f ? 0 : 1);
            train(processor, {{x + sign * d, -d, 5.0f}}, x == 0.0f ? 0 : 1);
        }
    }
    processor.postTrain();
    QVERIFY(processor.doValidate());
    const float root = std::sqrt(2.0f);
    const struct
    {
        Row features;
        float label;
        float distance;
    } cases[]{{{0.0f, 0.0f, 5.0f}, 0.0f, 0.0f},
              {{17.0f, 0.0f, 900.0f}, 1.0f, 3.0f / root},
              {{0.0f, 4.2f, 5.0f}, 0.0f, 4.2f / root},
              {{0.0f, 4.3f, 5.0f}, -1.0f, 4.3f / root},
              {{20.0f, -100.0f, 5.0f}, -1.0f, 100.0f / root}};
    for (const auto &each : cases) {
        QCOMPARE(classify(processor, {each.features}).size(), std::size_t{2});
        QCOMPARE(result(processor, "Class"), each.label);
        QVERIFY(std::abs(result(processor, "distance") - each.distance) < 1e-3f * (1.0f + each.distance));
    }
    QVERIFY(classify(processor, {{std::numeric_limits<float>::quiet_NaN(), 0.0f, 0.0f}}).empty());
    QCOMPARE(result(processor, "Class"), -1.0f);
    QCOMPARE(result(processor, "distance"), 0.0f);
    TraceCapture trace;
    for (const Block &window : {Block{{1.0f}}, Block{}, Block{{}}}) {
        QVERIFY(classify(processor, window).empty());
        QCOMPARE(result(processor, "Class"), -1.0f);
    }
    QCOMPARE(trace.count(QStringLiteral("EMGGestureProcessor::")), 1);
}

/// Of two features of mean square 1 and correlation 1/3, 18 examples: d² = 2/9, b² = (4 − 20/9) / 18 = 8/81 and the
/// shrinkage 4/9.
void TestEmg::gestureShrinksAsDataCallFor()
{
    const auto distance = [](int shrinkage) {
        EMGGestureProcessor processor(0.0f, false, shrinkage, 2, 0.0f);
        for (int i = 0; i < 3; ++i) {
            for (const Row &row : {Row{1, 1}, Row{-1, -1}, Row{1, 1}, Row{-1, -1}, Row{1, -1}, Row{-1, 1}}) {
                train(processor, {{row[0] + 10.0f, row[1]}}, i == 0 ? 1 : 2);
            }
        }
        processor.postTrain();
        return classify(processor, {{12.0f, 2.0f}}).at(0);
    };
    const float found = distance(EMGGestureProcessor::kShrinkageFromData);
    QVERIFY(found > distance(44) && found < distance(45));
}

void TestEmg::invalidNumbersGetNoClass()
{
    EMGBCIPreprocessor envelope(5);
    envelope.setFs(kFs);
    EMGBCIProcessor muscles;
    muscles.setFs(kFs);
    train(muscles, {rest(1000), rest(1000)}, 0);
    train(muscles, {movement(200, 11.0f), rest(400)}, 1);
    muscles.postTrain();
    EMGGaitPreprocessor gaitEnvelope(6);
    gaitEnvelope.setFs(1000);
    EMGGaitProcessor gaitProcessor(30, 2000, 0.3f);
    gaitProcessor.setFs(1000);
    Block walk = gait(6, 1000);
    train(gaitProcessor, preprocess(gaitEnvelope, walk), 1);
    gaitProcessor.postTrain();
    QVERIFY(gaitProcessor.doValidate());

    classify(muscles, {rest(400), rest(400)});
    classify(gaitProcessor, preprocess(gaitEnvelope, walk));
    QCOMPARE(result(muscles, "Class"), 0.0f);
    QVERIFY(gaitProcessor.getResults().contains(QStringLiteral("phase")));
    walk[1][5] = std::numeric_limits<float>::infinity();
    Row broken = rest(400);
    broken[3] = std::numeric_limits<float>::quiet_NaN();
    TraceCapture trace;
    QVERIFY(classify(muscles, preprocess(envelope, {broken, rest(400)})).empty());
    QVERIFY(classify(gaitProcessor, preprocess(gaitEnvelope, walk)).empty());
    QVERIFY(!muscles.getResults().contains(QStringLiteral("Class")));
    QVERIFY(!gaitProcessor.getResults().contains(QStringLiteral("phase")));
    QCOMPARE(trace.count(QStringLiteral("passThrough")), 2);
    classify(muscles, preprocess(envelope, {rest(400), broken})); // not trained: does not count
    QVERIFY(muscles.getResults().contains(QStringLiteral("Class")));
}

void TestEmg::gestureDegenerate_data()
{
    using Examples = QVector<QPair<int, QVector<float>>>;
    QTest::addColumn<Examples>("examples");
    QTest::newRow("none") << Examples{};
    QTest::newRow("one class") << Examples{{1, {1.0f}}, {1, {2.0f}}};
    QTest::newRow("one example per class") << Examples{{1, {1.0f}}, {2, {2.0f}}};
    QTest::newRow("features never vary") << Examples{{1, {1.0f}}, {1, {1.0f}}, {2, {1.0f}}, {2, {1.0f}}};
    QTest::newRow("not within the classes") << Examples{{1, {0.1f}}, {1, {0.1f}}, {2, {0.7f}}, {2, {0.7f}}};
}

void TestEmg::gestureDegenerate()
{
    using Examples = QVector<QPair<int, QVector<float>>>;
    QFETCH(Examples, examples);
    EMGGestureProcessor processor(0.0f, true, 0, 0, 0.0f);
    for (const auto &[label, features] : examples) {
        train(processor, {Row(features.begin(), features.end())}, label);
    }
    TraceCapture trace;
    processor.postTrain();
    QVERIFY(!processor.doValidate());
    QCOMPARE(trace.count(QStringLiteral("EMGGestureProcessor::postTrain no classifier: ")), 1);
    QVERIFY(classify(processor, {{1.0f}}).empty());
    QVERIFY(processor.model().isEmpty());
}

void TestEmg::gestureUnmixes()
{
    std::mt19937 generator(3);
    const Block sources = gesture(generator, 1);
    Block mixed = sources;
    for (std::size_t i = 0; i < mixed[0].size(); ++i) {
        mixed[0][i] = sources[0][i] + sources[1][i];
        mixed[1][i] = sources[0][i] - sources[1][i];
    }
    EMGGesturePreprocessor plain(3, true);
    EMGGesturePreprocessor unmixing(3, true);
    unmixing.setICA({{0.5f, 0.5f}, {0.5f, -0.5f}});
    EMGGesturePreprocessor restored(0, false);
    QString reason;
    QVERIFY(restored.setModel(stored(unmixing.model()), reason));
    const Row expected = preprocess(plain, sources).at(0);
    const Row found = preprocess(unmixing, mixed).at(0);
    QCOMPARE(expected.size(), std::size_t{16}); // (5 + 3) · 2
    for (std::size_t i = 0; i < expected.size(); ++i) {
        QVERIFY(std::abs(found[i] - expected[i]) < 1e-3f * (1.0f + std::abs(expected[i])));
    }
    QCOMPARE(preprocess(restored, mixed).at(0), found);

    TraceCapture trace;
    const Block three{mixed[0], mixed[1], mixed[0]};
    QCOMPARE(preprocess(unmixing, three), preprocess(plain, three));
    const Row empty = preprocess(unmixing, {{}, {}}).at(0);
    QVERIFY(std::all_of(empty.begin(), empty.end(), [](float value) { return std::isfinite(value); }));
    QCOMPARE(trace.count(QStringLiteral("EMGGesturePreprocessor::doPreprocess")), 1);
}

void TestEmg::gaitSteps_data()
{
    QTest::addColumn<int>("steps");
    QTest::addColumn<int>("stepMs");
    QTest::newRow("slow") << 6 << 1400;
    QTest::newRow("usual") << 10 << 1000;
    QTest::newRow("fast") << 9 << 800;
}

void TestEmg::gaitSteps()
{
    QFETCH(int, steps);
    QFETCH(int, stepMs);
    EMGGaitPreprocessor preprocessor(6);
    preprocessor.setFs(1000);
    EMGGaitProcessor processor(80, 2000, 0.4f);
    processor.setFs(1000);
    const Block standing = preprocess(preprocessor, gait(0, 1000));
    train(processor, standing, 0);
    train(processor, preprocess(preprocessor, gait(12, 1000)), 1);
    processor.postTrain();
    QVERIFY(processor.doValidate());
    QCOMPARE(result(processor, "phases"), 4.0f);

    EMGGaitProcessor restored(1, 1, 0.0f);
    restored.setFs(1000);
    QString reason;
    QVERIFY2(restored.setModel(stored(processor.model()), reason), qPrintable(reason));
    const Block raw = gait(steps, static_cast<std::size_t>(stepMs));
    const Block walking = preprocess(preprocessor, raw);
    for (EMGGaitProcessor *each : {&processor, &restored}) {
        const Row out = classify(*each, walking);
        QCOMPARE(result(*each, "steps"), static_cast<float>(steps));
        QVERIFY(std::abs(result(*each, "cadence") - 60000.0f / static_cast<float>(stepMs)) < 2.0f);
        QCOMPARE(out, (Row{0.0f, 3.0f, static_cast<float>(steps), result(*each, "cadence")}));
        classify(*each, standing);
        QCOMPARE(result(*each, "steps"), 0.0f);
        QCOMPARE(result(*each, "cadence"), 0.0f);
    }
    // Windows that end with each phase of the second step, behind which the envelope lags: codes 1, 3, 2, 0.
    const int codes[]{1, 3, 2, 0};
    const double ends[]{1.4, 1.6, 1.8, 2.0};
    for (int phase = 0; phase < 4; ++phase) {
        Block cut = raw;
        for (Row &row : cut) {
            row.resize(2000 + static_cast<std::size_t>(ends[phase] * stepMs));
        }
        classify(processor, preprocess(preprocessor, cut));
        QCOMPARE(result(processor, "code"), static_cast<float>(codes[phase]));
        QCOMPARE(result(processor, "phase"), static_cast<float>(phase));
    }
}

void TestEmg::gaitWithoutCycle()
{
    EMGGaitPreprocessor preprocessor(6);
    preprocessor.setFs(1000);
    EMGGaitProcessor processor(80, 2000, 0.4f);
    processor.setFs(1000);
    processor.postTrain();
    QVERIFY(!processor.doValidate());
    train(processor, {}, 1);
    train(processor, {{}}, 1);
    train(processor, preprocess(preprocessor, gait(0, 1000)), 0); // only standing: plain noise
    train(processor, {{1.0f, 2.0f}}, 1); // another number of muscles
    processor.postTrain();
    QVERIFY(!processor.doValidate());
    QVERIFY(processor.model().isEmpty());
    TraceCapture trace;
    for (const Block &window : {Block{}, Block{{1.0f}}, Block{{}, {}}}) {
        QCOMPARE(classify(processor, window), (Row{0.0f, -1.0f, 0.0f, 0.0f}));
    }
    QCOMPARE(trace.count(QStringLiteral("EMGGaitProcessor::passThrough")), 1);

    // A cycle slower than the longest step is not one.
    EMGGaitProcessor strict(80, 900, 0.4f);
    strict.setFs(1000);
    train(strict, preprocess(preprocessor, gait(12, 1000)), 1);
    strict.postTrain();
    QVERIFY(!strict.doValidate());
}

void TestEmg::heartRate_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<int>("fs");
    QTest::addColumn<double>("bpm");
    QTest::addColumn<float>("scale");
    QTest::newRow("ECG, slow") << 0 << 250 << 48.0 << 1.0f;
    QTest::newRow("ECG, usual, inverted") << 0 << 360 << 75.5 << -1000.0f;
    QTest::newRow("ECG, fast") << 0 << 1000 << 180.0 << 0.001f;
    QTest::newRow("ECG, low rate") << 0 << 64 << 80.0 << 1.0f;
    QTest::newRow("PPG, slow") << 1 << 100 << 45.0 << 1.0f;
    QTest::newRow("PPG, usual, inverted") << 1 << 500 << 72.3 << -10.0f;
    QTest::newRow("PPG, fast") << 1 << 25 << 170.0 << 1.0f;
}

void TestEmg::heartRate()
{
    QFETCH(int, source);
    QFETCH(int, fs);
    QFETCH(double, bpm);
    QFETCH(float, scale);
    BPMPreprocessor preprocessor(static_cast<BPMPreprocessor::Source>(source));
    preprocessor.setFs(fs);
    std::mt19937 generator(5);
    std::normal_distribution<float> normal(0.0f, 0.02f);
    const auto bell = [](double t, double centre, double width) {
        return std::exp(-0.5 * (t - centre) * (t - centre) / (width * width));
    };
    Row wave(static_cast<std::size_t>(10 * fs));
    for (std::size_t i = 0; i < wave.size(); ++i) {
        const double seconds = static_cast<double>(i) / fs;
        const double t = std::fmod(seconds, 60.0 / bpm);
        // R wave and T wave, or pulse and dicrotic wave, over a baseline that wanders with the breath
        const double beat = source == 0 ? bell(t, 0.1, 0.012) + 0.25 * bell(t, 0.1 + 12.0 / bpm, 0.03)
                                        : bell(t, 9.0 / bpm, 4.5 / bpm) + 0.3 * bell(t, 30.0 / bpm, 5.0 / bpm);
        wave[i] =
            scale * (5.0f + static_cast<float>(beat + 0.3 * std::sin(2.0 * kPi * 0.25 * seconds)) + normal(generator));
    }
    BPMPreprocessor restored;
    QString reason;
    QVERIFY2(restored.setModel(stored(preprocessor.model()), reason), qPrintable(reason));
    restored.setFs(fs);
    const Block out = preprocess(preprocessor, {wave, Row(wave.size(), 7.0f), {}, {1.0f}});
    QVERIFY2(std::abs(out[0].at(0) - bpm) < 0.01 * bpm, qPrintable(QString::number(static_cast<double>(out[0][0]))));
    QVERIFY(out[0].at(1) > 0.7f && out[0].at(1) <= 1.0f);
    for (std::size_t silent = 1; silent < 4; ++silent) {
        QCOMPARE(out[silent], (Row{0.0f, 0.0f}));
    }
    QCOMPARE(preprocess(restored, {wave}).at(0), out[0]);

    TraceCapture trace;
    preprocessor.setFs(10);
    QCOMPARE(preprocess(preprocessor, {wave}), (Block{{0.0f, 0.0f}}));
    preprocess(preprocessor, {wave});
    QCOMPARE(trace.count(QStringLiteral("BPMPreprocessor::doPreprocess")), 1);
}

void TestEmg::damagedModels_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    QTest::newRow("another kind") << QStringLiteral("kind") << QJsonValue(QStringLiteral("PortalProcessor"));
    QTest::newRow("missing centres") << QStringLiteral("centres") << QJsonValue();
    QTest::newRow("one class") << QStringLiteral("classes") << QJsonValue(QJsonArray{1});
    QTest::newRow("unsorted classes") << QStringLiteral("classes") << QJsonValue(QJsonArray{2, 1});
    QTest::newRow("cut matrix") << QStringLiteral("whitening") << QJsonValue(QJsonArray{QStringLiteral("AACAPw==")});
    QTest::newRow("scale of another length") << QStringLiteral("scale") << QJsonValue(QStringLiteral("AACAPw=="));
    QTest::newRow("not a number") << QStringLiteral("mean") << QJsonValue(QStringLiteral("AADAfwAAwH8="));
}

void TestEmg::damagedModels()
{
    QFETCH(QString, key);
    QFETCH(QJsonValue, value);
    EMGGestureProcessor processor(0.0f, true, 0, 2, 0.0f);
    for (const float x : {0.0f, 1.0f, 3.0f}) {
        train(processor, {{x, x * x}}, 1);
        train(processor, {{x + 9.0f, -x}}, 2);
    }
    processor.postTrain();
    const QJsonObject good = processor.model();
    QVERIFY(!good.isEmpty());
    QJsonObject bad = good;
    bad[key] = value;
    QString reason;
    QVERIFY(!processor.setModel(bad, reason));
    QVERIFY(!reason.isEmpty());
    QCOMPARE(processor.model(), good);

    EMGGaitProcessor gaitProcessor(1, 1, 1.0f);
    EMGBCIProcessor bciProcessor;
    QVERIFY(!gaitProcessor.setModel(good, reason) && !bciProcessor.setModel(good, reason));
}

BP_TEST_MAIN(TestEmg)
#include "TestEmg.moc"
