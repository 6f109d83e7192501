#include "support/AllocationCounter.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "bci/AlphaBetaPreprocessor.h"
#include "bci/AlphaBetaProcessor.h"
#include "bci/EEGBCIPreprocessor.h"
#include "bci/EEGBCIProcessor.h"
#include "bci/PortalPreprocessor.h"
#include "bci/PortalProcessor.h"
#include "bci/SignalFeatures.h"
#include "common/HalvinException.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QThread>

#include <cmath>
#include <limits>
#include <memory>
#include <random>

namespace {

using Rows = std::vector<std::vector<float>>;
using Bands = std::vector<QPair<float, float>>;
using Mode = PortalPreprocessor::PortalMode;

constexpr double kPi = 3.141592653589793;
constexpr int kRate = 256;
constexpr int kTimeoutMs = 20000;

/// A second at 256 Hz: bin k lies at k Hz, and a sine of k Hz shows in the bins k − 1 … k + 1 as 0.5, 1 and 0.5 of its
/// amplitude, which is the transform of the Hann taper with its correction of 2.
std::vector<float> sine(double hertz, double amplitude = 1.0, double offset = 0.0)
{
    std::vector<float> samples(kRate);
    for (int i = 0; i < kRate; ++i) {
        samples[static_cast<std::size_t>(i)] =
            static_cast<float>(offset + amplitude * std::sin(2.0 * kPi * hertz * i / kRate + 0.3));
    }
    return samples;
}

struct Example
{
    std::vector<float> features;
    int label;
};
using Examples = std::vector<Example>;

void learn(Processor &processor, const Examples &examples)
{
    for (const Example &example : examples) {
        Rows window{example.features};
        processor.preTrain(window, example.label);
    }
    processor.postTrain();
}

/// Classes around points that lie 10 apart along every feature.
Examples clusters(int classes, int perClass, std::size_t features, unsigned seed = 1)
{
    std::mt19937 random(seed);
    std::normal_distribution<float> noise;
    Examples examples;
    for (int i = 0; i < classes * perClass; ++i) {
        Example example{std::vector<float>(features), i % classes};
        for (float &value : example.features) {
            value = 10.0f * static_cast<float>(example.label) + noise(random);
        }
        examples.push_back(example);
    }
    return examples;
}

float classified(Processor &processor, const std::vector<float> &features, const QString &result)
{
    Rows window{features};
    Rows out;
    processor.passThrough(&window, &out);
    return processor.getResults().value(result, -99.0f);
}

QJsonObject throughText(const QJsonObject &model)
{
    return QJsonDocument::fromJson(QJsonDocument(model).toJson()).object();
}

void silence(bool silent)
{
    for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
        BPCommon::setLogMode(static_cast<BPCommon::LogEvent>(event), !silent);
    }
}

std::unique_ptr<PortalProcessor> portalOf(Mode mode, int neighbours = 3, float limit = -1.0f, int channels = 1)
{
    return std::make_unique<PortalProcessor>(neighbours, 0.8f, 3, limit, channels, mode);
}

std::unique_ptr<Processor> trained(int kind)
{
    std::unique_ptr<Processor> processor;
    if (kind == 0) {
        processor = std::make_unique<EEGBCIProcessor>(0.6f);
    } else {
        processor = portalOf(kind == 1 ? PortalPreprocessor::Spectral : PortalPreprocessor::Components);
    }
    processor->setFs(kRate);
    learn(*processor, clusters(2, 20, 4));
    return processor;
}

} // namespace

Q_DECLARE_METATYPE(Rows)
Q_DECLARE_METATYPE(Bands)
Q_DECLARE_METATYPE(Examples)
Q_DECLARE_METATYPE(Mode)

class TestEegBci : public QObject
{
    Q_OBJECT
private slots:
    void bandFeatures_data();
    void bandFeatures();
    void portalFeatures();
    void eegDecision_data();
    void eegDecision();
    void eegThirdLabelTurnsNothing();
    void invalidNumbersGetNoClass_data();
    void invalidNumbersGetNoClass();
    void eegValidation_data();
    void eegValidation();
    void eegUntrained_data();
    void eegUntrained();
    void portalVote_data();
    void portalVote();
    void portalSeparatesClasses_data();
    void portalSeparatesClasses();
    void portalLeavesArtefactsOut();
    void portalRefusesToTrain_data();
    void portalRefusesToTrain();
    void portalOnItsThread();
    void modelsDecideAlike_data();
    void modelsDecideAlike();
    void damagedModelsChangeNothing_data();
    void damagedModelsChangeNothing();
    void preprocessorModels();
    void allocatesNothingPerWindow();
};

void TestEegBci::bandFeatures_data()
{
    QTest::addColumn<std::vector<float>>("row");
    QTest::addColumn<Bands>("bands");
    QTest::addColumn<std::vector<float>>("eeg"); // without the fractal dimension
    QTest::addColumn<std::vector<float>>("alphaBeta");
    using V = std::vector<float>;
    QTest::newRow("energy in its band only") << sine(10, 6) << Bands{{8, 13}, {14, 30}} << V{2.4f, 0} << V{2.4f, 0};
    QTest::newRow("low edge belongs, high edge does not")
        << sine(10, 8) << Bands{{10, 11}, {9, 10}, {11, 12}, {10, 12}, {9.5f, 10.5f}} << V{8, 4, 4, 6, 8}
        << V{8, 4, 4, 6, 8};
    QTest::newRow("a band between two bins is empty")
        << sine(10) << Bands{{10.2f, 10.8f}, {12, 8}} << V{0, 0} << V{0, 0};
    QTest::newRow("above half the rate there is nothing")
        << sine(126, 3) << Bands{{125, 400}, {200, 300}} << V{1.5f, 0} << V{1.5f, 0};
    QTest::newRow("offset does not count") << sine(10, 8, 5000) << Bands{{10, 11}, {0, 3}} << V{8, 0} << V{8, 0};
    // Bins 0 and 1 hold 0 and 2.
    QTest::newRow("alpha/beta starts above 0 Hz") << sine(2, 4) << Bands{{0, 2}} << V{1} << V{2};
}

void TestEegBci::bandFeatures()
{
    QFETCH(std::vector<float>, row);
    QFETCH(Bands, bands);
    QFETCH(std::vector<float>, eeg);
    QFETCH(std::vector<float>, alphaBeta);
    Rows window{row, sine(20, 100)};
    Rows out;
    EEGBCIPreprocessor preprocessor(bands);
    preprocessor.setFs(kRate);
    preprocessor.doPreprocess(&window, &out);
    QCOMPARE(out.size(), std::size_t{1});
    QCOMPARE(out[0].size(), bands.size() + 1);
    for (std::size_t i = 0; i < bands.size(); ++i) {
        QVERIFY2(std::abs(out[0][i] - eeg[i]) < 2e-3f, qPrintable(QString::number(static_cast<double>(out[0][i]))));
    }
    float dimension = 0.0f;
    SignalFeatures::HiguchiFD(row, 10, &dimension);
    QCOMPARE(out[0].back(), dimension);
    AlphaBetaPreprocessor rhythms(bands);
    rhythms.setFs(kRate);
    rhythms.doPreprocess(&window, &out);
    QCOMPARE(out.size(), window.size());
    QCOMPARE(out[1].size(), bands.size());
    for (std::size_t i = 0; i < bands.size(); ++i) {
        QVERIFY2(std::abs(out[0][i] - alphaBeta[i]) < 2e-3f,
                 qPrintable(QString::number(static_cast<double>(out[0][i]))));
    }
    AlphaBetaProcessor processor;
    Rows copy;
    processor.passThrough(&out, &copy);
    QCOMPARE(copy, out);
    QVERIFY(processor.doValidate() && processor.getResults().isEmpty());
}

void TestEegBci::portalFeatures()
{
    PortalPreprocessor preprocessor(9.0f, 12.0f, PortalPreprocessor::Spectral);
    preprocessor.setFs(kRate);
    Rows window{sine(10, 2, 300), sine(40)};
    Rows out;
    for (int pass = 0; pass < 2; ++pass) { // features don't pile up
        preprocessor.doPreprocess(&window, &out);
    }
    const std::vector<float> expected{1, 2, 1, 0, 0, 0};
    QCOMPARE(out.size(), std::size_t{1});
    QCOMPARE(out[0].size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        QVERIFY(std::abs(out[0][i] - expected[i]) < 2e-3f);
    }
}

void TestEegBci::eegDecision_data()
{
    QTest::addColumn<Examples>("examples");
    QTest::addColumn<float>("feature");
    QTest::addColumn<float>("label");
    const Examples two{{{1}, 3}, {{2}, 3}, {{3}, 3}, {{7}, 8}, {{8}, 8}, {{9}, 8}};
    QTest::newRow("left of the middle") << two << 4.9f << 3.0f;
    QTest::newRow("right of the middle") << two << 5.1f << 8.0f;
    const Examples turned{{{1}, 8}, {{2}, 8}, {{3}, 8}, {{7}, 3}, {{8}, 3}, {{9}, 3}};
    QTest::newRow("the other way round, left") << turned << 4.9f << 8.0f;
    QTest::newRow("the other way round, right") << turned << 5.1f << 3.0f;
    const Examples skewed{{{1}, 0}, {{2}, 0}, {{30}, 0}, {{10}, 1}, {{12}, 1}, {{40}, 1}};
    QTest::newRow("medians, not means") << skewed << 8.0f << 1.0f;
    const Examples three{{{1}, 0}, {{2}, 0}, {{3}, 0}, {{7}, 1}, {{8}, 1}, {{9}, 1}, {{90}, 2}, {{91}, 2}, {{92}, 2}};
    QTest::newRow("a third label moves nothing, left") << three << 4.9f << 0.0f;
    QTest::newRow("a third label is never found") << three << 91.0f << 1.0f;
    // All medians are 5: the flag stays clear, so that only what projects below the threshold is of the first label.
    // The discriminant points to the smaller label, whose mean is larger.
    const Examples equal{{{4}, 1}, {{5}, 1}, {{9}, 1}, {{3}, 2}, {{5}, 2}, {{6}, 2}};
    QTest::newRow("equal medians, above") << equal << 7.0f << 2.0f;
    QTest::newRow("equal medians, at") << equal << 5.0f << 2.0f;
    QTest::newRow("equal medians, below") << equal << 3.0f << 1.0f;
}

void TestEegBci::eegDecision()
{
    QFETCH(Examples, examples);
    QFETCH(float, feature);
    QFETCH(float, label);
    EEGBCIProcessor processor(0.0f);
    learn(processor, examples);
    QSignalSpy published(&processor, &Processor::newResults);
    QCOMPARE(classified(processor, {feature}, QStringLiteral("label")), label);
    QCOMPARE(published.size(), 1);
    QCOMPARE(published[0][0].value<ProcessResult>().value(QStringLiteral("label")), label);
}

void TestEegBci::eegThirdLabelTurnsNothing()
{
    Examples examples = clusters(2, 20, 3);
    EEGBCIProcessor two(0.0f);
    learn(two, examples);
    examples.insert(examples.begin(), {{{0, 900, 0}, 2}, {{0, 900, 1}, 2}, {{1, 901, 0}, 2}});
    EEGBCIProcessor three(0.0f);
    learn(three, examples);
    QCOMPARE(three.model().value(QLatin1String("projection")), two.model().value(QLatin1String("projection")));
}

void TestEegBci::invalidNumbersGetNoClass_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<float>("value");
    for (int kind = 0; kind < 3; ++kind) {
        QTest::addRow("%d, NaN", kind) << kind << std::nanf("");
        QTest::addRow("%d, infinity", kind) << kind << std::numeric_limits<float>::infinity();
    }
}

void TestEegBci::invalidNumbersGetNoClass()
{
    QFETCH(int, kind);
    QFETCH(float, value);
    const auto processor = trained(kind);
    const QString name = kind == 0 ? QStringLiteral("label") : QStringLiteral("Class");
    QVERIFY(classified(*processor, {10, 10, 10, 10}, name) == 1.0f);
    QSignalSpy published(processor.get(), &Processor::newResults);
    TraceCapture trace;
    QCOMPARE(classified(*processor, {value, 10, 10, 10}, name), -99.0f);
    QCOMPARE(published.size(), 0);
    QCOMPARE(trace.count(QStringLiteral("Processor::passThrough")), 1);

    // One such window does not spoil a training either.
    Examples examples = clusters(2, 20, 4);
    examples.push_back({{1, value, 1, 1}, 0});
    processor->ResetTrainData();
    learn(*processor, examples);
    QVERIFY(classified(*processor, {10, 10, 10, 10}, name) == 1.0f);

    Rows window{sine(10)};
    Rows features;
    window[0][7] = value;
    EEGBCIPreprocessor preprocessor({{300, 400}}); // a band without bins
    preprocessor.setFs(kRate);
    preprocessor.doPreprocess(&window, &features);
    QVERIFY(std::isnan(features[0][0]) && std::isnan(features[0][1]));
}

void TestEegBci::eegValidation_data()
{
    QTest::addColumn<Examples>("examples");
    QTest::addColumn<float>("minimum");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<float>("rate1");
    QTest::addColumn<float>("rate2");
    // Medians 2 and 8: the 6 of the first class lies on the wrong side of 5.
    const Examples mixed{{{1}, 0}, {{2}, 0}, {{1.5f}, 0}, {{2.5f}, 0}, {{6}, 0}, {{7}, 1}, {{8}, 1}, {{9}, 1}};
    QTest::newRow("rates of both") << mixed << 0.75f << true << 0.8f << 1.0f;
    QTest::newRow("exactly the minimum") << mixed << 0.8f << true << 0.8f << 1.0f;
    QTest::newRow("one class below") << mixed << 0.85f << false << -1.0f << -1.0f;
    const Examples equal{{{5}, 0}, {{5}, 0}, {{5}, 1}, {{5}, 1}};
    QTest::newRow("on the threshold is on no side") << equal << 0.1f << false << -1.0f << -1.0f;
    QTest::newRow("one class only") << Examples{{{1}, 0}, {{2}, 0}} << 0.0f << false << -1.0f << -1.0f;
}

void TestEegBci::eegValidation()
{
    QFETCH(Examples, examples);
    QFETCH(float, minimum);
    QFETCH(bool, valid);
    QFETCH(float, rate1);
    QFETCH(float, rate2);
    EEGBCIProcessor processor(minimum);
    learn(processor, examples);
    QCOMPARE(processor.doValidate(), valid);
    QCOMPARE(processor.getResults().value(QStringLiteral("ValidationRate1"), -1.0f), rate1);
    QCOMPARE(processor.getResults().value(QStringLiteral("ValidationRate2"), -1.0f), rate2);
}

void TestEegBci::eegUntrained_data()
{
    QTest::addColumn<Examples>("examples");
    QTest::newRow("no examples") << Examples();
    QTest::newRow("one class") << Examples{{{1}, 4}, {{2}, 4}};
    QTest::newRow("rows of different lengths") << Examples{{{1}, 0}, {{2, 3}, 1}};
    QTest::newRow("empty rows") << Examples{{{}, 0}, {{}, 1}};
    QTest::newRow("not a number") << Examples{{{std::nanf("")}, 0}, {{2}, 1}};
}

void TestEegBci::eegUntrained()
{
    QFETCH(Examples, examples);
    EEGBCIProcessor processor(0.0f);
    learn(processor, examples);
    QVERIFY(!processor.doValidate());
    QVERIFY(processor.model().isEmpty());
    Rows window{{1.0f}};
    Rows out;
    try {
        processor.passThrough(&window, &out);
        QFAIL("nothing was thrown");
    } catch (const HalvinException &error) {
        QCOMPARE(error.what(), "DimReduction::ProcessFLD code: 2000");
    }
}

void TestEegBci::portalVote_data()
{
    QTest::addColumn<int>("neighbours");
    QTest::addColumn<std::vector<float>>("features");
    QTest::addColumn<float>("label");
    // Class 5 at 0, 1 and 2 of both features, class 2 at 8 … 11; the third feature never varies.
    QTest::newRow("the nearest") << 1 << std::vector<float>{2.0f, 2.0f, 7.0f} << 5.0f;
    QTest::newRow("a tie goes to the smaller label") << 6 << std::vector<float>{1.0f, 1.0f, 7.0f} << 2.0f;
    QTest::newRow("more neighbours than examples: all vote") << 100 << std::vector<float>{0.0f, 0.0f, 7.0f} << 2.0f;
    QTest::newRow("what never varied does not count") << 1 << std::vector<float>{9.0f, 9.0f, -1e9f} << 2.0f;
    QTest::newRow("no neighbours are one") << 0 << std::vector<float>{9.0f, 9.0f, 7.0f} << 2.0f;
}

void TestEegBci::portalVote()
{
    QFETCH(int, neighbours);
    QFETCH(std::vector<float>, features);
    QFETCH(float, label);
    const auto portal = portalOf(PortalPreprocessor::Spectral, neighbours);
    // Off the diagonal a little, so that each class varies in two directions.
    learn(*portal,
          {{{0, 0.1f, 7}, 5},
           {{1, 0.9f, 7}, 5},
           {{2, 2.1f, 7}, 5},
           {{8, 8.1f, 7}, 2},
           {{9, 8.9f, 7}, 2},
           {{10, 10.1f, 7}, 2},
           {{11, 10.8f, 7}, 2}});
    QVERIFY(!portal->model().isEmpty());
    TraceCapture trace;
    QCOMPARE(classified(*portal, features, QStringLiteral("Class")), label);
    QCOMPARE(trace.count(QStringLiteral("PortalProcessor::getWinner 3")), 1);
    QCOMPARE(trace.count(QStringLiteral("PortalProcessor::getWinner winner : ")), 1);
}

void TestEegBci::portalSeparatesClasses_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<int>("classes");
    QTest::newRow("spectral, two") << PortalPreprocessor::Spectral << 2;
    QTest::newRow("spectral, four") << PortalPreprocessor::Spectral << 4;
    QTest::newRow("components, two") << PortalPreprocessor::Components << 2;
    QTest::newRow("components, four") << PortalPreprocessor::Components << 4;
}

void TestEegBci::portalSeparatesClasses()
{
    QFETCH(Mode, mode);
    QFETCH(int, classes);
    const auto portal = portalOf(mode);
    QSignalSpy result(portal.get(), &PortalProcessor::getTrainProcessResult);
    learn(*portal, clusters(classes, 15, 6));
    QCOMPARE(result.size(), 1);
    QCOMPARE(result[0][0].toBool(), true);
    QVERIFY(portal->doValidate());
    for (int c = 0; c < classes; ++c) {
        QCOMPARE(portal->getResults().value(QStringLiteral("rate_%1").arg(c)), 1.0f);
        const std::vector<float> centre(6, 10.0f * static_cast<float>(c) + 0.5f);
        QCOMPARE(classified(*portal, centre, QStringLiteral("Class")), static_cast<float>(c));
    }
}

void TestEegBci::portalLeavesArtefactsOut()
{
    const auto examplesKept = [](float limit) {
        const auto portal = portalOf(PortalPreprocessor::Spectral, 3, limit, 2);
        Examples examples = clusters(2, 20, 4);
        examples.push_back({{5, 5, 1e4f, 1e4f}, 0}); // among 41 examples 6.2 deviations off
        examples.push_back({{5, 5, -1e4f, -1e4f}, 0}); // only the upper side counts
        learn(*portal, examples);
        return portal->model().value(QStringLiteral("rows")).toArray().size();
    };
    QCOMPARE(examplesKept(-1.0f), 42);
    QCOMPARE(examplesKept(3.0f), 41);
}

void TestEegBci::portalRefusesToTrain_data()
{
    QTest::addColumn<Examples>("examples");
    QTest::addColumn<QString>("line");
    const QString inconsistent = QStringLiteral("PortalProcessor::runSlot unknoun error");
    const QString bad = QStringLiteral("PortalProcessor::runSlot Bad PCA");
    QTest::newRow("no examples") << Examples() << inconsistent;
    QTest::newRow("one class") << clusters(1, 10, 4) << inconsistent;
    QTest::newRow("no features") << Examples{{{}, 0}, {{}, 1}} << inconsistent;
    QTest::newRow("rows of different lengths") << Examples{{{1, 2}, 0}, {{1}, 1}, {{2, 1}, 0}} << inconsistent;
    QTest::newRow("not a number") << Examples{{{std::nanf("")}, 0}, {{2}, 1}} << inconsistent;
    QTest::newRow("one example per class") << clusters(3, 1, 4) << bad;
    QTest::newRow("nothing varies") << Examples{{{1, 2}, 0}, {{1, 2}, 0}, {{1, 2}, 1}, {{1, 2}, 1}} << bad;
    QTest::newRow("one feature") << clusters(2, 9, 1) << bad;
}

void TestEegBci::portalRefusesToTrain()
{
    QFETCH(Examples, examples);
    QFETCH(QString, line);
    const auto portal = portalOf(PortalPreprocessor::Spectral);
    learn(*portal, clusters(2, 9, 4)); // an older model does not outlive the failure
    portal->ResetTrainData();
    QSignalSpy result(portal.get(), &PortalProcessor::getTrainProcessResult);
    QSignalSpy finished(portal.get(), &PortalProcessor::finishThread);
    TraceCapture trace;
    learn(*portal, examples);
    QCOMPARE(trace.count(line), 1);
    QCOMPARE(trace.count(QStringLiteral("PortalProcessor::runSlot end 0")), 1);
    QCOMPARE(result.size(), 1);
    QCOMPARE(result[0][0].toBool(), false);
    QCOMPARE(finished.size(), 1);
    QVERIFY(!portal->isThreadRunning() && !portal->doValidate() && portal->model().isEmpty());
    QCOMPARE(classified(*portal, {1, 2, 3, 4}, QStringLiteral("Class")), -99.0f);
}

void TestEegBci::portalOnItsThread()
{
    QThread thread;
    const auto portal = portalOf(PortalPreprocessor::Spectral);
    portal->moveToThread(&thread);
    portal->setQThread(&thread);
    connect(&thread, SIGNAL(started()), portal.get(), SLOT(runSlot()));
    connect(portal.get(), SIGNAL(finishThread()), &thread, SLOT(quit()));
    QList<bool> results;
    connect(portal.get(), &PortalProcessor::getTrainProcessResult, this, [&](bool result) {
        results << result;
        if (results.size() == 1) {
            portal->postTrain(); // the thread is still on its way out
        }
    });
    learn(*portal, clusters(2, 20, 4));
    portal->ResetTrainData(); // touches nothing that trains
    QTRY_COMPARE_WITH_TIMEOUT(results.size(), 2, kTimeoutMs);
    QCOMPARE(results, (QList<bool>{true, false}));
    QTRY_VERIFY_WITH_TIMEOUT(thread.isFinished(), kTimeoutMs);

    portal->setQThread(nullptr);
    learn(*portal, clusters(2, 20, 4));
    portal->runningThread(true);
    Rows window{{0, 0, 0, 0}};
    portal->preTrain(window, 7);
    QCOMPARE(classified(*portal, window[0], QStringLiteral("Class")), -99.0f);
    QVERIFY(!portal->doValidate() && portal->model().isEmpty());
    portal->runningThread(false);
    QCOMPARE(classified(*portal, window[0], QStringLiteral("Class")), 0.0f);
}

void TestEegBci::modelsDecideAlike_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("EEG BCI") << 0;
    QTest::newRow("Portal, spectral") << 1;
    QTest::newRow("Portal, components") << 2;
}

void TestEegBci::modelsDecideAlike()
{
    QFETCH(int, kind);
    const auto original = trained(kind);
    std::unique_ptr<Processor> copy = portalOf(PortalPreprocessor::Spectral, 1);
    if (kind == 0) {
        copy = std::make_unique<EEGBCIProcessor>(0.6f);
    }
    QString reason;
    QVERIFY2(copy->setModel(throughText(original->model()), reason), qPrintable(reason));
    QCOMPARE(copy->model(), original->model());
    QCOMPARE(copy->getFs(), kRate);
    const QString result = kind == 0 ? QStringLiteral("label") : QStringLiteral("Class");
    for (float x = -1.0f; x < 11.0f; x += 0.25f) {
        const std::vector<float> features{x, 10.0f - x, x + 1.0f, 0.5f * x};
        QCOMPARE(classified(*copy, features, result), classified(*original, features, result));
    }
    QCOMPARE(copy->doValidate(), original->doValidate());
    QCOMPARE(copy->getResults(), original->getResults());
}

void TestEegBci::damagedModelsChangeNothing_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    const auto row = [](int kind, const char *key, const QJsonValue &value, const char *what) {
        QTest::addRow("%d %s: %s", kind, key, what) << kind << QString::fromLatin1(key) << value;
    };
    const QJsonValue oneFloat(QStringLiteral("AACAPw==")); // 1.0
    for (int kind = 0; kind < 3; ++kind) {
        row(kind, "kind", QStringLiteral("AlphaBetaProcessor"), "of another");
        row(kind, "version", 2, "newer");
        row(kind, "fs", QStringLiteral("fast"), "no number");
        row(kind, "labels", QJsonArray{1, 0}, "in disorder");
        row(kind, "labels", QJsonArray{0.5, 1}, "broken");
        row(kind, "projection", QJsonValue(), "missing");
    }
    row(0, "projection", QJsonArray{QStringLiteral("AACAPw=")}, "short text");
    row(0, "projection", QJsonArray{QStringLiteral("AAA=")}, "half a float");
    row(0, "projection", QJsonArray{QStringLiteral("AADAfw==")}, "not a number");
    row(0, "threshold", QJsonValue(), "missing");
    row(0, "orientation", 1, "no flag");
    row(0, "values", QJsonArray{oneFloat}, "of one class");
    row(0, "values", QJsonArray{oneFloat, QStringLiteral("AADAfw==")}, "not a number");
    row(1, "means", oneFloat, "too few");
    row(1, "deviations", oneFloat, "too few");
    row(1, "deviations", QStringLiteral("AACAvwAAgL8AAIC/AACAvw=="), "below 0");
    row(1, "rows", QJsonArray{oneFloat}, "too short");
    row(1, "rows", QJsonArray(), "none");
    row(1, "rowLabels", QJsonArray{0}, "too few");
    row(1, "neighbours", 0, "none");
    row(1, "mode", 2, "unknown");
    row(1, "mode", 1, "without components");
    row(2, "mode", 0, "with components");
    row(2, "projection", QJsonArray{oneFloat}, "too short");
}

void TestEegBci::damagedModelsChangeNothing()
{
    QFETCH(int, kind);
    QFETCH(QString, key);
    QFETCH(QJsonValue, value);
    const auto processor = trained(kind);
    const QJsonObject before = processor->model();
    QJsonObject damaged = before;
    damaged.insert(key, value);
    QString reason;
    QVERIFY(!processor->setModel(damaged, reason));
    QVERIFY(reason.endsWith(QLatin1Char('.')));
    QCOMPARE(processor->model(), before);
}

void TestEegBci::preprocessorModels()
{
    const Bands bands{{8, 13}, {0.1f, 30}};
    EEGBCIPreprocessor eeg(bands);
    EEGBCIPreprocessor eegCopy({});
    AlphaBetaPreprocessor rhythms(bands);
    AlphaBetaPreprocessor rhythmsCopy({});
    PortalPreprocessor portal(8.1f, 13, PortalPreprocessor::Components);
    PortalPreprocessor portalCopy(0, 1, PortalPreprocessor::Spectral);
    const QList<QPair<Preprocessor *, Preprocessor *>> pairs{
        {&eeg, &eegCopy}, {&rhythms, &rhythmsCopy}, {&portal, &portalCopy}};
    Rows window{sine(10), sine(11)};
    for (const auto &[original, copy] : pairs) {
        original->setFs(kRate);
        QString reason;
        QVERIFY2(copy->setModel(throughText(original->model()), reason), qPrintable(reason));
        QCOMPARE(copy->model(), original->model());
        Rows out;
        Rows outOfCopy;
        original->doPreprocess(&window, &out);
        copy->doPreprocess(&window, &outOfCopy);
        QCOMPARE(outOfCopy, out);
    }
    QString reason;
    QVERIFY(!eeg.setModel(rhythms.model(), reason) && reason.contains(QLatin1String("AlphaBetaPreprocessor")));
}

void TestEegBci::allocatesNothingPerWindow()
{
    if (!AllocationCounter::isActive) {
        QSKIP("Nothing counts allocations under this sanitizer");
    }
    EEGBCIPreprocessor preprocessor({{4, 8}, {8, 13}, {13, 30}});
    preprocessor.setFs(kRate);
    const auto processor = trained(0);
    Rows window{sine(10)};
    Rows features;
    Rows out;
    silence(true);
    long before = 0;
    for (int i = 0; i < 20; ++i) {
        before = i == 1 ? AllocationCounter::count.load() : before;
        window[0][static_cast<std::size_t>(i)] += 1.0f;
        preprocessor.doPreprocess(&window, &features);
        processor->passThrough(&features, &out);
    }
    const long taken = AllocationCounter::count.load() - before;
    silence(false);
    QCOMPARE(taken, 0L);
}

BP_TEST_MAIN(TestEegBci)
#include "TestEegBci.moc"
