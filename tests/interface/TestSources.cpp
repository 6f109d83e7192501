#include "pipeline/OfflineDataSource.h"
#include "support/HandmadeEdf.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"
#include "support/WarningCapture.h"

#include <QSignalSpy>
#include <QTemporaryDir>

#include <array>
#include <atomic>
#include <cmath>
#include <limits>

using Block = vector<vector<double>>;
using Type = OfflineDataSource::FileType;

namespace {

struct Stack
{
    Block samples;
    int label;
};

/// Takes everything that a source sends, on the thread on which it lives.
class Listener : public QObject
{
public:
    explicit Listener(const DataSource &source)
    {
        connect(&source, qOverload<Block, int>(&DataSource::receivedNewStack), this,
                [this](const Block &samples, int label) {
                    stacks.push_back({samples, label});
                });
        connect(&source, &DataSource::endOfData, this, [this] { ++ends; });
    }

    std::vector<Stack> stacks;
    int ends = 0;
};

QByteArray countingLines(int count, int columns = 1)
{
    QByteArray text;
    for (int i = 0; i < count; ++i) {
        for (int column = 0; column < columns; ++column) {
            text += QByteArray::number(i + 1000 * column) + (column + 1 < columns ? "\t" : "\r\n");
        }
    }
    return text;
}

/// A signal whose physical samples are 0, 1, 2, …; EDFReader gives them inverted.
HandmadeEdf::Signal ramp(int rate)
{
    return {"EEG", "uV", rate, [](int i) { return -10 * i; }};
}

} // namespace

class TestSources : public QObject
{
    Q_OBJECT

private slots:
    void sendsWholeSegments();
    void badTextIsRefused_data();
    void badTextIsRefused();
    void textOfRealFilesIsRead();
    void edfFiles();
    void edfFilesThatDoNotFit_data();
    void edfFilesThatDoNotFit();
    void labelOfTheLongestRun();
    void segmentsWithinFiles();
    void labelsThatDoNotFit();
    void fileProperties();
    void channelsAreMounted();
    void virtualDataIsRepeatable();
    void notReady_data();
    void notReady();
    void ownThread();

private:
    QString file(const QByteArray &bytes, const QString &name = QStringLiteral("a.txt")) const
    {
        return HandmadeEdf::write(bytes, m_folder.filePath(name));
    }

    QTemporaryDir m_folder;
};

void TestSources::sendsWholeSegments()
{
    OfflineDataSource source({file(countingLines(300, 2))}, 250, 0.5, {}, Type::TXT);
    QVERIFY(source.isReady());
    QCOMPARE(source.getChannelsCount(), 2);
    std::vector<int> labels{7};
    QVERIFY(source.setLabels(labels));

    Listener listener(source);
    vector<vector<float>> floats;
    connect(&source, qOverload<vector<vector<float>>, int>(&DataSource::receivedNewStack), this,
            [&floats](const vector<vector<float>> &stack) { floats = stack; });
    for (int run = 1; run <= 2; ++run) {
        TraceCapture trace;
        source.SendData(false);
        QTRY_COMPARE(listener.ends, run);
        QCOMPARE(listener.stacks.size(), std::size_t(2) * static_cast<unsigned>(run));
        QCOMPARE(trace.count(QStringLiteral("OfflineDataSource::SendData Offline source started")), 1);
        QCOMPARE(trace.count(QStringLiteral("OfflineDataSource::Send 1 0.5 250")), 1);
        QCOMPARE(trace.count(QStringLiteral("OfflineDataSource::Send emitting... 7")), 2);
        QCOMPARE(trace.count(QStringLiteral("OfflineDataSource::Send Finished Procesing")), 1);
    }
    for (int i = 0; i < 4; ++i) {
        const Stack &stack = listener.stacks[static_cast<std::size_t>(i)];
        QCOMPARE(stack.samples.size(), std::size_t(2));
        QCOMPARE(stack.samples[1].size(), std::size_t(125));
        QCOMPARE(stack.samples[1].front(), 1000.0 + 125 * (i % 2));
        QCOMPARE(stack.samples[0].back(), 124.0 + 125 * (i % 2));
        QCOMPARE(stack.label, 7);
    }
    QCOMPARE(floats.at(1).back(), 1249.0f);
}

void TestSources::badTextIsRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");

    QTest::newRow("empty file") << QByteArray() << "contains no numbers";
    QTest::newRow("only a header") << QByteArray("# {\"a\": 1}\n# End\n") << "contains no numbers";
    QTest::newRow("only titles") << QByteArray("a b\n") << "contains no numbers";
    QTest::newRow("word among the numbers") << QByteArray("# x\n1 2\n3 oops\n") << "line 3: \"oops\"";
    QTest::newRow("second title line") << QByteArray("a b\nc d\n1 2\n") << "line 2: \"c\"";
    QTest::newRow("not a number") << QByteArray("1\nnan\n") << "line 2: \"nan\"";
    QTest::newRow("infinity") << QByteArray("1\n2\n-inf\n") << "line 3: \"-inf\"";
    QTest::newRow("out of range") << QByteArray("1\n1e999\n") << "line 2: \"1e999\"";
    QTest::newRow("decimal comma") << QByteArray("1.5\n1,5\n") << "line 2: \"1,5\"";
    QTest::newRow("missing column") << QByteArray("1 2\n3\n") << "line 2: 1 columns instead of 2";
    QTest::newRow("binary") << QByteArray("\0\1\2\n\0\1\n", 7) << "line 2";
    QTest::newRow("endless line") << QByteArray("1\n") + QByteArray(3 << 20, '7') << "line 2";
}

void TestSources::badTextIsRefused()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);

    TraceCapture trace;
    OfflineDataSource source({file(countingLines(9), QStringLiteral("good.txt")), file(text)}, 250, 0.5, {}, Type::TXT);
    QVERIFY2(source.errorText().contains(reason), qPrintable(source.errorText()));
    QVERIFY(source.errorText().contains(QStringLiteral("a.txt")));
    QCOMPARE(trace.count(reason), 1);
    QVERIFY(!source.isReady());
    QCOMPARE(source.getSampleCount(), qint64(0));
}

void TestSources::textOfRealFilesIsRead()
{
    const QByteArray text =
        "\xEF\xBB\xBF# Text File Format\n# {\"rate\": 1000}\nnSeq  CH1\n0\t-5.25\t\n\n1 \t 1e3\r\n2 3";
    OfflineDataSource source({file(text)}, 1, 2.0, {}, Type::TXT);
    QCOMPARE(source.errorText(), QString());
    Listener listener(source);
    source.SendData(false);
    QTRY_COMPARE(listener.ends, 1);
    QCOMPARE(listener.stacks.size(), std::size_t(1));
    QCOMPARE(listener.stacks[0].samples, (Block{{0.0, 1.0}, {-5.25, 1000.0}}));
    QCOMPARE(listener.stacks[0].label, -1);
}

void TestSources::edfFiles()
{
    const HandmadeEdf edf{{ramp(100), ramp(100)}, 2};
    TraceCapture trace;
    OfflineDataSource source({edf.writeTo(m_folder.filePath(QStringLiteral("a.edf"))),
                              edf.writeTo(m_folder.filePath(QStringLiteral("b.edf")))},
                             250, 1.0, {}, Type::EDF);
    QCOMPARE(source.errorText(), QString());
    QCOMPARE(source.getFs(), 100);
    QCOMPARE(trace.count(QStringLiteral("OfflineDataSource::GetFromEdf WARNING: Fs changed to 100 from 250")), 1);
    QCOMPARE(trace.count(QStringLiteral("OfflineDataSource::setFileList Loaded Data from .edf file")), 1);

    std::vector<int> labels{1, 2};
    QVERIFY(source.setLabels(labels));
    Listener listener(source);
    source.SendData(false);
    QTRY_COMPARE(listener.ends, 1);
    QCOMPARE(listener.stacks.size(), std::size_t(3));
    const std::array<int, 3> expectedLabels{1, 1, 2};
    const std::array<double, 3> expectedFirst{0.0, 100.0, 0.0};
    for (std::size_t i = 0; i < 3; ++i) {
        QCOMPARE(listener.stacks[i].label, expectedLabels[i]);
        QVERIFY(std::abs(listener.stacks[i].samples.at(1).front() - expectedFirst[i]) < 1e-6);
    }
}

void TestSources::edfFilesThatDoNotFit_data()
{
    QTest::addColumn<QVector<int>>("first");
    QTest::addColumn<QVector<int>>("second");
    QTest::addColumn<QString>("trace");

    QTest::newRow("rates within a file") << QVector<int>{100, 10} << QVector<int>{100, 100} << "100 and 10 Hz";
    QTest::newRow("rates of two files") << QVector<int>{100} << QVector<int>{200} << "200 Hz, than the files before";
    QTest::newRow("channel counts") << QVector<int>{100} << QVector<int>{100, 100}
                                    << "OfflineDataSource::GetFromEdf WARNING: Edfs have different amounts of channels";
}

void TestSources::edfFilesThatDoNotFit()
{
    QFETCH(QVector<int>, first);
    QFETCH(QVector<int>, second);
    QFETCH(QString, trace);

    QList<QString> files;
    for (const auto &rates : {first, second}) {
        HandmadeEdf edf;
        for (const int rate : rates) {
            edf.signalList.push_back(ramp(rate));
        }
        files << edf.writeTo(m_folder.filePath(QStringLiteral("%1.edf").arg(files.size())));
    }
    OfflineDataSource source(100, 0.5, Type::EDF);
    TraceCapture capture;
    QList<fileProperty> none;
    QVERIFY(!source.setFileList(files, none));
    QCOMPARE(capture.count(trace), 1);
    QVERIFY(!source.errorText().isEmpty());
    QCOMPARE(source.getSampleCount(), qint64(0));
    QVERIFY(!source.isReady());
}

void TestSources::labelOfTheLongestRun()
{
    OfflineDataSource source({file(countingLines(16))}, 5, 1.0, {}, Type::TXT);
    std::vector<std::vector<int>> labels{{1, 2, 2, 1, 1, /**/ 3, 4, 3, 4, 3, /**/ 5, 0, 0, 0, 5, /**/ 9}};
    QVERIFY(source.setLabels(labels));
    Listener listener(source);
    source.SendData(false);
    QTRY_COMPARE(listener.ends, 1);
    QCOMPARE(listener.stacks.size(), std::size_t(3));
    QCOMPARE(listener.stacks[0].label, 2); // first of two equally long runs
    QCOMPARE(listener.stacks[1].label, 3); // not the most frequent one's last
    QCOMPARE(listener.stacks[2].label, 0);
}

void TestSources::segmentsWithinFiles()
{
    OfflineDataSource source({file(countingLines(7)), file(countingLines(2), QStringLiteral("b.txt")),
                              file(countingLines(6), QStringLiteral("c.txt"))},
                             3, 1.0, {}, Type::TXT);
    std::vector<int> labels{1, 2, 3};
    QVERIFY(source.setLabels(labels));
    source.setSegmentsWithinFiles(true);
    Listener listener(source);
    for (int run = 1; run <= 2; ++run) {
        source.SendData(false);
        QTRY_COMPARE(listener.ends, run);
    }
    const std::array<Stack, 4> expected{{{{{0, 1, 2}}, 1}, {{{3, 4, 5}}, 1}, {{{0, 1, 2}}, 3}, {{{3, 4, 5}}, 3}}};
    QCOMPARE(listener.stacks.size(), 2 * expected.size());
    for (std::size_t i = 0; i < listener.stacks.size(); ++i) {
        QCOMPARE(listener.stacks[i].samples, expected[i % 4].samples);
        QCOMPARE(listener.stacks[i].label, expected[i % 4].label);
    }
}

void TestSources::labelsThatDoNotFit()
{
    OfflineDataSource source({file(countingLines(4)), file(countingLines(4), QStringLiteral("b.txt"))}, 1, 1.0, {},
                             Type::TXT);
    TraceCapture trace;
    std::vector<int> perFile{1};
    std::vector<std::vector<int>> onePack{{1, 1, 1, 1}};
    std::vector<std::vector<int>> shortPack{{1, 1, 1, 1}, {1, 1, 1}};
    QVERIFY(!source.setLabels(perFile));
    QVERIFY(!source.setLabels(onePack));
    QVERIFY(!source.setLabels(shortPack));
    const QString start = QStringLiteral("OfflineDataSource::setLabels Number of ");
    QCOMPARE(trace.count(start + QStringLiteral("labels must be equal to number of files in this call")), 1);
    QCOMPARE(trace.count(start + QStringLiteral("label packs must be equal to number of files in this call")), 1);
    QCOMPARE(
        trace.count(start + QStringLiteral("labels for each source must be equal to number of samples in each source")),
        1);
}

void TestSources::fileProperties()
{
    QList<QString> files{file(countingLines(4)), file(countingLines(4), QStringLiteral("b.txt"))};
    QList<fileProperty> properties{{3}, {4}};
    OfflineDataSource source(1, 2.0, Type::TXT);
    QVERIFY(source.setFileList(files, properties, DataSource::TrialLabels));
    QCOMPARE(source.getLabelType(), DataSource::TrialLabels);
    Listener listener(source);
    source.SendData(false);
    QTRY_COMPARE(listener.ends, 1);
    QCOMPARE(listener.stacks.at(0).label, 3);
    QCOMPARE(listener.stacks.at(2).label, 4);

    QVERIFY(source.setFileList(files, properties, DataSource::NoLabels));
    source.SendData(false);
    QTRY_COMPARE(listener.ends, 2);
    QCOMPARE(listener.stacks.back().label, 0);

    properties.removeLast();
    QVERIFY(!source.setFileList(files, properties, DataSource::TrialLabels));
    properties.clear();
    QVERIFY(!source.setFileList(files, properties, 5));
    QVERIFY(!source.isReady());
}

void TestSources::channelsAreMounted()
{
    const int far = std::numeric_limits<int>::max();
    OfflineDataSource source(
        {file(countingLines(3, 2))}, 1, 2.0,
        {{1, 0, 0.5f, QStringLiteral("difference")}, {0, far, 2.0f, QString()}, {far, -1, 1.0f, QString()}}, Type::TXT);
    QCOMPARE(source.getChannelsCount(), 3);
    Listener listener(source);
    source.SendData(false);
    QTRY_COMPARE(listener.ends, 1);
    QCOMPARE(listener.stacks.at(0).samples, (Block{{500.0, 500.0}, {0.0, 2.0}, {0.0, 0.0}}));
}

void TestSources::virtualDataIsRepeatable()
{
    std::vector<Block> blocks;
    for (int run = 0; run < 2; ++run) {
        OfflineDataSource source({QString(), QString()}, 100, 9.0, {}, Type::Virtual);
        QCOMPARE(source.getSampleCount(), qint64(2000));
        Listener listener(source);
        source.SendData(false);
        QTRY_COMPARE(listener.ends, 1);
        blocks.push_back(listener.stacks.at(0).samples);
    }
    QCOMPARE(blocks[0], blocks[1]);
    // A sine of 5 Hz and amplitude 50 correlates with itself to 25 on average; the noise vanishes in it.
    double correlation = 0.0;
    for (std::size_t i = 0; i < 900; ++i) {
        correlation +=
            blocks[0][0][i] * std::sin(2.0 * 3.141592653589793 * 5.0 * static_cast<double>(i) / 100.0) / 900.0;
    }
    QVERIFY2(std::abs(correlation - 25.0) < 1.0, qPrintable(QString::number(correlation)));
}

void TestSources::notReady_data()
{
    QTest::addColumn<int>("fs");
    QTest::addColumn<double>("bufSize");
    QTest::addColumn<bool>("withFile");

    QTest::newRow("no files") << 250 << 0.5 << false;
    QTest::newRow("no rate") << 0 << 0.5 << true;
    QTest::newRow("negative rate") << -250 << 0.5 << true;
    QTest::newRow("segment without samples") << 250 << 0.003 << true;
    QTest::newRow("negative segment") << 250 << -1.0 << true;
    QTest::newRow("not a number") << 250 << std::numeric_limits<double>::quiet_NaN() << true;
    QTest::newRow("infinite") << 250 << std::numeric_limits<double>::infinity() << true;
}

void TestSources::notReady()
{
    QFETCH(int, fs);
    QFETCH(double, bufSize);
    QFETCH(bool, withFile);

    const std::vector<QString> files(withFile ? 1 : 0, file(countingLines(300)));
    OfflineDataSource source(files, fs, bufSize, {}, Type::TXT);
    QVERIFY(!source.isReady());
    TraceCapture trace;
    Listener listener(source);
    source.SendData(true);
    source.Send();
    QCOMPARE(trace.count(QStringLiteral("OfflineDataSource::SendData Offline source not ready!")), 1);
    QVERIFY(listener.stacks.empty() && listener.ends == 0);
}

void TestSources::ownThread()
{
    WarningCapture warnings;
    {
        OfflineDataSource source({QString()}, 100, 0.1, {}, Type::Virtual);
        Listener listener(source);
        std::atomic<QThread *> sender{nullptr};
        connect(&source, &DataSource::endOfData, &source, [&sender] { sender = QThread::currentThread(); });
        source.moveToThread(&source);
        source.start();
        source.SendData(false);
        QTRY_COMPARE(listener.ends, 1);
        QCOMPARE(listener.stacks.size(), std::size_t(99));
        QCOMPARE(sender.load(), static_cast<QThread *>(&source));
        source.SendData(false);
        QTRY_VERIFY(listener.stacks.size() > 100);
    }
    QCOMPARE(warnings.lines(), QStringList());
}

BP_TEST_MAIN(TestSources)
#include "TestSources.moc"
