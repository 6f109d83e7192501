#include "support/TestMain.h"

#include "base/ConnectionHelper.h"
#include "base/Evaluate.h"
#include "base/FileUtilities.h"
#include "base/LanguageContext.h"
#include "base/TextHelper.h"

#include <QLocale>
#include <QTemporaryDir>

#include <clocale>
#include <limits>

class TestBase : public QObject
{
    Q_OBJECT

private slots:
    void formulaIsCalculated();
    void formulaIsRefused();
    void formulaWaitsForEveryVariable();
    void numbersIgnoreTheLocale();
    void textOfTimesAndTables();
    void filesOfOneTypeAreFound();
    void connectionsEndWithTheirList();
};

namespace {

QString operator""_s(const char *text, std::size_t size)
{
    return QString::fromUtf8(text, int(size));
}

/// Sets "a=1 b=2"; true when these are just the formula's variables.
bool analyze(Evaluate &evaluate, const QString &formula, const QString &values)
{
    QStringList names;
    if (!evaluate.makeAnalyzeFormula(formula, names)) {
        return false;
    }
    for (const QString &value : values.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const QString name = value.section(QLatin1Char('='), 0, 0);
        if (!names.removeOne(name) || !evaluate.setVariablesValue(name, value.section(QLatin1Char('='), 1))) {
            return false;
        }
    }
    return names.isEmpty();
}

constexpr double kFailure = -1e99;

/// kFailure when the calculation fails as it should, with 0 and a text.
double calculated(const char *formula, const char *values = "")
{
    Evaluate evaluate;
    bool ok = false;
    if (!analyze(evaluate, QLatin1String(formula), QLatin1String(values)) || !evaluate.isReady()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const double value = evaluate.makeCalculate(ok);
    return ok && evaluate.errorText().isEmpty()           ? value
        : value == 0.0 && !evaluate.errorText().isEmpty() ? kFailure
                                                          : std::numeric_limits<double>::quiet_NaN();
}

} // namespace

void TestBase::formulaIsCalculated()
{
    QCOMPARE(calculated("2+3*4-6/3"), 12.0);
    QCOMPARE(calculated("(1+2)^3"), 27.0);
    QCOMPARE(calculated("2^3^2"), 512.0);
    QCOMPARE(calculated("-(3-5)*2"), 4.0);
    QCOMPARE(calculated("sqrt(16)+abs(-1)+max(1,7,3)"), 12.0);
    QCOMPARE(calculated("(a==b)+2*(a!=b)+4*(a<=b)+8*(a>=b)", "a=1 b=2"), 6.0);
    QCOMPARE(calculated("alpha+alpha/beta+alpha", "alpha=0.5 beta=2"), 1.25);
    QCOMPARE(calculated("a+b+c+d+e+f+g+h+i", "a=1 b=2 c=3 d=4 e=5 f=6 g=7 h=8 i=9"), 45.0);
    for (const char *formula : {"1/a", "a/a", "1/0+a", "sqrt(a-1)"}) {
        QCOMPARE(calculated(formula, "a=0"), kFailure);
    }
}

void TestBase::formulaIsRefused()
{
    for (const QString &formula :
         {""_s, "   "_s, "1+"_s, "alpha beta"_s, "(alpha"_s, "alpha(1)"_s, "max()"_s, "1,5"_s, "\"alpha\""_s, "a=1"_s,
          "a>0?b=1:0"_s, "a==b=1"_s, "a= =1"_s, "(a)=2"_s, QString(100000, QLatin1Char('('))}) {
        Evaluate evaluate;
        QVERIFY(analyze(evaluate, "a+1"_s, "a=1"_s));
        QStringList names{"left over"_s};
        QVERIFY2(!evaluate.makeAnalyzeFormula(formula, names), qPrintable(formula));
        QVERIFY(names.isEmpty() && !evaluate.errorText().isEmpty() && !evaluate.isReady());
        QVERIFY(!evaluate.setVariablesValue("a"_s, "1"_s)); // of the formula before
        bool ok = true;
        QVERIFY(evaluate.makeCalculate(ok) == 0.0 && !ok);
    }
}

void TestBase::formulaWaitsForEveryVariable()
{
    Evaluate evaluate;
    QVERIFY(analyze(evaluate, "alpha+b"_s, "alpha=7 b=2"_s));
    QStringList names;
    QVERIFY(evaluate.makeAnalyzeFormula("beta*10+alpha"_s, names));
    QCOMPARE(names, QStringList({"alpha"_s, "beta"_s}));
    QVERIFY(evaluate.setVariablesValue("beta"_s, "2e-1"_s));
    QVERIFY(!evaluate.setVariablesValue("gamma"_s, "1"_s));
    QVERIFY(!evaluate.setVariablesValue("alpha"_s, "0,5"_s));
    bool ok = true;
    QCOMPARE(evaluate.makeCalculate(ok), 0.0); // without the alpha of the formula before
    QVERIFY(!ok && !evaluate.isReady());

    QVERIFY(evaluate.setVariablesValue("alpha"_s, "1"_s));
    QVERIFY(!evaluate.setVariablesValue("alpha"_s, "a lot"_s)); // the value before stays
    QCOMPARE(evaluate.makeCalculate(ok), 3.0);
    QVERIFY(ok);
}

void TestBase::numbersIgnoreTheLocale()
{
    const QLocale before;
    const QByteArray beforeC = std::setlocale(LC_ALL, nullptr);
    QLocale::setDefault(QLocale(QLocale::German));
    std::setlocale(LC_ALL, "de_DE.UTF-8"); // has an effect only where that locale is installed
    const double value = calculated("a*1.5", "a=0.5");
    std::setlocale(LC_ALL, beforeC.constData());
    QLocale::setDefault(before);
    QCOMPARE(value, 0.75);
}

void TestBase::textOfTimesAndTables()
{
    const auto text = [](double seconds) {
        return TextHelper::TimeToText(seconds) + QLatin1Char(' ') + TextHelper::TimeToText(seconds, true);
    };
    QCOMPARE(text(3723.25), "01:02:03 01:02:03.250"_s);
    QCOMPARE(text(59.9996), "00:00:59 00:01:00.000"_s);
    QCOMPARE(text(90000.0), "25:00:00 25:00:00.000"_s);
    QCOMPARE(text(-61.5), "-00:01:01 -00:01:01.500"_s);
    QCOMPARE(text(-0.0001), "00:00:00 00:00:00.000"_s);
    QCOMPARE(text(std::numeric_limits<double>::quiet_NaN()), "00:00:00 00:00:00.000"_s);
    // The largest time that is told: 10^12 s; 10^12 = 277777777 · 3600 + 46 · 60 + 40.
    QCOMPARE(text(1e300), "277777777:46:40 277777777:46:40.000"_s);

    QCOMPARE(TextHelper::printLikeTable({{"rate"_s, "250 Hz"_s}, {"channels"_s, "8"_s}}),
             "channels: 8\nrate: 250 Hz"_s);
    QCOMPARE(LanguageContext::multilingualTranslate("Generic"_s, "No caption of ours"_s),
             QSet<QString>{"No caption of ours"_s});
}

void TestBase::filesOfOneTypeAreFound()
{
    QTemporaryDir folder;
    const QString inner = folder.filePath("one/two"_s);
    QVERIFY(FileUtilities::createIfNotExists(inner) && FileUtilities::createIfNotExists(inner));
    for (const char *name : {"b.EDF", "a.edf", "a.bdf", "edf", "c.edf.tmp", "night.1.edf"}) {
        QFile file(inner + QLatin1Char('/') + QLatin1String(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(!FileUtilities::createIfNotExists(file.fileName() + "/below"_s));
    }
    QStringList names;
    for (const QString &path : FileUtilities::getFilesOfType(inner, "edf"_s)) {
        QVERIFY(QFileInfo(path).isAbsolute());
        names << FileUtilities::filename(path);
    }
    QCOMPARE(names, QStringList({"a"_s, "b"_s, "night.1"_s}));
    QVERIFY(FileUtilities::getFilesOfType(inner + "/none"_s, "edf"_s).isEmpty());
}

void TestBase::connectionsEndWithTheirList()
{
    QObject sender;
    int heard = 0;
    {
        ConnectionHelper connections;
        connections << connect(&sender, &QObject::objectNameChanged, [&heard] { ++heard; })
                    << connect(&sender, &QObject::objectNameChanged, [&heard] { heard += 10; });
        sender.setObjectName("a"_s);
        connections.clear();
        sender.setObjectName("b"_s);
        connections << connect(&sender, &QObject::objectNameChanged, [&heard] { ++heard; });
    }
    sender.setObjectName("c"_s);
    QCOMPARE(heard, 11);
}

BP_TEST_MAIN(TestBase)
#include "TestBase.moc"
