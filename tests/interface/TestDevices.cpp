#include "devices/AmplifierChannel.h"
#include "devices/AmplifierHelper.h"
#include "devices/ChannelLabels.h"
#include "devices/DeviceManager.h"
#include "devices/DeviceSearcher.h"
#include "montage/Montage.h"
#include "support/FakeAmplifier.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <limits>

namespace {

std::unique_ptr<FakeAmplifier> makeDevice(const char *name)
{
    FakeScript script;
    script.name = QString::fromLatin1(name);
    return std::make_unique<FakeAmplifier>(script);
}

/// Finds whatever was plugged in; may be asked from any thread.
struct FakeHelper : AmplifierHelper
{
    FakeHelper(const char *helperName, Amplifier *device, bool isReady = true)
        : name(QString::fromLatin1(helperName))
        , plugged(device)
        , ready(isReady)
    {
    }
    bool isReadyToSearch() override { return ready; }
    void findDevices(QList<Amplifier *> &devices) override
    {
        devices << plugged.load();
        ++searches;
    }
    QString getHelperName() override { return name; }
    void clearDeviceList() override { ++clears; }

    const QString name;
    std::atomic<Amplifier *> plugged;
    const bool ready;
    std::atomic<int> searches{0};
    std::atomic<int> clears{0};
};

struct OpenSearcher : DeviceSearcher
{
    using DeviceSearcher::addNewHelper;
    using DeviceSearcher::isCurrentPluginDLL;
    using DeviceSearcher::loadPluginsFrom;
    void takeAllPlugins() override { }
};

QStringList s_told; ///< the list of each call: "A B"

void takeDevices(QList<AmplifierInfo> &devices)
{
    QStringList names;
    for (const AmplifierInfo &info : qAsConst(devices)) {
        names << info.name();
    }
    s_told << names.join(QLatin1Char(' '));
}

QStringList lists(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char('|'));
}

struct OpenManager : DeviceManager
{
    explicit OpenManager(std::unique_ptr<DeviceSearcher> searcher = std::make_unique<OpenSearcher>())
        : DeviceManager(std::move(searcher))
    {
        s_told.clear();
        setCallBackFunction(takeDevices);
    }

    void receive(const char *helper, QList<Amplifier *> devices)
    {
        takeHelperName(QString::fromLatin1(helper));
        takeCurrentData(devices);
    }
};

} // namespace

class TestDevices : public QObject
{
    Q_OBJECT
private slots:
    void selectsTheNearestRate();
    void keepsRatesAscending();
    void parsesTextByPosition_data();
    void parsesTextByPosition();
    void refusesUnusableJsonNumbers();
    void guessesTypeFromLabel();
    void channelListIsAMontage();
    void keepsKnownDevices();
    void removesWhatIsMissingUnlessInUse();
    void takesOnlyCandidateFiles();
    void tracesEachPluginThatDoesNotLoad();
    void findsDevicesOnItsThread();
    void searchesAgainAfterAStop();
    void isFreedWhileSearching();
};

void TestDevices::selectsTheNearestRate()
{
    const auto selects = [](const QList<float> &rates, float wanted, int index) {
        AmplifierInfo info(QStringLiteral("A"), {}, {}, 1, rates);
        QCOMPARE(info.setCurrentFreqValue(wanted), index);
        QCOMPARE(info.getCurrentFreqValue(), rates.isEmpty() ? wanted : rates[index]);
        QCOMPARE(info.setCurrentFreqValue(std::numeric_limits<float>::quiet_NaN()), index);
    };
    selects({250.0f, 262.0f}, 257.0f, 1);
    selects({250.0f, 262.0f}, 256.0f, 0); // half-way is the lower
    selects({250.0f, 500.0f}, 1.0f, 0);
    selects({250.0f, 500.0f}, 9999.0f, 1);
    selects({100.0f, 200.0f, 300.0f, 400.0f}, 260.0f, 2);
    selects({}, 125.0f, 0);
}

void TestDevices::keepsRatesAscending()
{
    struct Device : FakeAmplifier
    {
        using Amplifier::takeFrequencyList;
    } device;
    device.takeFrequencyList(QStringLiteral("500; 250;x;-1;nan;1000;250"), 1);
    AmplifierInfo info = device.getAmplifierInfo();
    QList<float> rates;
    info.getFrequencisList(rates);
    QCOMPARE(rates, (QList<float>{250.0f, 500.0f, 1000.0f}));
    QCOMPARE(device.getFreqValue(), 500.0f);
    QCOMPARE(info.addNewFrequencyValue(500.0f), 1);
    QCOMPARE(info.addNewFrequencyValue(std::numeric_limits<float>::quiet_NaN()), -1);
    device.takeFrequencyList(QStringLiteral("2000;1000"), 7);
    QCOMPARE(device.getFreqValue(), 1000.0f);

    info.setCurrentFreqValue(500.0f);
    info.clearFrequencyList();
    info.addNewFrequencyValue(250.0f);
    QCOMPARE(info.getFrequencyMode(), 1); // the index that equals the size stays, and selects nothing
    QCOMPARE(info.getCurrentFreqValue(), 0.0f);
    QVERIFY(info == device.getAmplifierInfo()); // the rates are no part of the identity
    info.setThirdText(QStringLiteral("y"));
    QVERIFY(info != device.getAmplifierInfo());
}

void TestDevices::parsesTextByPosition_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected"); // index name type g1 g2 scale LPF HPF BSF
    const auto row = [](const char *name, const char *text, const char *expected) {
        QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(expected);
    };
    row("six pairs change nothing", "index=4;name=Fz;type=EOG;g1=5;g2=6;scale=2", "9 old ECG 1 2 3 0 0 0");
    row("seven pairs", "index=4;name=Fz;type=EOG;g1=4294967295;g2=6;scale=0.125;LPF=1234567",
        "4 Fz EOG 4294967295 6 0.125 1.23457e+06 0 0");
    row("position wins over key", "name=Fz;index=4;type=EOG;g1=5;g2=6;scale=2;LPF=30", "0 4 EOG 5 6 2 30 0 0");
    row("unknown type stays", "index=4;name=Fz;type=eog;g1=5;g2=6;scale=2;LPF=30", "4 Fz ECG 5 6 2 30 0 0");
    row("no value stays", "index=4;name=;type=EOG;g1=5;g2=6;scale=2;LPF=30", "4 old EOG 5 6 2 30 0 0");
    row("negative input is none", "index=4;name=Fz;type=EOG;g1=-5;g2=6;scale=2;LPF=30", "4 Fz EOG 0 6 2 30 0 0");
    row("not finite stays", "index=4;name=Fz;type=EOG;g1=5;g2=6;scale=nan;LPF=inf", "4 Fz EOG 5 6 3 0 0 0");
    row("more pairs", "index=4;name=Ö;type=EOG;g1=5;g2=6;scale=1;LPF=1;HPF=2;BSO=3;x=4;y=5", "4 Ö EOG 5 6 1 1 2 3");
}

void TestDevices::parsesTextByPosition()
{
    QFETCH(QString, text);
    AmplifierChannel channel(9, 3.0f, BPCommon::ECG);
    channel.setChannelName(QStringLiteral("old"));
    channel.setGroupData({1, 2});
    channel.parseStringData(text);
    QString values = QString::fromUtf8(channel.makeTextView()).replace(QLatin1Char(';'), QLatin1Char(' '));
    QTEST(values.remove(QRegularExpression(QStringLiteral("\\w+="))), "expected");
}

void TestDevices::refusesUnusableJsonNumbers()
{
    AmplifierChannel channel(3, 0.5f, BPCommon::GSR);
    channel.setGroupData({7, 4294967295u});
    channel.setHPF(0.5f);
    QCOMPARE(AmplifierChannel(channel.toJson()).toJson(), channel.toJson());

    const QByteArray json = R"({"index": 2, "type": 99, "scale": 1e300, "G1": -1, "G2": 5e9, "name": 17,
                                "filters": {"LPF": -1e300, "BSF": "50"}})";
    AmplifierChannel expected;
    expected.setIndex(2);
    QCOMPARE(AmplifierChannel(QJsonDocument::fromJson(json).object()).toJson(), expected.toJson());
}

void TestDevices::guessesTypeFromLabel()
{
    const auto guesses = [](BPCommon::ChannelType type, const char *labels) {
        for (const QString &label : lists(labels)) {
            QVERIFY2(bp::channelTypeFromLabel(label) == type, qPrintable(label));
        }
    };
    guesses(BPCommon::EEG, "EEG Fpz-Cz|Fp1|T3|T7|Temporal|O2-A1|P3|EEG T3-Temp|Event marker|Oz|AFF1|FCC5h");
    guesses(BPCommon::ECG, "ECG MLII|MLII|EKG|ECG1|V5|aVR|ecg_lead");
    guesses(BPCommon::EMG, "EMG submental|EMG2|Chin 1");
    guesses(BPCommon::EOG, "EOG horizontal|VEOG|HEOG-L|EOG2");
    guesses(BPCommon::Resp, "Resp oro-nasal|Airflow|Thorax|RESP");
    guesses(BPCommon::GSR, "GSR|EDA");
    guesses(BPCommon::PPG, "SaO2 X9|Pleth|PPG|SpO2");
    guesses(BPCommon::Temp, "Temp rectal|Temp|TEMP2|Temperature");
}

void TestDevices::channelListIsAMontage()
{
    struct Device : FakeAmplifier
    {
        void add(const char *name, quint32 group2 = 0)
        {
            m_channels.push_back(new AmplifierChannel(0, 2.0f, BPCommon::EEG));
            m_channels.back()->setChannelName(QString::fromLatin1(name));
            m_channels.back()->setGroup2(group2);
        }
    } device;
    QVERIFY(device.getMontage() == nullptr);
    device.add("Fp1");
    device.add("Fp2");
    device.add("Ref", 1);
    const QSharedPointer<Montage> montage = device.getMontage();
    QCOMPARE(montage->getType(), Montage_Usual);
    QString text;
    for (unsigned i = 0; i < montage->size(); ++i) {
        const AmplifierChannel &channel = *(*montage)[i];
        text += QStringLiteral("%1 %2-%3 x%4;").arg(channel.getName()).arg(channel.getGroup1());
        text = text.arg(channel.getGroup2()).arg(channel.getScale());
    }
    QCOMPARE(text, QStringLiteral("Fp1 1-0 x2;Fp2 2-0 x2;Ref 0-1 x2;"));
    (*montage)[0]->setLPF(30.0f);
    QCOMPARE(device.getMontage(), montage); // what the host changed in it stays
    device.add("Cz");
    QCOMPARE(device.getMontage()->size(), 4u);
    QCOMPARE(montage->size(), 3u); // whoever holds it still may
    device.setMontage(QSharedPointer<Montage>::create());
    QVERIFY(device.getMontage()->empty());
}

void TestDevices::keepsKnownDevices()
{
    const auto first = makeDevice("A");
    const auto twin = makeDevice("A");
    const auto other = makeDevice("B");
    OpenManager manager;
    manager.receive("helper", {first.get(), nullptr, twin.get()});
    manager.receive("helper", {twin.get()});
    QCOMPARE(s_told, lists("A"));
    QCOMPARE(manager.openDevice(twin->getAmplifierInfo()), first.get());
    manager.receive("second", {other.get()});
    manager.receive("second", {});
    QCOMPARE(s_told, lists("A|A B|A")); // the other helper's device stays
    manager.setCallBackFunction(nullptr);
    manager.receive("second", {other.get()});
    manager.setCallBackFunction(takeDevices);
    manager.receive("second", {other.get()});
    manager.receive("second", {other.get()});
    QCOMPARE(s_told, lists("A|A B|A|A B")); // a new callback learns of known devices, once
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
    QVERIFY(!used->getPresence());
    manager.receive("helper", {used.get()});
    QVERIFY(used->getPresence());
    QCOMPARE(s_told, lists("used idle|used")); // presence is no change of the list

    manager.releaseDevice(used.get());
    manager.receive("helper", {});
    QCOMPARE(manager.getDeviceCount(), 1);
    manager.releaseDevice(used.get());
    manager.releaseDevice(used.get());
    manager.receive("helper", {});
    QCOMPARE(s_told, lists("used idle|used|"));
}

void TestDevices::takesOnlyCandidateFiles()
{
    const OpenSearcher searcher;
#if defined(Q_OS_LINUX)
    QVERIFY(searcher.isCurrentPluginDLL(QStringLiteral("/x/libFooAmplifier.so")));
#endif
    QVERIFY(searcher.isCurrentPluginDLL(QStringLiteral("/x/AmplifierFoo.DLL")));
    for (const QString &file : lists("/x/Amplifier/Foo.dll|/x/FooAmplifier.dll.txt|/x/FooAmplifier|/x/fooamplifier.dll|"
                                     "/x/libFooAmplifier.so.1")) {
        QVERIFY2(!searcher.isCurrentPluginDLL(file), qPrintable(file));
    }
}

void TestDevices::tracesEachPluginThatDoesNotLoad()
{
    QTemporaryDir folder;
    for (const QString &path : lists("one/BrokenAmplifier.dll|two/OtherAmplifier.dll|two/Readme.txt|"
                                     "two/deep/DeepAmplifier.dll|TopAmplifier.dll")) {
        QFile plugin(folder.filePath(path));
        QVERIFY(QDir().mkpath(QFileInfo(plugin).path()) && plugin.open(QIODevice::WriteOnly));
        plugin.write("this is no library");
    }
    TraceCapture trace;
    OpenSearcher searcher;
    searcher.loadPluginsFrom(folder.path());
    const QStringList lines = trace.lines().filter(QStringLiteral("Amplifier.dll"));
    QCOMPARE(lines.size(), 2);
    QVERIFY(lines[0].contains(folder.filePath(QStringLiteral("one/BrokenAmplifier.dll"))));
    QVERIFY(lines[1].contains(folder.filePath(QStringLiteral("two/OtherAmplifier.dll"))));
    QVERIFY(lines[0].size() > lines[0].indexOf(QLatin1String("Amplifier.dll")) + 20); // the loader's own words

    searcher.loadPluginsFrom(folder.filePath(QStringLiteral("missing")));
    QObject stranger;
    QVERIFY(!searcher.addNewHelper(&stranger) && !searcher.addNewHelper(nullptr));
}

void TestDevices::findsDevicesOnItsThread()
{
    const auto a = makeDevice("A");
    const auto b = makeDevice("B");
    const auto hidden = makeDevice("hidden");
    FakeHelper replaced("helper", hidden.get());
    FakeHelper helper("helper", a.get());
    FakeHelper shy("shy", hidden.get(), false);
    auto searcher = std::make_unique<OpenSearcher>();
    for (FakeHelper *each : {&replaced, &helper, &shy}) {
        searcher->addNewHelper(each);
    }
    OpenManager manager(std::move(searcher));
    QSignalSpy completed(&manager, &DeviceManager::searchCompleted);

    manager.startSearchThread();
    QVERIFY(completed.wait());
    QCOMPARE(s_told, lists("A")); // the list came before its round was over
    manager.openDevice(a->getAmplifierInfo());
    helper.plugged = b.get();
    manager.clearDeviceList();
    QTRY_COMPARE(s_told.constLast(), QStringLiteral("A B"));
    QTRY_VERIFY(!a->getPresence());
    QCOMPARE(helper.clears.load(), 1);
    QCOMPARE(shy.searches + replaced.searches, 0);
}

void TestDevices::searchesAgainAfterAStop()
{
    FakeHelper helper("helper", nullptr);
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

/// A program may have one application after another, and each frees the manager that was made in its time.
int main(int argc, char *argv[])
{
    QLoggingCategory::setFilterRules(QStringLiteral("tavrix.console=false"));
    int failures = 0;
    for (const bool isTest : {false, true}) {
        QPointer<DeviceManager> manager;
        {
            QCoreApplication application(argc, argv);
            TestDevices test;
            failures += isTest ? QTest::qExec(&test, argc, argv) : 0;
            manager = DeviceManager::Instance();
        }
        failures += manager.isNull() ? 0 : 1;
    }
    return failures;
}

#include "TestDevices.moc"
