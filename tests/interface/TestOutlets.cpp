#include "devices/AmplifierChannel.h"
#include "montage/Montage.h"
#include "pipeline/DataCompound.h"
#include "server/LSLDataServer.h"
#include "server/LSLSyncSream.h"
#include "server/TcpTextSocket.h"
#include "support/FakeAmplifier.h"
#include "support/LslInlet.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>

namespace {

constexpr int kTimeoutMs = 20000;
constexpr int kRetryMs = 5;
constexpr int kChannels = 8;
constexpr float kRate = 250.0f;
const QString kRefusal = QStringLiteral("Provided element count does not match the stream's channel count.");

/// Other test programs may run on this machine at the same time.
QString uniqueName(const QString &text)
{
    static int number = 0;
    return QStringLiteral("%1 %2.%3").arg(text).arg(QCoreApplication::applicationPid()).arg(++number);
}

QStringList numberedNames(int count)
{
    QStringList names;
    for (int i = 0; i < count; ++i) {
        names << QStringLiteral("C%1").arg(i);
    }
    return names;
}

QSharedPointer<Montage> montageOf(const QStringList &names)
{
    auto montage = QSharedPointer<Montage>::create();
    for (const QString &name : names) {
        auto *channel = new AmplifierChannel;
        channel->setChannelName(name);
        montage->push_back(channel);
    }
    montage->setCurrentSampleFreq(kRate);
    return montage;
}

const AmplifierInfo kDevice(QStringLiteral("Amp"), {}, QStringLiteral("SN7"), kChannels, {kRate});

LSLDataServer dataServer(const QString &name, bool deviceTime = false)
{
    return LSLDataServer(kDevice, montageOf(numberedNames(kChannels)), name, deviceTime);
}

/// Sample k of channel c is 1000·c + k; warm-up samples are negative throughout.
std::vector<float> planarBlock(int first, int samples)
{
    std::vector<float> block;
    for (int c = 0; c < kChannels; ++c) {
        for (int k = 0; k < samples; ++k) {
            block.push_back(static_cast<float>(1000 * c + first + k));
        }
    }
    return block;
}

void warmUp(LSLDataServer &server)
{
    server.appendNewData(1, std::vector<float>(kChannels, -1.0f).data());
}

/// First channel of what arrives, without the warm-up.
QVector<float> firstChannel(LslInlet &inlet, int count)
{
    QVector<float> values;
    for (const LslInlet::Sample &sample : inlet.pull(count)) {
        values << sample.values[0];
    }
    return values;
}

} // namespace

/// A device whose last channel counts its samples and the one before carries triggers.
class SynchroDevice : public FakeAmplifier
{
public:
    static constexpr double kStart = 5000.0;
    static constexpr double kPeriod = 0.004;

    using FakeAmplifier::FakeAmplifier;
    bool isSynchro() override { return true; }
    bool isSynchroTrig(float value) override { return value == 7.0f; }
    QStringList synchroChannels() override { return {QStringLiteral("TRIG")}; }
    double getTimeStamp(unsigned int sample) override { return kStart + sample * kPeriod; }
};

class TestOutlets : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void describesTheStream();
    void deliversEverySampleOnce_data();
    void deliversEverySampleOnce();
    void stampsSamples_data();
    void stampsSamples();
    void refusesWrongCounts_data();
    void refusesWrongCounts();
    void refusalInASignalIsTraced();
    void copiesShareTheOutlet();
    void newChannelListIsANewStream();
    void unusableStreamIsTracedOnce_data();
    void unusableStreamIsTracedOnce();
    void streamWithoutNameGetsOne();
    void controlCharactersBecomeBlanks();
    void consumerThatReadsLateMissesNothing();
    void consumersComeAndGo();
    void consumerRecoversAfterARestart();
    void readerStreamsWithTheDevicesTime();
    void textLines_data();
    void textLines();
    void textFlagsSwitchTheSockets();
    void textSocketReconnects();
    void serverThatNeverReadsLosesValues();
};

void TestOutlets::initTestCase()
{
    QVERIFY(LslInlet::restrictToThisMachine(QFINDTESTDATA("../support/lsl_api.cfg")));
}

void TestOutlets::describesTheStream()
{
    const QStringList names{QStringLiteral("Fp1"), QStringLiteral("<A>&\"B'"), QStringLiteral("µ ж"), QString()};
    const QString dataName = uniqueName(QStringLiteral("data"));
    const QString syncName = uniqueName(QStringLiteral("sync & \"more\""));
    const LSLDataServer server(kDevice, montageOf(names), dataName, false);
    const LSLSyncSream sync(syncName, names, kRate, kDevice);
    for (const QString &name : {dataName, syncName}) {
        LslInlet inlet(name);
        QVERIFY(inlet.isFound());
        const LslInlet::Description description = inlet.describe();
        QCOMPARE(description.name, name);
        QCOMPARE(description.type, QStringLiteral("EEG"));
        QCOMPARE(description.sourceId, QStringLiteral("Amp/SN7/") + name);
        QCOMPARE(description.rate, 250.0);
        QVERIFY(description.isFloat32);
        QCOMPARE(description.channelCount, 4);
        QCOMPARE(description.manufacturer, QStringLiteral("BioSemi"));
        QCOMPARE(description.labels, names);
        QCOMPARE(description.units,
                 QStringList(names).replaceInStrings(QRegularExpression(QStringLiteral("^.*$")),
                                                     QStringLiteral("microvolts")));
        QCOMPARE(
            description.types,
            QStringList({QStringLiteral("eeg"), QStringLiteral("eeg"), QStringLiteral("eeg"), QStringLiteral("eeg")}));
    }
}

using Push = std::function<void(LSLDataServer &, LSLSyncSream &, std::vector<float> &block, int samples)>;
Q_DECLARE_METATYPE(Push)

void TestOutlets::deliversEverySampleOnce_data()
{
    QTest::addColumn<bool>("throughSync");
    QTest::addColumn<Push>("push");
    QTest::newRow("sample by sample") << false << Push([](auto &server, auto &, auto &block, int samples) {
        for (int k = 0; k < samples; ++k) {
            server.push_sample(static_cast<unsigned>(samples), static_cast<unsigned>(k), block.data(), 0.0);
        }
    });
    QTest::newRow("block") << false << Push([](auto &server, auto &, auto &block, int samples) {
        server.appendNewData(samples, block.data());
    });
    QTest::newRow("stamped block") << false << Push([](auto &server, auto &, auto &block, int samples) {
        server.appendNewData(samples, block.data(), 5.0);
    });
    QTest::newRow("stream's block") << true << Push([](auto &, auto &sync, auto &block, int samples) {
        sync.appendData(samples, block.data(), 0.0);
    });
    QTest::newRow("stream's slot") << true << Push([](auto &, auto &sync, auto &block, int samples) {
        QMetaObject::invokeMethod(&sync, "slotAppendData", Q_ARG(vector<float>, block), Q_ARG(int, samples));
    });
}

void TestOutlets::deliversEverySampleOnce()
{
    QFETCH(bool, throughSync);
    QFETCH(Push, push);
    const QString dataName = uniqueName(QStringLiteral("data"));
    const QString syncName = uniqueName(QStringLiteral("sync"));
    LSLDataServer server = dataServer(dataName);
    LSLSyncSream sync(syncName, numberedNames(kChannels), kRate, kDevice);
    LslInlet inlet(throughSync ? syncName : dataName);
    std::vector<float> nothing(kChannels, -1.0f);
    QVERIFY(inlet.open([&] { push(server, sync, nothing, 1); }));

    int total = 0;
    for (const int samples : {25, 1, 0, 7, 100}) {
        std::vector<float> block = planarBlock(total, samples);
        push(server, sync, block, samples);
        total += samples;
    }
    const std::vector<LslInlet::Sample> received = inlet.pull(total);
    QCOMPARE(static_cast<int>(received.size()), total);
    for (int k = 0; k < total; ++k) {
        const std::vector<float> expected = planarBlock(k, 1);
        QCOMPARE(received[static_cast<std::size_t>(k)].values, expected);
    }
    QVERIFY(inlet.isEmpty());
}

void TestOutlets::stampsSamples_data()
{
    const double none = std::numeric_limits<double>::quiet_NaN();
    QTest::addColumn<bool>("deviceTime");
    QTest::addColumn<QVector<double>>("given");
    QTest::addColumn<QVector<double>>("expected"); // NaN: the current time
    QTest::newRow("given ones travel") << false << QVector<double>{7.0, 3.5, -4.0} << QVector<double>{7.0, 3.5, -4.0};
    QTest::newRow("0 and none are now") << false << QVector<double>{0.0, none, 9.0} << QVector<double>{none, none, 9.0};
    QTest::newRow("device's own zero") << true << QVector<double>{0.0, 0.25} << QVector<double>{0.0, 0.25};
    QTest::newRow("device's gap is one period each")
        << true << QVector<double>{100.0, none, none, 200.0} << QVector<double>{100.0, 100.004, 100.008, 200.0};
}

void TestOutlets::stampsSamples()
{
    QFETCH(bool, deviceTime);
    QFETCH(QVector<double>, given);
    QFETCH(QVector<double>, expected);
    const QString name = uniqueName(QStringLiteral("stamped"));
    LSLDataServer server = dataServer(name, deviceTime);
    LslInlet inlet(name);
    QVERIFY(inlet.open([&] { warmUp(server); }));

    const std::vector<float> sample = planarBlock(0, 1);
    const double before = LslInlet::now();
    for (const double stamp : qAsConst(given)) {
        server.push_sample(1, 0, sample.data(), stamp);
    }
    const double after = LslInlet::now();
    const std::vector<LslInlet::Sample> received = inlet.pull(given.size());
    QCOMPARE(static_cast<int>(received.size()), given.size());
    for (int k = 0; k < expected.size(); ++k) {
        const double stamp = received[static_cast<std::size_t>(k)].stamp;
        if (std::isnan(expected[k])) {
            QVERIFY2(stamp >= before && stamp <= after, qPrintable(QString::number(stamp)));
        } else {
            QVERIFY2(std::abs(stamp - expected[k]) < 1e-9, qPrintable(QString::number(stamp)));
        }
    }
}

void TestOutlets::refusesWrongCounts_data()
{
    QTest::addColumn<int>("values");
    QTest::addColumn<int>("samples");
    QTest::addColumn<bool>("refused");
    QTest::newRow("7 values into 8 channels") << 7 << 1 << true;
    QTest::newRow("9 values into 8 channels") << 9 << 1 << true;
    QTest::newRow("one sample of two") << 8 << 2 << true;
    QTest::newRow("two samples for one") << 16 << 1 << true;
    QTest::newRow("count of floats") << 8 << 8 << true;
    QTest::newRow("nothing") << 0 << 1 << true;
    QTest::newRow("more samples than memory") << 8 << std::numeric_limits<int>::max() << true;
    QTest::newRow("fitting") << 16 << 2 << false;
    QTest::newRow("no samples") << 7 << 0 << false;
    QTest::newRow("negative count") << 8 << -1 << false;
}

void TestOutlets::refusesWrongCounts()
{
    QFETCH(int, values);
    QFETCH(int, samples);
    QFETCH(bool, refused);
    LSLSyncSream sync(uniqueName(QStringLiteral("refusing")), numberedNames(kChannels), kRate);
    QString error;
    try {
        sync.slotAppendData(std::vector<float>(static_cast<std::size_t>(values), 1.0f), samples);
    } catch (const std::runtime_error &refusal) {
        error = QString::fromLatin1(refusal.what());
    }
    QCOMPARE(error, refused ? kRefusal : QString());
}

/// Emits what the slot takes.
class BlockSource : public QObject
{
    Q_OBJECT
signals:
    void newBlock(const vector<float> &data, int samples);
};

void TestOutlets::refusalInASignalIsTraced()
{
    LSLSyncSream sync(uniqueName(QStringLiteral("refusing")), numberedNames(kChannels), kRate);
    BlockSource source;
    QVERIFY(connect(&source, SIGNAL(newBlock(vector<float>, int)), &sync, SLOT(slotAppendData(vector<float>, int)),
                    Qt::QueuedConnection));
    const TraceCapture trace;
    emit source.newBlock(std::vector<float>(7), 1);
    QCoreApplication::processEvents();
    QCOMPARE(trace.count(kRefusal), 1);
}

void TestOutlets::copiesShareTheOutlet()
{
    const QString name = uniqueName(QStringLiteral("shared"));
    const QString other = uniqueName(QStringLiteral("own"));
    auto original = std::make_unique<LSLDataServer>(dataServer(name));
    LSLDataServer copy = *original;
    LSLDataServer renamed = *original;
    renamed.setStreamName(other);
    LslInlet shared(name);
    LslInlet own(other);
    QVERIFY(shared.open([&] { warmUp(copy); }));
    QVERIFY(own.open([&] { warmUp(renamed); }));

    original->appendNewData(2, planarBlock(0, 2).data());
    renamed.appendNewData(1, planarBlock(50, 1).data());
    original.reset();
    copy.appendNewData(2, planarBlock(2, 2).data());
    QCOMPARE(firstChannel(shared, 4), QVector<float>({0, 1, 2, 3}));
    QCOMPARE(firstChannel(own, 1), QVector<float>({50}));
    QVERIFY(shared.isEmpty());
    QCOMPARE(own.describe().sourceId, QStringLiteral("Amp/SN7/") + other);
}

void TestOutlets::newChannelListIsANewStream()
{
    const QString name = uniqueName(QStringLiteral("relisted"));
    LSLSyncSream sync(name, numberedNames(kChannels), kRate);
    sync.setChannelNameList({QStringLiteral("T1"), QStringLiteral("T2")});
    LslInlet inlet(name);
    std::vector<float> nothing{-1.0f, -1.0f};
    QVERIFY(inlet.open([&] { sync.appendData(1, nothing.data(), 0.0); }));
    std::vector<float> block{1.0f, 2.0f, 10.0f, 20.0f};
    sync.appendData(2, block.data(), 0.0);
    const std::vector<LslInlet::Sample> received = inlet.pull(2);
    QCOMPARE(received.size(), std::size_t(2));
    QCOMPARE(received[1].values, std::vector<float>({2.0f, 20.0f}));
    QCOMPARE(inlet.describe().labels, QStringList({QStringLiteral("T1"), QStringLiteral("T2")}));
}

void TestOutlets::unusableStreamIsTracedOnce_data()
{
    QTest::addColumn<bool>("hasMontage");
    QTest::newRow("no montage") << false;
    QTest::newRow("no channels") << true;
}

void TestOutlets::unusableStreamIsTracedOnce()
{
    QFETCH(bool, hasMontage);
    const QSharedPointer<Montage> montage = hasMontage ? montageOf({}) : QSharedPointer<Montage>();
    const TraceCapture trace;
    LSLDataServer server(kDevice, montage, QStringLiteral("unusable"), false);
    LSLSyncSream sync(QStringLiteral("unusable"), {}, kRate);
    QVERIFY(!server.isValid());
    QVERIFY(!sync.isValid());
    float value = 1.0f;
    server.appendNewData(3, &value);
    server.push_sample(1, 0, nullptr, 0.0);
    sync.appendData(1, &value, 0.0);
    QCOMPARE(trace.count(QStringLiteral("no outlet for stream unusable")), 2);
    QCOMPARE(trace.count(QStringLiteral("LogOutlet")), 2);
}

void TestOutlets::streamWithoutNameGetsOne()
{
    const AmplifierInfo device(uniqueName(QStringLiteral("Amp")), {}, {}, 1, {});
    const TraceCapture trace;
    const LSLSyncSream sync(QStringLiteral(" "), numberedNames(1), std::numeric_limits<float>::quiet_NaN(), device);
    LslInlet inlet(device.name() + QStringLiteral("/ "), "source_id");
    QVERIFY(inlet.isFound());
    QCOMPARE(inlet.describe().name, QStringLiteral("BioProcessing"));
    QCOMPARE(inlet.describe().rate, 0.0);
    QCOMPARE(trace.count(QStringLiteral("LogOutlet")), 1);
}

void TestOutlets::controlCharactersBecomeBlanks()
{
    const QString name = uniqueName(QStringLiteral("two\nlines"));
    const LSLSyncSream sync(name, {QStringLiteral("a\x01z")}, kRate, kDevice);
    LslInlet inlet(QString(name).replace(QLatin1Char('\n'), QLatin1Char(' ')));
    QVERIFY(inlet.isFound());
    QCOMPARE(inlet.describe().labels, QStringList(QStringLiteral("a z")));
}

void TestOutlets::consumerThatReadsLateMissesNothing()
{
    const QString name = uniqueName(QStringLiteral("unread"));
    LSLDataServer server = dataServer(name);
    LslInlet inlet(name);
    QVERIFY(inlet.open([&] { warmUp(server); }));
    constexpr int kBlocks = 400; // 160 s
    constexpr int kSamples = 100;
    for (int i = 0; i < kBlocks; ++i) {
        server.appendNewData(kSamples, planarBlock(i * kSamples, kSamples).data());
    }
    const QVector<float> received = firstChannel(inlet, kBlocks * kSamples);
    QCOMPARE(received.size(), kBlocks * kSamples);
    for (int k = 0; k < received.size(); ++k) {
        QCOMPARE(received[k], static_cast<float>(k));
    }
}

void TestOutlets::consumersComeAndGo()
{
    const QString name = uniqueName(QStringLiteral("visited"));
    LSLDataServer server = dataServer(name);
    for (int visit = 0; visit < 2; ++visit) {
        LslInlet inlet(name);
        LslInlet second(name);
        QVERIFY(inlet.open([&] { warmUp(server); }));
        QVERIFY(second.open([&] { warmUp(server); }));
        server.appendNewData(3, planarBlock(10 * visit, 3).data());
        const auto first = static_cast<float>(10 * visit);
        const QVector<float> expected{first, first + 1.0f, first + 2.0f};
        QCOMPARE(firstChannel(inlet, 3), expected);
        QCOMPARE(firstChannel(second, 3), expected);
    }
}

void TestOutlets::consumerRecoversAfterARestart()
{
    const QString name = uniqueName(QStringLiteral("restarted"));
    auto server = std::make_unique<LSLDataServer>(dataServer(name));
    LslInlet inlet(name);
    QVERIFY(inlet.open([&] { warmUp(*server); }));
    server.reset();
    server = std::make_unique<LSLDataServer>(dataServer(name));
    QVERIFY(inlet.open([&] { warmUp(*server); }));
    server->appendNewData(2, planarBlock(5, 2).data());
    QCOMPARE(firstChannel(inlet, 2), QVector<float>({5, 6}));
}

namespace {

/// A text server on a port of its own.
struct TextServer
{
    QTcpServer server;
    QTcpSocket *client = nullptr;
    QByteArray text;

    explicit TextServer(quint16 port = 0)
    {
        server.listen(QHostAddress::LocalHost, port);
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this] {
            client = server.nextPendingConnection();
            QObject::connect(client, &QTcpSocket::readyRead, client, [this] { text += client->readAll(); });
            QObject::connect(client, &QTcpSocket::disconnected, client, [this] { client = nullptr; });
        });
    }
    quint16 port() const { return server.serverPort(); }
};

/// Waits until the timer has ticked so often.
bool waitForTicks(const TcpTextSocket &sockets, int count)
{
    QSignalSpy ticks(sockets.findChild<QTimer *>(), &QTimer::timeout);
    return QTest::qWaitFor([&] { return ticks.count() >= count; }, kTimeoutMs);
}

} // namespace

void TestOutlets::readerStreamsWithTheDevicesTime()
{
    FakeScript script;
    script.channels = 3;
    script.periodMs = 20;
    // Channel 1 any signal, channel 2 a trigger at every 50th sample, channel 3 the device's sample counter.
    script.value = [](int c, qint64 k) {
        return c == 1 ? float(k % 97) : c == 2 ? (k % 50 == 0 ? 7.0f : 0.0f) : float(k + 1);
    };
    SynchroDevice device(script);
    auto montage = QSharedPointer<Montage>::create();
    for (unsigned c = 1; c <= 3; ++c) {
        auto *channel = new AmplifierChannel(c, 1.0f, BPCommon::EEG);
        channel->setGroup1(c);
        channel->setChannelName(QStringLiteral("C%1").arg(c));
        montage->push_back(channel);
    }
    DataCompound compound(&device, montage);
    compound.setLSLStreamParametrs(QStringLiteral("reader data"), true, QStringLiteral("reader triggers"));
    compound.startReadData();

    LslInlet data(QStringLiteral("reader data"));
    LslInlet triggers(QStringLiteral("reader triggers"));
    QVERIFY(data.open([] {}) && triggers.open([] {}));
    QCOMPARE(data.describe().labels, montage->getChannelNames());
    QCOMPARE(triggers.describe().labels, QStringList{QStringLiteral("TRIG")});
    const auto samples = data.pull(200);
    QCOMPARE(samples.size(), std::size_t{200});
    for (std::size_t i = 0; i < samples.size(); ++i) {
        QCOMPARE(samples[i].values[2], samples[0].values[2] + static_cast<float>(i)); // every sample once, in order
        QCOMPARE(samples[i].stamp, device.getTimeStamp(static_cast<unsigned>(samples[i].values[2])));
    }
    for (const LslInlet::Sample &trigger : triggers.pull(3)) {
        QCOMPARE(trigger.values, std::vector<float>{7.0f});
        const double count = (trigger.stamp - SynchroDevice::kStart) / SynchroDevice::kPeriod;
        QCOMPARE(std::lround(count) % 50, 1L);
    }
    compound.stopReadData();
}

void TestOutlets::textLines_data()
{
    QTest::addColumn<float>("value");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("whole") << 14.0f << QByteArray("14");
    QTest::newRow("fraction") << 0.1f << QByteArray("0.1");
    QTest::newRow("negative") << -1234.5f << QByteArray("-1234.5");
    QTest::newRow("small") << 2.5e-7f << QByteArray("2.5e-07");
}

void TestOutlets::textLines()
{
    QFETCH(float, value);
    QFETCH(QByteArray, text);
    TextServer alpha;
    TextServer beta;
    TcpTextSocket sockets(nullptr, nullptr, nullptr, alpha.port(), beta.port(), kRetryMs);
    sockets.sendValue(QStringLiteral("alpha"), 1.0f); // not connected: lost
    QTRY_VERIFY_WITH_TIMEOUT(alpha.client && beta.client, kTimeoutMs);
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    QVERIFY(QTest::qWaitFor(
        [&] {
            sockets.sendValue(QStringLiteral("alpha"), std::numeric_limits<float>::quiet_NaN());
            sockets.sendValue(QStringLiteral("theta"), value);
            sockets.sendValue(QStringLiteral("beta"), value);
            return beta.text.contains('\n');
        },
        kTimeoutMs));
    const qint64 after = QDateTime::currentMSecsSinceEpoch();
    const QByteArray line = beta.text.left(beta.text.indexOf('\n'));
    const QList<QByteArray> fields = line.split('\t');
    QCOMPARE(fields.size(), 3);
    QCOMPARE(fields[0], QByteArray("beta"));
    QVERIFY(fields[1].toLongLong() >= before && fields[1].toLongLong() <= after);
    QCOMPARE(fields[2], text);
    QCOMPARE(alpha.text, QByteArray());
}

void TestOutlets::textFlagsSwitchTheSockets()
{
    TextServer alpha;
    TextServer beta;
    std::atomic<bool> alphaEnabled{false};
    std::atomic<bool> betaEnabled{true};
    TcpTextSocket sockets(&alphaEnabled, &betaEnabled, nullptr, alpha.port(), beta.port(), kRetryMs);
    QTRY_VERIFY_WITH_TIMEOUT(beta.client != nullptr, kTimeoutMs);
    QVERIFY(waitForTicks(sockets, 3));
    QVERIFY(alpha.client == nullptr);

    alphaEnabled = true;
    QTRY_VERIFY_WITH_TIMEOUT(alpha.client != nullptr, kTimeoutMs);
    betaEnabled = false;
    sockets.sendValue(QStringLiteral("beta"), 1.0f);
    QTRY_VERIFY_WITH_TIMEOUT(beta.client == nullptr, kTimeoutMs);
    QVERIFY(alpha.client != nullptr);
    QCOMPARE(beta.text, QByteArray());
}

void TestOutlets::textSocketReconnects()
{
    auto server = std::make_unique<TextServer>();
    const quint16 port = server->port();
    const QString line = QStringLiteral("TcpTextSocket alpha port %1: ").arg(port);
    const std::atomic<bool> off{false};
    const TraceCapture trace;
    TcpTextSocket sockets(nullptr, &off, nullptr, port, 1, kRetryMs);
    QTRY_COMPARE_WITH_TIMEOUT(trace.count(line + QStringLiteral("connected")), 1, kTimeoutMs);

    server.reset();
    QTRY_COMPARE_WITH_TIMEOUT(trace.count(line), 3, kTimeoutMs); // connected, disconnected, refused
    QVERIFY(waitForTicks(sockets, 10));
    QCOMPARE(trace.count(line), 3);

    server = std::make_unique<TextServer>(port);
    QTRY_COMPARE_WITH_TIMEOUT(trace.count(line + QStringLiteral("connected")), 2, kTimeoutMs);
    QVERIFY(QTest::qWaitFor(
        [&] {
            sockets.sendValue(QStringLiteral("alpha"), 0.5f);
            return server->text.contains("\t0.5\n");
        },
        kTimeoutMs));
    QCOMPARE(trace.count(line), 4);
}

void TestOutlets::serverThatNeverReadsLosesValues()
{
    TextServer beta;
    const std::atomic<bool> off{false};
    const TraceCapture trace;
    TcpTextSocket sockets(&off, nullptr, nullptr, 1, beta.port(), kRetryMs);
    QTRY_VERIFY_WITH_TIMEOUT(beta.client != nullptr, kTimeoutMs);
    beta.client->setReadBufferSize(1);
    beta.client->blockSignals(true);
    const QString full = QStringLiteral("reads too slowly 1");
    const auto sendSome = [&] {
        for (int i = 0; i < 1000; ++i) {
            sockets.sendValue(QStringLiteral("beta"), 1.0f);
        }
    };
    QVERIFY(QTest::qWaitFor([&] { return sendSome(), trace.count(full) > 0; }, kTimeoutMs));
    sendSome();
    QCOMPARE(trace.count(full), 1);

    beta.client->blockSignals(false);
    beta.client->setReadBufferSize(0);
    beta.text += beta.client->readAll();
    QTRY_VERIFY_WITH_TIMEOUT((sockets.sendValue(QStringLiteral("beta"), 0.25f), beta.text.contains("\t0.25\n")),
                             kTimeoutMs);
    QCOMPARE(trace.count(QStringLiteral("reads too slowly 0")), 1);
    for (const QByteArray &sent : beta.text.left(beta.text.lastIndexOf('\n')).split('\n')) {
        QVERIFY2(sent.startsWith("beta\t") && sent.count('\t') == 2, sent.constData()); // whole lines only
    }
}

BP_TEST_MAIN(TestOutlets)
#include "TestOutlets.moc"
