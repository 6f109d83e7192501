#include "bci/LearningCSM.h"
#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "bci/RegressionSM.h"
#include "common/HalvinException.h"
#include "filters/Filtrator.h"
#include "pipeline/OfflineDataSource.h"
#include "support/AllocationCounter.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"
#include "support/WarningCapture.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>

#include <atomic>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>

using Row = std::vector<float>;
using Block = std::vector<Row>;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

/// Sends its stacks at once when it is started.
class FakeSource : public DataSource
{
    Q_OBJECT
public:
    explicit FakeSource(int fs, double bufSize = 0.0, LabelType labelType = SampleLabels)
    {
        m_fs = fs;
        m_bufSize = bufSize;
        m_labelType = labelType;
    }
    void SendData(bool realTime) override
    {
        ++starts;
        wasRealTime = realTime;
        for (const auto &stack : stacks) {
            sendStack(stack.first, stack.second);
        }
        emit endOfData();
    }
    /// One channel of consecutive numbers from 1, a block per label.
    void count(const std::vector<int> &labels, int blockSamples)
    {
        double next = 1.0;
        for (const int label : labels) {
            std::vector<double> row;
            for (int i = 0; i < blockSamples; ++i) {
                row.push_back(next++);
            }
            stacks.push_back({{row}, label});
        }
    }

    std::vector<std::pair<std::vector<std::vector<double>>, int>> stacks;
    int starts = 0;
    bool wasRealTime = false;
};

using Failure = std::function<void()>;

class FakePreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override
    {
        if (failure) {
            failure();
        }
        *out = *in;
    }

    Failure failure;
};

/// Keeps windows and examples; its only result is the last sample of the last window.
class FakeProcessor : public Processor
{
    Q_OBJECT
public:
    void postTrain() override
    {
        ++trainings;
        failAt("postTrain");
    }
    bool doValidate() override
    {
        failAt("doValidate");
        return isValid;
    }
    using Processor::preTrain;
    void preTrain(vector<vector<float>> &window, int label) override
    {
        failAt("preTrain");
        m_examples.push_back(window.at(0));
        m_labels.push_back(label);
    }
    void passThrough(vector<vector<float>> *in, vector<vector<float>> *out) override
    {
        failAt("passThrough");
        *out = *in;
        windows.push_back(*in);
        m_results[QStringLiteral("Class")] = in->at(0).back();
        publishResults();
    }
    const std::vector<int> &labels() const { return m_labels; }
    const Block &examples() const { return m_examples; }
    std::vector<int> uniqueLabels() const
    {
        std::vector<int> unique;
        getUniqueLabels(unique);
        return unique;
    }

    std::vector<Block> windows;
    int trainings = 0;
    bool isValid = true;
    Failure failure;
    QByteArray failsAt; ///< name of an operation

protected:
    void failAt(const char *operation) const
    {
        if (failsAt == operation) {
            failure();
        }
    }
};

/// Trains on the model's thread for as long as the test wants.
class FakeThreadedProcessor : public FakeProcessor
{
    Q_OBJECT
public:
    void postTrain() override { m_thread->start(); }

    QSemaphore entered;
    QSemaphore mayEnd;
    QThread *ranOn = nullptr;
    std::atomic<int> ended{0}; ///< runs; shows the thread sanitizer that waiting for a thread orders its writes

signals:
    void finishThread();
    void getTrainProcessResult(bool result);

protected slots:
    void runSlot()
    {
        ranOn = QThread::currentThread();
        entered.release();
        mayEnd.tryAcquire(1, 20000); // a test that fails still ends
        m_labels.push_back(99);
        ++ended;
        failAt("runSlot");
        emit getTrainProcessResult(isValid);
        emit finishThread();
    }
};

/// A wired model, as a host has it.
template <class P> struct Bench
{
    explicit Bench(int fs, double bufSize = 0.0, DataSource::LabelType type = DataSource::SampleLabels)
        : training(fs, bufSize, type)
        , processing(fs, bufSize)
        , model(std::make_unique<LearningCSM>(&preprocessor, &processor, &training, &processing))
        , complete(model.get(), &LearningCSM::onTrainComplete)
    {
    }
    void send(Row samples) { model->sendSamples(&samples, static_cast<int>(samples.size())); }

    FakePreprocessor preprocessor;
    P processor;
    FakeSource training;
    FakeSource processing;
    std::unique_ptr<LearningCSM> model;
    QSignalSpy complete;
};

Row span(int first, int last)
{
    Row row;
    for (int i = first; i <= last; ++i) {
        row.push_back(static_cast<float>(i));
    }
    return row;
}

} // namespace

Q_DECLARE_METATYPE(Row)
Q_DECLARE_METATYPE(Failure)

class TestLearning : public QObject
{
    Q_OBJECT

private slots:
    void slidingWindow_data();
    void slidingWindow();
    void unevenBlocks();
    void windowTakesNoMemory();
    void uselessSettings_data();
    void uselessSettings();
    void missingParts();
    void otherRateOfTheFilterChain();
    void namesThatAHostConnectsTo();
    void windowLabels_data();
    void windowLabels();
    void trainingAddsAndForgets();
    void failedTrainingIsReported();
    void nothingThrownEndsTheHost_data();
    void nothingThrownEndsTheHost();
    void realTimeProcessing();
    void trainingThread();
    void restartFromTheResult();
    void endInMidRun();
    void sourceOutlivesTheModel();
    void icaTraining();
};

void TestLearning::slidingWindow_data()
{
    QTest::addColumn<float>("window");
    QTest::addColumn<float>("step");
    QTest::addColumn<double>("bufSize");
    QTest::addColumn<bool>("waitFull");
    QTest::addColumn<bool>("reset");
    QTest::addColumn<QVector<int>>("blocks");
    QTest::addColumn<QVector<Row>>("windows");

    using Windows = QVector<Row>;
    QTest::newRow("third block completes")
        << 1.0f << 0.4f << 0.0 << true << false << QVector<int>{4, 4, 4, 0, 4, 0} << Windows{span(3, 12), span(7, 16)};
    QTest::newRow("source's segments widen")
        << 0.2f << 0.3f << 0.6 << true << false << QVector<int>{3, 3, 3} << Windows{span(1, 6), span(4, 9)};
    QTest::newRow("longer blocks are cut")
        << 0.4f << 0.4f << 0.0 << true << false << QVector<int>{6, 6} << Windows{span(1, 4), span(7, 10)};
    QTest::newRow("reset after use") << 0.4f << 0.2f << 0.0 << true << true << QVector<int>{3, 3, 3, 3}
                                     << Windows{span(3, 6), span(9, 12)};
    QTest::newRow("every block") << 0.4f << 0.2f << 0.0 << false << false << QVector<int>{2, 2, 2}
                                 << Windows{{1, 2, 0, 0}, span(1, 4), span(3, 6)};
    QTest::newRow("no step") << 0.4f << 0.0f << 0.0 << true << false << QVector<int>{2, 2, 1}
                             << Windows{span(1, 4), span(2, 5)};
    QTest::newRow("step beyond the window")
        << 0.4f << 9.0f << 0.0 << true << false << QVector<int>{4, 2, 2} << Windows{span(1, 4), span(5, 8)};
}

void TestLearning::slidingWindow()
{
    QFETCH(float, window);
    QFETCH(float, step);
    QFETCH(double, bufSize);
    QFETCH(bool, waitFull);
    QFETCH(bool, reset);
    QFETCH(QVector<int>, blocks);
    QFETCH(QVector<Row>, windows);

    Bench<FakeProcessor> bench(10, bufSize);
    bench.model->Initialize(window, step, 1, waitFull, reset);
    bench.model->setChannelsCount(1);
    QSignalSpy passed(bench.model.get(), &SolverModel::PassedThrough);
    QSignalSpy results(&bench.processor, &Processor::newResults);
    int next = 1;
    for (const int block : blocks) {
        bench.send(span(next, next + block - 1));
        next += block;
    }
    QCOMPARE(bench.processor.windows.size(), static_cast<std::size_t>(windows.size()));
    for (int i = 0; i < windows.size(); ++i) {
        QCOMPARE(bench.processor.windows[static_cast<std::size_t>(i)], Block{windows[i]});
    }
    QCOMPARE(passed.count(), windows.size());
    QCOMPARE(results.count(), windows.size());
    QCOMPARE(bench.model->GetCurResult().value(QStringLiteral("Class")), windows.last().back());
}

void TestLearning::unevenBlocks()
{
    Bench<FakeProcessor> bench(10);
    bench.model->Initialize(0.4f, 0.4f, 2, true, false);
    bench.model->setChannelsCount(2);
    TraceCapture trace;
    bench.send({1}); // too few for a sample of each: two rows all the same
    QCOMPARE(trace.count(QStringLiteral("SolverModel::ProcessDataBuffer 2")), 1);
    bench.send(span(1, 9)); // the ninth doesn't divide by two channels
    QCOMPARE(bench.processor.windows.back(), (Block{span(1, 4), span(5, 8)}));
    Row few = span(1, 4);
    bench.model->sendSamples(&few, 1000);
    bench.model->sendSamples(&few, -1);
    bench.model->sendSamples(nullptr, 4);
    Block ragged{{5, 6}, {7}, {8, 9}};
    bench.model->ProcessDataBuffer(ragged);
    QCOMPARE(bench.processor.windows.back(), (Block{{1, 2, 5, 6}, {3, 4, 7, 0}}));
    Block longSecondRow{{1, 2, 3, 4}, span(1, 50)};
    bench.model->ProcessDataBuffer(longSecondRow);
    QCOMPARE(bench.processor.windows.back(), (Block{span(1, 4), span(1, 4)}));
}

void TestLearning::windowTakesNoMemory()
{
    if (!AllocationCounter::isActive) {
        QSKIP("The sanitizer has the allocator");
    }
    Bench<FakeProcessor> bench(100);
    bench.model->Initialize(1.0f, 0.1f, 8, true, false);
    Block block(8, Row(7, 1.0f));
    BPCommon::setLogMode(BPCommon::LogSolverModel, false);
    const long before = AllocationCounter::count.load();
    for (int i = 0; i < 100; ++i) {
        bench.model->AchieveData(block);
    }
    const long taken = AllocationCounter::count.load() - before;
    BPCommon::setLogMode(BPCommon::LogSolverModel, true);
    QCOMPARE(taken, 0L);
}

void TestLearning::uselessSettings_data()
{
    QTest::addColumn<int>("fs");
    QTest::addColumn<float>("window");
    QTest::addColumn<float>("step");
    QTest::addColumn<int>("channels");
    QTest::addColumn<QString>("trace");

    QTest::newRow("no window") << 100 << 0.0f << 0.1f << 2 << "";
    QTest::newRow("negative") << 100 << -1.0f << -1.0f << 2 << "";
    QTest::newRow("not a number") << 100 << kNaN << kNaN << 2 << "";
    QTest::newRow("endless") << 100 << std::numeric_limits<float>::infinity() << 1.0f << 2 << "";
    QTest::newRow("centuries") << 1000000 << 3e9f << 3e9f << 2 << "The window is too big";
    QTest::newRow("centuries of one channel") << 1000000 << 3e9f << 3e9f << 1 << "The window is too big";
    QTest::newRow("no rate") << 0 << 1.0f << 0.1f << 2 << "";
    QTest::newRow("negative rate") << -250 << 1.0f << 0.1f << 2 << "";
    QTest::newRow("million channels") << 1000 << 1.0f << 0.1f << 1000000 << "The window is too big";
    QTest::newRow("all the channels there are")
        << 0 << 0.0f << 0.1f << std::numeric_limits<int>::max() << "The window is too big";
}

void TestLearning::uselessSettings()
{
    QFETCH(int, fs);
    QFETCH(float, window);
    QFETCH(float, step);
    QFETCH(int, channels);
    QFETCH(QString, trace);

    Bench<FakeProcessor> bench(fs);
    bench.training.count({1, 2}, 5);
    TraceCapture capture;
    bench.model->Initialize(window, step, channels, false, true);
    QVERIFY(trace.isEmpty() || capture.count(trace) == 1);
    bench.send(span(1, 8));
    QCOMPARE(capture.count(QStringLiteral("There are no channels or no samples")), 1);
    bench.model->setChannelsCount(2);
    bench.send(span(1, 8));
    bench.model->TrainFast();
    QVERIFY(bench.complete.wait());
    QVERIFY(bench.processor.windows.empty());
    QVERIFY(bench.processor.examples().empty());

    for (const int none : {0, -3}) {
        bench.model->Initialize(1.0f, 1.0f, none, true, true);
        bench.send(span(1, 1000));
    }
    for (const Block &empty : bench.processor.windows) {
        QVERIFY(empty.empty());
    }
}

void TestLearning::missingParts()
{
    WarningCapture warnings;
    FakeProcessor lone;
    FakeProcessor *const passing = new FakeProcessor;
    LearningCSM nothing(nullptr, nullptr, nullptr, nullptr);
    LearningCSM bare;
    LearningCSM onlyProcessor(nullptr, &lone, nullptr, nullptr);
    LearningCSM deserted(nullptr, passing, nullptr, nullptr);
    delete passing;
    QObject parent;
    auto *const child = new FakeProcessor;
    child->setParent(&parent);
    LearningCSM withChild(nullptr, child, nullptr, nullptr);

    TraceCapture trace;
    for (LearningCSM *const model : {&nothing, &bare, &onlyProcessor, &deserted, &withChild}) {
        model->Initialize(1.0f, 1.0f, 1, false, true);
        model->setChannelsCount(1);
        Row samples{1, 2};
        model->sendSamples(&samples, 2);
        model->PreprocessDataBuffer();
        model->TrainICA(nullptr);
        model->TrainFast();
        model->ReTrainRealTime();
        model->ProcessDataRealTime();
        model->_trainDataBuffer({}, 3);
        model->_trainDataBuffer({{1.0}}, 3);
        model->_validate();
        QVERIFY(model->GetCurResult().isEmpty());
    }
    QCOMPARE(trace.count(QStringLiteral("LearningCSM::TrainFast There is no training source")), 5);
    QCOMPARE(trace.count(QStringLiteral("There is no processing source")), 10);
    QCOMPARE(warnings.lines().filter(QStringLiteral("QObject")), QStringList());
}

void TestLearning::otherRateOfTheFilterChain()
{
    Filtrator chain(5);
    FakePreprocessor preprocessor;
    FakeProcessor processor;
    FakeSource source(10);
    RegressionSM model(&chain, &preprocessor, &processor, &source);
    model.Initialize(4.0f, 1.0f, 1, true, false);
    Block block{Row(40, 2.0f)};
    model.ProcessDataBuffer(block);
    QCOMPARE(processor.windows.at(0).at(0).size(), std::size_t(20));
    // The kernel's sum is 1 within a hundredth where it lies inside the window.
    QVERIFY(std::abs(processor.windows[0][0][10] - 2.0f) < 0.02f);
    QCOMPARE(processor.getFs(), 10);
}

void TestLearning::namesThatAHostConnectsTo()
{
    Bench<FakeProcessor> bench(10);
    LearningCSM &model = *bench.model;
    model.Initialize(0.2f, 0.2f, 1, true, false);
    QVERIFY(connect(&bench.processing, SIGNAL(receivedNewStack(vector<vector<float>>, int)), &model,
                    SLOT(ProcessDataBuffer(vector<vector<float>>)), Qt::QueuedConnection));
    QVERIFY(connect(&bench.processing, SIGNAL(receivedNewStack(vector<vector<double>>, int)), &model,
                    SLOT(_trainDataBuffer(vector<vector<double>>, int)), Qt::QueuedConnection));
    QVERIFY(connect(&bench.processing, SIGNAL(receivedNewStack(vector<vector<float>>, int)), &bench.preprocessor,
                    SLOT(CollectICABuffer(vector<vector<float>>)), Qt::QueuedConnection));
    QVERIFY(connect(&bench.processing, SIGNAL(endOfData()), &model, SLOT(_validate()), Qt::QueuedConnection));
    QSignalSpy results(&bench.processor, SIGNAL(newResults(ProcessResult)));
    bench.processing.count({4}, 2);
    bench.processing.SendData(true);
    QVERIFY(results.wait());
    QCOMPARE(results.at(0).at(0).value<ProcessResult>().value(QStringLiteral("Class")), 2.0f);
    QTRY_COMPARE(bench.complete.count(), 1);
    QCOMPARE(bench.processor.labels(), std::vector<int>{4});

    for (const char *slot :
         {"PreprocessDataBuffer()", "ProcessDataBuffer(vector<vector<float> >&)", "ResetDataBuffer()",
          "AchieveData(vector<vector<float> >&)", "TrainICA(DataSource*)", "ICATrained()", "_validate()",
          "_takeTrainResult(bool)", "_trainDataBuffer(vector<vector<double> >,int)"}) {
        QVERIFY2(model.metaObject()->indexOfSlot(slot) >= 0, slot);
    }
    for (const char *signal : {"ICATrainComplete()", "PassedThrough()", "onTrainComplete(bool)"}) {
        QVERIFY2(model.metaObject()->indexOfSignal(signal) >= 0, signal);
    }
}

void TestLearning::windowLabels_data()
{
    QTest::addColumn<int>("labelType");
    QTest::addColumn<float>("window");
    QTest::addColumn<QVector<int>>("blocks");
    QTest::addColumn<QVector<int>>("labels");
    QTest::addColumn<int>("lastSample");
    QTest::addColumn<bool>("inOrder");

    // The second 0 would make a median of 0 in order of arrival: 2, 0, 0. The sorted history is 0, 1, 2 and becomes 1,
    // 2, 0.
    QTest::newRow("the smallest label goes")
        << 0 << 1.2f << QVector<int>{1, 1, 2, 0, 0} << QVector<int>{1, 1, 1} << 20 << false;
    QTest::newRow("mean of the middle, truncated")
        << 0 << 1.6f << QVector<int>{1, 1, 2, 2} << QVector<int>{1} << 16 << false;
    QTest::newRow("trials aren't mixed") << 1 << 1.2f << QVector<int>{1, 1, 2, 2, 2} << QVector<int>{2} << 20 << false;
    QTest::newRow("trials of a smaller label are trials")
        << 1 << 0.8f << QVector<int>{2, 2, 1, 1, 2, 2} << QVector<int>{2, 1, 2} << 24 << false;
    QTest::newRow("negative labels") << 0 << 0.4f << QVector<int>{-3, 5} << QVector<int>{-3, 5} << 8 << false;
    QTest::newRow("blocks longer than the window")
        << 0 << 0.2f << QVector<int>{3, 1} << QVector<int>{3, 1} << 6 << false;
    QTest::newRow("in order, the oldest label goes")
        << 0 << 1.2f << QVector<int>{1, 1, 2, 0, 0} << QVector<int>{1, 1, 0} << 20 << true;
    QTest::newRow("in order, of two in the middle the smaller")
        << 0 << 1.6f << QVector<int>{1, 1, 3, 3} << QVector<int>{1} << 16 << true;
    QTest::newRow("in order, a trial begins anew")
        << 1 << 1.2f << QVector<int>{2, 2, 2, 1, 1, 1, 2, 2, 2} << QVector<int>{2, 1, 2} << 36 << true;
}

void TestLearning::windowLabels()
{
    QFETCH(int, labelType);
    QFETCH(float, window);
    QFETCH(QVector<int>, blocks);
    QFETCH(QVector<int>, labels);
    QFETCH(int, lastSample);
    QFETCH(bool, inOrder);

    Bench<FakeProcessor> bench(10, 0.0, static_cast<DataSource::LabelType>(labelType));
    bench.training.count({blocks.begin(), blocks.end()}, 4);
    bench.model->Initialize(window, 0.4f, 1, true, false);
    bench.model->setLabelsInArrivalOrder(inOrder);
    if (inOrder) { // what was classified before is no part of the first window
        bench.model->setChannelsCount(1);
        bench.send({7, 7, 7});
    }
    bench.model->TrainFast();
    QVERIFY(bench.complete.wait());
    QCOMPARE(QVector<int>(bench.processor.labels().begin(), bench.processor.labels().end()), labels);
    QCOMPARE(bench.processor.examples().back().back(), static_cast<float>(lastSample));
}

void TestLearning::trainingAddsAndForgets()
{
    Bench<FakeProcessor> bench(10);
    bench.training.count({5, 2, 5}, 4);
    bench.model->Initialize(0.4f, 0.4f, 1, true, true);
    bench.send({0.0f});
    const auto train = [&bench](void (LearningCSM::*start)()) {
        (bench.model.get()->*start)();
        bench.complete.wait();
        return static_cast<int>(bench.processor.examples().size());
    };
    TraceCapture trace;
    QCOMPARE(train(&LearningCSM::TrainFast), 3);
    QVERIFY(!bench.training.wasRealTime);
    QCOMPARE(train(&LearningCSM::TrainRealTime), 6);
    QVERIFY(bench.training.wasRealTime);
    QCOMPARE(bench.processor.uniqueLabels(), (std::vector<int>{2, 5}));
    QCOMPARE(train(&LearningCSM::ReTrainFast), 3);
    QCOMPARE(train(&LearningCSM::ReTrainRealTime), 3);
    QCOMPARE(bench.complete.count(), 4);
    QCOMPARE(bench.processor.trainings, 4);
    QCOMPARE(trace.count(QStringLiteral("LearningCSM::TrainFast")), 2);
    QCOMPARE(trace.count(QStringLiteral("LearningCSM::ReTrainRealTime")), 1);
    QCOMPARE(trace.count(QStringLiteral("LearningCSM::_takeTrainResult 1")), 4);
    QCOMPARE(trace.count(QStringLiteral("LearningCSM::_trainDataBuffer Reset Buffer")), 12);
}

void TestLearning::failedTrainingIsReported()
{
    Bench<FakeProcessor> bench(10);
    bench.model->Initialize(0.2f, 0.2f, 1, true, false);
    bench.processor.isValid = false;
    bench.model->TrainFast();
    QVERIFY(bench.complete.wait());
    QCOMPARE(bench.complete.last().at(0).toBool(), false);

    // The processor goes between the last block and the end of the data.
    auto *const passing = new FakeProcessor;
    LearningCSM deserted(&bench.preprocessor, passing, &bench.training, &bench.processing);
    QSignalSpy complete(&deserted, &LearningCSM::onTrainComplete);
    delete passing;
    deserted.TrainFast();
    QVERIFY(complete.wait());
    QCOMPARE(complete.last().at(0).toBool(), false);
}

void TestLearning::nothingThrownEndsTheHost_data()
{
    QTest::addColumn<Failure>("failure");
    QTest::addColumn<QString>("text");
    QTest::newRow("the library's own") << Failure([] { throw HalvinException("Fake::x", 7); }) << "Fake::x code: 0007";
    QTest::newRow("C string") << Failure([] { throw "MatrixOperations::x code 1004"; }) << "x code 1004";
    QTest::newRow("std::string") << Failure([] { throw std::string("no rank"); }) << "no rank";
    QTest::newRow("QString") << Failure([] { throw QStringLiteral("zu klein"); }) << "zu klein";
    QTest::newRow("number") << Failure([] { throw 3; }) << "an exception without a text";
}

void TestLearning::nothingThrownEndsTheHost()
{
    QFETCH(Failure, failure);
    QFETCH(QString, text);
    const auto run = [&](auto &bench, const char *operation) {
        bench.processor.failure = failure;
        bench.processor.failsAt = operation;
        bench.training.count({1, 1}, 2);
        bench.model->Initialize(0.2f, 0.2f, 1, true, false);
        bench.model->setChannelsCount(1);
        bench.model->TrainFast();
        return bench.complete.wait() && bench.complete.count() == 1 ? bench.complete.last().at(0).toBool() : true;
    };
    TraceCapture trace;
    for (const char *operation : {"postTrain", "doValidate"}) {
        Bench<FakeProcessor> bench(10);
        QVERIFY2(!run(bench, operation), operation);
    }
    QCOMPARE(trace.count(text), 2);
    Bench<FakeThreadedProcessor> threaded(10);
    threaded.processor.mayEnd.release();
    QVERIFY(!run(threaded, "runSlot"));
    QTRY_VERIFY(!threaded.processor.thread()->isRunning());
    QCOMPARE(trace.count(text), 3);

    Bench<FakeProcessor> bench(10);
    run(bench, "preTrain");
    QVERIFY(bench.processor.examples().empty());
    QSignalSpy passed(bench.model.get(), &SolverModel::PassedThrough);
    bench.processor.failsAt = "passThrough";
    bench.send({1, 2});
    bench.processor.failsAt.clear();
    bench.preprocessor.failure = failure;
    bench.send({1, 2});
    QCOMPARE(passed.count(), 0);
    QCOMPARE(trace.count(text), 7); // two examples, two windows
}

void TestLearning::realTimeProcessing()
{
    Bench<FakeProcessor> bench(10);
    bench.processing.count({0, 0}, 4);
    bench.model->Initialize(0.4f, 0.4f, 1, true, false);
    for (int run = 1; run <= 2; ++run) {
        bench.model->ProcessDataRealTime();
        QTRY_COMPARE(bench.processor.windows.size(), std::size_t(2) * static_cast<unsigned>(run));
        QVERIFY(bench.processing.wasRealTime);
    }
    QCOMPARE(bench.processor.windows.back(), Block{span(5, 8)});
    QCOMPARE(bench.processor.trainings, 0);
}

void TestLearning::trainingThread()
{
    WarningCapture warnings;
    Bench<FakeThreadedProcessor> bench(10);
    bench.training.count({1, 2}, 2);
    bench.model->Initialize(0.2f, 0.2f, 1, true, false);
    bench.model->setChannelsCount(1);
    bench.send({1, 2});
    QCOMPARE(bench.processor.windows.size(), std::size_t(1));

    bench.model->TrainFast();
    QTRY_COMPARE(bench.processor.entered.available(), 1);
    TraceCapture trace;
    bench.send({1, 2});
    bench.model->ReTrainFast();
    bench.model->Initialize(0.4f, 0.4f, 1, true, false);
    QCOMPARE(bench.model->GetCurResult().size(), 1);
    QCOMPARE(trace.count(QStringLiteral("The processor is training, window left out")), 1);
    QCOMPARE(trace.count(QStringLiteral("The processor is training, wait for its result")), 1);
    QCOMPARE(bench.training.starts, 1);
    bench.training.SendData(false); // a host that starts the source on its own
    QTRY_COMPARE(trace.count(QStringLiteral("LearningCSM::_validate There is no processor")), 1);
    QCOMPARE(bench.complete.count(), 0);

    bench.processor.mayEnd.release();
    QVERIFY(bench.complete.wait());
    QCOMPARE(bench.complete.count(), 1);
    QVERIFY(bench.complete.last().at(0).toBool());
    QVERIFY(bench.processor.ranOn != QThread::currentThread());
    QCOMPARE(bench.processor.ranOn, bench.processor.thread());
    QTRY_VERIFY(!bench.processor.thread()->isRunning());
    QCOMPARE(bench.processor.labels(), (std::vector<int>{1, 2, 99}));
    QCOMPARE(bench.processor.windows.size(), std::size_t(1));
    QCOMPARE(warnings.lines().filter(QStringLiteral("QObject")), QStringList());
}

void TestLearning::restartFromTheResult()
{
    Bench<FakeThreadedProcessor> bench(10);
    bench.training.count({1}, 2);
    bench.model->Initialize(0.2f, 0.2f, 1, true, false);
    bench.processor.mayEnd.release(2);
    bench.processor.isValid = false;
    // At this moment the training thread still runs: finishThread() comes after the result.
    connect(bench.model.get(), &LearningCSM::onTrainComplete, this, [&bench] {
        if (bench.complete.count() == 1) {
            bench.model->ReTrainFast();
        }
    });
    bench.model->TrainFast();
    QTRY_COMPARE(bench.complete.count(), 2);
    QVERIFY(!bench.complete.last().at(0).toBool());
    QCOMPARE(bench.processor.labels(), (std::vector<int>{1, 99}));
}

void TestLearning::endInMidRun()
{
    WarningCapture warnings;
    Bench<FakeThreadedProcessor> bench(10);
    bench.training.count({1}, 2);
    bench.model->Initialize(0.2f, 0.2f, 1, true, false);
    bench.model->TrainFast();
    QTRY_COMPARE(bench.processor.entered.available(), 1);

    const std::unique_ptr<QThread> releaser(QThread::create([&bench] { bench.processor.mayEnd.release(); }));
    releaser->start();
    TraceCapture trace;
    bench.model.reset();
    releaser->wait();
    QCOMPARE(trace.count(QStringLiteral("LearningCSM::~LearningCSM")), 1);
    QCOMPARE(bench.processor.ended.load(), 1);
    QCOMPARE(bench.processor.labels().back(), 99);
    QCOMPARE(bench.complete.count(), 0);

    // The processor has come home and serves another model.
    QCOMPARE(bench.processor.thread(), QThread::currentThread());
    LearningCSM next(&bench.preprocessor, &bench.processor, &bench.training, &bench.processing);
    QSignalSpy complete(&next, &LearningCSM::onTrainComplete);
    next.Initialize(0.2f, 0.2f, 1, true, false);
    next.ReTrainFast();
    bench.processor.mayEnd.release();
    QVERIFY(complete.wait());
    QCOMPARE(warnings.lines(), QStringList());
}

void TestLearning::sourceOutlivesTheModel()
{
    WarningCapture warnings;
    FakePreprocessor preprocessor;
    FakeProcessor processor;
    FakeSource processing(100);
    OfflineDataSource training({QString(), QString()}, 100, 0.1, {}, OfflineDataSource::Virtual);
    training.moveToThread(&training);
    training.start();
    {
        LearningCSM model(&preprocessor, &processor, &training, &processing);
        model.Initialize(0.2f, 0.2f, 1, true, false);
        QSignalSpy complete(&model, &LearningCSM::onTrainComplete);
        model.TrainFast();
        QVERIFY(complete.wait());
        // 2000 samples: 199 blocks of 10, each from the second on that completes two: 1–2, 3–4, …
        QCOMPARE(processor.examples().size(), std::size_t(99));
        model.ReTrainFast();
        QTRY_VERIFY(!processor.examples().empty());
    }
    QCOMPARE(warnings.lines().filter(QStringLiteral("QObject")), QStringList());
}

void TestLearning::icaTraining()
{
    Bench<FakeProcessor> bench(100);
    QSignalSpy complete(bench.model.get(), &SolverModel::ICATrainComplete);
    FakeSource empty(100);
    TraceCapture trace;
    bench.model->TrainICA(&empty);
    QVERIFY(complete.wait());
    QVERIFY(!bench.preprocessor.isTrainedICA());
    QCOMPARE(trace.count(QStringLiteral("Preprocessor::CalcICA WARNING! ICA was not trained. Processing goes on common "
                                        "signal")),
             1);

    FakeSource mixture(100);
    std::mt19937 generator(1);
    for (int block = 0; block < 20; ++block) {
        std::vector<std::vector<double>> rows(2);
        for (int i = 0; i < 100; ++i) {
            const double wave = std::sin(0.1 * (100 * block + i));
            const double noise = static_cast<double>(generator()) / 4294967295.0 - 0.5;
            rows[0].push_back(wave + noise);
            rows[1].push_back(wave - 2.0 * noise);
        }
        mixture.stacks.push_back({rows, 0});
    }
    bench.model->TrainICA(&mixture);
    bench.model->TrainICA(&mixture);
    QTRY_COMPARE(complete.count(), 2);
    QVERIFY(bench.preprocessor.isTrainedICA());
    QCOMPARE(trace.count(QStringLiteral("Preprocessor::CalcICA ICA successfully trained!")), 1);

    // Let go of: the next run of the source is somebody else's.
    mixture.SendData(false);
    QCoreApplication::processEvents();
    QCOMPARE(complete.count(), 2);
}

BP_TEST_MAIN(TestLearning)
#include "TestLearning.moc"
