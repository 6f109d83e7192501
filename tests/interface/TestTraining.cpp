#include "bci/ModelFile.h"
#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "support/HandmadeEdf.h"
#include "support/HostProgram.h"
#include "support/TestMain.h"

#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>

#include <cmath>
#include <random>

namespace {

constexpr int kRate = 100; ///< Hz

/// A rhythm in noise, tenths of a microvolt.
std::function<int(int)> rhythm(double hz, unsigned seed)
{
    return [hz, noise = std::mt19937(seed)](int i) mutable {
        const double sine = 300.0 * std::sin(2.0 * M_PI * hz * i / kRate);
        return static_cast<int>(sine) + static_cast<int>(noise() % 400) - 200;
    };
}

} // namespace

/// Learning and classifying as a user does it from the command line.
class TestTraining : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void learnsAndClassifiesRecordings_data();
    void learnsAndClassifiesRecordings();
    void trialsStayOnOneSide();
    void blocksAreRecordings();
    void damagedModels_data();
    void damagedModels();
    void modelsThatCannotBeWritten();
    void noiseGivesChance();
    void classifiesAStream();
    void refusesInOneSentence_data();
    void refusesInOneSentence();

private:
    QString path(const QString &name) const { return m_folder.filePath(name); }
    void write(const char *name, const QByteArray &content) const;
    QStringList inFolder(const char *line) const;
    QString trainedModel() const;

    QTemporaryDir m_folder;
};

void TestTraining::write(const char *name, const QByteArray &content) const
{
    QFile file(path(QLatin1String(name)));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

/// Words, with "@name" for a file of the folder.
QStringList TestTraining::inFolder(const char *line) const
{
    QStringList arguments = words(line);
    for (QString &argument : arguments) {
        argument.replace(QLatin1Char('@'), m_folder.path() + QLatin1Char('/'));
    }
    return arguments;
}

/// Path of a model, which is trained when it is asked for first.
QString TestTraining::trainedModel() const
{
    if (!QFile::exists(path(QStringLiteral("good.json")))) {
        runHost(inFolder("train --bci portal --data @slow.edf:a --data @fast.edf:b --save @good.json"));
    }
    return path(QStringLiteral("good.json"));
}

void TestTraining::initTestCase()
{
    QVERIFY(m_folder.isValid());
    const auto recording = [](double hz, unsigned seed, int records) {
        HandmadeEdf edf;
        edf.signalList = {{"Cz", "uV", kRate, rhythm(hz, seed)}, {"Pz", "uV", kRate, rhythm(hz, seed + 1)}};
        edf.records = records;
        return edf.make();
    };
    write("slow.edf", recording(10.0, 1, 30));
    write("fast.edf", recording(20.0, 3, 30));
    write("noise_a.edf", recording(0.0, 5, 60));
    write("noise_b.edf", recording(0.0, 7, 60));
    write("short.edf", recording(10.0, 9, 2));

    HandmadeEdf twins;
    twins.signalList = {{"Cz", "uV", kRate}, {"Cz", "uV", kRate}};
    twins.records = 30;
    write("twins.edf", twins.make());
    HandmadeEdf elsewhere = twins;
    elsewhere.signalList[1].label = "Oz";
    write("elsewhere.edf", elsewhere.make());

    HandmadeEdf other;
    other.signalList = {{"Cz", "uV", 50}, {"Pz", "uV", 50}};
    other.records = 30;
    write("other_rate.edf", other.make());

    // Ten trials of four seconds that take turns; the rhythm shows in them only.
    HandmadeEdf trials;
    trials.records = 80;
    trials.signalList = {{"Cz", "uV", kRate, [noise = std::mt19937(11)](int i) mutable {
                              const int trial = i / (8 * kRate);
                              const double hz = i % (8 * kRate) >= 4 * kRate ? 0.0 : trial % 2 == 0 ? 10.0 : 20.0;
                              return static_cast<int>(300.0 * std::sin(2.0 * M_PI * hz * i / kRate))
                                  + static_cast<int>(noise() % 400) - 200;
                          }}};
    for (int trial = 0; trial < 10; ++trial) {
        trials.annotations.push_back({QByteArray::number(8 * trial), trial % 2 == 0 ? "hand" : "foot"});
    }
    write("trials.edf", trials.make());

    // Rest, and a muscle that contracts in the middle; around a converter's offset.
    QByteArray rest;
    QByteArray move;
    std::mt19937 noise(13);
    for (int i = 0; i < 12000; ++i) {
        const int quiet = static_cast<int>(noise() % 21) - 10;
        rest += QByteArray::number(32768 + quiet) + '\n';
        const bool isMoving = i % 2000 >= 800 && i % 2000 < 1600;
        move += QByteArray::number(32768 + (isMoving ? 40 * quiet : quiet)) + '\n';
    }
    write("rest.txt", "# a header\n" + rest);
    write("move.txt", move);
    write("words.txt", "1\n2\nthree\n4\n");
    write("empty.txt", "");
    write("model.json", "{\"format\":\"something else\"}");
    write("newer.json", "{\"format\":\"BioProcessing model\",\"version\":99}");
}

void TestTraining::learnsAndClassifiesRecordings_data()
{
    QTest::addColumn<QByteArray>("options");
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<double>("least");
    QTest::newRow("eeg") << QByteArray("--bci eeg --channels Pz --bands 8-12,18-22") << QByteArray("slow.edf")
                         << QByteArray("fast.edf") << 0.98;
    QTest::newRow("portal") << QByteArray("--bci portal") << QByteArray("slow.edf") << QByteArray("fast.edf") << 0.98;
    QTest::newRow("a high-pass whose usual design is unstable")
        << QByteArray("--bci portal --highpass 20") << QByteArray("slow.edf") << QByteArray("fast.edf") << 0.98;
    QTest::newRow("gesture") << QByteArray("--bci gesture --highpass 0 --window 0.5 --step 0.25")
                             << QByteArray("slow.edf") << QByteArray("fast.edf") << 0.95;
    QTest::newRow("emg") << QByteArray("--bci emg --rate 1000 --window 2 --step 2 --folds 3") << QByteArray("rest.txt")
                         << QByteArray("move.txt") << 0.9;
}

void TestTraining::learnsAndClassifiesRecordings()
{
    QFETCH(QByteArray, options);
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, second);
    QFETCH(double, least);
    const QByteArray train =
        "train " + options + " --data @" + first + ":0 --data @" + second + ":1 --save @m.json --force --json";
    const Outcome learned = runHost(inFolder(train.constData()));
    QCOMPARE(learned.status, 0);
    QVERIFY2(learned.json()[QLatin1String("accuracy")].toDouble() >= least, learned.output.constData());

    const QByteArray rate = first.endsWith("txt") ? " --rate 1000" : "";
    for (const auto &[file, label] : {std::pair(first, "0"), std::pair(second, "1")}) {
        const QByteArray line = "classify --json --model @m.json @" + file + rate;
        const Outcome answers = runHost(inFolder(line.constData()));
        QCOMPARE(answers.status, 0);
        int right = 0;
        const QByteArrayList lines = answers.output.trimmed().split('\n');
        for (const QByteArray &answer : lines) {
            right += QJsonDocument::fromJson(answer).object()[QLatin1String("class")] == QLatin1String(label) ? 1 : 0;
        }
        QVERIFY2(right >= least * lines.size(), answers.output.constData());
    }
}

void TestTraining::trialsStayOnOneSide()
{
    const Outcome learned = runHost(inFolder("train --bci eeg --bands 8-12,18-22 --data @trials.edf --events hand,foot "
                                             "--from 0 --to 4 --window 1 --step 0.5 --features @f.tsv --json"));
    QCOMPARE(learned.status, 0);
    QVERIFY2(learned.json()[QLatin1String("accuracy")].toDouble() > 0.95, learned.output.constData());
    QFile table(path(QStringLiteral("f.tsv")));
    QVERIFY(table.open(QIODevice::ReadOnly));
    const QByteArrayList rows = table.readAll().trimmed().split('\n').mid(1);
    QCOMPARE(rows.size(), 10 * 7);
    QMap<int, QByteArray> blockOfTrial;
    QMap<QByteArray, int> perBlock;
    for (const QByteArray &row : rows) {
        const QByteArrayList cells = row.split('\t');
        const int trial = cells[3].toInt() / (8 * kRate);
        QCOMPARE(blockOfTrial.value(trial, cells[1]), cells[1]);
        QCOMPARE(cells[0], QByteArray(trial % 2 == 0 ? "hand" : "foot"));
        blockOfTrial.insert(trial, cells[1]);
        ++perBlock[cells[1]];
    }
    QCOMPARE(perBlock.size(), 5);
    QCOMPARE(perBlock.first(), 14); // a trial of each class
}

void TestTraining::blocksAreRecordings()
{
    const Outcome learned =
        runHost(inFolder("train --bci eeg --channels Pz --bands 8-12,18-22 --data @slow.edf:a --data @fast.edf:b "
                         "--data @slow.edf:a --data @fast.edf:b --data @slow.edf:a --features @r.tsv --json"));
    QCOMPARE(learned.status, 0);
    QCOMPARE(learned.json()[QLatin1String("blocks")].toArray().size(), 2); // as b has recordings
    QVERIFY(learned.json()[QLatin1String("whole_recordings")].toBool());
    QFile table(path(QStringLiteral("r.tsv")));
    QVERIFY(table.open(QIODevice::ReadOnly));
    const QByteArrayList rows = table.readAll().trimmed().split('\n').mid(1);
    const QByteArray expected = "00011"; // by recording
    for (const QByteArray &row : rows) {
        const QByteArrayList cells = row.split('\t');
        QCOMPARE(cells[1], expected.mid(cells[2].toInt(), 1));
    }
}

void TestTraining::damagedModels_data()
{
    QTest::addColumn<QByteArray>("field"); // "part/key" of a part
    QTest::addColumn<QJsonValue>("value");
    const auto row = [](const char *field, const QJsonValue &value, const char *what) {
        QTest::addRow("%s: %s", field, what) << QByteArray(field) << value;
    };
    for (const char *field : {"rate", "window", "step", "channels", "classes", "preprocessor", "processor", "kind",
                              "version", "highpass"}) {
        row(field, QJsonValue(), "missing");
        row(field, -1, "negative");
    }
    row("rate", 2000000000, "of no amplifier");
    row("window", 1e300, "endless");
    row("window", 1e5, "bigger than the memory for it");
    row("window", 1e-9, "of no sample");
    row("window", 0.5, "that gives other features");
    row("step", 1e300, "endless");
    row("highpass", -5, "negative");
    row("highpass", 60, "above half the rate");
    row("channels", QJsonArray{QStringLiteral("Cz"), 7}, "no name");
    row("channels", QJsonArray{QStringLiteral("Cz"), QStringLiteral("Cz")}, "twins");
    row("channels", QJsonArray{QStringLiteral("Cz")}, "one too few");
    row("classes", QJsonObject{{QStringLiteral("one"), QStringLiteral("a")}}, "no number");
    row("classes", QJsonObject{{QStringLiteral("1"), 7}}, "no name");
    row("preprocessor/bands", QJsonArray{QJsonArray{4, 9}}, "that give other features");
    row("processor/means", QStringLiteral("AACAPw=="), "of one feature");
}

void TestTraining::damagedModels()
{
    QFETCH(QByteArray, field);
    QFETCH(QJsonValue, value);
    const QString good = trainedModel();
    QFile file(good);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QJsonObject model = QJsonDocument::fromJson(file.readAll()).object();
    const QStringList keys = QString::fromLatin1(field).split(QLatin1Char('/'));
    QJsonObject part = keys.size() == 1 ? model : model[keys[0]].toObject();
    part[keys.last()] = value;
    if (keys.size() == 1) {
        model = part;
    } else {
        model[keys[0]] = part;
    }
    write("bad.json", QJsonDocument(model).toJson());
    bp::ModelFile read;
    QString reason;
    QVERIFY(read.read(good, reason));
    QVERIFY(!read.read(path(QStringLiteral("bad.json")), reason));
    QVERIFY2(reason.endsWith(QLatin1Char('.')) && !reason.endsWith(QLatin1String("..")), qPrintable(reason));
}

void TestTraining::modelsThatCannotBeWritten()
{
    const QString target = path(QStringLiteral("written.json"));
    bp::ModelFile model;
    QString reason;
    QVERIFY(!model.write(target, reason)); // no pair
    bp::LearningSettings settings;
    settings.kind = QStringLiteral("portal");
    model.pair = bp::makeLearningPair(settings);
    QVERIFY(!model.write(target, reason)); // not trained
    QVERIFY(model.read(trainedModel(), reason));
    model.window = 1e9;
    QVERIFY(!model.write(target, reason)); // what could not be read
    QVERIFY(!QFile::exists(target));
    QVERIFY(reason.contains(QLatin1String("window")));
}

void TestTraining::noiseGivesChance()
{
    // Overlapping windows on both sides of a split would look like knowledge here.
    const Outcome learned = runHost(inFolder("train --bci portal --neighbours 1 --window 2 --step 0.1 --json "
                                             "--data @noise_a.edf:a --data @noise_b.edf:b"));
    QCOMPARE(learned.status, 0);
    const double accuracy = learned.json()[QLatin1String("accuracy")].toDouble();
    QVERIFY2(accuracy > 0.3 && accuracy < 0.7, learned.output.constData());
}

void TestTraining::classifiesAStream()
{
    QCOMPARE(
        runHost(inFolder("acquire --device Simulator --set speed=0 --seconds 20 --record @a.edf --set seed=1")).status,
        0);
    QCOMPARE(runHost(inFolder("acquire --device Simulator --set speed=0 --seconds 20 --record @b.edf --set seed=2 "
                              "--set mains_amp=300"))
                 .status,
             0);
    const Outcome learned =
        runHost(inFolder("train --bci portal --band 40-60 --data @a.edf:quiet --data @b.edf:mains --save @live.json"));
    QCOMPARE(learned.status, 0);
    const Outcome answers = runHost(inFolder("classify --model @live.json --device Simulator --seconds 4 --json"));
    QCOMPARE(answers.status, 0);
    const QByteArrayList lines = answers.output.trimmed().split('\n');
    QVERIFY2(lines.size() >= 3, answers.output.constData());
    for (const QByteArray &line : lines) {
        QVERIFY2(line.contains("quiet"), answers.output.constData());
    }
}

void TestTraining::refusesInOneSentence_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("hint");
    const auto row = [](const char *name, const char *line, int status, const char *hint) {
        QTest::newRow(name) << QByteArray(line) << status << QByteArray(hint);
    };
    row("different rates", "train --data @slow.edf:a --data @other_rate.edf:b", 1, "don't go together");
    row("a class with no window", "train --data @slow.edf:a --data @short.edf:b --window 4", 1, "no window");
    row("a class with one window", "train --data @slow.edf:a --data @short.edf:b --window 2", 1, "one window");
    row("one class", "train --data @slow.edf:a --data @slow.edf:a", 1, "one class only");
    row("three classes", "train --data @slow.edf:a --data @fast.edf:b --data @noise_a.edf:c", 1, "portal");
    row("a muscle that is not there", "train --bci emg --highpass 0 --data @slow.edf:0 --data @fast.edf:3", 1,
        "0 for rest");
    row("eeg of two channels", "train --bci eeg --data @slow.edf:a --data @fast.edf:b", 2, "--channels Cz");
    row("a channel named twice", "train --bci portal --channels Cz,Cz --data @slow.edf:a --data @fast.edf:b", 2,
        "twice");
    row("two channels of a name", "train --bci portal --data @slow.edf:a --data @twins.edf:b", 1,
        "2 channels of the name");
    row("other channels", "train --bci portal --data @slow.edf:a --data @elsewhere.edf:b", 1, "no channel \"Pz\"");
    row("trials upside down", "train --data @trials.edf --events hand,foot --from 4 --to 1", 2, "--to 1");
    row("a band above half the rate", "train --bci portal --band 60-70 --data @slow.edf:a --data @fast.edf:b", 2,
        "--band 60-70");
    row("a window of no sample", "train --window 0.001 --data @slow.edf:a --data @fast.edf:b", 2, "0.001 s");
    row("an envelope above half the rate",
        "train --bci emg --envelope 50 --highpass 0 --data @slow.edf:0 --data @fast.edf:1", 2, "above 100 Hz");
    row("no label", "train --data @slow.edf", 2, "FILE:LABEL");
    row("no data", "train", 2, "--data");
    row("unknown kind", "train --bci mind --data @slow.edf:a", 2, "gesture");
    row("unknown channel", "train --data @slow.edf:a --data @fast.edf:b --channels Oz", 1, "only Cz, Pz");
    row("unknown events", "train --data @trials.edf --events nose,ear", 1, "hand, foot");
    row("text without a rate", "train --data @rest.txt:0 --data @move.txt:1", 2, "--rate");
    row("words among numbers", "train --rate 100 --data @words.txt:0 --data @move.txt:1", 1, "words.txt");
    row("an empty text", "train --rate 100 --data @empty.txt:0 --data @move.txt:1", 1, "empty.txt");
    row("a band upside down", "train --data @slow.edf:a --data @fast.edf:b --bands 12-8", 2, "8-13");
    row("no model", "classify --model @none.json @slow.edf", 1, "none.json");
    row("another file as a model", "classify --model @model.json @slow.edf", 1, "is no model");
    row("a model of the future", "classify --model @newer.json @slow.edf", 1, "newer version");
    row("nothing to classify", "classify --model @model.json", 2, "--device");
}

void TestTraining::refusesInOneSentence()
{
    QFETCH(QByteArray, line);
    QFETCH(int, status);
    QFETCH(QByteArray, hint);
    const Outcome outcome = runHost(inFolder(line.constData()));
    QCOMPARE(outcome.status, status);
    QVERIFY2(outcome.error.contains(hint), outcome.error.constData());
    QCOMPARE(outcome.error.trimmed().count('\n'), 0);
}

BP_TEST_MAIN(TestTraining)
#include "TestTraining.moc"
