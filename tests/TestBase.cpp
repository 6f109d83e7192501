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
    void formulaIsCalculated_data();
    void formulaIsCalculated();
    void formulaIsRefused_data();
    void formulaIsRefused();
    void formulaWaitsForEveryVariable();
    void newFormulaForgetsTheOneBefore();
    void numbersIgnoreTheLocale();
    void timeToText_data();
    void timeToText();
    void tableIsPrintedInKeyOrder();
    void filesOfOneTypeAreFound();
    void captionWithoutTranslationStandsForItself();
    void connectionsEndWithTheirList();
};

namespace {

using Values = QMap<QString, QString>;

bool analyze(Evaluate &evaluate, const QString &formula, const Values &values)
{
    QStringList names;
    if (!evaluate.makeAnalyzeFormula(formula, names)) {
        return false;
    }
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        evaluate.setVariablesValue(value.key(), value.value());
    }
    return names == values.keys();
}

} // namespace

Q_DECLARE_METATYPE(Values)

void TestBase::formulaIsCalculated_data()
{
    QTest::addColumn<QString>("formula");
    QTest::addColumn<Values>("values");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<double>("expected");
    const Values two{{QStringLiteral("alpha"), QStringLiteral("0.5")}, {QStringLiteral("beta"), QStringLiteral("2")}};
    const Values zero{{QStringLiteral("a"), QStringLiteral("0")}};

    QTest::newRow("precedence") << QStringLiteral("2+3*4-6/3") << Values{} << true << 12.0;
    QTest::newRow("parentheses and power") << QStringLiteral("(1+2)^3") << Values{} << true << 27.0;
    QTest::newRow("power binds to the right") << QStringLiteral("2^3^2") << Values{} << true << 512.0;
    QTest::newRow("leading minus") << QStringLiteral("-(3-5)*2") << Values{} << true << 4.0;
    QTest::newRow("functions") << QStringLiteral("sqrt(16)+abs(-1)+max(1,7,3)") << Values{} << true << 12.0;
    QTest::newRow("two variables") << QStringLiteral("alpha/beta") << two << true << 0.25;
    QTest::newRow("many uses of a variable") << QStringLiteral("alpha+alpha*beta+alpha") << two << true << 2.0;
    QTest::newRow("nine variables")
        << QStringLiteral("a+b+c+d+e+f+g+h+i")
        << Values{{QStringLiteral("a"), QStringLiteral("1")}, {QStringLiteral("b"), QStringLiteral("2")},
                  {QStringLiteral("c"), QStringLiteral("3")}, {QStringLiteral("d"), QStringLiteral("4")},
                  {QStringLiteral("e"), QStringLiteral("5")}, {QStringLiteral("f"), QStringLiteral("6")},
                  {QStringLiteral("g"), QStringLiteral("7")}, {QStringLiteral("h"), QStringLiteral("8")},
                  {QStringLiteral("i"), QStringLiteral("9")}}
        << true << 45.0;
    QTest::newRow("division by a zero variable") << QStringLiteral("1/a") << zero << false << 0.0;
    QTest::newRow("zero by zero") << QStringLiteral("a/a") << zero << false << 0.0;
    QTest::newRow("division by a zero constant") << QStringLiteral("1/0+a") << zero << false << 0.0;
    QTest::newRow("root of a negative number") << QStringLiteral("sqrt(a-1)") << zero << false << 0.0;
}

void TestBase::formulaIsCalculated()
{
    QFETCH(QString, formula);
    QFETCH(Values, values);
    QFETCH(bool, ok);
    QFETCH(double, expected);
    Evaluate evaluate;
    QVERIFY2(analyze(evaluate, formula, values), qPrintable(evaluate.errorText()));
    QVERIFY(evaluate.isReady());
    bool calculated = !ok;
    QCOMPARE(evaluate.makeCalculate(calculated), expected);
    QCOMPARE(calculated, ok);
    QCOMPARE(evaluate.errorText().isEmpty(), ok);
}

void TestBase::formulaIsRefused_data()
{
    QTest::addColumn<QString>("formula");
    QTest::newRow("empty") << QString();
    QTest::newRow("blank") << QStringLiteral("   ");
    QTest::newRow("operator at the end") << QStringLiteral("1+");
    QTest::newRow("two operands") << QStringLiteral("alpha beta");
    QTest::newRow("open parenthesis") << QStringLiteral("(alpha");
    QTest::newRow("unknown function") << QStringLiteral("alpha(1)");
    QTest::newRow("function without arguments") << QStringLiteral("max()");
    QTest::newRow("decimal comma") << QStringLiteral("1,5");
    QTest::newRow("text") << QStringLiteral("\"alpha\"");
    QTest::newRow("deep") << QString(100000, QLatin1Char('('));
}

void TestBase::formulaIsRefused()
{
    QFETCH(QString, formula);
    Evaluate evaluate;
    QStringList names{QStringLiteral("left over")};
    QVERIFY(!evaluate.makeAnalyzeFormula(formula, names));
    QVERIFY(names.isEmpty());
    QVERIFY(!evaluate.errorText().isEmpty());
    QVERIFY(!evaluate.isReady());
    bool ok = true;
    QCOMPARE(evaluate.makeCalculate(ok), 0.0);
    QVERIFY(!ok);
}

void TestBase::formulaWaitsForEveryVariable()
{
    Evaluate evaluate;
    QStringList names;
    QVERIFY(evaluate.makeAnalyzeFormula(QStringLiteral("beta*10+alpha"), names));
    QCOMPARE(names, QStringList({QStringLiteral("alpha"), QStringLiteral("beta")}));
    QVERIFY(!evaluate.isReady());
    QVERIFY(evaluate.setVariablesValue(QStringLiteral("alpha"), QStringLiteral("1")));
    QVERIFY(!evaluate.setVariablesValue(QStringLiteral("gamma"), QStringLiteral("1")));
    QVERIFY(!evaluate.setVariablesValue(QStringLiteral("beta"), QStringLiteral("0,5")));
    bool ok = true;
    QCOMPARE(evaluate.makeCalculate(ok), 0.0);
    QVERIFY(!ok);

    QVERIFY(evaluate.setVariablesValue(QStringLiteral("beta"), QStringLiteral("2e-1")));
    QCOMPARE(evaluate.makeCalculate(ok), 3.0);
    QVERIFY(ok);
    QVERIFY(!evaluate.setVariablesValue(QStringLiteral("beta"), QStringLiteral("a lot")));
    QCOMPARE(evaluate.makeCalculate(ok), 3.0); // the value before stays
}

void TestBase::newFormulaForgetsTheOneBefore()
{
    Evaluate evaluate;
    QVERIFY(analyze(evaluate, QStringLiteral("a+b"),
                    {{QStringLiteral("a"), QStringLiteral("1")}, {QStringLiteral("b"), QStringLiteral("2")}}));
    QStringList names;
    QVERIFY(evaluate.makeAnalyzeFormula(QStringLiteral("a*3"), names));
    QCOMPARE(names, QStringList(QStringLiteral("a")));
    QVERIFY(!evaluate.isReady());
    QVERIFY(!evaluate.makeAnalyzeFormula(QStringLiteral("a*"), names));
    QVERIFY(!evaluate.setVariablesValue(QStringLiteral("a"), QStringLiteral("1")));
}

void TestBase::numbersIgnoreTheLocale()
{
    const QLocale before;
    const QByteArray beforeC = std::setlocale(LC_ALL, nullptr);
    QLocale::setDefault(QLocale(QLocale::German));
    std::setlocale(LC_ALL, "de_DE.UTF-8"); // has an effect only where that locale is installed
    Evaluate evaluate;
    const bool understood = analyze(evaluate, QStringLiteral("a*1.5"), {{QStringLiteral("a"), QStringLiteral("0.5")}});
    bool ok = false;
    const double value = evaluate.makeCalculate(ok);
    std::setlocale(LC_ALL, beforeC.constData());
    QLocale::setDefault(before);
    QVERIFY(understood && ok);
    QCOMPARE(value, 0.75);
}

void TestBase::timeToText_data()
{
    QTest::addColumn<double>("seconds");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("withMilliseconds");
    QTest::newRow("zero") << 0.0 << QStringLiteral("00:00:00") << QStringLiteral("00:00:00.000");
    QTest::newRow("every field") << 3723.25 << QStringLiteral("01:02:03") << QStringLiteral("01:02:03.250");
    QTest::newRow("carry") << 59.9996 << QStringLiteral("00:00:59") << QStringLiteral("00:01:00.000");
    QTest::newRow("more than a day") << 90000.0 << QStringLiteral("25:00:00") << QStringLiteral("25:00:00.000");
    QTest::newRow("negative") << -61.5 << QStringLiteral("-00:01:01") << QStringLiteral("-00:01:01.500");
    QTest::newRow("negative, rounded away") << -0.0001 << QStringLiteral("00:00:00") << QStringLiteral("00:00:00.000");
    QTest::newRow("no number") << std::numeric_limits<double>::quiet_NaN() << QStringLiteral("00:00:00")
                               << QStringLiteral("00:00:00.000");
    // The largest time that is told: 10^12 s; 10^12 = 277777777 · 3600 + 46 · 60 + 40.
    QTest::newRow("beyond any recording")
        << 1e300 << QStringLiteral("277777777:46:40") << QStringLiteral("277777777:46:40.000");
}

void TestBase::timeToText()
{
    QFETCH(double, seconds);
    QTEST(TextHelper::TimeToText(seconds), "text");
    QTEST(TextHelper::TimeToText(seconds, true), "withMilliseconds");
}

void TestBase::tableIsPrintedInKeyOrder()
{
    const QMap<QString, QString> rows{{QStringLiteral("rate"), QStringLiteral("250 Hz")},
                                      {QStringLiteral("channels"), QStringLiteral("8")}};
    QCOMPARE(TextHelper::printLikeTable(rows), QStringLiteral("channels: 8\nrate: 250 Hz"));
    QCOMPARE(TextHelper::printLikeTable(rows, QStringLiteral("\t")), QStringLiteral("channels\t8\nrate\t250 Hz"));
    QCOMPARE(TextHelper::printLikeTable({}), QString());
}

void TestBase::filesOfOneTypeAreFound()
{
    QTemporaryDir folder;
    const QString inner = folder.filePath(QStringLiteral("one/two"));
    QVERIFY(FileUtilities::createIfNotExists(inner));
    QVERIFY(FileUtilities::createIfNotExists(inner));
    for (const char *name : {"b.EDF", "a.edf", "a.bdf", "edf", "c.edf.tmp"}) {
        QFile file(inner + QLatin1Char('/') + QLatin1String(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(!FileUtilities::createIfNotExists(file.fileName() + QStringLiteral("/below")));
    }
    QStringList names;
    const QStringList paths = FileUtilities::getFilesOfType(inner, QStringLiteral("edf"));
    for (const QString &path : paths) {
        QVERIFY(QFileInfo(path).isAbsolute());
        names << FileUtilities::filename(path);
    }
    QCOMPARE(names, QStringList({QStringLiteral("a"), QStringLiteral("b")}));
    QCOMPARE(FileUtilities::filename(QStringLiteral("/x/night.1.edf")), QStringLiteral("night.1"));
    QVERIFY(FileUtilities::getFilesOfType(inner + QStringLiteral("/none"), QStringLiteral("edf")).isEmpty());
}

void TestBase::captionWithoutTranslationStandsForItself()
{
    QCOMPARE(LanguageContext::multilingualTranslate(QStringLiteral("Generic"), QStringLiteral("No caption of ours")),
             QSet<QString>{QStringLiteral("No caption of ours")});
}

void TestBase::connectionsEndWithTheirList()
{
    QObject sender;
    int heard = 0;
    const auto rename = [&sender](const char *name) { sender.setObjectName(QLatin1String(name)); };
    {
        ConnectionHelper connections;
        connections << connect(&sender, &QObject::objectNameChanged, [&heard] { ++heard; })
                    << connect(&sender, &QObject::objectNameChanged, [&heard] { heard += 10; });
        rename("a");
        QCOMPARE(heard, 11);
        connections.clear();
        rename("b");
        QCOMPARE(heard, 11);
        connections << connect(&sender, &QObject::objectNameChanged, [&heard] { ++heard; });
    }
    rename("c");
    QCOMPARE(heard, 11);
}

BP_TEST_MAIN(TestBase)
#include "TestBase.moc"
