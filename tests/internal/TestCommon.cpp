#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "common/BPCommon.h"
#include "common/HalvinException.h"
#include "common/MetaTypes.h"
#include "common/SaveFile.h"
#include "common/detail/HandoverQueue.h"

#include <QTemporaryDir>

#include <array>
#include <atomic>
#include <cstdio>
#include <limits>
#include <memory>
#include <thread>
#include <utility>

#ifdef Q_OS_UNIX
#include <sys/resource.h>

#include <csignal>
#endif

class TestCommon : public QObject
{
    Q_OBJECT

private slots:
    void traceRendersArgumentsFromTheirType();
    void traceIsThatOfPrintf();
    void traceIsCompleteAndCanBeSilenced();
    void numbersOutsideTheEnumerationsAreHarmless();
    void vectorsCrossThreads();
    void queueKeepsTheOrderOfEveryProducer();
    void savingWithoutRoomKeepsTheFile_data();
    void savingWithoutRoomKeepsTheFile();
};

namespace {

QString operator""_s(const char *text, std::size_t size)
{
    return QString::fromUtf8(text, int(size));
}

/// The message of the only line that is written, without time and source.
template <class... Args> QString rendered(const char *format, const Args &...args)
{
    TraceCapture trace;
    BPCommon::log(BPCommon::LogReader, format, args...);
    const QStringList lines = trace.lines();
    return lines.size() == 1 ? lines.first().section("LogReader: "_s, 1) : "%1 lines"_s.arg(lines.size());
}

} // namespace

void TestCommon::traceRendersArgumentsFromTheirType()
{
    QCOMPARE(rendered("%i %u %d", -1, 7u, true), "-1 7 1"_s);
    QCOMPARE(rendered("%lli", std::numeric_limits<qint64>::min()), "-9223372036854775808"_s);
    QCOMPARE(rendered("%i", std::numeric_limits<quint64>::max()), "18446744073709551615"_s);
    QCOMPARE(rendered("%f, %.2f, %g", 1.5f, 2.0 / 3.0, 0.25), "1.500000, 0.67, 0.25"_s);
    QCOMPARE(rendered("%s %s %s", "a", std::string("b"), "µV"_s), "a b µV"_s);
    QCOMPARE(rendered("%s", static_cast<const char *>(nullptr)), QString());
    QCOMPARE(rendered("%d Hz, %i, %s", 250.0, 0.5f, 5), "250 Hz, 0.5, 5"_s);
    QCOMPARE(rendered("%c %i", "/data/file.edf"_s, BPCommon::LogClient), "/data/file.edf 13"_s);
    QCOMPARE(rendered("%i %i", 1), "1 %i"_s);
    QCOMPARE(rendered("%i", 1, 2), "1"_s);
    QCOMPARE(rendered("%i%% of %s%%, 50% %", 5, "100%i"), "5% of 100%i%, 50% %"_s);
    QCOMPARE(rendered("[%4i][%-4i][%05i][%06.2f]", 42, 42, -42, 1.5), "[  42][42  ][-0042][001.50]"_s);
    QCOMPARE(rendered("%999999999i", 1).size(), 256);
    QCOMPARE(rendered("%*i|%-*s|%.*f", 4, 7, 3, "a", 1, 2.26), "   7|a  |2.3"_s);
    QCOMPARE(rendered("%*i", "wide"), "%*i"_s); // nothing is left for the conversion
}

/// Where conversion and argument fit, as the C library has it (in its "C" locale, in which tests run).
void TestCommon::traceIsThatOfPrintf()
{
    const auto fits = [](const char *format, auto value) {
        char expected[400];
        std::snprintf(expected, sizeof expected, format, value);
        const QString line = rendered(format, value);
        QCOMPARE(QLatin1String(format) + line, QLatin1String(format) + QLatin1String(expected));
    };
    for (const std::string flags : {"", "-", "0", "+", " ", "#", "+0", "#0", "-+", "# "}) {
        for (const std::string size : {"", "12", ".0", ".", ".3", "9.4"}) {
            const auto made = [&](const char *conversion) { return "[%" + flags + size + conversion + "]"; };
            for (const double value : {0.0, -1.5, 123456.789, 1e-7, -2.5e20}) {
                for (const char *letter : {"f", "e", "E", "g", "G"}) {
                    fits(made(letter).c_str(), value);
                }
            }
            for (const int value : {0, 42, -7, std::numeric_limits<int>::min()}) {
                fits(made("d").c_str(), value);
                fits(made("hhi").c_str(), value);
            }
            if (flags.find_first_of("+ ") == std::string::npos) {
                for (const unsigned value : {0u, 255u, 4294967295u}) {
                    for (const char *letter : {"x", "X", "o", "hx", "u"}) {
                        fits(made(letter).c_str(), value);
                    }
                }
                fits(made("llx").c_str(), 0x123456789ABCull);
                fits(made("s").c_str(), "some text");
            }
        }
    }
    QCOMPARE(rendered("%x %c %-3c|", -1, 'A', 66), "ffffffff A B  |"_s);
    QVERIFY(rendered("%p", static_cast<void *>(this)).startsWith("0x"_s));
}

void TestCommon::traceIsCompleteAndCanBeSilenced()
{
    TraceCapture trace;
    const qint64 before = BPCommon::logCount();
    BPCommon::setLogMode(BPCommon::LogReader, false);
    BPCommon::log(BPCommon::LogReader, "silent %i", 1);
    BPCommon::log(BPCommon::LogMontage, "spoken %i", 2);
    BPCommon::log("host"_s, "a line as it stands: %i"_s);
    BPCommon::setLogMode(BPCommon::LogReader, true);
    QCOMPARE(BPCommon::logCount() - before, 2);
    QVERIFY(trace.lines().value(0).endsWith(" LogMontage: spoken 2"_s));
    QVERIFY(trace.lines().value(1).endsWith(" host: a line as it stands: %i"_s));
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < 50; ++i) {
                BPCommon::setLogMode(BPCommon::LogClient, i % 2 != 0); // switching another class meanwhile
                BPCommon::log(BPCommon::LogReader, "thread %i line %02i", thread, i);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    QCOMPARE(trace.lines().size(), 202);
    QCOMPARE(trace.count("thread 3 line 49"_s), 1);
}

void TestCommon::numbersOutsideTheEnumerationsAreHarmless()
{
    for (const int number : {-1, 15, 1000000}) {
        const auto event = static_cast<BPCommon::LogEvent>(number);
        BPCommon::setLogMode(event, false);
        QCOMPARE(BPCommon::logEventName(event), QString());
        QCOMPARE(BPCommon::channelTypeText(static_cast<BPCommon::ChannelType>(number)), QString());
        QCOMPARE(BPCommon::psychoStateColor(number), QString());
    }
    for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
        QVERIFY(BPCommon::isLogged(static_cast<BPCommon::LogEvent>(event)));
    }
    QCOMPARE(BPCommon::psychoStateColor(0) + BPCommon::psychoStateColor(8), "#CCC#F68"_s);
    QCOMPARE(HalvinException("Reducer::run", 2000).what(), "Reducer::run code: 2000");
}

void TestCommon::vectorsCrossThreads()
{
    bp::registerMetaTypes();
    QCOMPARE(QMetaType::type("vector<float>"), qMetaTypeId<std::vector<float>>());
    for (const char *name : {"vector<unsigned int>", "vector<uint>"}) {
        QCOMPARE(QMetaType::type(name), qMetaTypeId<std::vector<unsigned int>>());
    }
}

void TestCommon::queueKeepsTheOrderOfEveryProducer()
{
    using Item = std::pair<std::size_t, int>; // producer and number
    constexpr std::size_t kProducers = 4;
    constexpr int kItems = 20000;
    bp::HandoverQueue<std::unique_ptr<Item>> queue;
    std::atomic<std::size_t> finished{0};
    std::vector<std::thread> threads;
    for (std::size_t producer = 0; producer < kProducers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int i = 0; i < kItems; ++i) {
                queue.push(std::make_unique<Item>(producer, i));
            }
            ++finished;
        });
    }
    std::array<int, kProducers> next{};
    int misplaced = 0;
    const auto take = [&] {
        for (const auto &item : queue.takeAll()) {
            misplaced += item->second != next[item->first]++;
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
    QVERIFY(queue.isEmpty() && queue.takeAll().empty());
    queue.push(std::make_unique<Item>(0, 0)); // a leak unless the queue releases what it holds
    QVERIFY(!queue.isEmpty());
    QVERIFY(next == (std::array<int, kProducers>{kItems, kItems, kItems, kItems}));
}

void TestCommon::savingWithoutRoomKeepsTheFile_data()
{
    QTest::addColumn<int>("bytes");
    QTest::newRow("less than a buffer") << 8000;
    QTest::newRow("more than a buffer") << 40000;
}

void TestCommon::savingWithoutRoomKeepsTheFile()
{
#ifdef Q_OS_UNIX
    QFETCH(int, bytes);
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("model.json"));
    QCOMPARE(bp::saveFile(path, "kept"), QString());
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit narrow{1000, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &narrow);
    const QString fault = bp::saveFile(path, QByteArray(bytes, 'x'));
    setrlimit(RLIMIT_FSIZE, &limit);
    QVERIFY(!fault.isEmpty() && fault != QLatin1String("Unknown error"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("kept"));
#else
    QSKIP("The size of files cannot be limited here");
#endif
}

BP_TEST_MAIN(TestCommon)
#include "TestCommon.moc"
