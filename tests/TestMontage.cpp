#include "devices/AmplifierChannel.h"
#include "filters/AbstractFilter.h"
#include "montage/AverageMontage.h"
#include "montage/BipolarMontage.h"
#include "montage/Montage.h"
#include "montage/MontageXmlReader.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QJsonArray>
#include <QTemporaryDir>

#include <limits>

namespace {

AmplifierChannel *makeChannel(const QString &name, BPCommon::ChannelType type = BPCommon::EEG, quint32 group2 = 0)
{
    auto *channel = new AmplifierChannel(1, 1.0f, type);
    channel->setChannelName(name);
    channel->setGroup2(group2);
    return channel;
}

Montage makeMontage(const char *names)
{
    QList<AmplifierChannel *> channels;
    const QStringList list = QString::fromUtf8(names).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &name : list) {
        channels << makeChannel(name);
    }
    return Montage(channels);
}

/// Every field differs from its default and from channel to channel.
Montage makeFullMontage()
{
    Montage montage = makeMontage("Fp1 Fp2 Cz A1 A2 Ö<&>");
    montage.setMontageName(QStringLiteral("Müller & Söhne"));
    for (unsigned i = 0; i < montage.size(); ++i) {
        AmplifierChannel *channel = montage[i];
        channel->setIndex(static_cast<int>(10 + i));
        channel->setChannelType(static_cast<BPCommon::ChannelType>(i % 2 != 0 ? BPCommon::ECG : BPCommon::EEG));
        channel->setGroupData({i + 1, i});
        channel->setScale(0.5f + static_cast<float>(i));
        channel->setLPF(30.0f + static_cast<float>(i));
        channel->setHPF(0.5f);
        channel->setBSF(i != 0 ? 50.0f : 60.0f);
    }
    return montage;
}

QList<unsigned> groups2(const Montage &montage)
{
    QList<unsigned> groups;
    for (unsigned i = 0; i < montage.size(); ++i) {
        groups << montage[i]->getGroup2();
    }
    return groups;
}

QByteArrayList textViews(const Montage &montage)
{
    QByteArrayList views;
    for (unsigned i = 0; i < montage.size(); ++i) {
        views << montage[i]->makeTextView();
    }
    return views;
}

/// "A1@4 A2@5": the referents and their numbers.
QString referentsOf(const BipolarMontage &montage)
{
    const auto text = [](const Referent &referent) {
        return (referent.channel != nullptr ? referent.channel->getName() : QStringLiteral("none")) + QLatin1Char('@')
            + QString::number(referent.number);
    };
    return text(montage.getLeftReferent()) + QLatin1Char(' ') + text(montage.getRightReferent());
}

QByteArray channelElement(const char *name)
{
    return QByteArray("<Channel><index>1</index><name>") + name
        + "</name><type>ECG</type><g1>2</g1><g2>3</g2><scale>0.5</scale><LPF>30</LPF><HPF>0.5</HPF><BSF>50</BSF></"
          "Channel>";
}

} // namespace

Q_DECLARE_METATYPE(Montage_Type)

class TestMontage : public QObject
{
    Q_OBJECT
private slots:
    void choosesSideByName_data();
    void choosesSideByName();
    void choosesReferentsByName();
    void followsReferents();
    void dropsReferentsThatLeave();
    void copiesReferentsByPlace();
    void parsesAverageGroups_data();
    void parsesAverageGroups();

    void copiesDeeply();
    void movesOutOfTheSource();
    void ignoresIndicesOutside();
    void resizes();
    void buildsFilters_data();
    void buildsFilters();
    void buildsFiltersOnce();

    void readsJson();
    void writesTheFileLayout();
    void readsBackWhatItWrote_data();
    void readsBackWhatItWrote();
    void readsPartsOfAFile_data();
    void readsPartsOfAFile();
    void refusesInOneLine_data();
    void refusesInOneLine();
    void refusesCutFiles();
    void keepsTheFileThatItCannotReplace();

private:
    QString writeFile(const QByteArray &content)
    {
        QFile file(m_folder.filePath(QStringLiteral("montage.xml")));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
            qFatal("cannot write %s", qPrintable(file.fileName()));
        }
        return file.fileName();
    }

    QTemporaryDir m_folder;
};

void TestMontage::choosesSideByName_data()
{
    QTest::addColumn<unsigned>("group2");
    QTest::newRow("Fp1") << 1u;
    QTest::newRow("Fp2") << 2u;
    QTest::newRow("O10") << 2u;
    QTest::newRow("P11") << 1u;
    QTest::newRow("Cz") << 3u;
    QTest::newRow("a1") << 1u; // no referent: its name is "A1"
    QTest::newRow("T3-T5") << 2u; // "3-" is no number
    QTest::newRow("C3A2") << 1u;
    QTest::newRow("EEG-") << 2u;
    QTest::newRow("99999999999") << 2u;
}

void TestMontage::choosesSideByName()
{
    QFETCH(unsigned, group2);
    QCOMPARE(groups2(BipolarMontage(makeMontage(QTest::currentDataTag()))), QList<unsigned>{group2});
}

void TestMontage::choosesReferentsByName()
{
    const BipolarMontage montage(makeMontage("Fp1 Fp2 Cz A1 A2"));
    QCOMPARE(groups2(montage), (QList<unsigned>{1, 2, 3, 0, 0}));
    QCOMPARE(referentsOf(montage), QStringLiteral("A1@4 A2@5"));
    QVERIFY(montage.isReferentsCorrect());
    QCOMPARE(groups2(BipolarMontage(makeMontage("A2 A1 A1 A2"))), (QList<unsigned>{0, 0, 1, 2})); // the first of each
    QVERIFY(!BipolarMontage(makeMontage("Fp1 A2")).isReferentsCorrect());
    QVERIFY(!BipolarMontage(QSharedPointer<Montage>()).isReferentsCorrect());
}

void TestMontage::followsReferents()
{
    BipolarMontage montage(makeMontage("Fp1 A1 Cz A2 T4"));
    montage.insert(0, makeChannel(QStringLiteral("new")));
    QCOMPARE(referentsOf(montage), QStringLiteral("A1@3 A2@5"));
    montage.removeChannel(1);
    delete montage.erase(0);
    QCOMPARE(referentsOf(montage), QStringLiteral("A1@1 A2@3"));
    montage.setLeftReferent(QStringLiteral("T4"));
    QCOMPARE(referentsOf(montage), QStringLiteral("T4@4 A2@3"));
    QCOMPARE(montage[3]->getGroup2(), 0u);
    montage.setLeftReferent(QStringLiteral("missing"));
    QCOMPARE(referentsOf(montage), QStringLiteral("none@-1 A2@3"));
}

void TestMontage::dropsReferentsThatLeave()
{
    const BipolarMontage source(makeMontage("Fp1 A1 A2"));
    const QString rightOnly = QStringLiteral("none@-1 A2@2");
    const QString none = QStringLiteral("none@-1 none@-1");
    BipolarMontage removed(source);
    removed.removeChannel(1);
    QCOMPARE(referentsOf(removed), rightOnly);
    BipolarMontage erased(&source);
    const std::unique_ptr<AmplifierChannel> channel(erased.erase(1));
    QCOMPARE(referentsOf(erased), rightOnly);
    BipolarMontage resized(source);
    resized.resize(2);
    QCOMPARE(referentsOf(resized), QStringLiteral("A1@2 none@-1"));
    BipolarMontage cleared(source);
    cleared.clearChannel();
    QCOMPARE(referentsOf(cleared), none);
    BipolarMontage assigned(source);
    static_cast<Montage &>(assigned) = source;
    QCOMPARE(referentsOf(assigned), none);
    BipolarMontage moved(source);
    const Montage target(std::move(static_cast<Montage &>(moved)));
    QCOMPARE(referentsOf(moved), none);
    BipolarMontage reread(source);
    reread.fromJson(makeMontage("x y").toJson());
    QCOMPARE(referentsOf(reread), none);
}

void TestMontage::copiesReferentsByPlace()
{
    BipolarMontage source(makeMontage("Fp1 A1 A2 T3"));
    source.setRightReferent(QStringLiteral("T3"));
    source[0]->setGroup2(3);
    BipolarMontage assigned(makeMontage("x"));
    assigned = source;
    for (const BipolarMontage &copy : {BipolarMontage(source), BipolarMontage(&source), assigned}) {
        QCOMPARE(referentsOf(copy), QStringLiteral("A1@2 T3@4"));
        QCOMPARE(copy.getLeftReferent().channel, copy[1]);
        QCOMPARE(copy.getRightReferent().channel, copy[3]);
        QCOMPARE(groups2(copy), (QList<unsigned>{3, 0, 0, 0}));
    }
}

void TestMontage::parsesAverageGroups_data()
{
    QTest::addColumn<bool>("fromBipolar");
    QTest::addColumn<QList<unsigned>>("expected");
    // Cz EEG, AUX3 EEG, ECG, T3 EEG; the bipolar source has made them 3, 1, 3 and 1.
    QTest::newRow("from usual") << false << QList<unsigned>{4, 1, 1, 0};
    QTest::newRow("from bipolar") << true << QList<unsigned>{0, 1, 1, 0};
}

void TestMontage::parsesAverageGroups()
{
    QFETCH(bool, fromBipolar);
    QFETCH(QList<unsigned>, expected);
    const Montage usual({makeChannel(QStringLiteral("Cz"), BPCommon::EEG, 4), makeChannel(QStringLiteral("myAUX3")),
                         makeChannel(QStringLiteral("heart"), BPCommon::ECG), makeChannel(QStringLiteral("T3"))});
    const QSharedPointer<Montage> source(fromBipolar ? new BipolarMontage(usual) : new Montage(usual));
    QCOMPARE(groups2(AverageMontage(*source)), expected);
    QCOMPARE(groups2(AverageMontage(source)), expected);
    QCOMPARE(AverageMontage(source).getType(), Montage_Average);
}

void TestMontage::copiesDeeply()
{
    Montage source = makeFullMontage();
    source.setCurrentSampleFreq(250.0f);
    source.createChannelFilterList();
    Montage assigned;
    assigned = &source;
    assigned = static_cast<const Montage *>(nullptr);
    Montage &alias = assigned;
    assigned = alias;
    for (const Montage &copy : {Montage(source), assigned}) {
        QCOMPARE(copy.toJson(), source.toJson());
        QCOMPARE(copy.getCurrentSampleFreq(), 250.0f);
        QVERIFY(copy[0] != source[0]);
        QVERIFY(copy[0]->getFilterRef().objects.empty());
    }
    const Montage copy(source);
    source[0]->setChannelName(QStringLiteral("changed"));
    source.removeChannel(1);
    QCOMPARE(copy.getChannelNames().mid(0, 2), (QStringList{QStringLiteral("Fp1"), QStringLiteral("Fp2")}));
}

void TestMontage::movesOutOfTheSource()
{
    Montage source = makeFullMontage();
    const QJsonObject before = source.toJson();
    const Montage target(std::move(source));
    QCOMPARE(target.toJson(), before);
    const QJsonObject left = source.toJson(); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    QCOMPARE(left, Montage().toJson());
}

void TestMontage::ignoresIndicesOutside()
{
    Montage montage = makeMontage("a b");
    TraceCapture trace;
    QVERIFY(montage[2] == nullptr);
    QVERIFY(montage.erase(-1) == nullptr);
    QVERIFY(montage.erase(2) == nullptr);
    montage.removeChannel(4294967295u);
    QVERIFY(!montage.push_back(nullptr));
    QVERIFY(!montage.push_back(montage[0]));
    const std::unique_ptr<AmplifierChannel> channel(makeChannel(QStringLiteral("c")));
    QVERIFY(!montage.insert(3, channel.get()));
    QVERIFY(!montage.insert(-1, channel.get()));
    QCOMPARE(trace.count(QStringLiteral("outside the list")), 6);
    QCOMPARE(montage.getChannelNames(), (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
    QVERIFY(montage.insert(2, makeChannel(QStringLiteral("c"))));
    QCOMPARE(montage.getIndexByName(QStringLiteral("c")), 2);
}

void TestMontage::resizes()
{
    Montage montage = makeMontage("a b c");
    montage.resize(1);
    montage.resize(3);
    montage.resize(Montage::kMaxChannels + 1);
    QCOMPARE(montage.getChannelNames(), (QStringList{QStringLiteral("a"), QString(), QString()}));
    montage.rebuildMontageChannelList();
    QCOMPARE(montage[2]->getIndex(), 2);
    montage[1]->setChannelType(BPCommon::ECG);
    QCOMPARE(montage.getECGChannel(), QSet<int>{1});
}

void TestMontage::buildsFilters_data()
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    QTest::addColumn<float>("rate");
    QTest::addColumn<QList<float>>("cutOffs"); // LPF HPF BSF
    QTest::addColumn<QList<int>>("types");
    QTest::addColumn<int>("leftOut");
    QTest::newRow("all, in order") << 250.0f << QList<float>{30.0f, 0.5f, 50.0f} << QList<int>{0, 1, 3} << 0;
    QTest::newRow("off") << 250.0f << QList<float>{0.0f, 0.0f, 0.0f} << QList<int>{} << 0;
    QTest::newRow("at half the rate") << 100.0f << QList<float>{50.0f, 49.0f, 50.0f} << QList<int>{1} << 2;
    QTest::newRow("negative or not finite") << 250.0f << QList<float>{-1.0f, nan, 50.0f} << QList<int>{3} << 2;
    QTest::newRow("no rate") << 0.0f << QList<float>{30.0f, 0.0f, 50.0f} << QList<int>{} << 2;
    QTest::newRow("rate not finite") << nan << QList<float>{30.0f, 0.0f, 0.0f} << QList<int>{} << 1;
}

void TestMontage::buildsFilters()
{
    QFETCH(float, rate);
    QFETCH(QList<float>, cutOffs);
    QFETCH(QList<int>, types);
    QFETCH(int, leftOut);
    Montage montage = makeMontage("Fz");
    montage[0]->setLPF(cutOffs[0]);
    montage[0]->setHPF(cutOffs[1]);
    montage[0]->setBSF(cutOffs[2]);
    montage.setCurrentSampleFreq(rate);
    TraceCapture trace;
    montage.createChannelFilterList();
    QCOMPARE(trace.count(QStringLiteral("Fz: ")), leftOut);
    QList<int> built;
    for (const auto &filter : montage[0]->getFilterRef().objects) {
        built << filter->getFilterType();
    }
    QCOMPARE(built, types);
}

void TestMontage::buildsFiltersOnce()
{
    Montage empty;
    empty.setCurrentSampleFreq(500.0f);
    QCOMPARE(empty.getCurrentSampleFreq(), 500.0f);

    Montage montage = makeFullMontage();
    montage.setCurrentSampleFreq(250.0f);
    montage.createChannelFilterList();
    montage.createChannelFilterList();
    QCOMPARE(montage[5]->getFilterRef().objects.size(), std::size_t{3});
    montage.removeChannelFilterList();
    QVERIFY(montage[5]->getFilterRef().objects.empty());
}

void TestMontage::readsJson()
{
    BipolarMontage source(makeFullMontage());
    source.setRightReferent(QStringLiteral("Fp2"));
    const QJsonObject json = source.toJson();
    QCOMPARE(json[QLatin1String("Montage_Bipolar")].toString(), QStringLiteral("true"));
    QCOMPARE(json[QLatin1String("right")].toString(), QStringLiteral("Fp2"));
    BipolarMontage copy(json);
    QCOMPARE(copy.getMontageFileName(), QStringLiteral("Müller & Söhne.xml"));
    QCOMPARE(referentsOf(copy), QStringLiteral("A1@4 Fp2@2"));
    copy.setMontageFileName(source.getMontageFileName());
    copy[4]->setGroup2(0); // in the source A2 was the referent first
    QCOMPARE(copy.toJson(), json);

    copy.fromJson(QJsonObject{{QStringLiteral("left"), QStringLiteral("missing")}});
    QCOMPARE(referentsOf(copy), QStringLiteral("none@-1 Fp2@2"));
    QCOMPARE(copy.getMontageName(), source.getMontageName());

    QJsonArray many;
    for (unsigned i = 0; i <= Montage::kMaxChannels; ++i) {
        many << QStringLiteral("no object");
    }
    QCOMPARE(Montage(QJsonObject{{QStringLiteral("chan_list"), many}}).size(), Montage::kMaxChannels);
}

void TestMontage::writesTheFileLayout()
{
    const auto montage = QSharedPointer<BipolarMontage>::create(makeMontage("A1 Fz"));
    montage->setMontageName(QStringLiteral("m"));
    const QString path = m_folder.filePath(QStringLiteral("layout.xml"));
    QVERIFY(MontageXmlReader().writeMontageToFile(path, montage));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    const QByteArrayList lines = file.readAll().split('\n');
    QByteArrayList trimmed;
    for (const QByteArray &line : lines) {
        trimmed << line.trimmed();
    }
    const QByteArray tail = "<type>EEG</type>|<g1>0</g1>|<g2>%</g2>|<scale>1</scale>|<LPF>0</LPF>|<HPF>0</HPF>|"
                            "<BSF>0</BSF>|</Channel>|";
    QByteArray expected = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>|<Montage>|<type>Montage_Bipolar</type>|"
                          "<left>A1</left>|<right></right>|<name>m</name>|<Channel>|<index>1</index>|<name>A1</name>|";
    expected += QByteArray(tail).replace('%', '0') + "<Channel>|<index>1</index>|<name>Fz</name>|"
        + QByteArray(tail).replace('%', '3') + "</Montage>|";
    QCOMPARE(trimmed.join('|'), expected);
}

void TestMontage::readsBackWhatItWrote_data()
{
    QTest::addColumn<Montage_Type>("type");
    QTest::newRow("usual") << Montage_Usual;
    QTest::newRow("bipolar") << Montage_Bipolar;
    QTest::newRow("average") << Montage_Average;
}

void TestMontage::readsBackWhatItWrote()
{
    QFETCH(Montage_Type, type);
    QSharedPointer<Montage> source;
    if (type == Montage_Bipolar) {
        source = QSharedPointer<BipolarMontage>::create(makeFullMontage());
    } else if (type == Montage_Average) {
        source = QSharedPointer<AverageMontage>::create(makeFullMontage());
    } else {
        source = QSharedPointer<Montage>::create(makeFullMontage());
    }
    const QString path = m_folder.filePath(QStringLiteral("Gerät 1.xml"));
    MontageXmlReader reader;
    QVERIFY2(reader.writeMontageToFile(path, source), qPrintable(reader.errorText()));
    const QSharedPointer<Montage> read = reader.readMontage(path);
    QVERIFY2(!read.isNull(), qPrintable(reader.errorText()));
    QCOMPARE(read->getType(), type);
    QCOMPARE(read->getMontageName(), source->getMontageName());
    QCOMPARE(read->getMontageFileName(), QStringLiteral("Gerät 1.xml"));
    QCOMPARE(textViews(*read), textViews(*source));
    if (const auto bipolar = read.dynamicCast<BipolarMontage>()) {
        QCOMPARE(referentsOf(*bipolar), QStringLiteral("A1@4 A2@5"));
    }
    QCOMPARE(textViews(Montage(path)), textViews(*source));
}

void TestMontage::readsPartsOfAFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QList<QByteArray>>("channels");
    const QByteArray good = "index=1;name=Cz;type=ECG;g1=2;g2=3;scale=0.5;LPF=30;HPF=0.5;BSO=50";
    const QByteArray untouched = "index=0;name=;type=EEG;g1=0;g2=0;scale=1;LPF=0;HPF=0;BSO=0";
    const auto named = [good](const char *name) { return QByteArray(good).replace("Cz", name); };
    const auto row = [](const char *name, const QByteArray &body, const QList<QByteArray> &channels) {
        QTest::newRow(name) << "<Montage><type>x</type>" + body + "</Montage>" << channels;
    };
    row("in one line", channelElement("Cz") + channelElement("Pz"), {good, named("Pz")});
    row("comments", "<!-- a --><Channel><!-- b -->" + channelElement("Cz").mid(9) + "<!-- c -->", {good});
    row("no channels", "", {});
    row("separators in a name", channelElement("a;b=c"), {named("a_b_c")});
    row("line break in a name", channelElement("a\nb"), {named("a_b")});
    row("short channel", "<Channel><index>7</index><name>x</name></Channel>" + channelElement("Cz"), {untouched, good});
    row("empty channel", "<Channel/>" + channelElement("Cz"), {untouched, good});
    row("another order",
        channelElement("Cz").replace("<index>1</index>", "").replace("</BSF>", "</BSF><index>1</index>"), {untouched});
    // The element that is not the expected one is skipped, and the values behind it move up.
    row("another key", channelElement("Cz").replace("g2>", "G2>"),
        {"index=1;name=Cz;type=ECG;g1=2;g2=0;scale=30;LPF=0.5;HPF=50;BSO=0"});
    row("a child with children", channelElement("C<b>old</b>z"), {good});
    row("more children", channelElement("Cz").replace("</Channel>", "<more>1</more></Channel>"), {good});
}

void TestMontage::readsPartsOfAFile()
{
    QFETCH(QByteArray, content);
    QFETCH(QList<QByteArray>, channels);
    MontageXmlReader reader;
    const QSharedPointer<Montage> montage = reader.readMontage(writeFile(content));
    QVERIFY2(!montage.isNull(), qPrintable(reader.errorText()));
    QCOMPARE(QList<QByteArray>(textViews(*montage)), channels);
}

void TestMontage::refusesInOneLine_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *name, const QByteArray &content, const char *reason) {
        QTest::newRow(name) << content << QString::fromLatin1(reason);
    };
    QByteArray many = "<Montage>";
    for (unsigned i = 0; i <= Montage::kMaxChannels; ++i) {
        many += "<Channel/>";
    }
    QByteArray bomb = "<!DOCTYPE x [<!ENTITY a0 \"aaaaaaaaaa\">";
    for (int i = 1; i < 10; ++i) {
        const QByteArray inner = "&a" + QByteArray::number(i - 1) + ";";
        bomb += "<!ENTITY a" + QByteArray::number(i) + " \"" + inner.repeated(10) + "\">";
    }
    row("empty", "", "line 1: ");
    row("no XML", "PNG\x1a\x01", "line 1: ");
    row("another document", "<html><body/></html>", "the root element is not \"Montage\"");
    row("broken channel", "<Montage>\n\n<Channel><index></Channel></Montage>", "line 3: ");
    row("too many channels", many + "</Montage>", "more than 4096 channels");
    row("exploding entities", bomb + "]><Montage><name>&a9;</name></Montage>", "line 1: ");
    row("too large", QByteArray(MontageXmlReader::kMaxFileSize + 1, ' '), "too large");
}

void TestMontage::refusesInOneLine()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, reason);
    const QString path = writeFile(content);
    TraceCapture trace;
    MontageXmlReader reader;
    QVERIFY(reader.readMontage(path).isNull());
    QVERIFY2(reader.errorText().contains(path) && reader.errorText().contains(reason), qPrintable(reader.errorText()));
    QCOMPARE(trace.count(QStringLiteral("MontageXmlReader::readMontage")), 1);
    QCOMPARE(trace.count(reader.errorText()), 1);
    QVERIFY(reader.readMontage(m_folder.filePath(QStringLiteral("missing.xml"))).isNull());
    QVERIFY(reader.errorText().contains(QLatin1String("missing.xml")));
}

void TestMontage::refusesCutFiles()
{
    MontageXmlReader reader;
    const QString path = m_folder.filePath(QStringLiteral("whole.xml"));
    QVERIFY(reader.writeMontageToFile(path, QSharedPointer<BipolarMontage>::create(makeFullMontage())));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray whole = file.readAll();
    const int end = whole.indexOf("</Montage>") + 10;
    QVERIFY(end > 1000);
    for (int length = 0; length < end; ++length) {
        const QString cut = writeFile(whole.left(length));
        QVERIFY2(reader.readMontage(cut).isNull(), qPrintable(QString::number(length)));
        QVERIFY(!reader.errorText().isEmpty());
        QVERIFY(Montage(cut).empty());
    }
    QVERIFY(!reader.readMontage(writeFile(whole.left(end))).isNull());
    QVERIFY(reader.errorText().isEmpty());
}

void TestMontage::keepsTheFileThatItCannotReplace()
{
    MontageXmlReader reader;
    const auto montage = QSharedPointer<Montage>::create(makeFullMontage());
    QVERIFY(!reader.writeMontageToFile(m_folder.filePath(QStringLiteral("no/such/folder.xml")), montage));
    QVERIFY(reader.errorText().contains(QLatin1String("folder.xml")));
    QVERIFY(!reader.writeMontageToFile(m_folder.path(), montage));

    const QString path = writeFile("old");
    QVERIFY(!reader.writeMontageToFile(path, {}));
    QCOMPARE(QFileInfo(path).size(), qint64{3});

    montage->setMontageName(QString(QChar(1)) + QChar(0xd800) + QChar(0xffff) + QStringLiteral("\U0001F600"));
    QVERIFY(reader.writeMontageToFile(path, montage)); // what XML cannot carry doesn't make the file unreadable
    QCOMPARE(reader.readMontage(path)->getMontageName(), QStringLiteral("___\U0001F600"));
}

BP_TEST_MAIN(TestMontage)
#include "TestMontage.moc"
