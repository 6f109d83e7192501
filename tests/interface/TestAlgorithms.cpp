#include "support/FakeAlgorithm.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "algorithms/AlgorithmManager.h"
#include "algorithms/ParamFactory.h"
#include "montage/Montage.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QXmlStreamReader>

#include <thread>

using Sets = std::vector<UnitParams>;

/// Takes the results that a container publishes.
class Receiver : public QObject
{
    Q_OBJECT
public:
    /// Descriptors and values since the last call.
    QString take() { return std::exchange(results, {}).join(QLatin1Char(' ')); }

    QStringList results;
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

    void defaultSets();
    void rhythmsHaveTheirBands();
    void valuesFallBackAndComeBack();
    void jsonAndFileRoundTrip();
    void valuesAreCheckedAgainstTheirLimits_data();
    void valuesAreCheckedAgainstTheirLimits();
    void settingsAreTakenOverOrRefused();
    void settingsWithinADocument();

    void configuredListIsCreatedAndChanged();
    void sendersAreFoundByName();
    void sendersChangeBetweenBlocks();
    void linksMadeByHand();
    void ringOfSendersEnds();
    void everyResultArrivesOnce();
    void blocksAreFilteredRawOrEmpty();
    void receiverChangesAndGoes();
    void montageAndResetReachTheAlgorithms();
    void updatesFromManyThreads();
    void algorithmsLiveOnTheProcessingThread();
};

namespace {

QString operator""_s(const char *text, std::size_t size)
{
    return QString::fromUtf8(text, int(size));
}

/// A set whose parameters are 0, but for the one of that key. "value" is free for tests.
UnitParams makeSet(const char *name, const QString &descriptor, const char *depend = "", const char *key = "value",
                   const QString &value = "0"_s)
{
    UnitParams params;
    params.setParamName(QLatin1String(name));
    params.setParamDescriptor(descriptor);
    params.setDependName(QLatin1String(depend));
    for (const char *each : {"value", "raw", "relay"}) {
        custom_param param;
        param.key = QLatin1String(each);
        param.defaultValue = "0"_s;
        params.push_back(param);
    }
    params.setParamValue(QLatin1String(key), value);
    return params;
}

UnitParams fake(const QString &descriptor, const QString &value = "0"_s)
{
    return makeSet("Fake", descriptor, "", "value", value);
}

UnitParams rhythm(const char *descriptor)
{
    return makeSet("SpectrumNorm", QLatin1String(descriptor));
}

UnitParams formula(const char *descriptor, const char *depend = "")
{
    return makeSet("Math", QLatin1String(descriptor), depend);
}

FakeAlgorithm *find(const AlgorithmManager &manager, const char *name, const char *descriptor)
{
    return static_cast<FakeAlgorithm *>(manager.findAlgorithm(QLatin1String(name), QLatin1String(descriptor)));
}

void process(AlgorithmManager &manager, float value)
{
    manager.processData(1, {-value}, {value});
}

/// "key:control=default" (with the edit type behind the control's when it isn't the user's), then "(minimum;maximum)",
/// "/step" and the rest where they aren't usual.
QString described(const char *type)
{
    QString text;
    const UnitParams params = ParamFactory::makeCustomProperty(QLatin1String(type));
    for (const custom_param &param : params.getParamList()) {
        const QString range = param.minimum.isEmpty() ? QString() : "(%1;%2)"_s.arg(param.minimum, param.maximum);
        const QString step = param.step == "0.1"_s ? QString() : "/"_s + param.step;
        const QString edit = param.isEditable() ? QString() : QString::number(param.editType);
        text += "%1:%2%3=%4"_s.arg(param.key).arg(param.controlType).arg(edit, param.defaultValue) + range + step
            + param.visibility + param.choices + " "_s;
    }
    return text + params.getName() + "<"_s + params.getDependName();
}

QString valuesOf(const UnitParams &params, std::initializer_list<const char *> keys)
{
    QStringList values{params.getParamDescriptor()};
    for (const char *key : keys) {
        values << params.getParamValue(QLatin1String(key));
    }
    return values.join(QLatin1Char(' '));
}

/// A set of type Math with the descriptor "one" and a colour.
UnitParams colored(const QString &color = "#111"_s)
{
    UnitParams params = ParamFactory::makeCustomProperty("Math"_s);
    params.setParamDescriptor("one"_s);
    params.setParamValue("r_color"_s, color);
    return params;
}

QString color(const UnitParams &params)
{
    return params.getParamValue("r_color"_s);
}

/// Descriptor and colour after JSON or the contents of a file; with "!" when refused.
QString loaded(const QByteArray &text)
{
    UnitParams params = colored();
    bool taken = false;
    if (text.startsWith('{')) {
        taken = params.fromJson(QJsonDocument::fromJson(text).object());
    } else {
        QTemporaryFile file;
        file.open();
        file.write(text);
        file.close();
        TraceCapture trace;
        taken = params.loadParamFromFile(file.fileName());
        taken = taken || trace.lines().size() != 1; // a refusal is told once
    }
    return valuesOf(params, {"r_color"}) + (taken ? QString() : "!"_s);
}

/// What a listener with that dependName takes from the others.
QString senders(const char *depend, Sets sets)
{
    AlgorithmManager manager;
    sets.insert(sets.begin(), formula("listener", depend));
    manager.setAlgorithmParams(nullptr, sets);
    process(manager, 1.0f);
    return find(manager, "Math", "listener")->takeReceived();
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

void TestAlgorithms::defaultSets()
{
    QCOMPARE(described("SpectrumOnline"),
             "enable:4=1 time:1=2(1;10) step:1=0.5(0.1;2) hann:1=50(0;50) artefact:4=0 lfzsfz:1=3.5(0.1;250) "
             "hfzifz:1=0.7(0.1;250) smooth:4=1 square:4=1 SpectrumOnline<"_s);
    QCOMPARE(described("SpectrumNorm"),
             "channel:7= time:1=3(1;10) step:1=0.5(0.1;2) hann:1=50(0;50) max_freq:1=14(0.1;1000) "
             "min_freq:1=8(0.1;1000) min_thres:1=1(0.01;2500)/0.01calc_mode?show:hide "
             "max_thres:1=100(1;2500)calc_mode?show:hide p_min_thres:1=1(0.01;100)/0.01calc_mode?hide:show "
             "p_max_thres:1=100(1;100)calc_mode?hide:show r_color:5=#C3D6F3 average:4=0 artefact:4=0 "
             "lfzsfz:1=3.5(0.1;250) hfzifz:1=0.7(0.1;250) square:4=0 calc_mode:4=0 visible:4=1 SpectrumNorm<"_s);
    QCOMPARE(described("DependSpectrumNorm"),
             "max_freq:1=14(1;1000) min_freq:1=8(1;1000) min_thres:1=1(0.1;250) max_thres:1=100(1;250) "
             "r_color:5=#C3D6F3 average:4=1 calc_mode:3=0(0;4)Average;Integration;Max;Summa;Power "
             "frequency_calc:3=0(0;1)Average;Max DependSpectrumNorm<"_s);
    QCOMPARE(described("ECG"),
             "channel:22=1(1;1000)/1 hp_freq:1=0.2(0;50) lp_freq:1=40(0;70) bpmMax:1=150(0.1;1000) "
             "bpmMin:1=30(0.1;1000) ampMax:1=4(0.01;1000)/0.01 ampMin:1=0.25(0.01;1000)/0.01 ElectroCardiogram<"_s);
    QCOMPARE(described("ElectroCardiogram"), described("ECG"));
    QCOMPARE(described("AsymmetryCoeff"),
             "channel1:7= channel2:7= max_freq:1=14(0.1;1000) min_freq:1=8(0.1;1000) r_color:5=#C3D6F3 visible:4=1 "
             "AsymmetryCoeff<SpectrumOnline"_s);
    QCOMPARE(described("Math"), "r_color:5=#C3D6F3 visible:4=1 formula:61= depend:62= Math<"_s);
    QCOMPARE(described("CGN") + described("spectrumnorm"), "CGN<<"_s);
}

void TestAlgorithms::rhythmsHaveTheirBands()
{
    using P = ParamFactory;
    QStringList rows;
    for (const auto make : {P::makeRhythmDelta, P::makeRhythmTheta, P::makeRhythmAlpha, P::makeRhythmMu,
                            P::makeRhythmBeta, P::makeRhythmGamma}) {
        rows << valuesOf(make("O2"_s), {"min_freq", "max_freq", "min_thres", "max_thres", "r_color", "channel"});
    }
    for (const UnitParams &set : P::makeStandardRhythmList()) {
        QCOMPARE(set.getName() + set.getDependName(), "DependSpectrumNormSpectrumOnline"_s);
        rows << valuesOf(set, {"average", "min_freq", "max_freq", "r_color", "min_thres", "max_thres"});
    }
    QCOMPARE(rows.join(QLatin1Char(',')),
             "delta 0.5 4 20 200 #657 O2,theta 4 8 10 100 #28D O2,alpha 8 14 30 70 #7C2 O2,mu 8 11 50 70 #7BF O2,"
             "beta 14 35 5 30 #C21 O2,gamma 35 50 30 70 #EB0 O2,"
             "alpha 0 8 14 #7C2 1 100,beta 0 14 35 #C21 1 100,delta 0 0.5 4 #657 1 100,gamma 0 35 50 #EB0 1 100,"
             "theta 0 4 8 #28D 1 100"_s);
}

void TestAlgorithms::valuesFallBackAndComeBack()
{
    UnitParams params = ParamFactory::makeCustomProperty("Math"_s);
    const UnitParams &reading = params;
    QCOMPARE(reading["visible"_s] + params["visible"_s], "1"_s); // for writing there is no current value yet
    params["visible"_s] = "0"_s;
    QCOMPARE(reading["visible"_s], "0"_s);
    QVERIFY(params.isChangedParam(ParamFactory::makeCustomProperty("Math"_s)));
    params.setParamValue("visible"_s, QString());
    QVERIFY(!params.isChangedParam(ParamFactory::makeCustomProperty("Math"_s)) && params.isChangedParam(UnitParams()));
    params["none"_s] = "lost"_s;
    QVERIFY((params["none"_s] + reading["none"_s]).isEmpty() && !params.contain("none"_s));

    params = colored();
    params.returnLastParamValue();
    QCOMPARE(color(params), "#111"_s);
    params.saveLastProperty();
    for (int i = 0; i < 2; ++i) {
        params.setParamValue("r_color"_s, "#222"_s);
        params.setParamValue("formula"_s, "alpha"_s);
        params.returnLastParamValue();
        QVERIFY(color(params) == "#111"_s && params.isCurrentValEmpty("formula"_s));
    }
    params.setParamValue("r_color"_s, "#333"_s);
    params.zeroAllPointers();
    params.returnLastParamValue();
    QCOMPARE(color(params), "#333"_s);
}

void TestAlgorithms::jsonAndFileRoundTrip()
{
    UnitParams params = ParamFactory::makeRhythmAlpha("Fp1;\"O2\" <&>"_s);
    const QJsonObject json = QJsonDocument::fromJson(QJsonDocument(params.toJson()).toJson()).object();
    QCOMPARE(json["name"_s].toString() + json["desc"_s].toString(), "SpectrumNormalpha"_s);
    QCOMPARE(json["data"_s].toArray().at(6).toObject(),
             QJsonDocument::fromJson(R"({"description":"min_thres", "title":"Minimum threshold, µV", "min_val":"0.01",
                 "max_val":"2500", "vals_list":"", "curr_val":"30", "editable":true})")
                 .object());
    UnitParams copy = ParamFactory::makeCustomProperty("SpectrumNorm"_s);
    QVERIFY(copy.fromJson(json));
    QCOMPARE(copy.toJson(), params.toJson());

    QTemporaryDir folder;
    const QString path = folder.filePath("set.xml"_s);
    params = colored();
    params.setParamDescriptor("альфа <&> \"µ\""_s);
    params.setDependName("alpha;beta"_s);
    params.setParamValue("formula"_s, "alpha<beta && 1>0\nsecond line"_s);
    const QChar half(0xD83D);
    params.setParamValue("depend"_s, "a\u0001b]]>"_s + half); // XML can hold neither of the two
    custom_param odd;
    odd.key = "no name"_s;
    params.push_back(odd);
    QVERIFY(params.writeParamToFile(path));
    copy = ParamFactory::makeCustomProperty("Math"_s);
    QVERIFY(copy.loadParamFromFile(path));
    QCOMPARE(copy.getParamValue("depend"_s), "a b]]>\uFFFD"_s);
    QCOMPARE(copy.getParamValue("formula"_s), params.getParamValue("formula"_s));
    QCOMPARE(copy.getParamDescriptor(), params.getParamDescriptor());
    QCOMPARE(copy.getDependName(), "alpha;beta"_s);
    QVERIFY(colored("#222"_s).writeParamToFile(path) && copy.loadParamFromFile(path)); // shorter than before
    QCOMPARE(color(copy), "#222"_s);
    QVERIFY(!params.writeParamToFile(folder.path()) && !params.loadParamFromFile(folder.filePath("none.xml"_s)));
}

/// The first words of what is wrong, empty for nothing.
void TestAlgorithms::valuesAreCheckedAgainstTheirLimits_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("problem");
    const auto row = [](const char *name, const char *type, const char *key, const char *value, const char *problem) {
        QTest::newRow(name) << QString::fromLatin1(type) << QString::fromLatin1(key) << QString::fromLatin1(value)
                            << QString::fromLatin1(problem);
    };
    row("at the limit", "SpectrumNorm", "time", "10", "");
    row("beyond it", "SpectrumNorm", "time", "10.01", "\"time\" has to be a number from 1 to 10, not \"10.01\".");
    row("not finite", "SpectrumNorm", "time", "nan", "\"time\" has to be a number");
    row("decimal comma", "SpectrumNorm", "time", "1,5", "\"time\" has to be a number");
    row("default back", "SpectrumNorm", "time", "", "");
    row("flag", "SpectrumNorm", "average", "2", "\"average\" has to be 0 or 1");
    row("choice", "DependSpectrumNorm", "calc_mode", "4", "");
    row("no such choice", "DependSpectrumNorm", "calc_mode", "5", "\"calc_mode\" has to be a whole number from 0 to 4");
    row("between channels", "ECG", "channel", "1.5", "\"channel\" has to be a whole number from 1 to 1000");
    row("any text", "Math", "formula", "1+", "");
    row("unknown", "Math", "Formula", "1",
        "There is no parameter \"Formula\", only r_color, visible, formula, depend.");
}

void TestAlgorithms::valuesAreCheckedAgainstTheirLimits()
{
    QFETCH(QString, type);
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, problem);
    const UnitParams params = ParamFactory::makeCustomProperty(type);
    const QString told = params.problemOf(key, value);
    QVERIFY2(problem.isEmpty() ? told.isEmpty() : told.startsWith(problem), qPrintable(told));
    // The same of whole sets.
    const QJsonObject entry{{"description"_s, key}, {"curr_val"_s, value}};
    QCOMPARE(params.problemOf(QJsonObject{{"data"_s, QJsonArray{entry}}}), told);
    UnitParams sent = params;
    sent.setParamValue(key, value);
    QTemporaryDir folder;
    QVERIFY(sent.writeParamToFile(folder.filePath("set.xml"_s)));
    QCOMPARE(params.problemOfFile(folder.filePath("set.xml"_s)), params.contain(key) ? told : QString());
    QCOMPARE(sent.problemOf(QJsonObject(sent.toJson())), QString()); // what stands may stay
}

void TestAlgorithms::settingsAreTakenOverOrRefused()
{
    QCOMPARE(loaded(R"({"desc":"two","data":[{"description":"r_color","curr_val":"#222"}]})"), "two #222"_s);
    QCOMPARE(loaded(R"({"data":[{"description":"r_color","curr_val":0.5}]})"), "one 0.5"_s);
    QCOMPARE(loaded(R"({"data":[{"description":"r_color","curr_val":true}]})"), "one 1"_s);
    QCOMPARE(loaded(R"({"data":[{"description":"r_color","curr_val":""}]})"), "one #C3D6F3"_s);
    QCOMPARE(loaded(R"({"data":[{"description":"other","curr_val":"#222"}]})"), "one #111"_s);
    QCOMPARE(loaded(R"({"data":[{"description":"r_color","curr_val":{}}]})"), "one #111"_s);
    QCOMPARE(loaded(R"({"data":[1,null,[],{"description":"r_color","curr_val":"#222"}]})"), "one #222"_s);
    QCOMPARE(loaded(R"({"desc":"two"})"), "two #111"_s);
    for (const char *json : {R"({"desc":"two","data":{"r_color":"#222"}})",
                             R"({"desc":2,"data":[{"description":"r_color","curr_val":"#222"}]})",
                             R"({"name":null,"desc":"two","data":[]})"}) {
        QCOMPARE(loaded(json), "one #111!"_s);
    }
    const char *ordered = "<algo><prop><visible>0</visible><r_color>#222</r_color></prop><desc>two</desc></algo>";
    QCOMPARE(loaded(ordered), "two #222"_s);
    QCOMPARE(loaded("<algo><x><prop><r_color>#333</r_color></prop></x><prop><y/><r_color>#2</r_color></prop></algo>"),
             "one #2"_s);
    QCOMPARE(loaded("<algo><prop><r_color>#2<b>3</b>22</r_color></prop></algo>"), "one #222"_s);
    QCOMPARE(loaded("<?xml version='1.0' encoding='ISO-8859-1'?><algo><desc>\xB5</desc></algo>"), "µ #111"_s);
    for (const char *xml : {"", "r_color=#222", "<montage><desc>two</desc></montage>",
                            "<algo><desc>two</desc><prop><r_color>#222</r_color>",
                            "<algo><desc>two</desc><prop><r_color>#222</r_color></prop>",
                            "<algo><desc>two</desc><prop><r_color>#222</prop></algo>"}) {
        QCOMPARE(loaded(xml), "one #111!"_s);
    }
}

void TestAlgorithms::settingsWithinADocument()
{
    QXmlStreamReader reader("<all><a><note>text</note><prop><r_color>#222</r_color></prop><after/></a>"
                            "<b><note/></b><c><prop><r_color>#333</r_color></prop></c></all>"_s);
    UnitParams params = colored();
    QVERIFY(reader.readNextStartElement() && reader.readNextStartElement()); // stands at a
    QVERIFY(params.readSetting(reader));
    QVERIFY(reader.readNextStartElement());
    QCOMPARE(reader.name().toString(), "after"_s);
    reader.skipCurrentElement();
    QVERIFY(!reader.readNextStartElement() && reader.readNextStartElement()); // out of a, stands at b
    QVERIFY(!params.readSetting(reader)); // the values of c are another's
    QCOMPARE(color(params), "#222"_s);
}

void TestAlgorithms::configuredListIsCreatedAndChanged()
{
    AlgorithmManager manager;
    // The same name and descriptor twice is one algorithm with the later values.
    manager.setAlgorithmParams(nullptr, {fake("a"_s, "1"_s), fake("b"_s), fake("a"_s, "2"_s), rhythm("a")});
    QCOMPARE(FakeAlgorithm::s_alive.load(), 3);
    FakeAlgorithm *a = find(manager, "Fake", "a");
    QCOMPARE(a->values, QStringList({"1"_s, "2"_s}));
    QCOMPARE(manager.findAlgorithms("Fake"_s), std::vector<CustomAlgorithm *>({a, find(manager, "Fake", "b")}));

    Receiver receiver;
    manager.setAlgorithmParams(&receiver, {fake("a"_s, "3"_s)});
    manager.setAlgorithmParams(&receiver, {fake("b"_s), fake("a"_s, "4"_s)});
    process(manager, 1.0f);
    QCOMPARE(receiver.take(), "a=1 b=1 a=1"_s); // what is absent goes between the blocks
    TraceCapture trace;
    manager.updateProperties();
    manager.updateProperties();
    QCOMPARE(trace.count("AlgorithmManager::updateProperties remove_algorithm"_s), 1);
    QCOMPARE(find(manager, "Fake", "a"), a); // kept through both changes
    QCOMPARE(a->values.last(), "4"_s);
    QCOMPARE(FakeAlgorithm::s_alive.load(), 2);

    for (const char *name : {"ECG", "math", ""}) { // nobody registered these
        manager.setAlgorithmParams(nullptr, {makeSet(name, QString())});
        manager.updateAlgorithm(makeSet(name, QString()));
        manager.updateProperties();
        process(manager, 1.0f);
        QCOMPARE(FakeAlgorithm::s_alive.load(), 0);
    }
    QCOMPARE(trace.count("AlgorithmManager::createAlgorithm no algorithm"_s), 6);
}

void TestAlgorithms::sendersAreFoundByName()
{
    QCOMPARE(senders("SpectrumOnline", {makeSet("SpectrumOnline", QString())}), "!"_s);
    QCOMPARE(senders("SpectrumOnline", {makeSet("SpectrumOnline", "x"_s)}), QString()); // its descriptor isn't empty
    QCOMPARE(senders("alpha", {rhythm("alpha")}), QString()); // a type, without the semicolon
    QCOMPARE(senders("alpha;", {rhythm("alpha"), rhythm("beta")}), "alpha!"_s);
    QCOMPARE(senders("alpha;beta", {rhythm("beta"), rhythm("mu"), rhythm("alpha")}), "beta! alpha!"_s);
    QCOMPARE(senders("alpha;beta", {formula("alpha"), rhythm("beta")}), "alpha! beta!"_s);
    QCOMPARE(senders("alpha;", {formula("alpha"), rhythm("alpha")}), "alpha!"_s);
    QCOMPARE(senders(";gone;;beta;", {rhythm("beta")}), "beta!"_s);
    QCOMPARE(senders("alpha;beta;alpha", {rhythm("alpha"), rhythm("beta")}), "alpha! beta!"_s);
    QCOMPARE(senders("listener;", {}) + senders(";;", {rhythm("")}), QString());
}

void TestAlgorithms::sendersChangeBetweenBlocks()
{
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr, {rhythm("alpha"), rhythm("beta"), formula("sum", "alpha;beta")});
    FakeAlgorithm *sum = find(manager, "Math", "sum");
    const auto run = [&](const Sets &sets) {
        manager.setAlgorithmParams(nullptr, sets);
        manager.updateProperties();
        process(manager, 1.0f);
        return sum->takeReceived();
    };
    manager.updateAlgorithm(formula("sum", "beta;"));
    process(manager, 1.0f); // with the senders as they were
    QCOMPARE(sum->takeReceived(), "alpha! beta!"_s);
    QCOMPARE(run({rhythm("alpha"), rhythm("beta"), formula("sum", "beta;")}), "beta!"_s);
    QCOMPARE(run({rhythm("alpha"), formula("alpha"), formula("sum")}), QString());
    QCOMPARE(run({rhythm("alpha"), formula("alpha"), formula("sum", "alpha;")}), "alpha!"_s);
    QCOMPARE(sum->getSenderAlgorithm(), find(manager, "SpectrumNorm", "alpha"));
    QCOMPARE(run({formula("alpha"), formula("sum", "alpha;")}), "alpha!"_s);
    QCOMPARE(sum->getSenderAlgorithm(), find(manager, "Math", "alpha")); // the next in line
    QCOMPARE(run({formula("sum", "alpha;")}), QString());
    QCOMPARE(sum->getSenderAlgorithm(), nullptr);
    QCOMPARE(run({formula("sum", "alpha;"), rhythm("alpha")}), "alpha!"_s);
}

void TestAlgorithms::linksMadeByHand()
{
    auto first = std::make_unique<FakeAlgorithm>(fake("first"_s), nullptr, AmplifierInfo());
    FakeAlgorithm second(fake("second"_s), nullptr, AmplifierInfo());
    FakeAlgorithm listener(fake("listener"_s), nullptr, AmplifierInfo());
    listener.setSigner(&second);
    listener.setSigner(&second);
    listener.setSenderAlgorithm(nullptr);
    listener.setSenderAlgorithm(&listener);
    QCOMPARE(listener.getSenderAlgorithm(), nullptr);
    const auto publish = [&] {
        for (FakeAlgorithm *sender : {first.get(), &second, &listener}) {
            if (sender != nullptr) {
                sender->appendData(1, {1.0f}, false);
            }
        }
        return listener.takeReceived();
    };
    listener.setSenderAlgorithm(first.get());
    QCOMPARE(publish(), "first! second!"_s);
    listener.clearSenders();
    QCOMPARE(publish(), "second!"_s);
    listener.setSenderAlgorithm(first.get());
    listener.setSigner(first.get());
    listener.clearSenders();
    QCOMPARE(publish(), "first! second!"_s); // made by hand while it was linked: it stays
    listener.setSenderAlgorithm(first.get());
    first.reset();
    QCOMPARE(listener.getSenderAlgorithm(), nullptr);
    QCOMPARE(publish(), "second!"_s);
}

void TestAlgorithms::ringOfSendersEnds()
{
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr,
                               {makeSet("SpectrumNorm", "alpha"_s, "beta;", "relay", "1"_s),
                                makeSet("SpectrumNorm", "beta"_s, "alpha;", "relay", "1"_s)});
    TraceCapture trace;
    process(manager, 1.0f);
    process(manager, 2.0f);
    QVERIFY(find(manager, "SpectrumNorm", "alpha")->received.contains("beta!"_s));
    QCOMPARE(trace.count("feeds itself"_s), 2); // once for each of the two
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
        find(manager, "Math", "more")->received.clear();
        receiver.results.clear();
        process(manager, 1.0f);
    }
    QCOMPARE(receiver.take(), "alpha=1 sum=1 more=1"_s);
    QCOMPARE(find(manager, "Math", "more")->takeReceived(), "alpha! sum!"_s);

    auto *own = new FakeAlgorithm(rhythm("own"), nullptr, AmplifierInfo());
    manager.setAlgorithmParams(&receiver, {formula("more", "own;")});
    manager.addAlgorithm(nullptr);
    manager.addAlgorithm(own);
    manager.addAlgorithm(own);
    manager.updateProperties();
    process(manager, 2.0f);
    QCOMPARE(receiver.take(), "more=2 own=2"_s);
    QCOMPARE(find(manager, "Math", "more")->takeReceived(), "own!"_s);
    manager.setAlgorithmParams(&receiver, {});
    manager.updateProperties();
    QCOMPARE(FakeAlgorithm::s_alive.load(), 0);
}

void TestAlgorithms::blocksAreFilteredRawOrEmpty()
{
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr, {makeSet("Fake", "raw"_s, "", "raw", "1"_s), fake("filtered"_s)});
    TraceCapture trace;
    QCOMPARE(manager.processData(0, {}, {}), 0);
    QCOMPARE(trace.lines().size(), 0);
    QVERIFY(manager.processData(2, {1.0f, 2.0f}, {3.0f, 4.0f}) >= 0);
    QCOMPARE(trace.count("AlgorithmManager::processData algorithms 2"_s), 1);
    QCOMPARE(find(manager, "Fake", "raw")->acquired, std::vector<float>({1.0f}));
    QCOMPARE(find(manager, "Fake", "filtered")->acquired, std::vector<float>({3.0f}));
}

void TestAlgorithms::receiverChangesAndGoes()
{
    AlgorithmManager manager;
    auto first = std::make_unique<Receiver>();
    Receiver second;
    float value = 0.0f;
    const auto run = [&](QObject *receiver) {
        manager.setAlgorithmParams(receiver, {fake("a"_s)});
        process(manager, ++value);
    };
    run(nullptr);
    run(first.get());
    QCOMPARE(first->take(), "a=2"_s);
    run(&second);
    QCOMPARE(first->take() + second.take(), "a=3"_s);
    run(first.get());
    first.reset();
    process(manager, ++value);
    run(&second);
    run(nullptr);
    QCOMPARE(second.take(), "a=6"_s);

    QObject deaf; // without the slot
    TraceCapture trace;
    run(&deaf);
    process(manager, ++value);
    QCOMPARE(trace.count("QObject has no slot takeAlgorithmData("_s), 1);
    QVERIFY(!find(manager, "Fake", "a")->getDataSigned());
}

void TestAlgorithms::montageAndResetReachTheAlgorithms()
{
    AlgorithmManager manager;
    manager.setAlgorithmParams(nullptr, {fake("before"_s)});
    const auto montage = QSharedPointer<Montage>::create();
    manager.setMontage(AmplifierInfo("Device"_s, QString(), "1"_s, 8, {250.0f}), montage);
    manager.updateAlgorithm(fake("after"_s));
    manager.updateProperties();
    FakeAlgorithm *before = find(manager, "Fake", "before");
    FakeAlgorithm *after = find(manager, "Fake", "after");
    for (const FakeAlgorithm *algorithm : {before, after}) {
        QCOMPARE(algorithm->montage(), montage);
        QCOMPARE(algorithm->amplifierInfo().name(), "Device"_s);
    }
    QCOMPARE(before->values.size(), 2); // read again, for the channels of the new montage

    manager.resetAlgorithm({fake("after"_s, "9"_s), fake("unknown"_s)});
    QCOMPARE(before->resets, 1); // for the montage only
    QCOMPARE(after->resets, 1);
    QCOMPARE(after->values, QStringList("0"_s));
    QCOMPARE(FakeAlgorithm::s_alive.load(), 2);
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
                AlgorithmManager::registerAlgorithm("Fake"_s, FakeAlgorithm::create);
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
    for (const char *name : {"0", "1", "2", "3"}) {
        QCOMPARE(find(manager, "Fake", name)->values, expected);
    }
    TraceCapture trace;
    manager.updateProperties();
    QCOMPARE(trace.lines().size(), 0); // nothing is left over
}

void TestAlgorithms::algorithmsLiveOnTheProcessingThread()
{
    Receiver receiver;
    AlgorithmManager manager;
    QString received;
    QThread *processedOn = nullptr;
    const std::unique_ptr<QThread> worker(QThread::create([&] {
        manager.updateProperties();
        process(manager, 1.0f);
        received = find(manager, "Math", "sum")->takeReceived(); // a queued result would not be here yet
        processedOn = find(manager, "Math", "sum")->lastThread;
    }));
    manager.setAlgorithmParams(&receiver, {rhythm("alpha")});
    manager.moveToThread(worker.get());
    manager.setAlgorithmParams(&receiver, {rhythm("alpha"), formula("sum", "alpha;")}); // while it waits
    worker->start();
    QVERIFY(worker->wait());
    QCOMPARE(received, "alpha!"_s);
    QCOMPARE(processedOn, worker.get());

    QVERIFY(receiver.results.isEmpty());
    QTRY_COMPARE(receiver.results.join(QLatin1Char(' ')), "alpha=1 sum=1"_s);
    QCOMPARE(receiver.lastThread, QThread::currentThread());
}

BP_TEST_MAIN(TestAlgorithms)
#include "TestAlgorithms.moc"
