#include "support/HandmadeEdf.h"
#include "support/HostProgram.h"
#include "support/TestMain.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QtEndian>

#include <cmath>
#include <cstdlib>

namespace {

/// Everything behind the header, as 16-bit integers.
QVector<qint16> samplesOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const int header = file.read(256).mid(184, 8).trimmed().toInt();
    file.seek(header);
    const QByteArray bytes = file.readAll();
    QVector<qint16> samples(bytes.size() / 2);
    for (int i = 0; i < samples.size(); ++i) {
        samples[i] = qFromLittleEndian<qint16>(bytes.constData() + 2 * i);
    }
    return samples;
}

} // namespace

/// The program as a user runs it.
class TestHost : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void listsTheSimulators();
    void recordsWithManyLabels();
    void playsItsOwnRecordingBack();
    void computesRhythmsAndHeartRate();
    void countsBeatsAndNothingElse();
    void namesWhatGaveNothing();
    void takesAnnotationsAlong();
    void ownsToPaddingAndClipping();
    void tellsOfSilence();
    void keepsWhatExists_data();
    void keepsWhatExists();
    void refusesInOneSentence_data();
    void refusesInOneSentence();
    void closesTheRecordingWhenTerminated_data();
    void closesTheRecordingWhenTerminated();
    void ownsToLostOutput();
    void closesTheRecordingWhenTheDeviceFails();

private:
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    void write(const char *name, const QByteArray &content) const;

    QTemporaryDir m_folder;
};

void TestHost::write(const char *name, const QByteArray &content) const
{
    QFile file(path(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

void TestHost::initTestCase()
{
    QVERIFY(m_folder.isValid());
    write("page.edf", "<html><body>" + QByteArray(2000, 'x') + "</body></html>");
    write("broken.xml", "<?xml version=\"1.0\"?><Montage><type>Montage_Usual</type><name>x</name><Channel><index>1");
    write("empty.xml", "<?xml version=\"1.0\"?><Montage><type>Montage_Usual</type><name>x</name></Montage>");
    write("text.xml", "this is no markup");
    write("input.xml",
          "<Montage><type>Montage_Usual</type><Channel><index>0</index><name>C3</name><type>EEG</type><g1>99</g1>"
          "<g2>0</g2><scale>1</scale><LPF>0</LPF><HPF>0</HPF><BSF>0</BSF></Channel></Montage>");
    const auto set = [](const char *name, const char *prop) {
        return QByteArray("<algo><name>") + name + "</name><desc>x</desc><prop>" + prop + "</prop></algo>";
    };
    write("key.xml", set("SpectrumNorm", "<chanel>O1</chanel>"));
    write("channel.xml", set("SpectrumNorm", "<channel>O1;Oz</channel>"));
    write("limit.xml", set("SpectrumNorm", "<time>100</time>"));
    write("number.xml", set("ElectroCardiogram", "<channel>99</channel>"));
    write("depend.xml", set("Math", "<formula>beta</formula><depend>beta;</depend>"));
}

void TestHost::listsTheSimulators()
{
    const Outcome outcome = runHost({QStringLiteral("devices"), QStringLiteral("--json")});
    QCOMPARE(outcome.status, 0);
    QMap<QString, int> channels;
    for (const QJsonValue &device : QJsonDocument::fromJson(outcome.output).array()) {
        channels.insert(device.toObject()[QLatin1String("name")].toString(),
                        device.toObject()[QLatin1String("channels")].toInt());
    }
    QCOMPARE(channels.value(QStringLiteral("Simulator 8")), 15);
    QCOMPARE(channels.value(QStringLiteral("Simulator 32")), 39);
    QVERIFY(channels.contains(QStringLiteral("Playback")));
}

void TestHost::recordsWithManyLabels()
{
    QStringList arguments = words("acquire --device Simulator --speed max --seconds 10 --json --record");
    arguments << path("labels.edf");
    for (int i = 0; i < 100; ++i) {
        arguments << QStringLiteral("--label") << QStringLiteral("%1:label %2").arg(i * 0.1).arg(i);
    }
    const Outcome outcome = runHost(arguments);
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.json()[QLatin1String("record")].toObject()[QLatin1String("labels")].toInt(), 100);

    const QJsonObject info = runHost({QStringLiteral("info"), QStringLiteral("--json"), path("labels.edf")}).json();
    QCOMPARE(info[QLatin1String("seconds")].toDouble(), 10.0);
    const QJsonArray annotations = info[QLatin1String("annotations")].toArray();
    QCOMPARE(annotations.size(), 100);
    for (const QJsonValue &annotation : annotations) {
        const int index = annotation.toObject()[QLatin1String("text")].toString().mid(6).toInt();
        QVERIFY(std::fabs(annotation.toObject()[QLatin1String("onset")].toDouble() - index * 0.1) < 0.001);
    }
}

void TestHost::playsItsOwnRecordingBack()
{
    QCOMPARE(runHost(words("acquire --device Simulator --speed max --seconds 3 --record") << path("first.edf")).status,
             0);
    QCOMPARE(
        runHost(words("acquire --speed max --playback") << path("first.edf") << words("--record") << path("second.edf"))
            .status,
        0);
    // Read and written once more, each time negated: every sample is the same, to the resolution of the file.
    const QVector<qint16> first = samplesOf(path("first.edf"));
    const QVector<qint16> second = samplesOf(path("second.edf"));
    QVERIFY(first.size() > 3 * 15 * 250);
    QCOMPARE(first.size(), second.size());
    for (int i = 0; i < first.size(); ++i) {
        QVERIFY(std::abs(first[i] - second[i]) <= 1);
    }
}

void TestHost::computesRhythmsAndHeartRate()
{
    const Outcome outcome = runHost(words("acquire --speed 10 --seconds 20 --set heart_rate=72 --rhythms alpha,beta "
                                          "--heart-rate ECG --json --record")
                                    << path("rhythms.edf"));
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.status, 0);
    const QList<QByteArray> lines = outcome.output.trimmed().split('\n');
    QVERIFY(QJsonDocument::fromJson(lines.first()).object().contains(QLatin1String("alpha"))); // live, each second
    const QJsonObject algorithms =
        QJsonDocument::fromJson(lines.last()).object()[QLatin1String("algorithms")].toObject();
    const QJsonObject alpha = algorithms[QLatin1String("alpha")].toObject();
    QVERIFY(alpha[QLatin1String("results")].toInt() > 20);
    QCOMPARE(alpha[QLatin1String("channels")].toObject().size(), 8); // the EEG ones
    QCOMPARE(alpha[QLatin1String("unit")].toString(), QStringLiteral("%"));
    QVERIFY(std::fabs(algorithms[QLatin1String("heart_rate")].toObject()[QLatin1String("mean")].toDouble() - 72.0)
            < 4.0);
    QVERIFY(QFileInfo(path("rhythms_rt.xls")).size() > 1000);
}

/// T waves that rise and fall by more than the parameter set's default asks for, 450 ms behind R peaks of 1 mV.
void TestHost::countsBeatsAndNothingElse()
{
    constexpr int kRate = 250;
    constexpr int kInterval = 300; // 50 bpm
    const auto wave = [](double samples, double width) { return std::exp(-samples * samples / (2.0 * width * width)); };
    HandmadeEdf{{{"ECG", "uV", kRate,
                  [&](int i) {
                      const double phase = i % kInterval;
                      return static_cast<int>(10000.0 * wave(phase - 100.0, 2.5) + 3000.0 * wave(phase - 212.0, 10.0));
                  }}},
                30}
        .writeTo(path("ecg.edf"));
    const QStringList acquire = words("acquire --speed max --heart-rate ECG --json --playback") << path("ecg.edf");
    const auto heartRate = [](const Outcome &outcome) {
        const QByteArray last = outcome.output.trimmed().split('\n').last();
        return QJsonDocument::fromJson(last)
            .object()[QLatin1String("algorithms")]
            .toObject()[QLatin1String("heart_rate")]
            .toObject();
    };
    const QJsonObject measured = heartRate(runHost(acquire));
    QVERIFY(std::fabs(measured[QLatin1String("mean")].toDouble() - 50.0) < 0.5);
    QVERIFY(measured[QLatin1String("results")].toInt() >= 23); // of 24 intervals, those of the first seconds too
    const QJsonObject told = heartRate(runHost(acquire + words("--heart-amp 0.25")));
    QVERIFY(told[QLatin1String("mean")].toDouble() > 60.0);
}

void TestHost::namesWhatGaveNothing()
{
    const QStringList acquire = words("acquire --speed max --seconds 1 --rhythms alpha");
    const QJsonObject alpha = runHost(acquire + words("--json"))
                                  .json()[QLatin1String("algorithms")]
                                  .toObject()[QLatin1String("alpha")]
                                  .toObject();
    QCOMPARE(alpha[QLatin1String("results")], QJsonValue(0));
    QVERIFY(runHost(acquire).output.contains("gave no result"));
}

void TestHost::takesAnnotationsAlong()
{
    HandmadeEdf{{{"A", "uV", 100}},
                6,
                "1",
                {{"0.5", "before"},
                 {"2.5\x15"
                  "1.25",
                  "here"},
                 {"5.25", "there"}}}
        .writeTo(path("noted.edf"));
    const auto annotationsOf = [this](const QStringList &options, const char *name) {
        const Outcome outcome = runHost(words("acquire --speed max --playback")
                                        << path("noted.edf") << QStringLiteral("--record") << path(name) << options);
        QStringList list;
        const QJsonObject info = runHost({QStringLiteral("info"), QStringLiteral("--json"), path(name)}).json();
        for (const QJsonValue &annotation : info[QLatin1String("annotations")].toArray()) {
            const double duration = annotation[QLatin1String("duration")].toDouble();
            list << QStringLiteral("%1%2 %3")
                        .arg(annotation[QLatin1String("onset")].toDouble())
                        .arg(duration > 0.001 ? QStringLiteral("+%1").arg(duration) : QString(),
                             annotation[QLatin1String("text")].toString());
        }
        return outcome.status == 0 ? list.join(QLatin1Char(',')) : QString::fromLocal8Bit(outcome.error);
    };
    QCOMPARE(annotationsOf(words("--label 1:mine"), "n1.edf"),
             QStringLiteral("0.5 before,1 mine,2.5+1.25 here,5.25 there"));
    QCOMPARE(annotationsOf(words("--set start=2 --set repeat=1 --seconds 7"), "n2.edf"),
             QStringLiteral("0.5+1.25 here,3.25 there,4.5+1.25 here"));
}

void TestHost::ownsToPaddingAndClipping()
{
    // 0.1 mV more from sample to sample: from the 328th on beyond what a recording holds.
    HandmadeEdf{{{"A", "mV", 100}}, 6, "1", {{"0", "x"}}}.writeTo(path("large.edf"));
    const QJsonObject record = runHost(words("acquire --speed max --seconds 4.25 --json --patient Ann --set start=1 "
                                             "--playback")
                                       << path("large.edf") << QStringLiteral("--record") << path("padded.edf"))
                                   .json()[QLatin1String("record")]
                                   .toObject();
    QCOMPARE(record[QLatin1String("padded_seconds")].toDouble(), 0.75);
    QCOMPARE(record[QLatin1String("clipped_samples")].toObject()[QLatin1String("A")].toInt(), 425 - 228);
    const QJsonObject info = runHost({QStringLiteral("info"), QStringLiteral("--json"), path("padded.edf")}).json();
    QCOMPARE(info[QLatin1String("seconds")].toDouble(), 5.0);
    QCOMPARE(info[QLatin1String("start")].toString(), QStringLiteral("2020-01-02T03:04:06"));
    QCOMPARE(info[QLatin1String("patient")].toString(), QStringLiteral("Ann"));
}

void TestHost::tellsOfSilence()
{
    QProcess process;
    process.start(hostProgram(), words("acquire --set speed=0.001"));
    QVERIFY(process.waitForStarted());
    QByteArray told;
    QTRY_VERIFY_WITH_TIMEOUT((told += process.readAllStandardError()).contains("come again"), 30000);
    QVERIFY2(told.indexOf("No samples") < told.indexOf("come again"), told.constData());
    process.kill();
    process.waitForFinished();
}

void TestHost::keepsWhatExists_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("fragment");
    const auto row = [](const char *line, const char *fragment) {
        QTest::newRow(line) << QByteArray(line) << QByteArray(fragment);
    };
    row("acquire --speed max --seconds 1 --record @a.edf", "a.edf exists");
    row("acquire --speed max --seconds 1 --rhythms alpha --record @b.edf", "b_rt.xls exists");
    row("acquire --speed max --playback @a.edf --record @./a.edf --force", "is the file that is read");
    row("acquire --speed max --seconds 1 --record @open.edf --force", "bioprocessing repair");
    row("acquire --speed max --seconds 1 --record @lost.edf --force", "lost.edf.labels");
    row("export @a.edf @b_rt.xls", ".xlsx or .csv");
    row("export @a.edf @a.csv", "a.csv exists");
    row("convert crop @a.edf @open.edf --force", "bioprocessing repair");
    row("convert text @a.csv @a.edf --rate 10", "a.edf exists");
    row("train --data @a.edf:x --data @c.edf:y --save @a.edf --force", "is the file that is read");
    row("train --data @a.edf:x --data @c.edf:y --save @a.csv", "a.csv exists");
}

void TestHost::keepsWhatExists()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, fragment);
    const QTemporaryDir folder;
    const QString at = folder.path() + QLatin1Char('/');
    const HandmadeEdf file{{{"A", "uV", 100}}, 5};
    file.writeTo(at + QStringLiteral("a.edf"));
    file.writeTo(at + QStringLiteral("c.edf"));
    HandmadeEdf::write(HandmadeEdf::changed(file.make(), 236, "-1      "), at + QStringLiteral("open.edf"));
    HandmadeEdf::write("BioProcessing labels 1 02.01.2003.04.05\n500 1 here\n", at + QStringLiteral("lost.edf.labels"));
    HandmadeEdf::write("a table", at + QStringLiteral("b_rt.xls"));
    HandmadeEdf::write("1\n2\n", at + QStringLiteral("a.csv"));
    const auto contents = [&at] {
        QMap<QString, QByteArray> all;
        for (const QFileInfo &info : QDir(at).entryInfoList(QDir::Files)) {
            QFile opened(info.filePath());
            all.insert(info.fileName(), opened.open(QIODevice::ReadOnly) ? opened.readAll() : QByteArray());
        }
        return all;
    };
    const QMap<QString, QByteArray> before = contents();
    const Outcome outcome = runHost(words(line.constData()).replaceInStrings(QStringLiteral("@"), at));
    QVERIFY2(outcome.error.contains(fragment), outcome.error.constData());
    QVERIFY2(outcome.error.count('\n') == 1, outcome.error.constData());
    QVERIFY(outcome.status > 0);
    QVERIFY(contents() == before);
}

void TestHost::refusesInOneSentence_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("fragment");

    const QStringList acquire = words("acquire --speed max --seconds 1");
    QTest::newRow("no command") << QStringList() << 2 << QByteArray("--help");
    QTest::newRow("unknown command") << words("fly") << 2 << QByteArray("fly");
    QTest::newRow("unknown option") << words("acquire --fly") << 2 << QByteArray("fly");
    QTest::newRow("seconds not a number") << words("acquire --seconds ten") << 2 << QByteArray("ten");
    QTest::newRow("label without a time") << (acquire + words("--record x.edf --label now")) << 2 << QByteArray("now");
    QTest::newRow("label without a recording") << (acquire + words("--label 1:a")) << 2 << QByteArray("--record");
    QTest::newRow("unknown parameter") << (acquire + words("--set fly=1")) << 2 << QByteArray("speed");
    QTest::newRow("value beyond its limits")
        << (acquire + words("--set heart_rate=500")) << 2 << QByteArray("20 to 240");
    QTest::newRow("choice that is none") << (acquire + words("--set frequency=4")) << 2 << QByteArray("3: 2000");
    QTest::newRow("empty value") << words("acquire --record ") << 2 << QByteArray("--record needs a value");
    QTest::newRow("given twice") << (acquire + words("--seconds 2")) << 2 << QByteArray("--seconds is given more");
    QTest::newRow("BDF recording") << (acquire + words("--record a.bdf")) << 2 << QByteArray("--record writes .edf");
    QTest::newRow("rhythms of no channel")
        << (acquire + words("--rhythms alpha --channels Oz")) << 1 << QByteArray("\"Oz\" among Fp1");
    QTest::newRow("channels of nothing") << (acquire + words("--channels O1")) << 2 << QByteArray("--rhythms");
    QTest::newRow("rhythm chosen twice") << (acquire + words("--rhythms mu,mu")) << 1 << QByteArray("\"mu\"");
    QTest::newRow("player without a file") << words("acquire --device Playback") << 2 << QByteArray("--playback FILE");
    for (const auto &[name, status, fragment] :
         {std::tuple{"key.xml", 2, "\"chanel\""}, std::tuple{"channel.xml", 2, "not \"Oz\""},
          std::tuple{"limit.xml", 2, "1 to 10"}, std::tuple{"number.xml", 1, "channel 99"},
          std::tuple{"depend.xml", 1, "\"beta\", which is not chosen"}}) {
        QTest::newRow(name) << (acquire + words("--algorithms") << path(name)) << status << QByteArray(fragment);
    }
    QTest::newRow("unknown device") << words("acquire --device Nowhere") << 1 << QByteArray("Nowhere");
    QTest::newRow("rate not offered") << (acquire + words("--frequency 333")) << 1 << QByteArray("333");
    QTest::newRow("missing recording") << words("acquire --playback /nowhere/a.edf") << 1
                                       << QByteArray("/nowhere/a.edf");
    QTest::newRow("a web page as recording")
        << (words("acquire --playback") << path("page.edf")) << 1 << QByteArray("page.edf");
    QTest::newRow("a web page for info") << (words("info") << path("page.edf")) << 1 << QByteArray("page.edf");
    QTest::newRow("unwritable path") << (acquire + words("--record /nowhere/a.edf")) << 1
                                     << QByteArray("/nowhere/a.edf");
    QTest::newRow("missing montage") << (acquire + words("--montage /nowhere/m.xml")) << 1
                                     << QByteArray("/nowhere/m.xml");
    QTest::newRow("cut montage") << (acquire + words("--montage") << path("broken.xml")) << 1
                                 << QByteArray("broken.xml");
    QTest::newRow("montage without channels")
        << (acquire + words("--montage") << path("empty.xml")) << 1 << QByteArray("empty.xml");
    QTest::newRow("montage that is no markup")
        << (acquire + words("--montage") << path("text.xml")) << 1 << QByteArray("text.xml");
    QTest::newRow("montage of another device")
        << (acquire + words("--montage") << path("input.xml")) << 1 << QByteArray("reads input 99");
    QTest::newRow("unknown rhythm") << (acquire + words("--rhythms alpha,mist")) << 2 << QByteArray("mist");
    QTest::newRow("unknown ECG channel") << (acquire + words("--heart-rate Elbow")) << 1 << QByteArray("Elbow");
    QTest::newRow("no parameter set") << (acquire + words("--algorithms") << path("page.edf")) << 1
                                      << QByteArray("page.edf");
    QTest::newRow("device that refuses") << (acquire + words("--set refuse_start=1")) << 1 << QByteArray("code -1");
}

void TestHost::refusesInOneSentence()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QByteArray, fragment);

    const Outcome outcome = runHost(arguments);
    QCOMPARE(outcome.status, status);
    QVERIFY2(outcome.error.contains(fragment), outcome.error.constData());
    QVERIFY2(outcome.error.count('\n') == 1, outcome.error.constData());
}

void TestHost::closesTheRecordingWhenTerminated_data()
{
    QTest::addColumn<QString>("signalName"); // none: nobody reads the output any more
    for (const char *name : {"TERM", "HUP", "INT", ""}) {
        QTest::newRow(*name == '\0' ? "closed pipe" : name) << QString::fromLatin1(name);
    }
}

void TestHost::closesTheRecordingWhenTerminated()
{
#ifdef Q_OS_WIN
    QSKIP("A console program cannot be asked to end there");
#endif
    QFETCH(QString, signalName);
    const QString file = path(qPrintable(signalName + QStringLiteral("_ended.edf")));
    QProcess process;
    QProcess reader; // of the first line
    if (signalName.isEmpty()) {
        process.setStandardOutputProcess(&reader);
        reader.start(QStringLiteral("head"), {QStringLiteral("-1")});
    }
    process.start(hostProgram(), words("acquire --speed 20 --json --rhythms alpha --record") << file);
    QVERIFY(process.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(file).size() > 40000, 20000); // some records are on the disk
    if (!signalName.isEmpty()) {
        QCOMPARE(QProcess::execute(QStringLiteral("kill"),
                                   {QLatin1Char('-') + signalName, QString::number(process.processId())}),
                 0);
    }
    QVERIFY(process.waitForFinished(20000));
    reader.waitForFinished();
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    const Outcome info = runHost({QStringLiteral("info"), QStringLiteral("--json"), file});
    QCOMPARE(info.error, QByteArray());
    QVERIFY(info.json()[QLatin1String("seconds")].toDouble() >= 1.0);
}

void TestHost::ownsToLostOutput()
{
    if (!QFile::exists(QStringLiteral("/dev/full"))) {
        QSKIP("There is no device that is always full");
    }
    QProcess process;
    process.setStandardOutputFile(QStringLiteral("/dev/full"));
    process.start(hostProgram(), words("devices"));
    QVERIFY(process.waitForFinished(20000));
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(process.readAllStandardError().contains("incomplete"));
}

void TestHost::closesTheRecordingWhenTheDeviceFails()
{
    const Outcome outcome =
        runHost(words("acquire --speed max --json --set error_after=3 --set error_code=-7 --label 1:before --record")
                << path("failed.edf"));
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.error.contains("code -7"), outcome.error.constData());
    const QJsonObject info = runHost({QStringLiteral("info"), QStringLiteral("--json"), path("failed.edf")}).json();
    QCOMPARE(info[QLatin1String("seconds")].toDouble(), 3.0);
    QCOMPARE(info[QLatin1String("annotations")].toArray().size(), 1);
}

BP_TEST_MAIN(TestHost)
#include "TestHost.moc"
