#include "support/HostProgram.h"
#include "support/TestMain.h"

#include "devices/AmplifierChannel.h"
#include "files/EDFReader.h"
#include "files/PatientInfo.h"
#include "montage/Montage.h"
#include "montage/MontageXmlReader.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace {

const QString kDevice = QStringLiteral("Simulator 8");
/// Parameters with which it opens and closes its eyes.
const QJsonObject kEyes{
    {QStringLiteral("speed"), 10}, {QStringLiteral("seed"), 3}, {QStringLiteral("eyes_period"), 20}};

struct Reply
{
    bool ok = false;
    QByteArray body;

    QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
    QJsonArray array(const char *key) const { return json()[QLatin1String(key)].toArray(); }
};

/// A running service, and a client that speaks to it through plain sockets.
class RunningService
{
public:
    explicit RunningService(const QString &folder, const QStringList &more = {})
    {
        m_process.start(hostProgram(),
                        QStringList{QStringLiteral("serve"), QStringLiteral("--port"), QStringLiteral("0"),
                                    QStringLiteral("--data"), folder}
                            + more);
        while (!m_line.endsWith('\n') && m_process.waitForReadyRead(20000)) {
            m_line += m_process.readAllStandardOutput();
        }
        m_port = static_cast<quint16>(m_line.mid(m_line.indexOf(':') + 1).split(',').first().toUInt());
    }
    ~RunningService() { kill(); }

    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    /// Asks it to end, and waits.
    bool terminate()
    {
        m_process.terminate();
        return m_process.waitForFinished(20000) && m_process.exitStatus() == QProcess::NormalExit
            && m_process.exitCode() == 0;
    }
    QByteArray line() const { return m_line; }
    /// What it has said on standard error; waits for it.
    QByteArray errors()
    {
        m_process.setReadChannel(QProcess::StandardError);
        if (m_process.bytesAvailable() == 0) {
            m_process.waitForReadyRead(5000);
        }
        return m_process.readAllStandardError();
    }
    quint16 port() const { return m_port; }

    Reply ask(const char *command, const QJsonObject &body = {}) const
    {
        return send(command, body.isEmpty() ? QByteArray() : QJsonDocument(body).toJson(QJsonDocument::Compact));
    }
    Reply send(const QByteArray &command, const QByteArray &body) const
    {
        QTcpSocket socket;
        socket.connectToHost(QStringLiteral("127.0.0.1"), m_port);
        socket.write("POST /" + command + " HTTP/1.1\r\nContent-Length: "
                     + QByteArray::number(QString::fromUtf8(body).size()) + "\r\n\r\n" + body);
        QByteArray answer;
        while (socket.waitForReadyRead(10000)) {
            answer += socket.readAll();
        }
        return {answer.startsWith("HTTP/1.1 200"), answer.mid(answer.indexOf("\r\n\r\n") + 4)};
    }
    QJsonValue status(const char *key) const { return ask("gethalvinstatus").json()[QLatin1String(key)]; }

    /// Sets parameters of the simulator, five times as fast as real unless said.
    bool start(QJsonObject params = {}) const
    {
        if (!params.contains(QLatin1String("speed"))) {
            params.insert(QStringLiteral("speed"), 5);
        }
        QJsonArray data;
        for (auto param = params.constBegin(); param != params.constEnd(); ++param) {
            data << QJsonObject{{QStringLiteral("description"), param.key()},
                                {QStringLiteral("curr_val"), param.value()}};
        }
        return ask("setdeviceparametrs", {{QStringLiteral("name"), kDevice}, {QStringLiteral("data"), data}}).ok
            && ask("startdevice", {{QStringLiteral("device"), kDevice}}).ok;
    }

private:
    QProcess m_process;
    QByteArray m_line;
    quint16 m_port = 0;
};

QJsonObject named(const QString &name)
{
    return {{QStringLiteral("name"), name}};
}

QJsonObject profile(const QString &name, const char *type)
{
    return {{QStringLiteral("name"), name}, {QStringLiteral("type"), QString::fromLatin1(type)}};
}

QStringList rhythmNames(const RunningService &service)
{
    QStringList names;
    for (const QJsonValue &rhythm : service.ask("getlastrhythm").array("rhythms")) {
        names << rhythm[QLatin1String("name")].toString();
    }
    return names;
}

/// Joins the pieces that "getdata" hands out.
void fetch(const RunningService &service, QVector<QVector<double>> &channels)
{
    const Reply reply = service.ask("getdata");
    const QJsonArray rows = reply.array("data").first().toObject()[QLatin1String("d")].toArray();
    channels.resize(std::max(channels.size(), rows.size()));
    for (int i = 0; i < rows.size(); ++i) {
        const QJsonArray row = rows[i].toArray();
        QCOMPARE(row.size(), reply.json()[QLatin1String("samples")].toInt());
        for (const QJsonValue &value : row) {
            channels[i] << value.toDouble();
        }
    }
}

/// The recording's samples of every channel.
QVector<QVector<double>> recorded(const QString &path)
{
    EDFReader reader(path);
    QVector<QVector<double>> channels;
    if (reader.open()) {
        for (int i = 0; i < reader.getChannelCount(); ++i) {
            const auto count = static_cast<unsigned>(reader.getChannelSampleCount(i));
            const std::vector<double> data = reader.getChannelData(static_cast<unsigned>(i), 0, count);
            channels << QVector<double>(data.begin(), data.end());
        }
    }
    return channels;
}

/// Whether the recording is what was fetched from that position on. Its resolution is 1 µV.
bool matches(const QVector<QVector<double>> &fetched, const QVector<QVector<double>> &recording, int offset)
{
    for (int channel = 0; channel < recording.size(); ++channel) {
        for (int i = 0; i < recording[channel].size(); ++i) {
            if (std::fabs(fetched[channel][offset + i] - recording[channel][i]) > 1.02) {
                return false;
            }
        }
    }
    return true;
}

QStringList filesIn(const QString &folder, const char *pattern)
{
    return QDir(folder).entryList({QString::fromLatin1(pattern)}, QDir::Files, QDir::Name);
}

} // namespace

/// The command service as other programs meet it.
class TestService : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void handsOutWhatItRecords();
    void keepsProfilesThroughAKill();
    void takesAnyProfileName_data();
    void takesAnyProfileName();
    void setsDamagedFilesAside();
    void takesMontages();
    void recordsStateFiles();
    void learnsStates();
    void keepsItsModel();
    void changesAlgorithmsWhileRunning();
    void removesAllRecordsButTheOpenOne();
    void playsARecording();
    void survivesItsDevice_data();
    void survivesItsDevice();
    void closesTheRecordingWhenTerminated();
    void answersItsOwnClient();
    void refusesToStart_data();
    void refusesToStart();

private:
    void writeMontage(const char *file, const char *channels) const;
    void recordStates(const RunningService &service);
    QString path(const char *name) const { return m_folder->filePath(QString::fromLatin1(name)); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestService::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
}

void TestService::writeMontage(const char *file, const char *channels) const
{
    const auto montage = QSharedPointer<Montage>::create();
    unsigned input = 1;
    for (const QString &name : QString::fromLatin1(channels).split(QLatin1Char(' '))) {
        auto *channel = new AmplifierChannel;
        channel->setChannelName(name);
        channel->setGroup1(input++);
        QVERIFY(montage->push_back(channel));
    }
    QVERIFY(MontageXmlReader().writeMontageToFile(path("montages/") + QString::fromLatin1(file), montage));
}

void TestService::handsOutWhatItRecords()
{
    RunningService service(m_folder->path());
    QVERIFY2(service.line().endsWith("data in " + m_folder->path().toUtf8() + "\n"), service.line().constData());
    QVERIFY(service.start({{QStringLiteral("seed"), 7}, {QStringLiteral("frequency"), 1}})); // 500 Hz
    const QJsonObject info = service.ask("getinfo").json();
    QCOMPARE(info[QLatin1String("frequency")].toDouble(), 500.0);
    QCOMPARE(info[QLatin1String("channelAmount")].toInt(), 15);

    QVector<QVector<double>> fetched;
    fetch(service, fetched);
    QVERIFY(service.ask("startwritefile").ok);
    const auto fetchSamples = [&](int count) {
        const int wanted = fetched[0].size() + count;
        while (fetched[0].size() < wanted) {
            QTest::qWait(20);
            fetch(service, fetched);
        }
    };
    fetchSamples(4000);
    QVERIFY(service.ask("stopwritefile").ok);
    fetchSamples(1000); // acquired after the recording's end, which is not at the moment of the answer

    // Two seconds of samples make the next power of two, 1024, and so many frequencies up to half the rate.
    const QJsonObject spectrum = service.ask("getspectrum").json();
    QCOMPARE(spectrum[QLatin1String("samples")].toInt(), 513);
    QCOMPARE(spectrum[QLatin1String("last_spectrum")].toObject()[QLatin1String("d")].toArray().size(), 15);
    const QJsonArray rhythms = service.ask("getlastrhythm").array("rhythms");
    for (const QJsonValue &rhythm : rhythms) {
        QCOMPARE(rhythm[QLatin1String("value")].toArray().size(), 15);
    }
    QVERIFY(rhythmNames(service).contains(QStringLiteral("alpha")));

    const QString records = path("records");
    QTRY_COMPARE(filesIn(records, "*_rt.xls").size(), 1);
    const QStringList files = filesIn(records, "Simulator_8_*.edf");
    QCOMPARE(files.size(), 1);
    const auto recording = recorded(records + QLatin1Char('/') + files.first());
    QCOMPARE(recording.size(), 15);
    QVERIFY(recording[0].size() >= 3500); // whole seconds
    bool found = false;
    const int last = fetched[0].size() - recording[0].size() + 499; // the last second is filled up
    auto sound = recording;
    for (auto &channel : sound) {
        channel.resize(channel.size() - 500);
    }
    for (int offset = 0; offset <= last && !found; ++offset) {
        found = matches(fetched, sound, offset);
    }
    QVERIFY(found);
    QVERIFY(service.ask("stopdevice").ok);
    QCOMPARE(service.status("curr_mode").toBool(), false);
}

void TestService::keepsProfilesThroughAKill()
{
    QByteArray algorithms;
    {
        RunningService service(m_folder->path());
        QCOMPARE(service.ask("getprofilelist").array("list"), (QJsonArray{QStringLiteral("default")}));
        QVERIFY(service.ask("addnewprofile", profile(QStringLiteral("Mind"), "bci")).ok);
        QVERIFY(service.ask("addnewprofile", profile(QStringLiteral("mind"), "rt")).ok); // not the same
        QVERIFY(service.ask("addnewprofile", profile(QStringLiteral("gone"), "rt")).ok);
        QVERIFY(service.ask("setcurrentprofile", named(QStringLiteral("gone"))).ok);
        QVERIFY(service.ask("removeprofile", named(QStringLiteral("gone"))).ok);
        QCOMPARE(service.status("current_profile").toString(), QStringLiteral("Mind"));
        QVERIFY(service.ask("setcurrentprofile", named(QStringLiteral("Mind"))).ok);
        QVERIFY(service
                    .ask("addnewalgorithm",
                         {{QStringLiteral("name"), QStringLiteral("ElectroCardiogram")},
                          {QStringLiteral("desc"), QStringLiteral("pulse")},
                          {QStringLiteral("data"),
                           QJsonArray{QJsonObject{{QStringLiteral("description"), QStringLiteral("channel")},
                                                  {QStringLiteral("curr_val"), 9}}}}})
                    .ok);
        algorithms = service.ask("getalgorithms").body;
        QVERIFY(algorithms.contains("pulse"));
        service.kill();
    }
    RunningService service(m_folder->path());
    QCOMPARE(service.status("current_profile").toString(), QStringLiteral("Mind"));
    QVERIFY(service.ask("getstates").ok); // a bci profile
    QCOMPARE(service.ask("getalgorithms").body, algorithms);
    for (const char *name : {"Mind", "mind", "default"}) {
        service.ask("removeprofile", named(QString::fromLatin1(name)));
    }
    QCOMPARE(service.ask("getprofilelist").array("list").size(), 1); // the last one stays
}

void TestService::takesAnyProfileName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("taken");

    QTest::newRow("up and away") << QStringLiteral("../../away") << true;
    QTest::newRow("absolute") << QStringLiteral("/tmp/away") << true;
    QTest::newRow("dots") << QStringLiteral("..") << true;
    QTest::newRow("drive") << QStringLiteral("C:\\away") << true;
    QTest::newRow("device") << QStringLiteral("con") << true;
    QTest::newRow("control characters") << QString::fromUtf8("a\n\t\x01") << true;
    QTest::newRow("zero inside") << (QStringLiteral("a") + QChar(0) + QStringLiteral("b")) << true;
    QTest::newRow("quotes and signs") << QStringLiteral("\"<>|*?%") << true;
    QTest::newRow("beyond ASCII") << QString::fromUtf8("Émile 脳") << true;
    QTest::newRow("half a character") << QString(QChar(0xD800)) << false;
    QTest::newRow("endless") << QString(5000, QLatin1Char('a')) << false;
}

void TestService::takesAnyProfileName()
{
    QFETCH(QString, name);
    QFETCH(bool, taken);

    QDir(m_folder->path()).mkdir(QStringLiteral("data"));
    for (int run = 0; run < 2; ++run) { // the second one reads what the first one has written
        RunningService service(path("data"));
        if (run == 0) {
            QCOMPARE(service.ask("addnewprofile", profile(name, "rt")).ok, taken);
            QVERIFY(!service.ask("addnewprofile", profile(name, "bci")).ok); // it is there already
            QCOMPARE(service.ask("setcurrentprofile", named(name)).ok, taken);
        }
        QCOMPARE(service.ask("getprofilelist").array("list").contains(name), taken);
        QCOMPARE(service.status("current_profile").toString(), taken ? name : QStringLiteral("default"));
    }
    QCOMPARE(filesIn(path("data/profiles"), "*.json").size(), taken ? 2 : 1);
    QCOMPARE(QDir(m_folder->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{QStringLiteral("data")});
}

void TestService::setsDamagedFilesAside()
{
    {
        RunningService service(m_folder->path());
        QVERIFY(service.ask("addnewprofile", profile(QStringLiteral("a"), "rt")).ok);
        QVERIFY(service.ask("addnewprofile", profile(QStringLiteral("b"), "rt")).ok);
    }
    QFile cut(path("profiles/a.json"));
    QVERIFY(cut.resize(cut.size() / 2));
    {
        RunningService service(m_folder->path());
        QCOMPARE(service.ask("getprofilelist").array("list"),
                 (QJsonArray{QStringLiteral("b"), QStringLiteral("default")}));
        QCOMPARE(service.status("current_profile").toString(), QStringLiteral("default"));
        const QByteArray errors = service.errors();
        QVERIFY2(errors.contains("a.json.damaged") && errors.count('\n') == 1, errors.constData());
    }
    QFile settings(path("settings.json"));
    QVERIFY(settings.open(QIODevice::WriteOnly) && settings.write("[1") == 2);
    settings.close();
    RunningService service(m_folder->path());
    QCOMPARE(service.status("current_profile").toString(), QStringLiteral("b"));
    QVERIFY(service.errors().contains("settings.json"));
}

void TestService::takesMontages()
{
    RunningService service(m_folder->path());
    writeMontage("two.xml", "Fp1 C3");
    writeMontage("three.xml", "O1 O2 ECG");
    QVERIFY(!service
                 .ask("startdevice",
                      {{QStringLiteral("device"), kDevice}, {QStringLiteral("montage"), QStringLiteral("one")}})
                 .ok);
    for (const int channels : {3, 15}) { // what was chosen counts once
        QVERIFY(channels == 15 || service.ask("setmontagename", named(QStringLiteral("three"))).ok);
        QVERIFY(service.start());
        QCOMPARE(service.ask("getinfo").json()[QLatin1String("channelAmount")].toInt(), channels);
        QVERIFY(service.ask("stopdevice").ok);
    }
    QVERIFY(service
                .ask("startdevice",
                     {{QStringLiteral("device"), kDevice}, {QStringLiteral("montage"), QStringLiteral("two")}})
                .ok);
    QCOMPARE(service.ask("getinfo").array("channels").first().toObject(), named(QStringLiteral("Fp1")));
    QVERIFY(service.ask("setmontagename", named(QStringLiteral("three"))).ok);
    QCOMPARE(service.ask("getinfo").json()[QLatin1String("channelAmount")].toInt(), 3);
    QVector<QVector<double>> fetched;
    while (fetched.value(0).size() < 250) {
        QTest::qWait(20);
        fetch(service, fetched);
    }
    QCOMPARE(fetched.size(), 3);
    for (const auto &channel : qAsConst(fetched)) {
        QCOMPARE(channel.size(), fetched[0].size());
    }
    QTRY_COMPARE_WITH_TIMEOUT(
        service.ask("getlastrhythm").array("rhythms").first().toObject()[QLatin1String("value")].toArray().size(), 3,
        10000);

    QFile inTheWay(path("records"));
    QVERIFY(inTheWay.open(QIODevice::WriteOnly));
    QVERIFY(!service.ask("startwritefile").ok);
    QCOMPARE(service.status("write_status").toBool(), false);
    QVERIFY(service.ask("getspectrum").ok);
}

void TestService::recordsStateFiles()
{
    RunningService service(m_folder->path(), {QStringLiteral("--state-seconds"), QStringLiteral("2")});
    QVERIFY(service.ask("addnewprofile", profile(QStringLiteral("Mind"), "bci")).ok);
    QVERIFY(service.ask("setcurrentprofile", named(QStringLiteral("Mind"))).ok);
    QVERIFY(!service.ask("writestatefile/3").ok); // nothing acquires
    QCOMPARE(service.status("write_status").toBool(), false);
    QVERIFY(service.start({{QStringLiteral("speed"), 1}}));

    QCOMPARE(service.ask("writestatefile/3").json()[QLatin1String("time")].toInt(), 2);
    QCOMPARE(service.status("write_status").toBool(), true);
    QCOMPARE(service.ask("startwritefile").ok, false);
    QTRY_COMPARE_WITH_TIMEOUT(service.status("states").toString(), QStringLiteral("3;"), 10000);
    QVERIFY(service.ask("writestatefile/2").ok);
    QVERIFY(service.ask("stopwritefile").ok); // too early for a state
    writeMontage("two.xml", "Fp1 C3");
    QVERIFY(service.ask("writestatefile/4").ok);
    QVERIFY(service.ask("setmontagename", named(QStringLiteral("two"))).ok); // ends it as well
    QCOMPARE(service.status("write_status").toBool(), false);
    QVERIFY(service.ask("writestatefile/1").ok);
    QTRY_COMPARE_WITH_TIMEOUT(service.status("states").toString(), QStringLiteral("1;3;"), 10000);
    const QString folder = path("profiles/%4dind");
    QCOMPARE(filesIn(folder, "*"), (QStringList{QStringLiteral("state_1.edf"), QStringLiteral("state_3.edf")}));
    QVERIFY(recorded(folder + QStringLiteral("/state_3.edf")).value(0).size() >= 250);

    const Reply training = service.ask("starttraining");
    QVERIFY(!training.ok && training.body.contains("starttraining: "));

    QVERIFY(service.ask("startwritefile").ok);
    QTest::qWait(1200); // an annotation needs a record to lie in
    QVERIFY(service.ask("setstate", {{QStringLiteral("state"), 5}}).ok);
    QCOMPARE(service.ask("getlaststate").json()[QLatin1String("state")].toInt(), 5);
    QTest::qWait(1200);
    QVERIFY(service.ask("removeallrecords").ok); // neither the open one nor states
    QVERIFY(!service.ask("removestatefile/3").ok); // not while recording
    QVERIFY(service.ask("stopwritefile").ok);
    QVERIFY(service.ask("removestatefile/3").ok);
    QCOMPARE(service.status("states").toString(), QStringLiteral("1;"));
    QVERIFY(service.ask("stopdevice").ok);
    QVERIFY(service.terminate());
    EDFReader reader(path("records/") + filesIn(path("records"), "*.edf").value(0));
    QVERIFY(reader.open() && reader.takeCurrentAnnotations());
    QCOMPARE(reader.annotations().value(0).text, QStringLiteral("5"));
}

/// Profile "mind" with a state for open (1) and one for closed eyes (2). State files of 1 s hold 10 s of the signal.
void TestService::recordStates(const RunningService &service)
{
    QVERIFY(service.ask("addnewprofile", profile(QStringLiteral("mind"), "bci")).ok);
    QVERIFY(service.ask("setcurrentprofile", named(QStringLiteral("mind"))).ok);
    QVERIFY(service.start(kEyes));
    QVector<QVector<double>> fetched(1);
    const auto until = [&](int seconds) {
        while (fetched[0].size() < seconds * 250) {
            QTest::qWait(5);
            fetch(service, fetched);
        }
    };
    until(1);
    QVERIFY(service.ask("writestatefile/1").ok);
    QVERIFY(!service.ask("writestatefile/2").ok); // one at a time
    QTRY_COMPARE_WITH_TIMEOUT(service.status("states").toString(), QStringLiteral("1;"), 10000);
    const Reply alone = service.ask("starttraining");
    QVERIFY(!alone.ok && alone.body.contains("two recorded states"));
    until(21);
    QVERIFY(service.ask("writestatefile/2").ok);
    QTRY_COMPARE_WITH_TIMEOUT(service.status("states").toString(), QStringLiteral("1;2;"), 10000);
}

void TestService::learnsStates()
{
    RunningService service(m_folder->path(), {QStringLiteral("--state-seconds"), QStringLiteral("1")});
    recordStates(service);
    for (int i = 0; i < 3; ++i) {
        QVERIFY(service.ask("starttraining").ok);
        QVERIFY(service.ask("stoptraining").ok);
    }
    QVERIFY(service.ask("starttraining").ok);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(path("profiles/mind/model.json")), 10000);
    QVERIFY(service.ask("stopdevice").ok);

    QVERIFY(service.start(kEyes));
    QVector<QVector<double>> fetched(1);
    std::array<std::array<int, 2>, 2> told{}; // by the eyes, open and closed; by the state, 1 or other
    while (fetched[0].size() < 60 * 250) {
        QTest::qWait(10);
        fetch(service, fetched);
        const int second = fetched[0].size() / 250 % 40;
        if (second % 20 >= 5 && second % 20 < 18) { // the window lies within one state
            const int state = service.ask("getlaststate").json()[QLatin1String("state")].toInt();
            ++told[second < 20 ? 0 : 1][state == 1 ? 0 : 1];
        }
    }
    QVERIFY(told[0][0] > 2 * told[0][1]);
    QVERIFY(told[1][1] > 2 * told[1][0]);

    writeMontage("two.xml", "Fp1 ECG");
    QVERIFY(service.ask("setmontagename", named(QStringLiteral("two"))).ok);
    const QByteArray errors = service.errors();
    QVERIFY2(errors.contains("does not fit the device"), errors.constData());
    QVERIFY(service.ask("starttraining").ok);
    QVERIFY(service.ask("removeprofile", named(QStringLiteral("mind"))).ok); // in mid-training
    QCOMPARE(service.status("current_profile").toString(), QStringLiteral("default"));
    QVERIFY(!QDir(path("profiles/mind")).exists());
    QVERIFY(service.terminate());
}

void TestService::keepsItsModel()
{
    const QString modelPath = path("profiles/mind/model.json");
    {
        RunningService service(m_folder->path(), {QStringLiteral("--state-seconds"), QStringLiteral("1")});
        recordStates(service);
        QVERIFY(service.ask("starttraining").ok);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(modelPath), 10000);
        service.kill();
    }
    QVERIFY(QFile::copy(modelPath, path("kept")));
    QFile model(modelPath);
    QVERIFY(model.resize(model.size() / 2));
    {
        RunningService service(m_folder->path());
        const QByteArray errors = service.errors();
        QVERIFY2(errors.contains("model.json is no model") && errors.count('\n') == 1, errors.constData());
        QCOMPARE(service.status("states").toString(), QStringLiteral("1;2;"));
    }
    QVERIFY(QFile::remove(modelPath) && QFile::rename(path("kept"), modelPath));
    RunningService service(m_folder->path());
    QVERIFY(service.start(kEyes));
    QTRY_VERIFY_WITH_TIMEOUT(service.ask("getstates").json()[QLatin1String("amount")].toString().toInt() > 3, 10000);
    QVERIFY(!service.ask("setstate", {{QStringLiteral("state"), QStringLiteral("7")}}).ok); // the model knows two
    QVERIFY(service.ask("setstate", {{QStringLiteral("state"), QStringLiteral("2")}}).ok);
    QVERIFY(service.terminate());
}

void TestService::changesAlgorithmsWhileRunning()
{
    RunningService service(m_folder->path());
    QVERIFY(service.start());
    const QJsonObject add{{QStringLiteral("name"), QStringLiteral("DependSpectrumNorm")},
                          {QStringLiteral("desc"), QStringLiteral("mid")},
                          {QStringLiteral("data"), QJsonArray()}};
    QVERIFY(service.ask("addnewalgorithm", add).ok);
    QVERIFY(!service.ask("addnewalgorithm", add).ok); // twice
    const auto list = [](const char *key, const QByteArray &entries) {
        return QJsonObject{{QString::fromLatin1(key), QJsonDocument::fromJson(entries).array()}};
    };
    const QByteArray before = service.ask("getalgorithms").body;
    QVERIFY(!service.ask("addnewalgorithm", list("param_list", R"([{"name":"Math"},{"name":"Oracle"}])")).ok);
    QVERIFY(!service
                 .send("setalgorithmparams",
                       R"({"name":"SpectrumOnline","data":[{"description":"hann","curr_val":"20"},)"
                       R"({"description":"time","curr_val":"99"}]})")
                 .ok);
    QVERIFY(!service
                 .send("addnewalgorithm",
                       R"({"name":"SpectrumNorm","data":[{"description":"channel","curr_val":"O1;Nose"}]})")
                 .ok);
    for (const char *data : {R"([{"description":"min_freq","curr_val":null}])", R"([{"description":"a\"b\\"}])"}) {
        const QByteArray set = R"({"name":"SpectrumNorm","desc":"z","data":)";
        const auto refused = service.send("addnewalgorithm", set + data + "}");
        QVERIFY(!refused.ok && !QJsonDocument::fromJson(refused.body).isNull());
    }
    QCOMPARE(service.ask("getalgorithms").body, before);
    QVERIFY(!service
                 .ask("addnewprofile",
                      list("profile_list", R"([{"name":"new","type":"rt"},{"name":"default","type":"rt"}])"))
                 .ok);
    QCOMPARE(service.ask("getprofilelist").array("list"), (QJsonArray{QStringLiteral("default")}));
    // Without a name each gets one, by which it can be removed.
    QVERIFY(service.ask("addnewalgorithm", list("param_list", R"([{"name":"Math"},{"name":"Math"}])")).ok);
    for (const char *name : {"Math", "Math_2"}) {
        QVERIFY(service.send("removealgorithm", R"({"name":"Math","decs":")" + QByteArray(name) + R"("})").ok);
    }
    QCOMPARE(service.ask("getalgorithms").body, before);
    QVERIFY(!service
                 .ask("addnewalgorithm",
                      {{QStringLiteral("name"), QStringLiteral("Oracle")}, {QStringLiteral("data"), QJsonArray()}})
                 .ok);
    QTRY_VERIFY_WITH_TIMEOUT(rhythmNames(service).contains(QStringLiteral("mid")), 10000);

    QJsonObject remove{{QStringLiteral("name"), QStringLiteral("SpectrumNorm")},
                       {QStringLiteral("decs"), QStringLiteral("alpha_index")}};
    QTRY_VERIFY_WITH_TIMEOUT(rhythmNames(service).contains(QStringLiteral("alpha_index")), 10000);
    QVERIFY(service.ask("removealgorithm", remove).ok);
    QVERIFY(!service.ask("removealgorithm", remove).ok);
    QVERIFY(!rhythmNames(service).contains(QStringLiteral("alpha_index")));

    QVERIFY(service
                .ask("setalgorithmparams",
                     {{QStringLiteral("name"), QStringLiteral("SpectrumOnline")},
                      {QStringLiteral("data"),
                       QJsonArray{QJsonObject{{QStringLiteral("description"), QStringLiteral("time")},
                                              {QStringLiteral("curr_val"), QStringLiteral("4")}}}}})
                .ok);
    // 4 s at 250 Hz: 1000 samples, 1024 with what is filled up.
    QTRY_COMPARE_WITH_TIMEOUT(service.ask("getspectrum").json()[QLatin1String("samples")].toInt(), 513, 10000);
    QVERIFY(!rhythmNames(service).contains(QStringLiteral("alpha_index")));
    QVERIFY(service.ask("addnewprofile", profile(QStringLiteral("plain"), "rt")).ok);
    QVERIFY(service.ask("setcurrentprofile", named(QStringLiteral("plain"))).ok);
    QVERIFY(!rhythmNames(service).contains(QStringLiteral("mid")));
    QTRY_COMPARE_WITH_TIMEOUT(service.ask("getspectrum").json()[QLatin1String("samples")].toInt(), 257, 10000);
}

void TestService::removesAllRecordsButTheOpenOne()
{
    RunningService service(m_folder->path());
    QVERIFY(service.start());
    for (int i = 0; i < 3; ++i) { // within a second, perhaps: their names differ all the same
        QVERIFY(service.ask("startwritefile").ok);
        QVERIFY(!service.ask("startwritefile").ok);
        QVERIFY(service.ask("stopwritefile").ok);
    }
    QVERIFY(service.ask("startwritefile").ok);
    QTRY_COMPARE(filesIn(path("records"), "*.edf").size(), 4);
    QFile foreign(path("records/notes.txt"));
    QVERIFY(foreign.open(QIODevice::WriteOnly));
    QVERIFY(service.ask("removeallrecords").ok);
    QTRY_COMPARE(filesIn(path("records"), "*.edf").size(), 1);
    QVERIFY(foreign.exists());
    QVERIFY(service.ask("stopwritefile").ok);
    QVERIFY(service.ask("removeallrecords").ok);
    QCOMPARE(filesIn(path("records"), "*"), QStringList{QStringLiteral("notes.txt")});
}

void TestService::playsARecording()
{
    const QString file = path("played.edf");
    QStringList acquire = words("acquire --speed max --seconds 5 --start 2001-02-03T04:05:06 --patient Ann --record");
    QCOMPARE(runHost(acquire << file << words("--label 1.9:seen --label 4.9:late")).status, 0);
    RunningService service(m_folder->path(), {QStringLiteral("--playback"), file});
    QVERIFY(service.ask("startdevice", {{QStringLiteral("device"), QStringLiteral("Playback")}}).ok);
    const QJsonObject label{{QStringLiteral("label"), QString::fromUtf8("Überraschung")}};
    QVERIFY(!service.ask("writelabel", label).ok);
    QTest::qWait(1000); // the recording begins behind the beginning of what is played
    QVERIFY(service.ask("startwritefile").ok);
    const QString record = service.ask("getrecordfile").json()[QLatin1String("file")].toString();
    QTRY_VERIFY(QFileInfo::exists(record));
    QTest::qWait(1200); // an annotation needs a record to lie in
    QVERIFY(service.ask("writelabel", label).ok);
    QTest::qWait(1200);
    QTRY_VERIFY(!rhythmNames(service).isEmpty());
    // Eight EEG channels, then ECG and others, whose rhythms are none.
    for (const QJsonValue &rhythm : service.ask("getlastrhythm").array("rhythms")) {
        const QJsonArray values = rhythm[QLatin1String("value")].toArray();
        QCOMPARE(values.size(), 15);
        QVERIFY(values[7].isDouble() && values[8].isNull());
    }
    QVERIFY(service.ask("stopwritefile").ok);
    EDFReader reader(record); // closed when the answer came
    QVERIFY(reader.open() && reader.takeCurrentAnnotations());
    QCOMPARE(reader.annotations().size(), 2);
    QCOMPARE(reader.annotations()[0].text, QStringLiteral("seen"));
    const qint64 skipped = QDateTime({2001, 2, 3}, {4, 5, 6}).secsTo(reader.getStartDateTime());
    QVERIFY(skipped >= 0 && skipped < 2 && std::fabs(1.9 - reader.annotations()[0].onset - skipped - 0.5) <= 0.5);
    QCOMPARE(reader.annotations()[1].text, label[QLatin1String("label")].toString());
    PatientInfo patient;
    reader.getPatientInfo(patient);
    QCOMPARE(patient.name, QStringLiteral("Ann"));
    QVERIFY(!service.ask("getrecordfile").ok);
}

void TestService::survivesItsDevice_data()
{
    QTest::addColumn<QJsonObject>("params");
    QTest::addColumn<QByteArray>("sentence");

    QTest::newRow("refuses to start") << QJsonObject{{QStringLiteral("refuse_start"), 1}} << QByteArray("code -1");
    QTest::newRow("fails") << QJsonObject{{QStringLiteral("error_after"), 8}, {QStringLiteral("error_code"), -7}}
                           << QByteArray("code -7");
    QTest::newRow("ends") << QJsonObject{{QStringLiteral("duration"), 8}} << QByteArray("has ended");
}

void TestService::survivesItsDevice()
{
    QFETCH(QJsonObject, params);
    QFETCH(QByteArray, sentence);

    RunningService service(m_folder->path());
    QVERIFY(service.start(params));
    const bool isRecording = service.ask("startwritefile").ok;
    QTRY_COMPARE_WITH_TIMEOUT(service.status("curr_mode").toBool(), false, 10000);
    QCOMPARE(service.status("write_status").toBool(), false);
    const QByteArray errors = service.errors();
    QVERIFY2(errors.contains(sentence) && errors.count('\n') == 1, errors.constData());

    for (auto param = params.begin(); param != params.end(); ++param) {
        param.value() = 0;
    }
    QVERIFY(service.start(params));
    QTRY_VERIFY(!rhythmNames(service).isEmpty());
    if (isRecording && !sentence.contains("-1")) {
        const QStringList files = filesIn(path("records"), "*.edf");
        QVERIFY(recorded(path("records/") + files.value(0)).value(0).size() >= 5 * 250);
    }
}

void TestService::closesTheRecordingWhenTerminated()
{
#ifdef Q_OS_WIN
    QSKIP("A console program cannot be asked to end there");
#endif
    RunningService service(m_folder->path());
    QVERIFY(service.start());
    QVERIFY(service.ask("startwritefile").ok);
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path("records/") + filesIn(path("records"), "*.edf").value(0)).size() > 40000,
                             20000);
    QVERIFY(service.terminate());
    QVERIFY(recorded(path("records/") + filesIn(path("records"), "*.edf").value(0)).value(0).size() >= 3 * 250);
    QCOMPARE(filesIn(path("records"), "*_rt.xls").size(), 1);
}

void TestService::answersItsOwnClient()
{
    RunningService service(m_folder->path());
    const auto request = [&service](QStringList arguments) {
        arguments.prepend(QStringLiteral("request"));
        return runHost(arguments << QStringLiteral("--port") << QString::number(service.port()));
    };
    const Outcome status = request({QStringLiteral("gethalvinstatus")});
    QCOMPARE(status.status, 0);
    QCOMPARE(status.json()[QLatin1String("current_profile")].toString(), QStringLiteral("default"));
    QCOMPARE(request({QStringLiteral("startdevice"), QStringLiteral("{\"device\":\"Simulator 8\"}")}).status, 0);
    int samples = 0; // each is handed out once
    QTRY_VERIFY((samples += request({QStringLiteral("getdata")}).json()[QLatin1String("samples")].toInt()) > 0);

    const Outcome refused = request({QStringLiteral("discoverdevices")});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.error.contains("Halvin in state read mode"), refused.error.constData());
    QCOMPARE(request({QStringLiteral("getstates")}).error,
             QByteArray("bioprocessing: The service refused: getstate: the halvin is not in BCI state\n"));
    QCOMPARE(request({QStringLiteral("startdevice"), QStringLiteral("{device}")}).status, 2);
    QCOMPARE(runHost({QStringLiteral("request")}).status, 2);
    QCOMPARE(
        runHost({QStringLiteral("request"), QStringLiteral("getinfo"), QStringLiteral("--port"), QStringLiteral("x")})
            .status,
        2);
}

void TestService::refusesToStart_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("fragment");

    const QString port = QStringLiteral("--port");
    const QString free = QStringLiteral("0");
    QTest::newRow("port taken") << QStringList{port, QStringLiteral("TAKEN")} << 1 << QByteArray("another program");
    QTest::newRow("folder taken") << QStringList{port, free, QStringLiteral("--data"), QStringLiteral("TAKEN")} << 1
                                  << QByteArray("Another service");
    QTest::newRow("no such address") << QStringList{port, free, QStringLiteral("--address"),
                                                    QStringLiteral("192.0.2.1")}
                                     << 1 << QByteArray("no such address");
    QTest::newRow("folder is a file") << QStringList{port, free, QStringLiteral("--data"), QStringLiteral("FILE")} << 1
                                      << QByteArray("--data");
    QTest::newRow("address is a name") << QStringList{QStringLiteral("--address"), QStringLiteral("here")} << 2
                                       << QByteArray("here");
    QTest::newRow("port beyond") << QStringList{port, QStringLiteral("65536")} << 2 << QByteArray("65535");
    QTest::newRow("origin is a name") << QStringList{QStringLiteral("--allow-origin"), QStringLiteral("here")} << 2
                                      << QByteArray("--allow-origin");
    QTest::newRow("recording is none") << QStringList{port, free, QStringLiteral("--playback"), QStringLiteral("FILE")}
                                       << 1 << QByteArray("file");
    QTest::newRow("endless states") << QStringList{QStringLiteral("--state-seconds"), QStringLiteral("0")} << 2
                                    << QByteArray("--state-seconds");
}

void TestService::refusesToStart()
{
    QFETCH(QStringList, options);
    QFETCH(int, status);
    QFETCH(QByteArray, fragment);

    RunningService other(path("other"));
    QFile file(path("file"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    options.replaceInStrings(QStringLiteral("FILE"), file.fileName());
    options.replaceInStrings(QStringLiteral("TAKEN"),
                             options.contains(QStringLiteral("--data")) ? path("other")
                                                                        : QString::number(other.port()));
    if (!options.contains(QStringLiteral("--data"))) {
        options << QStringLiteral("--data") << path("own");
    }
    const Outcome outcome = runHost(QStringList{QStringLiteral("serve")} + options);
    QCOMPARE(outcome.status, status);
    const QByteArray &error = outcome.error;
    QVERIFY2(error.contains(fragment) && error.count('\n') == 1, error.constData());
}

BP_TEST_MAIN(TestService)
#include "TestService.moc"
