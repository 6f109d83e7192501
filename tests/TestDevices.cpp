#include "devices/AmplifierChannel.h"
#include "devices/AmplifierHelper.h"
#include "devices/ChannelLabels.h"
#include "devices/DeviceManager.h"
#include "devices/DeviceSearcher.h"
#include "filters/ButterworthFilter.h"
#include "support/FakeAmplifier.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QMutex>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <cmath>
#include <limits>

namespace {

std::unique_ptr<FakeAmplifier> makeDevice(const char *name)
{
    FakeScript script;
    script.name = QString::fromLatin1(name);
    return std::make_unique<FakeAmplifier>(script);
}

/// Finds whatever was plugged in; may be asked from any thread.
class FakeHelper : public AmplifierHelper
{
public:
    explicit FakeHelper(const char *name)
        : m_name(QString::fromLatin1(name))
    {
    }

    bool isReadyToSearch() override { return ready; }
    void findDevices(QList<Amplifier *> &devices) override
    {
        QMutexLocker locker(&m_mutex);
        devices << m_plugged;
        ++searches;
    }
    QString getHelperName() override { return m_name; }
    void clearDeviceList() override { ++clears; }

    void plug(const QList<Amplifier *> &devices)
    {
        QMutexLocker locker(&m_mutex);
        m_plugged = devices;
    }

    std::atomic<bool> ready{true};
    std::atomic<int> searches{0};
    std::atomic<int> clears{0};

private:
    QString m_name;
    QMutex m_mutex;
    QList<Amplifier *> m_plugged;
};

class OpenSearcher : public DeviceSearcher
{
public:
    using DeviceSearcher::addNewHelper;
    using DeviceSearcher::isCurrentPluginDLL;
    using DeviceSearcher::loadPluginsFrom;

protected:
    void takeAllPlugins() override { }
};

int s_calls = 0;
QStringList s_names;

void takeDevices(QList<AmplifierInfo> &devices)
{
    ++s_calls;
    s_names.clear();
    for (const AmplifierInfo &info : qAsConst(devices)) {
        s_names << info.name();
    }
}

class OpenManager : public DeviceManager
{
public:
    explicit OpenManager(std::unique_ptr<DeviceSearcher> searcher = std::make_unique<OpenSearcher>())
        : DeviceManager(std::move(searcher))
    {
        s_calls = 0;
        s_names.clear();
        setCallBackFunction(takeDevices);
    }

    void receive(const char *helper, QList<Amplifier *> devices)
    {
        takeHelperName(QString::fromLatin1(helper));
        takeCurrentData(devices);
    }
};

QList<float> ratesOf(const AmplifierInfo &info)
{
    QList<float> rates;
    info.getFrequencisList(rates);
    return rates;
}

} // namespace

Q_DECLARE_METATYPE(BPCommon::ChannelType)

class TestDevices : public QObject
{
    Q_OBJECT
private slots:
    void selectsTheNearestRate_data();
    void selectsTheNearestRate();
    void keepsRatesAscending();
    void keepsTheIndexThatEqualsTheSize();
    void comparesIdentityOnly();
    void readsRatesFromText();

    void parsesTextByPosition_data();
    void parsesTextByPosition();
    void writesTextForm();
    void refusesUnusableJsonNumbers();
    void copiesWithoutFilterObjects();
    void guessesTypeFromLabel_data();
    void guessesTypeFromLabel();

    void keepsKnownDevices();
    void removesWhatIsMissingUnlessInUse();
    void ignoresOtherHelpersDevices();
    void tellsNewCallbackOfKnownDevices();
    void clearsButWhatIsInUse();

    void takesOnlyCandidateFiles_data();
    void takesOnlyCandidateFiles();
    void tracesEachPluginThatDoesNotLoad();
    void findsDevicesOnItsThread();
    void completesRoundsWithoutHelpers();
    void searchesAgainAfterAStop();
    void isFreedWhileSearching();
};

void TestDevices::selectsTheNearestRate_data()
{
    QTest::addColumn<QList<float>>("rates");
    QTest::addColumn<float>("wanted");
    QTest::addColumn<int>("index");
    const QList<float> two{250.0f, 500.0f};
    QTest::newRow("offered") << two << 500.0f << 1;
    QTest::newRow("near the lower") << two << 256.0f << 0;
    QTest::newRow("near the upper") << QList<float>{250.0f, 262.0f} << 257.0f << 1;
    QTest::newRow("half-way is the lower") << QList<float>{250.0f, 262.0f} << 256.0f << 0;
    QTest::newRow("below all") << two << 1.0f << 0;
    QTest::newRow("above all") << two << 9999.0f << 1;
    QTest::newRow("the middle pair") << QList<float>{100.0f, 200.0f, 300.0f, 400.0f} << 260.0f << 2;
    QTest::newRow("nothing offered") << QList<float>{} << 125.0f << 0;
}

void TestDevices::selectsTheNearestRate()
{
    QFETCH(QList<float>, rates);
    QFETCH(float, wanted);
    QFETCH(int, index);
    AmplifierInfo info(QStringLiteral("A"), {}, {}, 1, rates);
    QCOMPARE(info.setCurrentFreqValue(wanted), index);
    QCOMPARE(info.getCurrentFreqValue(), rates.isEmpty() ? wanted : rates[index]);
    QCOMPARE(info.setCurrentFreqValue(std::numeric_limits<float>::quiet_NaN()), index);
}

void TestDevices::keepsRatesAscending()
{
    AmplifierInfo info;
    QCOMPARE(info.addNewFrequencyValue(500.0f), 0);
    QCOMPARE(info.addNewFrequencyValue(250.0f), 0);
    QCOMPARE(info.addNewFrequencyValue(1000.0f), 2);
    QCOMPARE(info.addNewFrequencyValue(500.0f), 1);
    QCOMPARE(info.addNewFrequencyValue(std::numeric_limits<float>::quiet_NaN()), -1);
    QCOMPARE(ratesOf(info), (QList<float>{250.0f, 500.0f, 1000.0f}));
}

void TestDevices::keepsTheIndexThatEqualsTheSize()
{
    AmplifierInfo info(QStringLiteral("A"), {}, {}, 1, {250.0f, 500.0f, 1000.0f});
    info.setCurrentFreqValue(500.0f);
    info.clearFrequencyList();
    info.addNewFrequencyValue(250.0f);
    QCOMPARE(info.getFrequencyMode(), 1);
    QCOMPARE(info.getCurrentFreqValue(), 0.0f);
    QCOMPARE(info.getJsonObject().value(QLatin1String("frequency")).toDouble(-1.0), 0.0);
    info.clearFrequencyList();
    QCOMPARE(info.getFrequencyMode(), 0);
    QCOMPARE(info.getLowFreqValue(), 0.0f);
}

void TestDevices::comparesIdentityOnly()
{
    const AmplifierInfo info(QStringLiteral("A"), QStringLiteral("x"), QStringLiteral("7"), 8, {250.0f});
    AmplifierInfo other(QStringLiteral("A"), QStringLiteral("x"), QStringLiteral("7"), 19, {500.0f, 1000.0f});
    QVERIFY(info == other);
    other.setThirdText(QStringLiteral("y"));
    QVERIFY(info != other);
    QVERIFY(info != AmplifierInfo(QStringLiteral("A"), {}, QStringLiteral("7"), 8, {250.0f}));
}

void TestDevices::readsRatesFromText()
{
    struct Device : FakeAmplifier
    {
        using Amplifier::takeFrequencyList;
    } device;
    device.takeFrequencyList(QStringLiteral("500; 250;x;-1;nan;1000;250"), 1);
    QCOMPARE(ratesOf(device.getAmplifierInfo()), (QList<float>{250.0f, 500.0f, 1000.0f}));
    QCOMPARE(device.getFreqValue(), 500.0f);
    device.takeFrequencyList(QStringLiteral("2000;1000"), 7);
    QCOMPARE(device.getFreqValue(), 1000.0f);
}

void TestDevices::parsesTextByPosition_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected"); // index name type g1 g2 scale LPF HPF BSF
    const auto row = [](const char *name, const char *text, const char *expected) {
        QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(expected);
    };
    row("all", "index=4;name=Fz;type=EOG;g1=5;g2=6;scale=0.5;LPF=30;HPF=0.5;BSO=50", "4 Fz EOG 5 6 0.5 30 0.5 50");
    row("six pairs change nothing", "index=4;name=Fz;type=EOG;g1=5;g2=6;scale=2", "9 old ECG 1 2 3 0 0 0");
    row("seven pairs", "index=4;name=Fz;type=EOG;g1=5;g2=6;scale=2;LPF=30", "4 Fz EOG 5 6 2 30 0 0");
    row("position wins over key", "name=Fz;index=4;type=EOG;g1=5;g2=6;scale=2;LPF=30", "0 4 EOG 5 6 2 30 0 0");
    row("unknown type stays", "index=4;name=Fz;type=eog;g1=5;g2=6;scale=2;LPF=30", "4 Fz ECG 5 6 2 30 0 0");
    row("no value stays", "index=4;name=;type=EOG;g1=5;g2=6;scale=2;LPF=30", "4 old EOG 5 6 2 30 0 0");
    row("negative input is none", "index=4;name=Fz;type=EOG;g1=-5;g2=6;scale=2;LPF=30", "4 Fz EOG 0 6 2 30 0 0");
    row("not finite stays", "index=4;name=Fz;type=EOG;g1=5;g2=6;scale=nan;LPF=inf", "4 Fz EOG 5 6 3 0 0 0");
    row("more pairs than fields", "index=4;name=Ö;type=EOG;g1=5;g2=6;scale=1;LPF=1;HPF=2;BSO=3;x=4;y=5",
        "4 Ö EOG 5 6 1 1 2 3");
}

void TestDevices::parsesTextByPosition()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    AmplifierChannel channel(9, 3.0f, BPCommon::ECG);
    channel.setChannelName(QStringLiteral("old"));
    channel.setGroupData({1, 2});
    channel.parseStringData(text);
    const auto number = [](float value) { return QString::number(static_cast<double>(value)); };
    const QStringList fields{QString::number(channel.getIndex()),
                             channel.getName(),
                             channel.getTextType(),
                             QString::number(channel.getGroup1()),
                             QString::number(channel.getGroup2()),
                             number(channel.getScale()),
                             number(channel.getLPF()),
                             number(channel.getHPF()),
                             number(channel.getBSF())};
    QCOMPARE(fields.join(QLatin1Char(' ')), expected);
}

void TestDevices::writesTextForm()
{
    AmplifierChannel channel(3, 0.125f, BPCommon::Temp);
    channel.setChannelName(QStringLiteral("Größe"));
    channel.setGroupData({4294967295u, 0});
    channel.setLPF(1234567.0f);
    channel.setHPF(0.5f);
    channel.setBSF(50.0f);
    QCOMPARE(channel.makeTextView(),
             QByteArray("index=3;name=Gr\xc3\xb6\xc3\x9f"
                        "e;type=Temp;g1=4294967295;g2=0;scale=0.125;LPF=1.23457e+06;HPF=0.5;BSO=50"));
    const AmplifierChannel again(QString::fromUtf8(channel.makeTextView()));
    QCOMPARE(again.makeTextView(), channel.makeTextView());
}

void TestDevices::refusesUnusableJsonNumbers()
{
    AmplifierChannel channel(3, 0.5f, BPCommon::GSR);
    channel.setGroupData({7, 4294967295u});
    channel.setHPF(0.5f);
    QCOMPARE(AmplifierChannel(channel.toJson()).toJson(), channel.toJson());

    const QJsonObject filters{{QStringLiteral("LPF"), -1e300}, {QStringLiteral("BSF"), QStringLiteral("50")}};
    const QJsonObject json{{QStringLiteral("index"), 2},        {QStringLiteral("type"), 99},
                           {QStringLiteral("scale"), 1e300},    {QStringLiteral("G1"), -1},
                           {QStringLiteral("G2"), 5e9},         {QStringLiteral("name"), 17},
                           {QStringLiteral("filters"), filters}};
    AmplifierChannel expected;
    expected.setIndex(2);
    QCOMPARE(AmplifierChannel(json).toJson(), expected.toJson());
}

void TestDevices::copiesWithoutFilterObjects()
{
    AmplifierChannel channel;
    channel.setLPF(30.0f);
    channel.getFilterRef().objects.push_back(
        std::make_unique<ButterworthFilter>(AbstractFilter::LowPass, 4, 250.0f, 30.0f, 30.0f));
    const AmplifierChannel copy(channel);
    QCOMPARE(copy.getLPF(), 30.0f);
    QVERIFY(copy.getFilterRef().objects.empty());
    AmplifierChannel &alias = channel;
    channel = alias;
    QCOMPARE(channel.getFilterRef().objects.size(), std::size_t{1});
    channel = copy;
    QVERIFY(channel.getFilterRef().objects.empty());
}

void TestDevices::guessesTypeFromLabel_data()
{
    QTest::addColumn<BPCommon::ChannelType>("type");
    const auto rows = [](BPCommon::ChannelType type, const QStringList &labels) {
        for (const QString &label : labels) {
            QTest::newRow(qPrintable(label)) << type;
        }
    };
    const auto list = [](const char *text) { return QString::fromLatin1(text).split(QLatin1Char('|')); };
    rows(BPCommon::EEG, list("EEG Fpz-Cz|Fp1|T3|T7|Temporal|O2-A1|Cz|P3|C4-A1|EEG T3-Temp|Event marker|Oz|AFF1|FCC5h"));
    rows(BPCommon::ECG, list("ECG MLII|MLII|EKG|ECG1|V5|aVR|ecg_lead"));
    rows(BPCommon::EMG, list("EMG submental|EMG2|Chin 1"));
    rows(BPCommon::EOG, list("EOG horizontal|VEOG|HEOG-L|EOG2"));
    rows(BPCommon::Resp, list("Resp oro-nasal|Airflow|Thorax|RESP"));
    rows(BPCommon::GSR, list("GSR|EDA"));
    rows(BPCommon::PPG, list("SaO2 X9|Pleth|PPG|SpO2"));
    rows(BPCommon::Temp, list("Temp rectal|Temp|TEMP2|Temperature"));
}

void TestDevices::guessesTypeFromLabel()
{
    QFETCH(BPCommon::ChannelType, type);
    QCOMPARE(bp::channelTypeFromLabel(QString::fromLatin1(QTest::currentDataTag())), type);
}

void TestDevices::keepsKnownDevices()
{
    const auto first = makeDevice("A");
    const auto twin = makeDevice("A");
    const auto other = makeDevice("B");
    OpenManager manager;
    manager.receive("helper", {first.get(), nullptr, twin.get()});
    QCOMPARE(s_names, QStringList{QStringLiteral("A")});
    manager.receive("helper", {twin.get()});
    QCOMPARE(s_calls, 1);
    QCOMPARE(manager.openDevice(twin->getAmplifierInfo()), first.get());
    manager.receive("helper", {twin.get(), other.get()});
    QCOMPARE(s_calls, 2);
    QCOMPARE(s_names, (QStringList{QStringLiteral("A"), QStringLiteral("B")}));
    TraceCapture trace;
    QVERIFY(manager.openDevice(AmplifierInfo()) == nullptr);
    QCOMPARE(trace.count(QStringLiteral("DeviceManager::openDevice device not found")), 1);
}

void TestDevices::removesWhatIsMissingUnlessInUse()
{
    const auto used = makeDevice("used");
    const auto idle = makeDevice("idle");
    OpenManager manager;
    manager.receive("helper", {used.get(), idle.get()});
    manager.openDevice(used->getAmplifierInfo());
    manager.openDevice(used->getAmplifierInfo());
    manager.receive("helper", {});
    QCOMPARE(s_names, QStringList{QStringLiteral("used")});
    QVERIFY(!used->getPresence());

    manager.receive("helper", {used.get()});
    QVERIFY(used->getPresence());
    QCOMPARE(s_calls, 2); // added, removed; presence is no change of the list

    manager.releaseDevice(used.get());
    manager.receive("helper", {});
    QCOMPARE(manager.getDeviceCount(), 1);
    manager.releaseDevice(used.get());
    manager.releaseDevice(used.get());
    manager.receive("helper", {});
    QCOMPARE(manager.getDeviceCount(), 0);
    QCOMPARE(s_calls, 3);
}

void TestDevices::ignoresOtherHelpersDevices()
{
    const auto a = makeDevice("A");
    const auto b = makeDevice("B");
    OpenManager manager;
    manager.receive("first", {a.get()});
    manager.receive("second", {b.get()});
    manager.receive("first", {});
    QCOMPARE(s_names, QStringList{QStringLiteral("B")});
}

void TestDevices::tellsNewCallbackOfKnownDevices()
{
    const auto a = makeDevice("A");
    OpenManager manager;
    manager.setCallBackFunction(nullptr);
    manager.receive("helper", {a.get()});
    manager.setCallBackFunction(takeDevices);
    manager.receive("helper", {a.get()});
    manager.receive("helper", {a.get()});
    QCOMPARE(s_calls, 1);
}

void TestDevices::clearsButWhatIsInUse()
{
    const auto a = makeDevice("A");
    const auto b = makeDevice("B");
    OpenManager manager;
    manager.receive("helper", {a.get(), b.get()});
    manager.openDevice(b->getAmplifierInfo());
    manager.clearDeviceList();
    QCOMPARE(s_names, QStringList{QStringLiteral("B")});
}

void TestDevices::takesOnlyCandidateFiles_data()
{
    QTest::addColumn<bool>("isCandidate");
    QTest::newRow("/x/FooAmplifier.dll") << true;
    QTest::newRow("/x/AmplifierFoo.DLL") << true;
    QTest::newRow("/x/Amplifier/Foo.dll") << false;
    QTest::newRow("/x/FooAmplifier.dll.txt") << false;
    QTest::newRow("/x/FooAmplifier") << false;
    QTest::newRow("/x/fooamplifier.dll") << false;
#if defined(Q_OS_LINUX)
    QTest::newRow("/x/libFooAmplifier.so") << true;
    QTest::newRow("/x/libFooAmplifier.so.1") << false;
#endif
}

void TestDevices::takesOnlyCandidateFiles()
{
    QFETCH(bool, isCandidate);
    QCOMPARE(OpenSearcher().isCurrentPluginDLL(QString::fromLatin1(QTest::currentDataTag())), isCandidate);
}

void TestDevices::tracesEachPluginThatDoesNotLoad()
{
    QTemporaryDir folder;
    const auto put = [&folder](const char *path) {
        const QString file = folder.filePath(QString::fromLatin1(path));
        QVERIFY(QDir().mkpath(QFileInfo(file).path()));
        QFile plugin(file);
        QVERIFY(plugin.open(QIODevice::WriteOnly));
        plugin.write("this is no library");
    };
    put("one/BrokenAmplifier.dll");
    put("two/OtherAmplifier.dll");
    put("two/Readme.txt");
    put("two/deep/DeepAmplifier.dll");
    put("TopAmplifier.dll");

    TraceCapture trace;
    OpenSearcher searcher;
    searcher.loadPluginsFrom(folder.path());
    const QStringList lines = trace.lines().filter(QStringLiteral("Amplifier.dll"));
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[0].contains(folder.filePath(QStringLiteral("one/BrokenAmplifier.dll"))), qPrintable(lines[0]));
    QVERIFY2(lines[1].contains(folder.filePath(QStringLiteral("two/OtherAmplifier.dll"))), qPrintable(lines[1]));
    QVERIFY(lines[0].size() > lines[0].indexOf(QLatin1String("Amplifier.dll")) + 20); // the loader's own words

    searcher.loadPluginsFrom(folder.filePath(QStringLiteral("missing")));
    QObject stranger;
    QVERIFY(!searcher.addNewHelper(&stranger));
    QVERIFY(!searcher.addNewHelper(nullptr));
}

void TestDevices::findsDevicesOnItsThread()
{
    const auto a = makeDevice("A");
    const auto b = makeDevice("B");
    const auto hidden = makeDevice("hidden");
    FakeHelper replaced("helper");
    FakeHelper helper("helper");
    FakeHelper shy("shy");
    replaced.plug({hidden.get()});
    helper.plug({a.get()});
    shy.plug({hidden.get()});
    shy.ready = false;
    auto searcher = std::make_unique<OpenSearcher>();
    searcher->addNewHelper(&replaced);
    searcher->addNewHelper(&helper);
    searcher->addNewHelper(&shy);
    OpenManager manager(std::move(searcher));
    QSignalSpy completed(&manager, &DeviceManager::searchCompleted);

    manager.startSearchThread();
    QVERIFY(completed.wait());
    QCOMPARE(s_names, QStringList{QStringLiteral("A")}); // the list came before its round was over
    manager.openDevice(a->getAmplifierInfo());
    helper.plug({b.get()});
    manager.clearDeviceList();
    QTRY_COMPARE(s_names, (QStringList{QStringLiteral("A"), QStringLiteral("B")}));
    QTRY_VERIFY(!a->getPresence());
    QCOMPARE(helper.clears.load(), 1);
    QCOMPARE(shy.searches.load(), 0);
    QCOMPARE(replaced.searches.load(), 0);
    manager.stopSearchThread();
}

void TestDevices::completesRoundsWithoutHelpers()
{
    OpenManager manager;
    QSignalSpy completed(&manager, &DeviceManager::searchCompleted);
    manager.startSearchThread();
    QVERIFY(completed.wait());
    QCOMPARE(s_calls, 0);
}

void TestDevices::searchesAgainAfterAStop()
{
    FakeHelper helper("helper");
    auto searcher = std::make_unique<OpenSearcher>();
    searcher->addNewHelper(&helper);
    QSignalSpy finished(searcher.get(), &DeviceSearcher::finishThread);
    OpenManager manager(std::move(searcher));
    for (int round = 1; round <= 3; ++round) {
        const int before = helper.searches;
        manager.startSearchThread();
        manager.startSearchThread();
        QTRY_VERIFY(helper.searches > before);
        manager.stopSearchThread();
        manager.stopSearchThread();
        QCOMPARE(finished.count(), round);
    }
    manager.startSearchThread();
    manager.stopSearchThread(); // perhaps before the loop has begun
}

void TestDevices::isFreedWhileSearching()
{
    QSignalSpy completed(DeviceManager::Instance(), &DeviceManager::searchCompleted);
    DeviceManager::Instance()->startSearchThread();
    QVERIFY(completed.wait());
    DeviceManager::freeDeviceManager();
    DeviceManager::freeDeviceManager();
    QCOMPARE(DeviceManager::Instance()->getDeviceCount(), 0);
    DeviceManager::Instance()->startSearchThread(); // the application's end stops it
}

BP_TEST_MAIN(TestDevices)
#include "TestDevices.moc"
