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
    void refusesInOneSentence_data();
    void refusesInOneSentence();
    void closesTheRecordingWhenTerminated();
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
    QCOMPARE(alpha[QLatin1String("channels")].toObject().size(), 15);
    QVERIFY(std::fabs(algorithms[QLatin1String("heart_rate")].toObject()[QLatin1String("mean")].toDouble() - 72.0)
            < 4.0);
    QVERIFY(QFileInfo(path("rhythms_rt.xls")).size() > 1000);
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

void TestHost::closesTheRecordingWhenTerminated()
{
#ifdef Q_OS_WIN
    QSKIP("A console program cannot be asked to end there");
#endif
    QProcess process;
    process.start(hostProgram(), words("acquire --speed 20 --json --record") << path("terminated.edf"));
    QVERIFY(process.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path("terminated.edf")).size() > 40000, 20000); // some records are on the disk
    process.terminate();
    QVERIFY(process.waitForFinished(20000));
    QCOMPARE(process.exitCode(), 0);
    const QJsonObject info = runHost({QStringLiteral("info"), QStringLiteral("--json"), path("terminated.edf")}).json();
    QVERIFY(info[QLatin1String("seconds")].toDouble() >= 1.0);
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
