#include "devices/AmplifierChannel.h"
#include "filters/AbstractFilter.h"
#include "montage/AverageMontage.h"
#include "montage/BipolarMontage.h"
#include "montage/Montage.h"
#include "montage/MontageXmlReader.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QTemporaryDir>

#include <limits>

namespace {

Montage makeMontage(const char *names)
{
    Montage montage;
    for (const QString &name : QString::fromUtf8(names).split(QLatin1Char(' '))) {
        montage.push_back(new AmplifierChannel(1, 1.0f, BPCommon::EEG));
        montage[montage.size() - 1]->setChannelName(name);
    }
    return montage;
}

/// Every field differs from its default and from channel to channel.
Montage makeFullMontage()
{
    Montage montage = makeMontage("Fp1 Fp2 Cz A1 A2 Ö<&>");
    montage.setMontageName(QStringLiteral("Müller & Söhne"));
    for (unsigned i = 0; i < montage.size(); ++i) {
        const QString fields = QStringLiteral("index=%1;name=%2;type=%3;g1=%4;g2=%5;scale=%5.5;LPF=3%5;HPF=0.5;BSO=%6");
        const QString type = i % 2 != 0 ? QStringLiteral("ECG") : QStringLiteral("EEG");
        montage[i]->parseStringData(fields.arg(10 + i).arg(montage[i]->getName(), type).arg(i + 1).arg(i).arg(50 + i));
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

QByteArray textViews(const Montage &montage)
{
    QByteArray views;
    for (unsigned i = 0; i < montage.size(); ++i) {
        views += montage[i]->makeTextView() + "|";
    }
    return views;
}

/// "A1@4 A2@5": the referents and their numbers.
QString referentsOf(const BipolarMontage &montage)
{
    const auto text = [](const Referent &referent) {
        const QString name = referent.channel != nullptr ? referent.channel->getName() : QStringLiteral("none");
        return QStringLiteral("%1@%2").arg(name).arg(referent.number);
    };
    return text(montage.getLeftReferent()) + QLatin1Char(' ') + text(montage.getRightReferent());
}

QByteArray channelElement(const char *name)
{
    return QByteArray("<Channel><index>1</index><name>") + name + "</name><type>ECG</type><g1>2</g1><g2>3</g2>"
        + "<scale>0.5</scale><LPF>30</LPF><HPF>0.5</HPF><BSF>50</BSF></Channel>";
}

} // namespace

class TestMontage : public QObject
{
    Q_OBJECT
private slots:
    void choosesSidesAndReferentsByName();
    void followsReferents();
    void dropsReferentsThatLeave();
    void copiesReferentsByPlace();
    void parsesAverageGroups();
    void copiesDeeplyAndMoves();
    void staysWithinItsList();
    void buildsFilters();
    void readsChannelLines();
    void readsJson();
    void writesTheFileLayout();
    void readsBackWhatItWrote();
    void readsPartsOfAFile();
    void refusesInOneLine();
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

void TestMontage::choosesSidesAndReferentsByName()
{
    // "a1" is no referent, and "3-" no number.
    QCOMPARE(groups2(BipolarMontage(makeMontage("Fp1 Fp2 O10 P11 Cz a1 T3-T5 C3A2 EEG- 99999999999"))),
             (QList<unsigned>{1, 2, 2, 1, 3, 1, 2, 1, 2, 2}));
    QCOMPARE(groups2(BipolarMontage(makeMontage("A2 A1 A1 A2"))), (QList<unsigned>{0, 0, 1, 2})); // the first of each
    QVERIFY(BipolarMontage(makeMontage("Fp1 A1 A2")).isReferentsCorrect());
    QVERIFY(!BipolarMontage(makeMontage("Fp1 A2")).isReferentsCorrect());
    QVERIFY(!BipolarMontage(QSharedPointer<Montage>()).isReferentsCorrect());
}

void TestMontage::followsReferents()
{
    BipolarMontage montage(makeMontage("Fp1 A1 Cz A2 T4"));
    montage.insert(0, new AmplifierChannel);
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
    const auto after = [&source](auto &&change) {
        BipolarMontage montage(source);
        change(montage);
        return referentsOf(montage);
    };
    const QString none = QStringLiteral("none@-1 none@-1");
    QCOMPARE(after([](Montage &montage) { montage.removeChannel(1); }), QStringLiteral("none@-1 A2@2"));
    QCOMPARE(after([](Montage &montage) { delete montage.erase(1); }), QStringLiteral("none@-1 A2@2"));
    QCOMPARE(after([](Montage &montage) { montage.resize(2); }), QStringLiteral("A1@2 none@-1"));
    QCOMPARE(after([](Montage &montage) { montage.clearChannel(); }), none);
    QCOMPARE(after([&source](Montage &montage) { montage = source; }), none);
    QCOMPARE(after([](Montage &montage) { const Montage target(std::move(montage)); }), none);
    QCOMPARE(after([](auto &montage) { montage.fromJson(makeMontage("x y").toJson()); }), none);
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
        QCOMPARE(groups2(copy), (QList<unsigned>{3, 0, 0, 0}));
    }
}

void TestMontage::parsesAverageGroups()
{
    Montage usual = makeMontage("Cz myAUX3 heart T3");
    usual[0]->setGroup2(4);
    usual[2]->setChannelType(BPCommon::ECG);
    QCOMPARE(groups2(AverageMontage(usual)), (QList<unsigned>{4, 1, 1, 0}));
    const QSharedPointer<Montage> bipolar(new BipolarMontage(usual)); // has made them 3, 1, 3 and 1
    QCOMPARE(groups2(AverageMontage(bipolar)), (QList<unsigned>{0, 1, 1, 0}));
}

void TestMontage::copiesDeeplyAndMoves()
{
    Montage source = makeFullMontage();
    const QJsonObject json = source.toJson();
    source.setCurrentSampleFreq(250.0f);
    source.createChannelFilterList();
    Montage assigned;
    assigned = &source;
    assigned = static_cast<const Montage *>(nullptr);
    Montage &alias = assigned;
    assigned = alias;
    const Montage copied(source);
    Montage moved(assigned);
    const Montage target(std::move(moved));
    QCOMPARE(moved.toJson(), Montage().toJson()); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    source[0]->setChannelName(QStringLiteral("changed"));
    source.removeChannel(1);
    for (const Montage *copy : std::initializer_list<const Montage *>{&copied, &assigned, &target}) {
        QCOMPARE(copy->toJson(), json);
        QCOMPARE(copy->getCurrentSampleFreq(), 250.0f);
        QVERIFY((*copy)[0]->getFilterRef().objects.empty());
    }
}

void TestMontage::staysWithinItsList()
{
    Montage montage = makeMontage("a b");
    TraceCapture trace;
    QVERIFY(montage[2] == nullptr && montage.erase(-1) == nullptr);
    montage.removeChannel(4294967295u);
    QVERIFY(!montage.push_back(nullptr) && !montage.push_back(montage[0]));
    auto channel = std::make_unique<AmplifierChannel>();
    QVERIFY(!montage.insert(3, channel.get()));
    QCOMPARE(trace.count(QStringLiteral("outside the list")), 4);
    QVERIFY(montage.insert(2, channel.release()));
    QCOMPARE(montage.getChannelNames(), (QStringList{QStringLiteral("a"), QStringLiteral("b"), QString()}));
    montage.resize(1);
    montage.resize(2);
    montage.resize(Montage::kMaxChannels + 1);
    QCOMPARE(montage.getChannelNames(), (QStringList{QStringLiteral("a"), QString()}));
}

void TestMontage::buildsFilters()
{
    const auto check = [](float rate, const QList<float> &cutOffs, const QList<int> &types, int leftOut) {
        Montage montage = makeMontage("Fz");
        montage[0]->setLPF(cutOffs[0]);
        montage[0]->setHPF(cutOffs[1]);
        montage[0]->setBSF(cutOffs[2]);
        montage.setCurrentSampleFreq(rate);
        TraceCapture trace;
        montage.createChannelFilterList();
        QCOMPARE(trace.count(QStringLiteral("Fz: ")), leftOut);
        QCOMPARE(montage.filterNotes().size(), leftOut);
        montage.createChannelFilterList(); // adds none
        QList<int> built;
        for (const auto &filter : montage[0]->getFilterRef().objects) {
            built << filter->getFilterType();
        }
        QCOMPARE(built, types);
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    check(250.0f, {30.0f, 0.5f, 50.0f}, {0, 1, 3}, 0);
    check(250.0f, {0.0f, 0.0f, 0.0f}, {}, 0);
    check(100.0f, {50.0f, 49.0f, 50.0f}, {1}, 2); // from half the rate on
    check(250.0f, {-1.0f, nan, 50.0f}, {3}, 2);
    check(0.0f, {30.0f, 0.0f, 50.0f}, {}, 2);
    check(nan, {30.0f, 0.0f, 0.0f}, {}, 1);
    check(250.0f, {0.0f, 50.0f, 0.0f}, {1}, 1); // another design

    Montage montage = makeMontage("Fz Cz");
    montage[1]->setLPF(70.0f);
    montage[1]->setHPF(20.0f);
    montage.setCurrentSampleFreq(100.0f);
    QCOMPARE(montage.filterNotes(),
             QStringList({QStringLiteral("Cz: the low-pass of 70 Hz is left out, because it has to lie between 0 and "
                                         "half of the rate of 100 Hz."),
                          QStringLiteral("Cz: the high-pass of 20 Hz has the textbook's design, because the usual one "
                                         "is unstable at a rate of 100 Hz.")}));
}

void TestMontage::readsChannelLines()
{
    const QString line = QStringLiteral("index=1;name=%1;type=EEG;g1=1;g2=0;scale=1;LPF=30");
    const auto names = [](const QString &text) { return Montage(text).getChannelNames().join(QLatin1Char('|')); };
    const QString a = line.arg(QLatin1Char('a'));
    const QString b = line.arg(QLatin1Char('b'));
    QCOMPARE(names(a + QLatin1Char('\n') + b), QStringLiteral("a|b"));
    QCOMPARE(names(a + QLatin1Char('\n') + b + QLatin1Char('\n')), QStringLiteral("a|b"));
    QCOMPARE(names(a + QLatin1String("\n\n") + b), QStringLiteral("a||b")); // an empty line is a default channel
    QCOMPARE(names(a), QStringLiteral("a"));
    QCOMPARE(names(QStringLiteral("no;such;file")), QString());
}

void TestMontage::readsJson()
{
    BipolarMontage source(makeFullMontage());
    source.setRightReferent(QStringLiteral("Fp2"));
    const QJsonObject json = source.toJson();
    QCOMPARE(json[QLatin1String("Montage_Bipolar")].toString(), QStringLiteral("true"));
    BipolarMontage copy(json);
    QCOMPARE(copy.getMontageFileName(), QStringLiteral("Müller & Söhne.xml"));
    QCOMPARE(referentsOf(copy), QStringLiteral("A1@4 Fp2@2"));
    copy.setMontageFileName(source.getMontageFileName());
    copy[4]->setGroup2(0); // in the source A2 was the referent first
    QCOMPARE(copy.toJson(), json);
    copy.fromJson(QJsonObject{{QStringLiteral("left"), QStringLiteral("missing")}});
    QCOMPARE(referentsOf(copy), QStringLiteral("none@-1 Fp2@2"));
}

void TestMontage::writesTheFileLayout()
{
    const auto montage = QSharedPointer<BipolarMontage>::create(makeMontage("A1 Fz"));
    montage->setMontageName(QStringLiteral("m"));
    QFile file(m_folder.filePath(QStringLiteral("layout.xml")));
    QVERIFY(MontageXmlReader().writeMontageToFile(file.fileName(), montage));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString tail = QStringLiteral("<scale>1</scale><LPF>0</LPF><HPF>0</HPF><BSF>0</BSF></Channel>");
    QCOMPARE(QString::fromUtf8(file.readAll()).remove(QRegularExpression(QStringLiteral("\\s*\n\\s*"))),
             QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?><Montage><type>Montage_Bipolar</type>"
                            "<left>A1</left><right></right><name>m</name>"
                            "<Channel><index>1</index><name>A1</name><type>EEG</type><g1>0</g1><g2>0</g2>%1"
                            "<Channel><index>1</index><name>Fz</name><type>EEG</type><g1>0</g1><g2>3</g2>%1</Montage>")
                 .arg(tail));
}

void TestMontage::readsBackWhatItWrote()
{
    const QString path = m_folder.filePath(QStringLiteral("Gerät 1.xml"));
    for (Montage *kind : {new Montage(makeFullMontage()), static_cast<Montage *>(new BipolarMontage(makeFullMontage())),
                          static_cast<Montage *>(new AverageMontage(makeFullMontage()))}) {
        const QSharedPointer<Montage> source(kind);
        MontageXmlReader reader;
        QVERIFY2(reader.writeMontageToFile(path, source), qPrintable(reader.errorText()));
        const QSharedPointer<Montage> read = reader.readMontage(path);
        QVERIFY2(!read.isNull(), qPrintable(reader.errorText()));
        QCOMPARE(read->getType(), source->getType());
        QCOMPARE(read->getMontageName(), source->getMontageName());
        QCOMPARE(read->getMontageFileName(), QStringLiteral("Gerät 1.xml"));
        QCOMPARE(textViews(*read), textViews(*source));
        QCOMPARE(textViews(Montage(path)), textViews(*source));
        if (const auto bipolar = read.dynamicCast<BipolarMontage>()) {
            QCOMPARE(referentsOf(*bipolar), QStringLiteral("A1@4 A2@5"));
        }
    }
    // Names with the separators of the text form.
    const auto odd = QSharedPointer<BipolarMontage>::create(makeMontage("A;1 Cz M=2"));
    odd->setLeftReferent(QStringLiteral("A;1"));
    odd->setRightReferent(QStringLiteral("M=2"));
    MontageXmlReader reader;
    QVERIFY(reader.writeMontageToFile(path, odd));
    QCOMPARE(referentsOf(*reader.readMontage(path).dynamicCast<BipolarMontage>()), QStringLiteral("A;1@1 M=2@3"));
    QCOMPARE(Montage(path).getChannelNames(), odd->getChannelNames());
}

void TestMontage::readsPartsOfAFile()
{
    const auto check = [this](const char *name, const QByteArray &body, const QByteArray &channels) {
        MontageXmlReader reader;
        const auto montage = reader.readMontage(writeFile("<Montage><type>x</type>" + body + "</Montage>"));
        QVERIFY2(!montage.isNull() && textViews(*montage) == channels, name);
    };
    const QByteArray cz = channelElement("Cz");
    const auto changed = [&cz](const char *from, const char *to) { return QByteArray(cz).replace(from, to); };
    const QByteArray good = "index=1;name=Cz;type=ECG;g1=2;g2=3;scale=0.5;LPF=30;HPF=0.5;BSO=50|";
    const QByteArray untouched = "index=0;name=;type=EEG;g1=0;g2=0;scale=1;LPF=0;HPF=0;BSO=0|";
    check("comments", "<!-- a --><Channel><!-- b -->" + cz.mid(9) + "<!-- c -->", good);
    check("no channels", "", "");
    check("separators in a name", changed("Cz", "a;b=\nc"), QByteArray(good).replace("Cz", "a;b=\nc"));
    check("short channel", "<Channel><index>7</index><name>x</name></Channel><Channel/>" + cz,
          untouched + untouched + good);
    check("another order", changed("<index>1</index>", "").replace("</C", "<index>1</index></C"), untouched);
    // The element that is not the expected one is skipped, and the values behind it move up.
    check("another key", changed("g2>", "G2>"), "index=1;name=Cz;type=ECG;g1=2;g2=0;scale=30;LPF=0.5;HPF=50;BSO=0|");
    check("a child with children", changed("Cz", "C<b>old</b>z"), good);
    check("more children", changed("</Channel>", "<more>1</more></Channel>"), good);
}

void TestMontage::refusesInOneLine()
{
    const auto check = [this](const QByteArray &content, const char *reason) {
        const QString path = writeFile(content);
        TraceCapture trace;
        MontageXmlReader reader;
        QVERIFY2(reader.readMontage(path).isNull(), content.left(200).constData());
        const QString error = reader.errorText();
        QVERIFY2(error.contains(path) && error.contains(QString::fromLatin1(reason)), qPrintable(error));
        QCOMPARE(trace.lines().size(), 1);
        QVERIFY(trace.lines()[0].endsWith(QStringLiteral("MontageXmlReader::readMontage ") + error));
        QVERIFY(Montage(path).empty());
    };
    QByteArray bomb = "<!DOCTYPE x [<!ENTITY a0 \"aaaaaaaaaa\">";
    for (int i = 1; i < 10; ++i) {
        const QByteArray inner = "&a" + QByteArray::number(i - 1) + ";";
        bomb += "<!ENTITY a" + QByteArray::number(i) + " \"" + inner.repeated(10) + "\">";
    }
    const QByteArray many = QByteArray("<Channel/>").repeated(static_cast<int>(Montage::kMaxChannels) + 1);
    check("", "line 1: ");
    check("PNG\x1a\x01", "line 1: ");
    check("<html><body/></html>", "the root element is not \"Montage\"");
    check("<Montage>\n\n<Channel><index></Channel></Montage>", "line 3: ");
    check("<Montage>" + many + "</Montage>", "more than 4096 channels");
    check(bomb + "]><Montage><name>&a9;</name></Montage>", "line 1: ");
    check(QByteArray(MontageXmlReader::kMaxFileSize + 1, ' '), "too large");
    const QByteArray whole = "<Montage><type>x</type>" + channelElement("Cz") + channelElement("Pz") + "</Montage>";
    for (const char *last : {"<Mon", "<Montage>", "<ty", "<type>x", "</type>", "<Chan", "<Channel>", "<name>C",
                             "</name>", "<BSF>50", "</Channel>", "</Channel><Ch", "</Channel></Montage"}) {
        check(whole.left(whole.indexOf(last) + static_cast<int>(qstrlen(last))), "line 1: ");
    }
}

void TestMontage::keepsTheFileThatItCannotReplace()
{
    MontageXmlReader reader;
    const auto montage = QSharedPointer<Montage>::create(makeFullMontage());
    const QString missing = m_folder.filePath(QStringLiteral("no/such/folder.xml"));
    QVERIFY(!reader.writeMontageToFile(missing, montage) && reader.errorText().contains(missing));
    QVERIFY(reader.readMontage(missing).isNull() && reader.errorText().contains(missing));
    const QString path = writeFile("old");
    QVERIFY(!reader.writeMontageToFile(path, {}));
    QCOMPARE(QFileInfo(path).size(), qint64{3});

    // What could not be read back isn't written.
    const auto large = QSharedPointer<Montage>::create();
    large->resize(Montage::kMaxChannels);
    QVERIFY(reader.writeMontageToFile(path, large));
    large->push_back(new AmplifierChannel);
    QVERIFY(!reader.writeMontageToFile(path, large)
            && reader.errorText().contains(QLatin1String("this montage has 4097")));
    montage->setMontageName(QString(static_cast<int>(MontageXmlReader::kMaxFileSize), QLatin1Char('x')));
    QVERIFY(!reader.writeMontageToFile(path, montage) && reader.errorText().contains(QLatin1String("too large")));
    QCOMPARE(reader.readMontage(path)->size(), Montage::kMaxChannels);

    montage->setMontageName(QString(QChar(1)) + QChar(0xd800) + QChar(0xffff) + QStringLiteral("\U0001F600"));
    QVERIFY(reader.writeMontageToFile(path, montage)); // what XML cannot carry doesn't make the file unreadable
    QCOMPARE(reader.readMontage(path)->getMontageName(), QStringLiteral("___\U0001F600"));
}

BP_TEST_MAIN(TestMontage)
#include "TestMontage.moc"
