#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "common/BPCommon.h"
#include "common/HalvinException.h"
#include "common/HandoverQueue.h"
#include "common/MetaTypes.h"

#include <array>
#include <limits>
#include <memory>
#include <thread>

class TestCommon : public QObject
{
    Q_OBJECT

private slots:
    void traceRendersArgumentsFromTheirType();
    void silencedClassWritesNothing();
    void traceFromManyThreadsIsComplete();
    void numbersOutsideTheEnumerationsAreHarmless();
    void colors();
    void vectorsCrossThreads_data();
    void vectorsCrossThreads();
    void exceptionNamesFunctionAndCode();
    void queueKeepsOrderAndLosesNothing();
    void queueKeepsTheOrderOfEveryProducer();
    void queueReleasesWhatItHolds();
};

namespace {

/// The message of the only line that the call writes, without time and source.
template <class Write> QString traced(Write write)
{
    TraceCapture trace;
    write();
    const QStringList lines = trace.lines();
    return lines.size() == 1 ? lines.first().section(QStringLiteral("LogReader: "), 1)
                             : QStringLiteral("%1 lines").arg(lines.size());
}

template <class... Args> QString rendered(const char *format, const Args &...args)
{
    return traced([&] { BPCommon::log(BPCommon::LogReader, format, args...); });
}

} // namespace

void TestCommon::traceRendersArgumentsFromTheirType()
{
    QCOMPARE(rendered("plain"), QStringLiteral("plain"));
    QCOMPARE(rendered("%i %u %d", -1, 7u, true), QStringLiteral("-1 7 1"));
    QCOMPARE(rendered("%lli", std::numeric_limits<qint64>::min()), QStringLiteral("-9223372036854775808"));
    QCOMPARE(rendered("%i", std::numeric_limits<quint64>::max()), QStringLiteral("18446744073709551615"));
    QCOMPARE(rendered("%f, %.2f, %g", 1.5f, 2.0 / 3.0, 0.25), QStringLiteral("1.500000, 0.67, 0.25"));
    QCOMPARE(rendered("%s %s %s", "a", std::string("b"), QStringLiteral("\u00b5V")), QStringLiteral("a b \u00b5V"));
    QCOMPARE(rendered("%s", static_cast<const char *>(nullptr)), QString());
    QCOMPARE(rendered("%i", BPCommon::LogClient), QStringLiteral("13"));

    QCOMPARE(rendered("%d Hz", 250.0), QStringLiteral("250 Hz"));
    QCOMPARE(rendered("%i", 0.5f), QStringLiteral("0.5"));
    QCOMPARE(rendered("%c", QStringLiteral("/data/file.edf")), QStringLiteral("/data/file.edf"));
    QCOMPARE(rendered("%s %f", 5, 6), QStringLiteral("5 6"));
    QCOMPARE(rendered("%i %i", 1), QStringLiteral("1 %i"));
    QCOMPARE(rendered("%i", 1, 2), QStringLiteral("1"));
    QCOMPARE(rendered("%i%% of %s%%", 5, "100%i"), QStringLiteral("5% of 100%i%"));
    QCOMPARE(rendered("50% %", 1), QStringLiteral("50% %"));

    QCOMPARE(rendered("[%4i][%-4i][%3s]", 42, 42, "x"), QStringLiteral("[  42][42  ][  x]"));
    QCOMPARE(rendered("[%03i][%05i][%06.2f]", 7, -42, 1.5), QStringLiteral("[007][-0042][001.50]"));
    QCOMPARE(rendered("%999999999i", 1).size(), 256);
}

void TestCommon::silencedClassWritesNothing()
{
    TraceCapture trace;
    const qint64 before = BPCommon::logCount();
    BPCommon::setLogMode(BPCommon::LogReader, false);
    BPCommon::log(BPCommon::LogReader, "silent %i", 1);
    BPCommon::log(BPCommon::LogMontage, "spoken %i", 2);
    BPCommon::log(QStringLiteral("host"), QStringLiteral("a line as it stands: %i"));
    QCOMPARE(BPCommon::logCount() - before, 2);
    BPCommon::setLogMode(BPCommon::LogReader, true);
    BPCommon::log(BPCommon::LogReader, "back");
    QCOMPARE(trace.lines().size(), 3);
    QVERIFY(trace.lines().at(0).endsWith(QStringLiteral(" LogMontage: spoken 2")));
    QVERIFY(trace.lines().at(1).endsWith(QStringLiteral(" host: a line as it stands: %i")));
    QVERIFY(trace.lines().at(2).endsWith(QStringLiteral(" LogReader: back")));
}

void TestCommon::traceFromManyThreadsIsComplete()
{
    TraceCapture trace;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < 50; ++i) {
                BPCommon::setLogMode(BPCommon::LogClient, i % 2 == 0); // switching another class meanwhile
                BPCommon::log(BPCommon::LogReader, "thread %i line %02i", thread, i);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    BPCommon::setLogMode(BPCommon::LogClient, true);
    QCOMPARE(trace.lines().size(), 200);
    QCOMPARE(trace.count(QStringLiteral("thread 3 line 49")), 1);
}

void TestCommon::numbersOutsideTheEnumerationsAreHarmless()
{
    for (const int number : {-1, 15, 1000000}) {
        const auto event = static_cast<BPCommon::LogEvent>(number);
        BPCommon::setLogMode(event, false);
        QCOMPARE(BPCommon::logEventName(event), QString());
        QCOMPARE(BPCommon::channelTypeText(static_cast<BPCommon::ChannelType>(number)), QString());
    }
    for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
        QVERIFY(BPCommon::isLogged(static_cast<BPCommon::LogEvent>(event)));
        QVERIFY(!BPCommon::logEventName(static_cast<BPCommon::LogEvent>(event)).isEmpty());
    }
    QCOMPARE(BPCommon::channelTypeText(BPCommon::Resp), QStringLiteral("Resp"));
}

void TestCommon::colors()
{
    const QStringList expected{QStringLiteral("#CCC"), QStringLiteral("#C30"), QStringLiteral("#3C0"),
                               QStringLiteral("#03C"), QStringLiteral("#CC0"), QStringLiteral("#F0F"),
                               QStringLiteral("#0CF"), QStringLiteral("#F80"), QStringLiteral("#F68")};
    QStringList colors;
    for (int state = 0; state < expected.size(); ++state) {
        colors << BPCommon::psychoStateColor(state);
    }
    QCOMPARE(colors, expected);
    QCOMPARE(BPCommon::psychoStateColor(-1) + BPCommon::psychoStateColor(9), QString());
}

void TestCommon::vectorsCrossThreads_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("floats") << QByteArray("vector<float>");
    QTest::newRow("impedances") << QByteArray("vector<unsigned int>");
    QTest::newRow("impedances, as normalised") << QByteArray("vector<uint>");
}

void TestCommon::vectorsCrossThreads()
{
    QFETCH(QByteArray, name);
    bp::registerMetaTypes();
    const int type = QMetaType::type(name.constData());
    QVERIFY(type != QMetaType::UnknownType);
    QCOMPARE(type,
             name.contains("float") ? qMetaTypeId<std::vector<float>>() : qMetaTypeId<std::vector<unsigned int>>());
}

void TestCommon::exceptionNamesFunctionAndCode()
{
    try {
        throw HalvinException("DimReduction::ProcessFLD", 2000);
    } catch (const std::exception &error) {
        QCOMPARE(QString::fromLatin1(error.what()), QStringLiteral("DimReduction::ProcessFLD code: 2000"));
    }
}

void TestCommon::queueKeepsOrderAndLosesNothing()
{
    bp::HandoverQueue<std::unique_ptr<int>> queue;
    QVERIFY(queue.isEmpty());
    QVERIFY(queue.takeAll().empty());
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 4; ++i) {
            queue.push(std::make_unique<int>(i));
        }
        QVERIFY(!queue.isEmpty());
        const auto values = queue.takeAll();
        QCOMPARE(values.size(), std::size_t{4});
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(*values[static_cast<std::size_t>(i)], i);
        }
        QVERIFY(queue.isEmpty());
    }
}

void TestCommon::queueKeepsTheOrderOfEveryProducer()
{
    struct Item
    {
        int producer;
        int number;
    };
    constexpr int kProducers = 4;
    constexpr int kItems = 20000;
    bp::HandoverQueue<Item> queue;
    std::atomic<int> finished{0};
    std::vector<std::thread> threads;
    for (int producer = 0; producer < kProducers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int i = 0; i < kItems; ++i) {
                queue.push({producer, i});
            }
            ++finished;
        });
    }
    std::array<int, kProducers> next{};
    int misplaced = 0;
    const auto take = [&] {
        for (const Item &item : queue.takeAll()) {
            misplaced += item.number != next[static_cast<std::size_t>(item.producer)]++;
        }
    };
    while (finished < kProducers) {
        take();
    }
    take();
    for (std::thread &thread : threads) {
        thread.join();
    }
    QCOMPARE(misplaced, 0);
    for (const int count : next) {
        QCOMPARE(count, kItems);
    }
}

void TestCommon::queueReleasesWhatItHolds()
{
    const auto value = std::make_shared<int>(1);
    {
        bp::HandoverQueue<std::shared_ptr<int>> queue;
        queue.push(value);
        queue.push(value);
        QCOMPARE(value.use_count(), 3L);
    }
    QCOMPARE(value.use_count(), 1L);
}

BP_TEST_MAIN(TestCommon)
#include "TestCommon.moc"
