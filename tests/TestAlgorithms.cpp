#include "support/ExpectedParams.h"
#include "support/FakeAlgorithm.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "algorithms/AlgorithmManager.h"
#include "algorithms/ParamFactory.h"
#include "montage/Montage.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <thread>

using Sets = std::vector<UnitParams>;
Q_DECLARE_METATYPE(Sets)

/// Takes the results that a container publishes.
class Receiver : public QObject
{
    Q_OBJECT
public:
    QStringList results; ///< descriptor and value
    QThread *lastThread = nullptr;

public slots:
    void takeAlgorithmData(const QString &, const UnitParams &params, unsigned int, const vector<float> &data)
    {
        results << params.getParamDescriptor() + QLatin1Char('=') + QString::number(static_cast<double>(data.front()));
        lastThread = QThread::currentThread();
    }
};

class TestAlgorithms : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void defaultSets_data();
    void defaultSets();
    void heartRateHasTwoNames();
    void namedRhythms_data();
    void namedRhythms();
    void standardRhythms();

    void valueFallsBackToTheDefault();
    void copiesAreIndependent();
    void savedValuesComeBack();
    void changedValuesAreFound();
    void jsonRoundTrip();
    void jsonIsTakenOverOrRefused_data();
    void jsonIsTakenOverOrRefused();
    void fileRoundTrip();
    void fileIsTakenOverOrRefused_data();
    void fileIsTakenOverOrRefused();
    void settingsWithinADocument();

    void signaturesAreWhatHostsConnectTo();
    void configuredListIsCreatedAndChanged();
    void absentAlgorithmsGoBetweenBlocks();
    void unknownNamesCreateNothing_data();
    void unknownNamesCreateNothing();
    void sendersAreFoundByName_data();
    void sendersAreFoundByName();
    void changedDependNameDropsTheSenderBefore();
    void deletedSenderIsForgotten();
    void linksMadeByHand();
    void ringOfSendersEnds();
    void everyResultArrivesOnce();
    void blockWithOrWithoutFilters();
    void emptyBlockDoesNothing();
    void receiverChangesAndGoes();
    void receiverWithoutTheSlot();
    void montageReachesEveryAlgorithm();
    void resetReachesTheNamedAlgorithms();
    void addedAlgorithmsAreOwned();
    void updatesFromManyThreads();
    void algorithmsLiveOnTheProcessingThread_data();
    void algorithmsLiveOnTheProcessingThread();
};

namespace {

UnitParams fake(const QString &descriptor, const QString &value = QStringLiteral("0"))
{
    return FakeAlgorithm::makeParams(QStringLiteral("Fake"), descriptor, QString(), value);
}

UnitParams rhythm(const char *descriptor, const char *depend = "")
{
    return FakeAlgorithm::makeParams(QStringLiteral("SpectrumNorm"), QLatin1String(descriptor), QLatin1String(depend));
}

UnitParams formula(const char *descriptor, const char *depend = "")
{
    return FakeAlgorithm::makeParams(QStringLiteral("Math"), QLatin1String(descriptor), QLatin1String(depend));
}

FakeAlgorithm *find(const AlgorithmManager &manager, const char *name, const char *descriptor)
{
    return static_cast<FakeAlgorithm *>(manager.findAlgorithm(QLatin1String(name), QLatin1String(descriptor)));
}

void process(AlgorithmManager &manager, float value)
{
    manager.processData(1, {-value}, {value});
}

QString orDash(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("-") : text;
}

/// As the rows of kExpectedParams.
QString row(const custom_param &param)
{
    static const QStringList controls{QString(),
                                      QStringLiteral("real"),
                                      QStringLiteral("integer"),
                                      QStringLiteral("choice"),
                                      QStringLiteral("flag"),
                                      QStringLiteral("color"),
                                      QStringLiteral("text"),
                                      QStringLiteral("channels")};
    QStringList parts{param.key, controls.value(param.controlType), orDash(param.defaultValue), orDash(param.minimum),
                      orDash(param.maximum)};
    const auto add = [&parts](const char *name, const QString &value, const char *usual) {
        if (value != QLatin1String(usual)) {
            parts << QLatin1String(name) + QLatin1Char('=') + value;
        }
    };
    add("edit", QString::number(param.editType), "0");
    add("step", param.step, "0.1");
    add("rule", param.visibility, "");
    add("list", param.choices, "");
    return parts.join(QLatin1Char(' ')) + QStringLiteral(" : ") + param.getTitle();
}

UnitParams colored(const QString &color)
{
    UnitParams params = ParamFactory::makeCustomProperty(QStringLiteral("Math"));
    params.setParamDescriptor(QStringLiteral("one"));
    params.setParamValue(QStringLiteral("r_color"), color);
    return params;
}

QString color(const UnitParams &params)
{
    return params.getParamValue(QStringLiteral("r_color"));
}

} // namespace

void TestAlgorithms::initTestCase()
{
    for (const char *name : {"Fake", "SpectrumOnline", "SpectrumNorm", "Math"}) {
        AlgorithmManager::registerAlgorithm(QLatin1String(name), FakeAlgorithm::create);
    }
}

void TestAlgorithms::cleanup()
{
    QCOMPARE(FakeAlgorithm::s_alive.load(), 0);
}

void TestAlgorithms::defaultSets_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("dependName");
    QTest::addColumn<QStringList>("rows");
    for (const ExpectedParams &expected : kExpectedParams) {
        QTest::newRow(expected.type) << QString::fromUtf8(expected.type) << QString::fromUtf8(expected.dependName)
                                     << QString::fromUtf8(expected.rows).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
}

void TestAlgorithms::defaultSets()
{
    QFETCH(QString, type);
    QFETCH(QStringList, rows);
    const UnitParams params = ParamFactory::makeCustomProperty(type);
    QStringList actual;
    for (const custom_param &param : params.getParamList()) {
        actual << row(param);
        QCOMPARE(param.isEditable(), param.editType == 0);
        QCOMPARE(int(param.valueType), param.controlType == 1 ? 1 : param.controlType <= 4 ? 2 : 3);
        QVERIFY(params.isCurrentValEmpty(param.key));
    }
    QCOMPARE(actual, rows);
    QCOMPARE(params.getName(), type);
    QTEST(params.getDependName(), "dependName");
    QVERIFY(params.getParamDescriptor().isEmpty());
}

void TestAlgorithms::heartRateHasTwoNames()
{
    QCOMPARE(ParamFactory::makeCustomProperty(QStringLiteral("ECG")).toJson(),
             ParamFactory::makeCustomProperty(QStringLiteral("ElectroCardiogram")).toJson());
    for (const char *name : {"", "ecg", "spectrumnorm", "Spectrum"}) {
        const UnitParams params = ParamFactory::makeCustomProperty(QLatin1String(name));
        QVERIFY(params.isEmpty() && params.getName().isEmpty());
    }
}

using RhythmMaker = UnitParams (*)(const QString &);
Q_DECLARE_METATYPE(RhythmMaker)

void TestAlgorithms::namedRhythms_data()
{
    QTest::addColumn<RhythmMaker>("make");
    QTest::addColumn<QString>("values");
    QTest::newRow("delta") << RhythmMaker(ParamFactory::makeRhythmDelta) << QStringLiteral("0.5 4 20 200 1 100 #657");
    QTest::newRow("theta") << RhythmMaker(ParamFactory::makeRhythmTheta) << QStringLiteral("4 8 10 100 1 100 #28D");
    QTest::newRow("alpha") << RhythmMaker(ParamFactory::makeRhythmAlpha) << QStringLiteral("8 14 30 70 1 100 #7C2");
    QTest::newRow("mu") << RhythmMaker(ParamFactory::makeRhythmMu) << QStringLiteral("8 11 50 70 1 100 #7BF");
    QTest::newRow("beta") << RhythmMaker(ParamFactory::makeRhythmBeta) << QStringLiteral("14 35 5 30 1 100 #C21");
    QTest::newRow("gamma") << RhythmMaker(ParamFactory::makeRhythmGamma) << QStringLiteral("35 50 30 70 1 100 #EB0");
}

void TestAlgorithms::namedRhythms()
{
    QFETCH(RhythmMaker, make);
    const UnitParams params = make(QStringLiteral("Fp1;O2"));
    QStringList values;
    for (const char *key :
         {"min_freq", "max_freq", "min_thres", "max_thres", "p_min_thres", "p_max_thres", "r_color"}) {
        values << params.getParamValue(QLatin1String(key));
    }
    QTEST(values.join(QLatin1Char(' ')), "values");
    QCOMPARE(params.getName(), QStringLiteral("SpectrumNorm"));
    QCOMPARE(params.getParamDescriptor(), QString::fromUtf8(QTest::currentDataTag()));
    QCOMPARE(params.getParamValue(QStringLiteral("calc_mode")), QStringLiteral("1"));
    QCOMPARE(params.getParamValue(QStringLiteral("channel")), QStringLiteral("Fp1;O2"));
    QCOMPARE(params.getParamNames(), ParamFactory::makeCustomProperty(QStringLiteral("SpectrumNorm")).getParamNames());
}

void TestAlgorithms::standardRhythms()
{
    QStringList rows;
    const Sets sets = ParamFactory::makeStandardRhythmList();
    for (const UnitParams &set : sets) {
        QStringList parts{set.getName(), set.getDependName(), set.getParamDescriptor()};
        for (const char *key : {"average", "min_freq", "max_freq", "r_color", "min_thres", "max_thres"}) {
            parts << set.getParamValue(QLatin1String(key));
        }
        rows << parts.join(QLatin1Char(' '));
    }
    const QString start = QStringLiteral("DependSpectrumNorm SpectrumOnline ");
    QCOMPARE(rows,
             QStringList({start + QStringLiteral("alpha 0 8 14 #7C2 1 100"),
                          start + QStringLiteral("beta 0 14 35 #C21 1 100"),
                          start + QStringLiteral("delta 0 0.5 4 #657 1 100"),
                          start + QStringLiteral("gamma 0 35 50 #EB0 1 100"),
                          start + QStringLiteral("theta 0 4 8 #28D 1 100")}));
}

void TestAlgorithms::valueFallsBackToTheDefault()
{
    UnitParams params = ParamFactory::makeCustomProperty(QStringLiteral("SpectrumOnline"));
    const UnitParams &reading = params;
    const QString time = QStringLiteral("time");
    QCOMPARE(reading[time], QStringLiteral("2"));
    QCOMPARE(params[time], QString());
    params[time] = QStringLiteral("7.5");
    QCOMPARE(reading[time], QStringLiteral("7.5"));
    params.setParamValue(time, QString());
    QCOMPARE(reading[time], QStringLiteral("2"));
    params.initDefaultValues();
    QCOMPARE(params[time], QStringLiteral("2"));

    params[QStringLiteral("none")] = QStringLiteral("lost");
    QCOMPARE(params[QStringLiteral("none")] + reading[QStringLiteral("none")], QString());
    QVERIFY(!params.contain(QStringLiteral("none")) && params.isCurrentValEmpty(QStringLiteral("none")));
    QCOMPARE(params.getParamNames().size(), 9);
}

void TestAlgorithms::copiesAreIndependent()
{
    UnitParams first = colored(QStringLiteral("#111"));
    const UnitParams second = first;
    first[QStringLiteral("r_color")] = QStringLiteral("#222");
    QCOMPARE(color(second), QStringLiteral("#111"));
    const UnitParams third = std::move(first);
    QCOMPARE(color(third), QStringLiteral("#222"));
    QCOMPARE(third.getParamDescriptor(), QStringLiteral("one"));
}

void TestAlgorithms::savedValuesComeBack()
{
    UnitParams params = colored(QStringLiteral("#111"));
    params.returnLastParamValue();
    QCOMPARE(color(params), QStringLiteral("#111"));
    params.saveLastProperty();
    for (int i = 0; i < 2; ++i) {
        params.setParamValue(QStringLiteral("r_color"), QStringLiteral("#222"));
        params.setParamValue(QStringLiteral("formula"), QStringLiteral("alpha"));
        params.returnLastParamValue();
        QCOMPARE(color(params), QStringLiteral("#111"));
        QVERIFY(params.isCurrentValEmpty(QStringLiteral("formula")));
    }
    params.setParamValue(QStringLiteral("r_color"), QStringLiteral("#333"));
    params.zeroAllPointers();
    params.returnLastParamValue();
    QCOMPARE(color(params), QStringLiteral("#333"));
}

void TestAlgorithms::changedValuesAreFound()
{
    const UnitParams params = ParamFactory::makeCustomProperty(QStringLiteral("Math"));
    UnitParams other = params;
    other.initDefaultValues();
    other.setParamDescriptor(QStringLiteral("another name"));
    QVERIFY(!params.isChangedParam(other));
    other.setParamValue(QStringLiteral("visible"), QStringLiteral("0"));
    QVERIFY(params.isChangedParam(other) && other.isChangedParam(params));
    QVERIFY(params.isChangedParam(UnitParams()) && UnitParams().isChangedParam(params));
    QVERIFY(!UnitParams().isChangedParam(UnitParams()));
}

void TestAlgorithms::jsonRoundTrip()
{
    UnitParams params = ParamFactory::makeRhythmAlpha(QString());
    params.setParamValue(QStringLiteral("channel"), QStringLiteral("Fp1;\"O2\" <&>"));
    const QJsonObject json = QJsonDocument::fromJson(QJsonDocument(params.toJson()).toJson()).object();
    QCOMPARE(json[QLatin1String("name")].toString(), QStringLiteral("SpectrumNorm"));
    QCOMPARE(json[QLatin1String("desc")].toString(), QStringLiteral("alpha"));
    const QJsonObject threshold = json[QLatin1String("data")].toArray().at(6).toObject();
    QCOMPARE(threshold,
             QJsonObject({{QStringLiteral("description"), QStringLiteral("min_thres")},
                          {QStringLiteral("title"), QStringLiteral("Minimum threshold, µV")},
                          {QStringLiteral("min_val"), QStringLiteral("0.01")},
                          {QStringLiteral("max_val"), QStringLiteral("2500")},
                          {QStringLiteral("vals_list"), QString()},
                          {QStringLiteral("curr_val"), QStringLiteral("30")},
                          {QStringLiteral("editable"), true}}));

    UnitParams loaded = ParamFactory::makeCustomProperty(QStringLiteral("SpectrumNorm"));
    QVERIFY(loaded.fromJson(json));
    QCOMPARE(loaded.toJson(), params.toJson());
}

void TestAlgorithms::jsonIsTakenOverOrRefused_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("taken");
    QTest::addColumn<QString>("expected"); // descriptor, colour
    const auto add = [](const char *name, const char *json, bool taken, const char *expected) {
        QTest::newRow(name) << QByteArray(json) << taken << QString::fromUtf8(expected);
    };
    const char *kept = "one #111";
    add("new value", R"({"desc":"two","data":[{"description":"r_color","curr_val":"#222"}]})", true, "two #222");
    add("number", R"({"data":[{"description":"r_color","curr_val":0.5}]})", true, "one 0.5");
    add("boolean", R"({"data":[{"description":"r_color","curr_val":true}]})", true, "one 1");
    add("empty value is the default", R"({"data":[{"description":"r_color","curr_val":""}]})", true, "one #C3D6F3");
    add("unknown key", R"({"data":[{"description":"other","curr_val":"#222"}]})", true, kept);
    add("no value", R"({"data":[{"description":"r_color"}]})", true, kept);
    add("value is an object", R"({"data":[{"description":"r_color","curr_val":{}}]})", true, kept);
    add("bad entries beside a good one", R"({"data":[1,null,[],{"description":"r_color","curr_val":"#222"}]})", true,
        "one #222");
    add("no data", R"({"desc":"two"})", false, kept);
    add("data is no array", R"({"desc":"two","data":{"r_color":"#222"}})", false, kept);
    add("descriptor is a number", R"({"desc":2,"data":[{"description":"r_color","curr_val":"#222"}]})", false, kept);
    add("name is null", R"({"name":null,"desc":"two","data":[]})", false, kept);
}

void TestAlgorithms::jsonIsTakenOverOrRefused()
{
    QFETCH(QByteArray, json);
    UnitParams params = colored(QStringLiteral("#111"));
    QTEST(params.fromJson(QJsonDocument::fromJson(json).object()), "taken");
    QTEST(params.getParamDescriptor() + QLatin1Char(' ') + color(params), "expected");
    QCOMPARE(params.getName(), QStringLiteral("Math"));
}

void TestAlgorithms::fileRoundTrip()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("set.xml"));
    UnitParams params = ParamFactory::makeCustomProperty(QStringLiteral("Math"));
    params.setParamDescriptor(QStringLiteral("альфа <&> \"µ\""));
    params.setDependName(QStringLiteral("alpha;beta"));
    params.setParamValue(QStringLiteral("formula"), QStringLiteral("alpha<beta && 1>0\nsecond line"));
    params.setParamValue(QStringLiteral("depend"), QStringLiteral("a\u0001b")); // XML cannot hold that character
    QVERIFY(params.writeParamToFile(path));

    UnitParams loaded = ParamFactory::makeCustomProperty(QStringLiteral("Math"));
    QVERIFY(loaded.loadParamFromFile(path));
    params.setParamValue(QStringLiteral("depend"), QStringLiteral("a b"));
    QCOMPARE(loaded.toJson(), params.toJson());
    QCOMPARE(loaded.getDependName(), QStringLiteral("alpha;beta"));

    QVERIFY(colored(QStringLiteral("#111")).writeParamToFile(path)); // shorter than what was there
    QVERIFY(loaded.loadParamFromFile(path));
    QCOMPARE(color(loaded), QStringLiteral("#111"));
    QVERIFY(!params.writeParamToFile(folder.path()));
    QVERIFY(!params.loadParamFromFile(folder.filePath(QStringLiteral("none.xml"))));
}

void TestAlgorithms::fileIsTakenOverOrRefused_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<bool>("taken");
    QTest::addColumn<QString>("expected"); // descriptor, colour
    const auto add = [](const char *name, const char *xml, bool taken, const char *expected) {
        QTest::newRow(name) << QByteArray(xml) << taken << QString::fromUtf8(expected);
    };
    const char *kept = "one #111";
    add("any order", "<algo><prop><visible>0</visible><r_color>#222</r_color></prop><desc>two</desc></algo>", true,
        "two #222");
    add("unknown elements",
        "<algo><x><prop><r_color>#333</r_color></prop></x><prop><y>1</y><r_color>#222</r_color></prop></algo>", true,
        "one #222");
    add("elements inside a value", "<algo><prop><r_color>#2<b>3</b>22</r_color></prop></algo>", true, "one #222");
    add("Latin-1", "<?xml version='1.0' encoding='ISO-8859-1'?><algo><desc>\xB5</desc></algo>", true, "µ #111");
    add("empty", "", false, kept);
    add("other root", "<montage><desc>two</desc></montage>", false, kept);
    add("cut inside the values", "<algo><desc>two</desc><prop><r_color>#222</r_color>", false, kept);
    add("cut behind the values", "<algo><desc>two</desc><prop><r_color>#222</r_color></prop>", false, kept);
    add("wrong end tag", "<algo><desc>two</desc><prop><r_color>#222</prop></algo>", false, kept);
    add("no XML", "r_color=#222", false, kept);
}

void TestAlgorithms::fileIsTakenOverOrRefused()
{
    QFETCH(QByteArray, xml);
    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("set.xml")));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(xml) == xml.size());
    file.close();
    UnitParams params = colored(QStringLiteral("#111"));
    TraceCapture trace;
    QFETCH(bool, taken);
    QCOMPARE(params.loadParamFromFile(file.fileName()), taken);
    QCOMPARE(trace.lines().size(), taken ? 0 : 1);
    QTEST(params.getParamDescriptor() + QLatin1Char(' ') + color(params), "expected");
}

void TestAlgorithms::settingsWithinADocument()
{
    QXmlStreamReader reader(QStringLiteral("<all><a><note>text</note><prop><r_color>#222</r_color></prop><after/></a>"
                                           "<b><note/></b><c><prop><r_color>#333</r_color></prop></c></all>"));
    QVERIFY(reader.readNextStartElement());
    UnitParams params = colored(QStringLiteral("#111"));
    QVERIFY(reader.readNextStartElement()); // stands at a
    QVERIFY(params.readSetting(reader));
    QCOMPARE(color(params), QStringLiteral("#222"));
    QVERIFY(reader.readNextStartElement());
    QCOMPARE(reader.name().toString(), QStringLiteral("after"));
    reader.skipCurrentElement();
    QVERIFY(!reader.readNextStartElement() && reader.readNextStartElement()); // out of a, stands at b
    QVERIFY(!params.readSetting(reader)); // the values of c are another's
    QCOMPARE(color(params), QStringLiteral("#222"));
}

void TestAlgorithms::signaturesAreWhatHostsConnectTo()
{
    const QMetaObject &meta = CustomAlgorithm::staticMetaObject;
    QVERIFY(meta.indexOfSignal("getData(QString,UnitParams,uint,vector<float>)") >= 0);
    QVERIFY(meta.indexOfSlot("takeData(QString,UnitParams,uint,vector<float>)") >= 0);
}

void TestAlgorithms::configuredListIsCreatedAndChanged()
{
    Receiver receiver;
    AlgorithmManager manager;
    // The same name and descriptor twice is one algorithm with the later values.
    manager.setAlgorithmParams(&receiver,
                               {fake(QStringLiteral("a"), QStringLiteral("1")), fake(QStringLiteral("b")),
                                fake(QStringLiteral("a"), QStringLiteral("2")), rhythm("a")});
    QCOMPARE(FakeAlgorithm::s_alive.load(), 3);
    FakeAlgorithm *a = find(manager, "Fake", "a");
    QCOMPARE(a->values, QStringList({QStringLiteral("1"), QStringLiteral("2")}));
    QCOMPARE(manager.findAlgorithms(QStringLiteral("Fake")),
             std::vector<CustomAlgorithm *>({a, find(manager, "Fake", "b")}));
    QCOMPARE(find(manager, "Fake", ""), nullptr);

    manager.setAlgorithmParams(&receiver, {fake(QStringLiteral("a"), QStringLiteral("3"))});
    manager.setAlgorithmParams(&receiver, {fake(QStringLiteral("b")), fake(QStringLiteral("a"), QStringLiteral("4"))});
    manager.updateProperties();
    QCOMPARE(find(manager, "Fake", "a"), a); // kept through both changes
    QCOMPARE(a->values.last(), QStringLiteral("4"));
    QCOMPARE(FakeAlgorithm::s_alive.load(), 2);
    QCOMPARE(manager.configuredParams().size(), std::size_t{2});
}

void TestAlgorithms::absentAlgorithmsGoBetweenBlocks()
{
    Receiver receiver;
    AlgorithmManager manager;
    manager.setAlgorithmParams(&receiver, {fake(QStringLiteral("a")), fake(QStringLiteral("b"))});
    manager.setAlgorithmParams(&receiver, {fake(QStringLiteral("b"))});
    process(manager, 1.0f);
    QCOMPARE(receiver.results, QStringList({QStringLiteral("a=1"), QStringLiteral("b=1")}));
    TraceCapture trace;
    manager.updateProperties();
    QCOMPARE(find(manager, "Fake", "a"), nullptr);
    manager.updateProperties();
    QCOMPARE(trace.count(QStringLiteral("AlgorithmManager::updateProperties remove_algorithm")), 1);
    process(manager, 2.0f);
    QCOMPARE(receiver.results.mid(2), QStringList(QStringLiteral("b=2")));
}

void TestAlgorithms::unknownNamesCreateNothing_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"ECG", "math", "Unknown", ""}) {
        QTest::newRow(name) << QString::fromLatin1(name);
    }
}

void TestAlgorithms::unknownNamesCreateNothing()
{
    QFETCH(QString, name);
    Receiver receiver;
    AlgorithmManager manager;
    const UnitParams params = FakeAlgorithm::makeParams(name, QString());
    TraceCapture trace;
    manager.setAlgorithmParams(&receiver, {params});
    manager.updateAlgorithm(params);
    manager.updateProperties();
    QCOMPARE(manager.findAlgorithm(name, QString()), nullptr);
    QCOMPARE(trace.count(QStringLiteral("AlgorithmManager::createAlgorithm no algorithm")), 2);
    process(manager, 1.0f);
}

void TestAlgorithms::sendersAreFoundByName_data()
{
    const auto online = [](const char *descriptor) {
        return FakeAlgorithm::makeParams(QStringLiteral("SpectrumOnline"), QLatin1String(descriptor));
    };
    QTest::addColumn<QString>("depend");
    QTest::addColumn<Sets>("others");
    QTest::addColumn<QString>("senders");
    QTest::newRow("algorithm by its type")
        << QStringLiteral("SpectrumOnline") << Sets{online("")} << QStringLiteral("!");
    QTest::newRow("type with a descriptor") << QStringLiteral("SpectrumOnline") << Sets{online("x")} << QString();
    QTest::newRow("one rhythm without a semicolon") << QStringLiteral("alpha") << Sets{rhythm("alpha")} << QString();
    QTest::newRow("one rhythm") << QStringLiteral("alpha;") << Sets{rhythm("alpha"), rhythm("beta")}
                                << QStringLiteral("alpha!");
    QTest::newRow("two rhythms") << QStringLiteral("alpha;beta") << Sets{rhythm("beta"), rhythm("mu"), rhythm("alpha")}
                                 << QStringLiteral("beta!,alpha!");
    QTest::newRow("formula in place of a rhythm")
        << QStringLiteral("alpha;beta") << Sets{formula("alpha"), rhythm("beta")} << QStringLiteral("alpha!,beta!");
    QTest::newRow("rhythm before formula")
        << QStringLiteral("alpha;") << Sets{formula("alpha"), rhythm("alpha")} << QStringLiteral("alpha!");
    QTest::newRow("part that is not there")
        << QStringLiteral(";gone;;beta;") << Sets{rhythm("beta")} << QStringLiteral("beta!");
    QTest::newRow("named twice") << QStringLiteral("alpha;beta;alpha") << Sets{rhythm("alpha"), rhythm("beta")}
                                 << QStringLiteral("alpha!,beta!");
    QTest::newRow("itself") << QStringLiteral("listener;") << Sets{} << QString();
    QTest::newRow("only semicolons") << QStringLiteral(";;") << Sets{rhythm("")} << QString();
}

void TestAlgorithms::sendersAreFoundByName()
{
    QFETCH(QString, depend);
    QFETCH(Sets, others);
    QFETCH(QString, senders);
    AlgorithmManager manager;
    Sets sets{formula("listener", depend.toLatin1().constData())};
    sets.insert(sets.end(), others.begin(), others.end());
    manager.setAlgorithmParams(nullptr, sets);
    process(manager, 1.0f);
    FakeAlgorithm *listener = find(manager, "Math", "listener");
    QCOMPARE(listener->received.join(QLatin1Char(',')), senders);
    QCOMPARE(listener->getSenderAlgorithm() != nullptr, !senders.isEmpty());
}

void TestAlgorithms::changedDependNameDropsTheSenderBefore()
{
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr, {rhythm("alpha"), rhythm("beta"), formula("sum", "alpha;beta")});
    FakeAlgorithm *sum = find(manager, "Math", "sum");
    manager.updateAlgorithm(formula("sum", "beta;"));
    process(manager, 1.0f); // not applied yet
    QCOMPARE(sum->received, QStringList({QStringLiteral("alpha!"), QStringLiteral("beta!")}));
    manager.updateProperties();
    process(manager, 2.0f);
    QCOMPARE(sum->received.mid(2), QStringList(QStringLiteral("beta!")));
    manager.updateAlgorithm(formula("sum"));
    manager.updateProperties();
    process(manager, 3.0f);
    QCOMPARE(sum->received.size(), 3);
    QCOMPARE(sum->getSenderAlgorithm(), nullptr);
}

void TestAlgorithms::deletedSenderIsForgotten()
{
    AlgorithmManager manager;
    const UnitParams sum = formula("sum", "alpha;");
    manager.setAlgorithmParams(nullptr, {rhythm("alpha"), formula("alpha"), sum});
    FakeAlgorithm *listener = find(manager, "Math", "sum");
    manager.setAlgorithmParams(nullptr, {formula("alpha"), sum});
    QCOMPARE(listener->getSenderAlgorithm(), find(manager, "SpectrumNorm", "alpha"));
    manager.updateProperties();
    QCOMPARE(listener->getSenderAlgorithm(), find(manager, "Math", "alpha")); // the next in line
    manager.setAlgorithmParams(nullptr, {sum});
    manager.updateProperties();
    QCOMPARE(listener->getSenderAlgorithm(), nullptr);
    manager.setAlgorithmParams(nullptr, {sum, rhythm("alpha")});
    process(manager, 1.0f);
    QCOMPARE(listener->received, QStringList(QStringLiteral("alpha!")));
}

void TestAlgorithms::linksMadeByHand()
{
    const AmplifierInfo info;
    auto first = std::make_unique<FakeAlgorithm>(fake(QStringLiteral("first")), nullptr, info);
    FakeAlgorithm second(fake(QStringLiteral("second")), nullptr, info);
    FakeAlgorithm listener(fake(QStringLiteral("listener")), nullptr, info);
    listener.setSigner(&second);
    listener.setSigner(&second);
    listener.setSenderAlgorithm(nullptr);
    listener.setSenderAlgorithm(&listener);
    QCOMPARE(listener.getSenderAlgorithm(), nullptr);
    listener.setSenderAlgorithm(first.get());
    const auto publish = [&] {
        listener.received.clear();
        for (FakeAlgorithm *sender : {first.get(), &second, &listener}) {
            if (sender != nullptr) {
                sender->appendData(1, {1.0f}, false);
            }
        }
        return listener.received.join(QLatin1Char(','));
    };
    QCOMPARE(publish(), QStringLiteral("first!,second!"));
    listener.clearSenders();
    QCOMPARE(publish(), QStringLiteral("second!"));
    listener.setSenderAlgorithm(first.get());
    QCOMPARE(listener.getSenderAlgorithm(), first.get());
    first.reset();
    QCOMPARE(listener.getSenderAlgorithm(), nullptr);
    QCOMPARE(publish(), QStringLiteral("second!"));
}

void TestAlgorithms::ringOfSendersEnds()
{
    UnitParams alpha = rhythm("alpha", "beta;");
    UnitParams beta = rhythm("beta", "alpha;");
    alpha.setParamValue(QStringLiteral("relay"), QStringLiteral("1"));
    beta.setParamValue(QStringLiteral("relay"), QStringLiteral("1"));
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr, {alpha, beta});
    TraceCapture trace;
    process(manager, 1.0f);
    process(manager, 2.0f);
    QVERIFY(find(manager, "SpectrumNorm", "alpha")->received.contains(QStringLiteral("beta!")));
    QCOMPARE(trace.count(QStringLiteral("feeds itself")), 2); // once for each of the two
}

void TestAlgorithms::everyResultArrivesOnce()
{
    Receiver receiver;
    AlgorithmManager manager;
    const Sets sets{rhythm("alpha"), formula("sum", "alpha;"), formula("more", "alpha;sum")};
    for (int i = 0; i < 5; ++i) {
        manager.setAlgorithmParams(&receiver, sets);
        manager.updateAlgorithm(sets);
        manager.updateAlgorithm(sets.back());
        manager.updateProperties();
        find(manager, "SpectrumNorm", "alpha")->setDataSigned(false);
        process(manager, 0.0f);
    }
    receiver.results.clear();
    find(manager, "Math", "more")->received.clear();
    process(manager, 1.0f);
    QCOMPARE(receiver.results,
             QStringList({QStringLiteral("alpha=1"), QStringLiteral("sum=1"), QStringLiteral("more=1")}));
    QCOMPARE(find(manager, "Math", "more")->received, QStringList({QStringLiteral("alpha!"), QStringLiteral("sum!")}));
}

void TestAlgorithms::blockWithOrWithoutFilters()
{
    AlgorithmManager manager;
    UnitParams raw = fake(QStringLiteral("raw"));
    raw.setParamValue(QStringLiteral("raw"), QStringLiteral("1"));
    manager.setAlgorithmParams(nullptr, {raw, fake(QStringLiteral("filtered"))});
    manager.processData(2, {1.0f, 2.0f}, {3.0f, 4.0f});
    QCOMPARE(find(manager, "Fake", "raw")->acquired, std::vector<float>({1.0f}));
    QCOMPARE(find(manager, "Fake", "filtered")->acquired, std::vector<float>({3.0f}));
}

void TestAlgorithms::emptyBlockDoesNothing()
{
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr, {fake(QString())});
    TraceCapture trace;
    QCOMPARE(manager.processData(0, {}, {}), 0);
    QCOMPARE(trace.lines().size(), 0);
    QVERIFY(manager.processData(1, {1.0f}, {1.0f}) >= 0);
    QCOMPARE(trace.count(QStringLiteral("AlgorithmManager::processData algorithms 1")), 1);
}

void TestAlgorithms::receiverChangesAndGoes()
{
    AlgorithmManager manager;
    auto first = std::make_unique<Receiver>();
    Receiver second;
    const Sets sets{fake(QStringLiteral("a"))};
    manager.setAlgorithmParams(nullptr, sets);
    QVERIFY(!find(manager, "Fake", "a")->getDataSigned());
    process(manager, 1.0f);
    manager.setAlgorithmParams(first.get(), sets);
    process(manager, 2.0f);
    QCOMPARE(first->results, QStringList(QStringLiteral("a=2")));
    manager.setAlgorithmParams(&second, sets);
    process(manager, 3.0f);
    QCOMPARE(first->results.size(), 1);
    QCOMPARE(second.results, QStringList(QStringLiteral("a=3")));
    manager.setAlgorithmParams(first.get(), sets);
    first.reset();
    process(manager, 4.0f);
    manager.setAlgorithmParams(&second, sets);
    process(manager, 5.0f);
    QCOMPARE(second.results, QStringList({QStringLiteral("a=3"), QStringLiteral("a=5")}));
    manager.setAlgorithmParams(nullptr, sets);
    process(manager, 6.0f);
    QCOMPARE(second.results.size(), 2);
}

void TestAlgorithms::receiverWithoutTheSlot()
{
    QObject receiver;
    AlgorithmManager manager;
    TraceCapture trace;
    manager.setAlgorithmParams(&receiver, {fake(QStringLiteral("a")), fake(QStringLiteral("b"))});
    process(manager, 1.0f);
    process(manager, 2.0f);
    QCOMPARE(trace.count(QStringLiteral("QObject has no slot takeAlgorithmData(")), 1);
    QVERIFY(!find(manager, "Fake", "a")->getDataSigned());
}

void TestAlgorithms::montageReachesEveryAlgorithm()
{
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr, {fake(QStringLiteral("before"))});
    FakeAlgorithm *before = find(manager, "Fake", "before");
    const auto montage = QSharedPointer<Montage>::create();
    {
        const AmplifierInfo info(QStringLiteral("Device"), QString(), QStringLiteral("1"), 8, {250.0f});
        manager.setMontage(info, montage);
    }
    manager.updateAlgorithm(fake(QStringLiteral("after")));
    manager.updateProperties();
    for (const FakeAlgorithm *algorithm : {before, find(manager, "Fake", "after")}) {
        QCOMPARE(algorithm->montage(), montage);
        QCOMPARE(algorithm->amplifierInfo().name(), QStringLiteral("Device"));
    }
    QCOMPARE(before->values.size(), 2); // read again, for the channels of the new montage
    QCOMPARE(before->resets, 1);
}

void TestAlgorithms::resetReachesTheNamedAlgorithms()
{
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr, {fake(QStringLiteral("a")), fake(QStringLiteral("b"))});
    manager.resetAlgorithm({fake(QStringLiteral("b"), QStringLiteral("9")), fake(QStringLiteral("c"))});
    QCOMPARE(find(manager, "Fake", "a")->resets, 0);
    QCOMPARE(find(manager, "Fake", "b")->resets, 1);
    QCOMPARE(find(manager, "Fake", "b")->values, QStringList(QStringLiteral("0")));
    QCOMPARE(FakeAlgorithm::s_alive.load(), 2);
}

void TestAlgorithms::addedAlgorithmsAreOwned()
{
    const AmplifierInfo info;
    Receiver receiver;
    AlgorithmManager manager;
    manager.setAlgorithmParams(&receiver, {formula("sum", "own;")});
    auto *own = new FakeAlgorithm(rhythm("own"), nullptr, info);
    manager.addAlgorithm(nullptr);
    manager.addAlgorithm(own);
    manager.addAlgorithm(own);
    manager.updateProperties();
    process(manager, 1.0f);
    QCOMPARE(receiver.results, QStringList({QStringLiteral("sum=1"), QStringLiteral("own=1")}));
    QCOMPARE(find(manager, "Math", "sum")->received, QStringList(QStringLiteral("own!")));
    manager.setAlgorithmParams(&receiver, {});
    manager.updateProperties();
    QCOMPARE(FakeAlgorithm::s_alive.load(), 0);
}

void TestAlgorithms::updatesFromManyThreads()
{
    constexpr int kThreads = 4;
    constexpr int kUpdates = 300;
    AlgorithmManager manager;
    std::atomic<int> finished{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            const QString name = QString::number(thread);
            for (int i = 0; i < kUpdates; i += 2) {
                manager.updateAlgorithm(fake(name, QString::number(i)));
                manager.updateAlgorithm(Sets{fake(name, QString::number(i + 1))});
                AlgorithmManager::registerAlgorithm(QStringLiteral("Fake"), FakeAlgorithm::create);
            }
            ++finished;
        });
    }
    while (finished < kThreads) {
        manager.updateProperties();
        process(manager, 1.0f);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    manager.updateProperties();
    QStringList expected;
    for (int i = 0; i < kUpdates; ++i) {
        expected << QString::number(i);
    }
    for (int thread = 0; thread < kThreads; ++thread) {
        QCOMPARE(find(manager, "Fake", QByteArray::number(thread).constData())->values, expected);
    }
    TraceCapture trace;
    manager.updateProperties();
    QCOMPARE(trace.lines().size(), 0); // nothing is left over
}

void TestAlgorithms::algorithmsLiveOnTheProcessingThread_data()
{
    QTest::addColumn<bool>("movedFirst");
    QTest::newRow("configured for a thread that waits") << true;
    QTest::newRow("configured, then moved") << false;
}

void TestAlgorithms::algorithmsLiveOnTheProcessingThread()
{
    QFETCH(bool, movedFirst);
    Receiver receiver;
    AlgorithmManager manager;
    QStringList received;
    QThread *processedOn = nullptr;
    const std::unique_ptr<QThread> worker(QThread::create([&] {
        manager.updateProperties();
        process(manager, 1.0f);
        received = find(manager, "Math", "sum")->received; // a queued result would not be here yet
        processedOn = find(manager, "Math", "sum")->lastThread;
    }));
    if (movedFirst) {
        manager.moveToThread(worker.get());
    }
    manager.setAlgorithmParams(&receiver, {rhythm("alpha"), formula("sum", "alpha;")});
    if (!movedFirst) {
        manager.moveToThread(worker.get());
    }
    QCOMPARE(find(manager, "Math", "sum")->thread(), worker.get());
    worker->start();
    QVERIFY(worker->wait());
    QCOMPARE(received, QStringList(QStringLiteral("alpha!")));
    QCOMPARE(processedOn, worker.get());

    QVERIFY(receiver.results.isEmpty());
    QTRY_COMPARE(receiver.results, QStringList({QStringLiteral("alpha=1"), QStringLiteral("sum=1")}));
    QCOMPARE(receiver.lastThread, QThread::currentThread());
}

BP_TEST_MAIN(TestAlgorithms)
#include "TestAlgorithms.moc"
