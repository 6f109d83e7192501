#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "algorithms/AlgorithmManager.h"
#include "algorithms/AsymmetryCoeff.h"
#include "algorithms/MathAlgorithm.h"
#include "algorithms/ParamFactory.h"
#include "devices/AmplifierChannel.h"
#include "devices/AmplifierInfo.h"
#include "montage/Montage.h"

#include <limits>

namespace {

using Values = QVector<float>;

UnitParams withValues(const char *type, const QMap<QString, QString> &values)
{
    UnitParams params = ParamFactory::makeCustomProperty(QLatin1String(type));
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        params.setParamValue(value.key(), value.value());
    }
    return params;
}

UnitParams formula(const char *text, const char *depend = "alpha;beta")
{
    return withValues(
        "Math", {{QStringLiteral("formula"), QLatin1String(text)}, {QStringLiteral("depend"), QLatin1String(depend)}});
}

UnitParams rhythm(const char *descriptor)
{
    UnitParams params;
    params.setParamDescriptor(QLatin1String(descriptor));
    return params;
}

/// Keeps what an algorithm publishes.
struct Published
{
    explicit Published(CustomAlgorithm &algorithm)
    {
        QObject::connect(
            &algorithm, &CustomAlgorithm::getData,
            [this](const QString &type, const UnitParams &, unsigned int count, const vector<float> &data) {
                QVERIFY(type.isEmpty());
                channels = count;
                values = Values(data.begin(), data.end());
                ++times;
            });
    }

    unsigned int channels = 99;
    Values values; ///< of the last time
    int times = 0;
};

} // namespace

class TestFormulas : public QObject
{
    Q_OBJECT

private slots:
    void containerKnowsThem();

    void bandIsShiftedByABin_data();
    void bandIsShiftedByABin();
    void asymmetryOfTwoChannels_data();
    void asymmetryOfTwoChannels();
    void asymmetryWithoutChannelsIsTracedOnce();

    void formulaCombinesRhythms_data();
    void formulaCombinesRhythms();
    void formulaWaitsForItsRhythms();
    void averageIsOfWholeNumbers();
    void valuesCarrySixDigits();
    void badFormulaIsTraced_data();
    void badFormulaIsTraced();
    void failureIsTracedWhenItBegins();
    void anotherFormulaStartsAnew();
};

void TestFormulas::containerKnowsThem()
{
    AlgorithmManager manager;
    std::vector<UnitParams> sets;
    for (const char *type : {"AsymmetryCoeff", "ElectroCardiogram", "Math"}) {
        sets.push_back(ParamFactory::makeCustomProperty(QLatin1String(type)));
    }
    manager.setAlgorithmParams(nullptr, sets);
    for (const UnitParams &set : sets) {
        const CustomAlgorithm *algorithm = manager.findAlgorithm(set.getName(), QString());
        QVERIFY(algorithm != nullptr);
        QCOMPARE(QString::fromLatin1(algorithm->metaObject()->className()).left(4), set.getName().left(4));
    }
}

void TestFormulas::bandIsShiftedByABin_data()
{
    QTest::addColumn<float>("minimum");
    QTest::addColumn<float>("maximum");
    QTest::addColumn<int>("lower");
    QTest::addColumn<int>("upper");
    // Bins at 0, 4, … 32 Hz.
    QTest::newRow("limits on bins") << 8.0f << 16.0f << 3 << 5;
    QTest::newRow("limits between bins") << 9.0f << 15.0f << 4 << 5;
    QTest::newRow("never empty inside") << 8.0f << 8.0f << 3 << 4;
    QTest::newRow("maximum below minimum") << 16.0f << 4.0f << 5 << 6;
    QTest::newRow("from 0 to beyond the end") << 0.0f << 100.0f << 1 << 9;
    QTest::newRow("from the last but one") << 28.0f << 32.0f << 8 << 9;
    QTest::newRow("nothing behind the last") << 32.0f << 100.0f << 9 << 9;
    QTest::newRow("beyond the end") << 33.0f << 100.0f << 9 << 9;
}

void TestFormulas::bandIsShiftedByABin()
{
    QFETCH(float, minimum);
    QFETCH(float, maximum);
    const AsymmetryCoeff::Band band =
        AsymmetryCoeff::findBand({0.0f, 4.0f, 8.0f, 12.0f, 16.0f, 20.0f, 24.0f, 28.0f, 32.0f}, minimum, maximum);
    QTEST(static_cast<int>(band.lower), "lower");
    QTEST(static_cast<int>(band.upper), "upper");
}

void TestFormulas::asymmetryOfTwoChannels_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::addColumn<QString>("maximum");
    QTest::addColumn<Values>("expected");
    // 8 Hz and up: bins 3 and 4 (12 and 16 Hz) to 16 Hz, all from bin 3 to 100 Hz.
    const QString a = QStringLiteral("C3");
    const QString b = QStringLiteral("C4");
    QTest::newRow("10 against 40") << a << b << QStringLiteral("16") << Values{75.0f};
    QTest::newRow("order doesn't matter") << b << a << QStringLiteral("16") << Values{75.0f};
    QTest::newRow("10 against 80") << a << b << QStringLiteral("100") << Values{87.5f};
    QTest::newRow("no signal in one") << a << QStringLiteral("Cz") << QStringLiteral("16") << Values{100.0f};
    QTest::newRow("no signal in both") << QStringLiteral("Cz") << QStringLiteral("Cz") << QStringLiteral("16")
                                       << Values{0.0f};
    QTest::newRow("first name that is there")
        << QStringLiteral("X;C3;Cz") << b << QStringLiteral("100") << Values{87.5f};
}

void TestFormulas::asymmetryOfTwoChannels()
{
    QFETCH(QString, first);
    QFETCH(QString, second);
    QFETCH(QString, maximum);
    const AmplifierInfo info(QStringLiteral("Test"), QString(), QString(), 3, {64.0f});
    const auto montage = QSharedPointer<Montage>::create();
    montage->resize(3);
    (*montage)[0]->setChannelName(QStringLiteral("C3"));
    (*montage)[1]->setChannelName(QStringLiteral("Cz"));
    (*montage)[2]->setChannelName(QStringLiteral("C4"));
    AsymmetryCoeff algorithm(withValues("AsymmetryCoeff",
                                        {{QStringLiteral("channel1"), first},
                                         {QStringLiteral("channel2"), second},
                                         {QStringLiteral("max_freq"), maximum}}),
                             montage, info);
    const Published published(algorithm);
    // 9 bins per channel and the value behind the rows.
    const std::vector<float> spectrum{99.0f, 99.0f, 99.0f, 4.0f,  6.0f,  0.0f, 0.0f, 0.0f, 0.0f, //
                                      99.0f, 99.0f, 99.0f, 0.0f,  0.0f,  0.0f, 0.0f, 0.0f, 0.0f, //
                                      99.0f, 99.0f, 99.0f, 15.0f, 25.0f, 0.0f, 0.0f, 0.0f, 40.0f, 0.0f};
    algorithm.appendData(3, spectrum, false);
    algorithm.takeData(QStringLiteral("raw"), UnitParams(), 3, spectrum);
    QCOMPARE(published.times, 0);
    algorithm.takeData(QString(), UnitParams(), 3, spectrum);
    QTEST(published.values, "expected");
    QCOMPARE(published.channels, 1u);

    algorithm.takeData(QString(), UnitParams(), 0, spectrum);
    algorithm.takeData(QString(), UnitParams(), 3, {});
    algorithm.takeData(QString(), UnitParams(), 3, std::vector<float>(28, std::numeric_limits<float>::quiet_NaN()));
    QCOMPARE(published.times, 1);
}

void TestFormulas::asymmetryWithoutChannelsIsTracedOnce()
{
    const AmplifierInfo info(QStringLiteral("Test"), QString(), QString(), 3, {64.0f});
    AsymmetryCoeff algorithm(UnitParams(), nullptr, info);
    QCOMPARE(algorithm.getAlgorithmDepend(), QStringLiteral("SpectrumOnline"));
    const Published published(algorithm);
    const TraceCapture trace;
    algorithm.takeData(QString(), UnitParams(), 2, std::vector<float>(18));
    algorithm.takeData(QString(), UnitParams(), 2, std::vector<float>(18));
    QCOMPARE(trace.count(QStringLiteral("AsymmetryCoeff::appendData")), 1);
    QCOMPARE(published.times, 0);
}

void TestFormulas::formulaCombinesRhythms_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Values>("expected"); // alpha 0.4, beta 0.8: value, maximum, average
    QTest::newRow("mean") << QStringLiteral("(alpha+beta)/2") << Values{60.0f, 60.0f, 60.0f};
    QTest::newRow("ratio above 1") << QStringLiteral("beta/alpha") << Values{100.0f, 100.0f, 100.0f};
    QTest::newRow("below 0") << QStringLiteral("alpha-beta") << Values{0.0f, 0.0f, 0.0f};
    QTest::newRow("one of the two") << QStringLiteral("alpha") << Values{40.0f, 40.0f, 40.0f};
}

void TestFormulas::formulaCombinesRhythms()
{
    QFETCH(QString, text);
    const AmplifierInfo info;
    MathAlgorithm algorithm(formula(qPrintable(text)), nullptr, info);
    QCOMPARE(algorithm.getAlgorithmDepend(), QStringLiteral("alpha;beta"));
    const Published published(algorithm);
    algorithm.takeData(QString(), rhythm("alpha"), 1, {40.0f, 1.0f, 2.0f});
    algorithm.takeData(QString(), rhythm("beta"), 1, {80.0f, 1.0f, 2.0f});
    algorithm.takeData(QString(), rhythm("gamma"), 1, {100.0f});
    algorithm.takeData(QString(), rhythm("alpha"), 1, {});
    QCOMPARE(published.times, 0);
    algorithm.appendData(10, {1.0f}, false);
    QTEST(published.values, "expected");
    QCOMPARE(published.channels, 0u);
}

void TestFormulas::formulaWaitsForItsRhythms()
{
    const AmplifierInfo info;
    MathAlgorithm algorithm(formula("alpha*beta"), nullptr, info);
    const Published published(algorithm);
    algorithm.appendData(10, {1.0f}, false);
    algorithm.takeData(QString(), rhythm("alpha"), 1, {50.0f});
    algorithm.appendData(10, {1.0f}, false);
    QCOMPARE(published.times, 0);
    algorithm.takeData(QString(), rhythm("beta"), 1, {50.0f});
    algorithm.appendData(10, {1.0f}, false);
    algorithm.appendData(10, {1.0f}, false);
    QCOMPARE(published.times, 2);
    QCOMPARE(published.values.first(), 25.0f);
}

void TestFormulas::averageIsOfWholeNumbers()
{
    const AmplifierInfo info;
    MathAlgorithm algorithm(formula("alpha", "alpha;"), nullptr, info);
    const Published published(algorithm);
    const auto publish = [&](float value) {
        algorithm.takeData(QString(), rhythm("alpha"), 1, {value});
        algorithm.appendData(10, {1.0f}, false);
    };
    publish(33.75f); // S = 33
    publish(33.75f); // S = (int) 66.75
    QCOMPARE(published.values, Values({33.75f, 33.75f, 33.0f}));
    publish(0.5f); // (int) 66.5
    publish(0.0f); // counts as well
    QCOMPARE(published.values, Values({0.0f, 33.75f, 66.0f / 4.0f}));
    algorithm.resetAlgorithm();
    publish(20.0f);
    QCOMPARE(published.values, Values({20.0f, 20.0f, 20.0f}));
}

void TestFormulas::valuesCarrySixDigits()
{
    const AmplifierInfo info;
    MathAlgorithm algorithm(formula("alpha*1000000-333333"), nullptr, info);
    const Published published(algorithm);
    algorithm.takeData(QString(), rhythm("alpha"), 1, {100.0f / 3.0f});
    algorithm.appendData(10, {1.0f}, false);
    QCOMPARE(published.times, 1);
    QVERIFY(published.values.first() < 0.001f); // 33.3 with all digits
}

void TestFormulas::badFormulaIsTraced_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("depend");
    QTest::addColumn<QString>("line");
    QTest::newRow("syntax") << QStringLiteral("alpha+*2") << QStringLiteral("alpha;beta")
                            << QStringLiteral("\"alpha+*2\" is not understood: ");
    QTest::newRow("empty") << QString() << QStringLiteral("alpha;beta") << QStringLiteral("is not understood: ");
    QTest::newRow("unknown variables") << QStringLiteral("alpha+gamma+mu") << QStringLiteral("alpha;beta")
                                       << QStringLiteral("uses gamma;mu, ");
    QTest::newRow("no list") << QStringLiteral("alpha") << QStringLiteral("alpha") << QStringLiteral("\"alpha;\"");
}

void TestFormulas::badFormulaIsTraced()
{
    QFETCH(QString, text);
    QFETCH(QString, depend);
    QFETCH(QString, line);
    const AmplifierInfo info;
    const TraceCapture trace;
    MathAlgorithm algorithm(formula(qPrintable(text), qPrintable(depend)), nullptr, info);
    const Published published(algorithm);
    algorithm.takeData(QString(), rhythm("gamma"), 1, {50.0f});
    algorithm.takeData(QString(), rhythm("beta"), 1, {50.0f});
    algorithm.appendData(10, {1.0f}, false);
    QCOMPARE(published.times, 0);
    QCOMPARE(trace.count(QStringLiteral("MathAlgorithm::")), 1);
    QCOMPARE(trace.count(line), 1);
}

void TestFormulas::failureIsTracedWhenItBegins()
{
    const AmplifierInfo info;
    MathAlgorithm algorithm(formula("0.1/alpha"), nullptr, info);
    const Published published(algorithm);
    const TraceCapture trace;
    for (const float alpha : {0.0f, 0.0f, 50.0f, 50.0f, 0.0f, std::numeric_limits<float>::quiet_NaN()}) {
        algorithm.takeData(QString(), rhythm("alpha"), 1, {alpha});
        algorithm.appendData(10, {1.0f}, false);
    }
    QCOMPARE(published.times, 2);
    QCOMPARE(published.values.first(), 20.0f);
    QCOMPARE(trace.count(QStringLiteral("MathAlgorithm::calculate")), 2);
}

void TestFormulas::anotherFormulaStartsAnew()
{
    const AmplifierInfo info;
    MathAlgorithm algorithm(formula("alpha"), nullptr, info);
    const Published published(algorithm);
    algorithm.takeData(QString(), rhythm("alpha"), 1, {80.0f});
    algorithm.appendData(10, {1.0f}, false);
    algorithm.setParam(formula("alpha/2"));
    algorithm.appendData(10, {1.0f}, false);
    QCOMPARE(published.times, 1);
    algorithm.takeData(QString(), rhythm("alpha"), 1, {80.0f});
    algorithm.appendData(10, {1.0f}, false);
    QCOMPARE(published.values, Values({40.0f, 40.0f, 40.0f}));
}

BP_TEST_MAIN(TestFormulas)
#include "TestFormulas.moc"
