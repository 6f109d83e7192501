#include "algorithms/CustomAlgorithm.h"
#include "algorithms/ParamFactory.h"
#include "devices/AmplifierChannel.h"
#include "devices/DeviceSearcher.h"
#include "files/EDFReader.h"
#include "files/XLSReader.h"
#include "filters/ButterworthFilter.h"
#include "filters/NotchFilter.h"
#include "montage/AverageMontage.h"
#include "montage/BipolarMontage.h"
#include "montage/Montage.h"
#include "pipeline/DataCompound.h"
#include "pipeline/DataReader.h"
#include "pipeline/reader/MontageMix.h"
#include "server/DataServer.h"
#include "server/HalvinHTTPQtClient.h"
#include "support/AllocationCounter.h"
#include "support/FakeAlgorithm.h"
#include "support/FakeAmplifier.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>

#include <cmath>

Q_DECLARE_METATYPE(const QMetaObject *)

namespace {

constexpr int kTimeoutMs = 20000;

struct Inputs
{
    unsigned group1;
    unsigned group2;
    float scale = 1.0f;
};

bp::MontageTable tableOf(const std::vector<Inputs> &channels)
{
    bp::MontageTable table;
    for (const Inputs &inputs : channels) {
        table.group1.push_back(inputs.group1);
        table.group2.push_back(inputs.group2);
        table.scale.push_back(inputs.scale);
        if (inputs.group2 == 0) {
            table.averaged.push_back(table.size());
        }
    }
    return table;
}

QSharedPointer<Montage> montageOf(const std::vector<Inputs> &channels)
{
    auto montage = QSharedPointer<Montage>::create();
    int index = 0;
    for (const Inputs &inputs : channels) {
        auto *channel = new AmplifierChannel(static_cast<unsigned>(++index), inputs.scale, BPCommon::EEG);
        channel->setChannelName(QStringLiteral("C%1").arg(index));
        channel->setGroup1(inputs.group1);
        channel->setGroup2(inputs.group2);
        montage->push_back(channel);
    }
    return montage;
}

/// Each device channel on an output of its own.
QSharedPointer<Montage> plainMontage(int channels)
{
    std::vector<Inputs> inputs;
    for (int c = 1; c <= channels; ++c) {
        inputs.push_back({static_cast<unsigned>(c), 0});
    }
    return montageOf(inputs);
}

/// What a reader emits while it runs on the test's own thread.
struct Received
{
    explicit Received(const DataReader &reader)
    {
        QObject::connect(&reader, &DataReader::newData, [this](const std::vector<float> &data, int count) {
            blocks.emplace_back(data.begin(), data.begin() + count);
        });
        QObject::connect(&reader, &DataReader::deviceReturnError, [this](int code) { codes.push_back(code); });
    }

    std::vector<std::vector<float>> blocks;
    std::vector<int> codes;
};

/// Takes results on the test's thread, as a host does.
class ResultReceiver : public QObject
{
    Q_OBJECT
public slots:
    void takeAlgorithmData(const QString &, const UnitParams &params, unsigned int, const vector<float> &)
    {
        const QString band = params[QStringLiteral("min_freq")] + QLatin1Char('-') + params[QStringLiteral("max_freq")];
        ++results[params.getParamDescriptor()];
        bands.insert(band);
    }

public:
    QMap<QString, int> results;
    QSet<QString> bands;
};

UnitParams rhythm(const QString &name, const char *minimum, const char *maximum)
{
    UnitParams params = ParamFactory::makeRhythmAlpha(QString());
    params.setParamDescriptor(name);
    params.setParamValue(QStringLiteral("time"), QStringLiteral("1"));
    params.setParamValue(QStringLiteral("step"), QStringLiteral("0.1"));
    params.setParamValue(QStringLiteral("min_freq"), QString::fromLatin1(minimum));
    params.setParamValue(QStringLiteral("max_freq"), QString::fromLatin1(maximum));
    return params;
}

/// A sine of 10 Hz and 50 µV on every channel.
float alphaWave(int, qint64 k)
{
    return 50.0f * static_cast<float>(std::sin(static_cast<double>(k % 25) * 0.08 * 3.14159265358979));
}

/// Runs the reader's loop here, until the script ends it.
void runHere(DataReader &reader, FakeAmplifier &device, const QSharedPointer<Montage> &montage)
{
    reader.setNewMontage(&device, montage);
    reader.runningThread(true);
    reader.run();
}

} // namespace

class TestPipeline : public QObject
{
    Q_OBJECT
private slots:
    void findsPublishedSignatures_data();
    void findsPublishedSignatures();
    void publishesRegisteredTypesOnly();
    void mixesMontages_data();
    void mixesMontages();
    void leavesBipolarChannelsWithoutRuleAlone();
    void drivesTheDeviceInOrder();
    void reportsWhatEndsTheLoop_data();
    void reportsWhatEndsTheLoop();
    void growsForARemainder();
    void survivesMontagesThatDoNotFitTheDevice();
    void takesReferencesByInput();
    void runsTheFiltersOfTheChannel();
    void followsFiltersWhileTheyChange();
    void givesAlgorithmsARawBlockOfABipolarMontage();
    void recordsEveryBlock();
    void recordsFromTheFirstBlock_data();
    void recordsFromTheFirstBlock();
    void tellsWhyARecordingDoesNotStart();
    void endsATimedRecordingOnce();
    void keepsOrClosesTheRecordingOnAnotherMontage_data();
    void keepsOrClosesTheRecordingOnAnotherMontage();
    void placesLabelsAndStates();
    void stopsWhateverAStartLeftOpen_data();
    void stopsWhateverAStartLeftOpen();
    void keepsWhatWasAskedBeforeTheStart_data();
    void keepsWhatWasAskedBeforeTheStart();
    void beginsAgainAfterADeviceError();
    void writesTheRemainderOnRequest_data();
    void writesTheRemainderOnRequest();
    void reportsARecordingThatIsNotComplete_data();
    void reportsARecordingThatIsNotComplete();
    void followsTheSignalsClock();
    void leavesAHungDeviceBehind_data();
    void leavesAHungDeviceBehind();
    void boundsWhatWaitsForTheHost();
    void restartsTenTimes();
    void allocatesNothingPerBlock();
    void writesRhythmsBesideTheRecording();
    void keepsParameterSetsWholeUnderUpdates();

private:
    QString path(const QString &name) const { return m_folder.filePath(name); }

    QTemporaryDir m_folder;
};

void TestPipeline::findsPublishedSignatures_data()
{
    QTest::addColumn<const QMetaObject *>("meta");
    QTest::addColumn<QString>("signatures");

    QTest::newRow("reader signals, in order")
        << &DataReader::staticMetaObject
        << "finishThread() endWritingAndCloseFile() runningChanged(bool) deviceReturnError(int) currentTime(qint64) "
           "newData(vector<float>,int) newImpedance(vector<unsigned int>,int) annotationLabel(QString,QString)";
    QTest::newRow("reader slots, in order")
        << &DataReader::staticMetaObject << "run() runningThread(bool) slotSetLabelToEdf(QString)";
    QTest::newRow("compound signals, in order")
        << &DataCompound::staticMetaObject
        << "removeAlgorhythm(QString) setTextToEdf(QString) endWritingAndCloseFile() recordDurationChanged(qint64) "
           "newSampleData(vector<float>,int) newSampleImpedance(vector<unsigned int>,int) recordStarted(QString) "
           "recordStopped(QString) currentDeviceReturnError(int) currentLabel(QString,QString)";
    QTest::newRow("compound slots, in order")
        << &DataCompound::staticMetaObject
        << "slotErrorCurrentDevice(int) slotSetLabelToEDF(QString) slotTakeCurrentState(unsigned char) "
           "takeCurrentData(vector<float>,int) takeCurrentImpedance(vector<unsigned int>,int)";
    QTest::newRow("algorithm")
        << &CustomAlgorithm::staticMetaObject
        << "getData(QString,UnitParams,uint,vector<float>) takeData(QString,UnitParams,uint,vector<float>)";
    QTest::newRow("searcher") << &DeviceSearcher::staticMetaObject
                              << "deviceInfo(QList<Amplifier*>&) finishThread() runningChanged(bool) threadSearch()";
}

void TestPipeline::findsPublishedSignatures()
{
    QFETCH(const QMetaObject *, meta);
    QFETCH(QString, signatures);

    int last = -1;
    // A blank within "unsigned int" and "unsigned char" separates no two signatures.
    for (const QString &signature :
         signatures.replace(QLatin1String(") "), QLatin1String(")|")).split(QLatin1Char('|'))) {
        const QByteArray normalized = QMetaObject::normalizedSignature(signature.toLatin1().constData());
        const int index = meta->indexOfMethod(normalized.constData());
        QVERIFY2(index > last, normalized.constData());
        last = index;
    }
}

/// A signal with an unknown type is lost in a queued connection by name, with a warning at run time only.
void TestPipeline::publishesRegisteredTypesOnly()
{
    server_state state;
    const DataServer server(state, QHostAddress::LocalHost, 0);
    const HalvinHTTPQtClient client(QStringLiteral("127.0.0.1"), 1);
    const DataCompound compound(nullptr, {});
    const DataReader reader;
    const DeviceSearcher searcher;
    const AmplifierInfo info;
    const FakeAlgorithm algorithm(UnitParams(), {}, info);
    for (const QObject *object : {static_cast<const QObject *>(&server), static_cast<const QObject *>(&client),
                                  static_cast<const QObject *>(&compound), static_cast<const QObject *>(&reader),
                                  static_cast<const QObject *>(&searcher), static_cast<const QObject *>(&algorithm)}) {
        for (int i = 0; i < object->metaObject()->methodCount(); ++i) {
            const QMetaMethod method = object->metaObject()->method(i);
            const QList<QByteArray> types = method.parameterTypes();
            for (const QByteArray &type : types) {
                QVERIFY2(method.methodType() != QMetaMethod::Signal || type == "QPrivateSignal"
                             || QMetaType::type(type.constData()) != QMetaType::UnknownType,
                         method.methodSignature().constData());
            }
        }
    }
}

void TestPipeline::mixesMontages_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QVector<unsigned>>("groups"); // group 1, group 2
    QTest::addColumn<float>("scale");
    QTest::addColumn<QVector<float>>("expected");

    // Raw block: channel 1 = 1, 2; channel 2 = 10, 20; channel 3 = 100, 200. Left referent 2, right referent 3.
    const auto row = [](const char *name, int type, unsigned g1, unsigned g2, float scale, float first, float second) {
        QTest::newRow(name) << type << QVector<unsigned>{g1, g2} << scale << QVector<float>{first, second};
    };
    row("usual: active minus reference", 0, 3, 2, 1.0f, 90.0f, 180.0f);
    row("usual: active alone, scaled", 0, 3, 0, 0.5f, 50.0f, 100.0f);
    row("usual: reference alone is inverted", 0, 0, 2, 2.0f, -20.0f, -40.0f);
    row("usual: nothing gives zeros", 0, 0, 0, 3.0f, 0.0f, 0.0f);
    row("bipolar: unreferenced", 1, 3, 0, 1.0f, 100.0f, 200.0f);
    row("bipolar: left", 1, 3, 1, 1.0f, 90.0f, 180.0f);
    row("bipolar: right", 1, 1, 2, 2.0f, -198.0f, -396.0f);
    row("bipolar: mean of both", 1, 1, 3, 1.0f, -54.0f, -108.0f);
    row("bipolar: no active reads the first", 1, 0, 1, 1.0f, -9.0f, -18.0f);
    // The average is over montage channels 0 and 1 (the second's group 2 is 0): device channels 1 and 2 when both
    // count.
    row("average: minus the mean", 2, 3, 0, 1.0f, 94.5f, 189.0f);
    row("average: no active reads the first", 2, 0, 0, 1.0f, -4.5f, -9.0f);
    row("average: unreferenced", 2, 3, 1, 1.0f, 100.0f, 200.0f);
    row("average: unreferenced without active", 2, 0, 2, 1.0f, 0.0f, 0.0f);
    row("average: minus device channel 1", 2, 3, 3, 1.0f, 99.0f, 198.0f);
}

void TestPipeline::mixesMontages()
{
    QFETCH(int, type);
    QFETCH(QVector<unsigned>, groups);
    QFETCH(float, scale);
    QFETCH(QVector<float>, expected);

    const std::vector<float> raw{1, 2, 10, 20, 100, 200};
    const bp::RawBlock block{raw.data(), 3, 2};
    const bp::MontageTable table = tableOf({{groups[0], groups[1], scale}});
    std::vector<float> out(2, -1.0f);
    if (type == Montage_Usual) {
        bp::mixUsual(block, table, out.data());
    } else if (type == Montage_Bipolar) {
        bp::mixBipolar(block, table, 2, 3, out.data());
    } else {
        std::vector<float> average(2);
        bp::averageReference(block, tableOf({{1, 0}, {2, 0}, {3, 1}}), average.data());
        QCOMPARE(average, (std::vector<float>{5.5f, 11.0f}));
        bp::mixAverage(block, table, average.data(), out.data());
    }
    QCOMPARE(QVector<float>(out.begin(), out.end()), expected);
}

void TestPipeline::leavesBipolarChannelsWithoutRuleAlone()
{
    const std::vector<float> raw{1, 2, 10, 20};
    const bp::RawBlock block{raw.data(), 2, 2};
    std::vector<float> out{7, 7, 7, 7, 7, 7};
    bp::mixBipolar(block, tableOf({{1, 4}, {2, 1}, {2, 2}}), 0, 1, out.data());
    // Group 2 above 3 and a missing left referent write nothing; without a left one the right reads channel 1.
    QCOMPARE(out, (std::vector<float>{7, 7, 7, 7, 9, 18}));

    std::vector<float> average(2);
    bp::averageReference(block, tableOf({{1, 1}}), average.data());
    QVERIFY(!std::isfinite(average[0]));
}

void TestPipeline::drivesTheDeviceInOrder()
{
    FakeScript script;
    script.channels = 3;
    script.firstBlocks = {25, 0, 10};
    script.errorAfterReads = 3;
    script.impedance = {1, 2, 3};
    FakeAmplifier device(script);
    DataReader reader;
    Received received(reader);
    QSignalSpy impedances(&reader, &DataReader::newImpedance);
    runHere(reader, device, montageOf({{2, 1}, {3, 0, 2.0f}}));

    QCOMPARE(device.calls(),
             QStringList({QStringLiteral("startAcquisition"), QStringLiteral("readPeriodMs"),
                          QStringLiteral("setReadBufferSize"), QStringLiteral("readData")}));
    QCOMPARE(device.bufferSize.load(), 125 * 3); // half a second at 250 Hz
    QCOMPARE(received.blocks.size(), std::size_t{2}); // an empty block emits nothing
    QCOMPARE(received.blocks[1].size(), std::size_t{20});
    QCOMPARE(received.blocks[1][0], 1000.0f); // channel 2 − channel 1
    QCOMPARE(received.blocks[1][10], 2.0f * (3000 + 25)); // channel 3, twice, at its 26th sample
    QCOMPARE(impedances.size(), 2);
    QCOMPARE(received.codes, std::vector<int>{-7});
}

void TestPipeline::reportsWhatEndsTheLoop_data()
{
    QTest::addColumn<bool>("hasDevice");
    QTest::addColumn<bool>("refuses");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("stops");

    QTest::newRow("no device") << false << false << -1 << 0;
    QTest::newRow("refused start") << true << true << -1 << 0;
    QTest::newRow("read error: the device is left alone") << true << false << -7 << 0;
}

void TestPipeline::reportsWhatEndsTheLoop()
{
    QFETCH(bool, hasDevice);
    QFETCH(bool, refuses);
    QFETCH(int, code);
    QFETCH(int, stops);

    FakeScript script;
    script.refuseStart = refuses;
    script.errorAfterReads = 2;
    FakeAmplifier device(script);
    DataReader reader;
    Received received(reader);
    if (hasDevice) {
        reader.setNewMontage(&device, plainMontage(2));
    }
    reader.runningThread(true);
    reader.run();
    QCOMPARE(received.codes, std::vector<int>{code});
    QCOMPARE(device.stops.load(), stops);
}

void TestPipeline::growsForARemainder()
{
    FakeScript script;
    script.remainderAtRead = 0;
    script.remainder = 400; // which the second call leaves in the device's hands: the next read is a first one again
    script.errorAfterReads = 2;
    FakeAmplifier device(script);
    DataReader reader;
    Received received(reader);
    std::vector<std::size_t> sizes;
    connect(&reader, &DataReader::newData,
            [&sizes](const std::vector<float> &data, int) { sizes.push_back(data.size()); });
    runHere(reader, device, plainMontage(2));

    QVERIFY(device.tailRemainderWasMinusOne);
    QCOMPARE(device.tailCapacity.load(), 400); // 2·25 + 400 floats, less what is taken
    QCOMPARE(received.blocks[0].size(), std::size_t{50}); // the block stays as long as the first call made it
    QCOMPARE(received.blocks[0][25], 2000.0f);
    QCOMPARE(sizes, (std::vector<std::size_t>{450, 450})); // for good
}

void TestPipeline::survivesMontagesThatDoNotFitTheDevice()
{
    FakeScript script;
    script.errorAfterReads = 3;
    script.blockSize = 125;
    FakeAmplifier device(script);
    std::vector<Inputs> many(40, {1, 0});
    many[1] = {99, 0}; // the device has two channels
    many[2] = {1, 77};
    DataReader reader;
    Received received(reader);
    runHere(reader, device, montageOf(many));
    QCOMPARE(received.blocks.size(), std::size_t{3});
    QCOMPARE(received.blocks[0].size(), std::size_t{40 * 125});
    QCOMPARE(received.blocks[0][125], 0.0f);
    QCOMPARE(received.blocks[0][250], 1000.0f);

    auto bipolar = QSharedPointer<BipolarMontage>::create(*montageOf({{1, 0}, {2, 1}, {2, 3}})); // no referents at all
    auto average = QSharedPointer<AverageMontage>::create(*montageOf({{1, 0}, {2, 900}, {2, 0}}));
    for (const QSharedPointer<Montage> &montage :
         {QSharedPointer<Montage>(bipolar), QSharedPointer<Montage>(average)}) {
        FakeAmplifier again(script);
        runHere(reader, again, montage);
        QCOMPARE(received.blocks.back().size(), std::size_t{3 * 125});
    }

    // A device that filters by itself gets differences of its channels, whatever the kind of the montage.
    script.filterFree = true;
    auto free = QSharedPointer<BipolarMontage>::create(*montageOf({{1, 0}, {2, 0}, {2, 0}, {1, 0}}));
    (*free)[0]->setGroup2(0);
    (*free)[1]->setGroup2(1);
    (*free)[2]->setGroup2(3);
    (*free)[3]->setGroup2(30000000);
    FakeAmplifier again(script);
    runHere(reader, again, free);
    const std::vector<float> &block = received.blocks.back();
    QCOMPARE(block[125], 1000.0f);
    QCOMPARE(block[250], block[0] + 1000.0f);
    QCOMPARE(block[375], block[0]);
}

void TestPipeline::takesReferencesByInput()
{
    // Device channels 3 and 4 only: the reference, C2, is in the second place and reads the fourth input.
    auto bipolar = QSharedPointer<BipolarMontage>::create(*montageOf({{3, 0}, {4, 0}}));
    bipolar->setLeftReferent(QStringLiteral("C2"));
    (*bipolar)[0]->setGroup2(1);
    const auto average = QSharedPointer<AverageMontage>::create(*montageOf({{3, 0}, {4, 0}}));
    FakeScript script;
    script.channels = 4;
    script.errorAfterReads = 1;
    script.value = [](int c, qint64) { return static_cast<float>(c * c); };
    const auto firstSample = [&script](const QSharedPointer<Montage> &montage) {
        DataReader reader;
        const Received received(reader);
        FakeAmplifier device(script);
        runHere(reader, device, montage);
        return received.blocks.front().front();
    };
    QCOMPARE(firstSample(bipolar), 9.0f - 4.0f);
    QCOMPARE(firstSample(average), 9.0f - 2.5f);
    bipolar->setReferencesByInput(true);
    average->setReferencesByInput(true);
    QCOMPARE(firstSample(QSharedPointer<BipolarMontage>::create(bipolar.data())), 9.0f - 16.0f);
    QCOMPARE(firstSample(QSharedPointer<AverageMontage>::create(*average)), 9.0f - 12.5f);
}

void TestPipeline::runsTheFiltersOfTheChannel()
{
    using Filters = bp::FilterList::Filters;
    const auto butterworth = [](AbstractFilter::FilterTypeEnum type, float cutOff) {
        return std::make_shared<ButterworthFilter>(type, 4, 250.0f, cutOff, cutOff);
    };
    const auto notch = [] { return std::make_unique<NotchFilter>(AbstractFilter::BandStop, 250.0f, 50.0f, 1.0f); };
    FakeScript otherScript;
    otherScript.rate = 500.0f;
    FakeAmplifier otherDevice(otherScript);
    DataReader other;
    struct Change
    {
        const char *name;
        std::function<void(const QSharedPointer<Montage> &)> change; ///< between the third and the fourth block
        std::function<void(Filters &)> expected;
    };
    const Change changes[] = {
        {"other settings",
         [](const QSharedPointer<Montage> &montage) { (*montage)[0]->setFilterData(AmplifierChannel::Filters()); },
         [](Filters &filters) { filters.clear(); }},
        {"removed", [](const QSharedPointer<Montage> &montage) { montage->removeChannelFilterList(); },
         [](Filters &filters) { filters.clear(); }},
        {"another cut-off",
         [](const QSharedPointer<Montage> &montage) {
             (*montage)[0]->setLPF(40.0f);
             montage->removeChannelFilterList();
             montage->createChannelFilterList();
         },
         [&](Filters &filters) {
             filters = {butterworth(AbstractFilter::LowPass, 40.0f), butterworth(AbstractFilter::HighPass, 1.0f)};
         }},
        {"one appended",
         [&](const QSharedPointer<Montage> &montage) { (*montage)[0]->getFilterRef().objects.push_back(notch()); },
         [&](Filters &filters) { filters.push_back(notch()); }},
        {"channels deleted", [](const QSharedPointer<Montage> &montage) { montage->clearChannel(); }, [](Filters &) {}},
        {"given to another reader",
         [&](const QSharedPointer<Montage> &montage) { other.setNewMontage(&otherDevice, montage); }, [](Filters &) {}},
    };
    for (const Change &change : changes) {
        FakeScript script;
        script.errorAfterReads = 6;
        FakeAmplifier device(script);
        const QSharedPointer<Montage> montage = plainMontage(2);
        (*montage)[0]->setLPF(30.0f);
        (*montage)[0]->setHPF(1.0f);
        DataReader reader;
        Received received(reader);
        connect(&reader, &DataReader::newData, [&](const std::vector<float> &, int) {
            if (received.blocks.size() == 3) {
                change.change(montage);
            }
        });
        runHere(reader, device, montage);
        QCOMPARE(received.blocks.size(), std::size_t{6});

        Filters twins{butterworth(AbstractFilter::LowPass, 30.0f), butterworth(AbstractFilter::HighPass, 1.0f)};
        for (int block = 0; block < 6; ++block) {
            if (block == 3) {
                change.expected(twins);
            }
            std::vector<float> samples(25);
            for (int k = 0; k < 25; ++k) {
                samples[static_cast<std::size_t>(k)] = script.value(1, block * 25 + k);
            }
            for (const auto &filter : twins) {
                filter->Process(samples);
            }
            received.blocks[static_cast<std::size_t>(block)].resize(25);
            QVERIFY2(received.blocks[static_cast<std::size_t>(block)] == samples, change.name);
        }
    }
}

void TestPipeline::followsFiltersWhileTheyChange()
{
    FakeScript script;
    script.value = [](int, qint64) { return 1000.0f; };
    FakeAmplifier devices[2] = {FakeAmplifier(script), FakeAmplifier(script)};
    const QSharedPointer<Montage> montage = plainMontage(8);
    for (unsigned i = 0; i < montage->size(); ++i) {
        (*montage)[i]->setHPF(1.0f);
    }
    DataCompound first(&devices[0], montage);
    DataCompound second(&devices[1], montage);
    QSignalSpy firstBlocks(&first, &DataCompound::newSampleData);
    QSignalSpy secondBlocks(&second, &DataCompound::newSampleData);
    first.startReadData();
    second.startReadData();
    for (unsigned i = 0; i < 2000; ++i) {
        AmplifierChannel &channel = *(*montage)[i % montage->size()];
        switch (i / 8 % 4) {
        case 0:
            channel.setFilterData(channel.getFilterRef());
            break;
        case 1:
            channel.setLPF(20.0f + static_cast<float>(i % 50));
            montage->createChannelFilterList();
            break;
        case 2:
            channel.getFilterRef().objects.push_back(
                std::make_unique<NotchFilter>(AbstractFilter::BandStop, 250.0f, 50.0f, 1.0f));
            break;
        default:
            montage->removeChannelFilterList();
            break;
        }
        if (i % 100 == 0) {
            second.setNewAmplifier(&devices[1], montage);
            QCoreApplication::processEvents();
        }
    }
    montage->removeChannelFilterList();
    const auto lastValue = [](const QSignalSpy &blocks) {
        return blocks.isEmpty() ? 0.0f : blocks.last()[0].value<std::vector<float>>().front();
    };
    QTRY_COMPARE_WITH_TIMEOUT(lastValue(secondBlocks), 1000.0f, kTimeoutMs);
    // The one that had the montage before still runs its high-pass, which has nearly settled.
    QTRY_VERIFY_WITH_TIMEOUT(std::fabs(lastValue(firstBlocks)) < 1.0f && !firstBlocks.isEmpty(), kTimeoutMs);
}

void TestPipeline::givesAlgorithmsARawBlockOfABipolarMontage()
{
    FakeScript script;
    script.errorAfterReads = 2;
    FakeAmplifier device(script);
    DataReader reader;
    custom_param raw;
    raw.key = QStringLiteral("raw");
    raw.defaultValue = QStringLiteral("1");
    UnitParams params;
    params.push_back(raw);
    auto *algorithm = new FakeAlgorithm(params, {}, {});
    reader.setAlgorithmClass(algorithm);
    const auto montage = QSharedPointer<BipolarMontage>::create(*plainMontage(2));
    montage->setLeftReferent(QStringLiteral("C1"));
    runHere(reader, device, montage);
    QCOMPARE(algorithm->acquired, (std::vector<float>{1000.0f, 1025.0f}));
}

void TestPipeline::recordsEveryBlock()
{
    FakeScript script;
    script.firstBlocks = {100, 125, 7, 93, 125, 50}; // 500 samples: two seconds
    script.errorAfterReads = 6;
    FakeAmplifier device(script);
    DataReader reader;
    reader.setNewMontage(&device, plainMontage(2));
    reader.setRecordPath(path(QStringLiteral("blocks.edf")));
    reader.runningThread(true);
    reader.setWriteDataFlag(true, false);
    reader.run();
    QSignalSpy closed(&reader, &DataReader::endWritingAndCloseFile);
    reader.setWriteDataFlag(false, false);
    QCOMPARE(closed.size(), 1);

    EDFReader file(path(QStringLiteral("blocks.edf")));
    QVERIFY(file.open());
    QCOMPARE(file.getChannelName(1), QStringLiteral("C2"));
    const std::vector<double> second = file.getChannelData(1, 0, 500);
    QCOMPARE(second.size(), std::size_t{500});
    for (std::size_t k = 0; k < second.size(); ++k) {
        QVERIFY(std::fabs(second[k] - (2000.0 + static_cast<double>(k))) <= 1.0);
    }
}

void TestPipeline::recordsFromTheFirstBlock_data()
{
    QTest::addColumn<bool>("recordFirst");
    QTest::newRow("asked for before the start") << true;
    QTest::newRow("asked for right after the start") << false;
}

void TestPipeline::recordsFromTheFirstBlock()
{
    QFETCH(bool, recordFirst);
    FakeScript script;
    script.errorAfterReads = 40;
    FakeAmplifier device(script);
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy ended(&compound, &DataCompound::currentDeviceReturnError);
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    const QString file = path(QStringLiteral("first_%1.edf").arg(recordFirst));
    if (recordFirst) {
        compound.startRecord(file, true, false, 0);
    }
    compound.startReadData();
    if (!recordFirst) {
        compound.startRecord(file, true, false, 0);
    }
    QVERIFY(compound.isRecording());
    QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, kTimeoutMs);
    compound.stopRecord();
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);

    EDFReader reader(file);
    QVERIFY(reader.open());
    const std::vector<double> samples = reader.getChannelData(0, 0, 1);
    QCOMPARE(samples.size(), std::size_t{1});
    QVERIFY(!recordFirst || std::fabs(samples[0] - 1000.0) <= 1.0);
}

void TestPipeline::tellsWhyARecordingDoesNotStart()
{
    FakeAmplifier device;
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy errors(&compound, &DataCompound::recordError);
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    compound.startReadData();
    compound.startRecord(QStringLiteral("/nowhere/at/all.edf"), true, false, 0);
    QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, kTimeoutMs);
    QVERIFY(errors[0][0].toString().contains(QLatin1String("/nowhere/at/all.edf")));
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);
    QVERIFY(!compound.isRecording());

    // The next one works.
    compound.startRecord(path(QStringLiteral("next.edf")), true, false, 0);
    QVERIFY(compound.isRecording());
    compound.stopRecord();
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 2, kTimeoutMs);
    QCOMPARE(errors.size(), 1);
}

void TestPipeline::endsATimedRecordingOnce()
{
    FakeAmplifier device;
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    QSignalSpy times(&compound, &DataCompound::recordDurationChanged);
    QSignalSpy blocks(&compound, &DataCompound::newSampleData);
    compound.startReadData();
    compound.startRecord(path(QStringLiteral("timed.edf")), true, false, 1);
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);
    QVERIFY(!compound.isRecording());
    QVERIFY(times.last()[0].toLongLong() >= 1000);
    const int before = blocks.size();
    QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > before + 10, kTimeoutMs); // acquisition goes on
    QCOMPARE(closed.size(), 1);
}

void TestPipeline::keepsOrClosesTheRecordingOnAnotherMontage_data()
{
    QTest::addColumn<int>("channels");
    QTest::addColumn<bool>("goesOn");
    QTest::addColumn<bool>("filterFree");
    QTest::newRow("same number of channels") << 2 << true << false;
    QTest::newRow("fewer channels") << 1 << false << false;
    QTest::newRow("device whose data are not filtered") << 2 << true << true;
}

void TestPipeline::keepsOrClosesTheRecordingOnAnotherMontage()
{
    QFETCH(int, channels);
    QFETCH(bool, goesOn);
    QFETCH(bool, filterFree);
    FakeScript script;
    script.filterFree = filterFree;
    FakeAmplifier device(script);
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    QSignalSpy errors(&compound, &DataCompound::recordError);
    QSignalSpy blocks(&compound, &DataCompound::newSampleData);
    const QString file = path(QStringLiteral("montage_%1.edf").arg(channels));
    compound.startRecord(file, true, false, 0);
    compound.startReadData();
    QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > 15, kTimeoutMs);
    compound.setNewAmplifier(&device, plainMontage(channels));
    QTRY_VERIFY_WITH_TIMEOUT(blocks.last()[1].toInt() == channels * 25, kTimeoutMs);
    QTRY_COMPARE_WITH_TIMEOUT(compound.isRecording(), goesOn, kTimeoutMs);
    QCOMPARE(errors.size(), goesOn ? 0 : 1);
    const int before = blocks.size();
    QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > before + 30, kTimeoutMs);
    compound.stopRecord();
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);
    EDFReader reader(file);
    QVERIFY(reader.open());
    QCOMPARE(reader.getChannelCount(), 2);
    QVERIFY(!goesOn || reader.getChannelData(0, 0, 1000000).size() >= std::size_t(before / 10 + 3) * 250);
}

void TestPipeline::placesLabelsAndStates()
{
    FakeScript script;
    script.errorAfterReads = 100;
    FakeAmplifier device(script);
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy labels(&compound, &DataCompound::currentLabel);
    QSignalSpy ended(&compound, &DataCompound::currentDeviceReturnError);
    QSignalSpy notices(&compound, &DataCompound::recordNotice);
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    compound.slotSetLabelToEDF(QStringLiteral("before the recording"));
    compound.startRecord(path(QStringLiteral("labels.edf")), true, false, 0);
    compound.startReadData();
    compound.slotSetLabelToEDF(QStringLiteral("now"));
    compound.setLabelToEDFAt(QString::fromUtf8("Глаза закрыты"), 2.5);
    compound.setLabelToEDFAt(QString(50, QLatin1Char('x')), 3.0);
    compound.slotTakeCurrentState(7);
    QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, kTimeoutMs);
    compound.stopRecord();
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);

    QCOMPARE(labels.size(), 3);
    QCOMPARE(notices.size(), 1); // on the label that was cut
    QCOMPARE(labels[1][0].toString(), QStringLiteral("00:00:02.500"));
    EDFReader reader(path(QStringLiteral("labels.edf")));
    QVERIFY(reader.open());
    QMap<QString, double> onsets;
    for (const AnnotationStrct &annotation : reader.annotations()) {
        onsets.insert(annotation.text, annotation.onset);
    }
    QCOMPARE(onsets.size(), 4);
    QCOMPARE(onsets.value(QString::fromUtf8("Глаза закрыты")), 2.5);
    QVERIFY(onsets.value(QStringLiteral("now"), -1.0) >= 0.0);
    QVERIFY(onsets.contains(QStringLiteral("7")));
}

void TestPipeline::stopsWhateverAStartLeftOpen_data()
{
    QTest::addColumn<QString>("event");
    QTest::addColumn<bool>("goesOn");
    QTest::newRow("started twice") << QStringLiteral("start") << true;
    QTest::newRow("told twice to run") << QStringLiteral("run") << true;
    QTest::newRow("stopped and started") << QStringLiteral("restart") << false;
    QTest::newRow("another path meanwhile") << QStringLiteral("path") << true;
}

void TestPipeline::stopsWhateverAStartLeftOpen()
{
    QFETCH(QString, event);
    QFETCH(bool, goesOn);
    FakeAmplifier device;
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy blocks(&compound, &DataCompound::newSampleData);
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    QSignalSpy errors(&compound, &DataCompound::recordError);
    const QString file = path(QStringLiteral("left_%1.edf").arg(event));
    compound.startReadData();
    compound.startRecord(file, true, false, 0);
    QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > 15, kTimeoutMs);
    if (event == QLatin1String("run")) {
        compound.setThreadRunning(true);
    } else if (event == QLatin1String("path")) {
        compound.startRecord(path(QStringLiteral("other.edf")), true, false, 0);
    } else {
        if (event == QLatin1String("restart")) {
            compound.stopReadData();
        }
        compound.startReadData();
    }
    const int before = blocks.size();
    QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > before + 15, kTimeoutMs);
    QCOMPARE(compound.isRecording(), goesOn);
    compound.stopRecord();
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);
    const qint64 size = QFileInfo(file).size();
    const int after = blocks.size();
    QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > after + 15, kTimeoutMs);
    QCOMPARE(QFileInfo(file).size(), size);
    EDFReader reader(file);
    QVERIFY(reader.open());
    QVERIFY(reader.getChannelData(0, 0, 100000).size() >= 750);
    QCOMPARE(closed.size(), 1);
    QCOMPARE(errors.size(), event == QLatin1String("path") ? 1 : 0);
}

void TestPipeline::keepsWhatWasAskedBeforeTheStart_data()
{
    QTest::addColumn<int>("channels"); // of a montage that is set before the start
    QTest::newRow("same montage") << 0;
    QTest::newRow("another montage") << 1;
}

void TestPipeline::keepsWhatWasAskedBeforeTheStart()
{
    QFETCH(int, channels);
    FakeScript script;
    script.value = alphaWave;
    FakeAmplifier device(script);
    ResultReceiver receiver;
    DataCompound compound(nullptr, {});
    compound.setPatientInfo({1, 1980, 5, 17, QStringLiteral("Somebody"), QStringLiteral("Device")});
    compound.setAlgorithmParams(&receiver, {rhythm(QStringLiteral("alpha"), "8", "14")});
    compound.setNewAmplifier(&device, plainMontage(2));
    QSignalSpy labels(&compound, &DataCompound::currentLabel);
    QSignalSpy errors(&compound, &DataCompound::recordError);
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    QSignalSpy notices(&compound, &DataCompound::recordNotice);
    const QString file = path(QStringLiteral("asked_%1.edf").arg(channels));
    compound.startRecord(file, true, true, 2);
    QTest::qWait(1200); // the signal begins later than the recording was asked for
    compound.slotSetLabelToEDF(QStringLiteral("early"));
    if (channels > 0) {
        compound.setNewAmplifier(&device, plainMontage(channels));
    }
    compound.startReadData();
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs); // by itself, two seconds later
    compound.stopReadData();

    QCOMPARE(errors.size(), 0);
    QCOMPARE(labels.size(), 1);
    QCOMPARE(labels[0][0].toString(), QStringLiteral("00:00:00.000"));
    EDFReader reader(file);
    QVERIFY(reader.open());
    QCOMPARE(reader.getChannelCount(), channels > 0 ? channels : 2);
    QCOMPARE(reader.annotations().size(), 1);
    QCOMPARE(reader.annotations().constFirst().onset, 0.0);
    QCOMPARE(QDir(m_folder.path()).entryList({QStringLiteral("asked_%1*.edf*").arg(channels)}).size(), 1);
    QVERIFY(notices.isEmpty());
    XLSReader sheet(file);
    QHash<QString, RhythmData> data;
    QVERIFY(sheet.readData(data));
    QVERIFY(sheet.getDataCount() >= 9 && sheet.getDataCount() <= 11); // of the two seconds, without the time before
}

void TestPipeline::beginsAgainAfterADeviceError()
{
    FakeScript script;
    script.errorAfterReads = 15;
    FakeAmplifier device(script);
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy ended(&compound, &DataCompound::currentDeviceReturnError);
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    compound.startReadData();
    QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, kTimeoutMs);
    device.script.errorAfterReads = -1;
    compound.startRecord(path(QStringLiteral("again.edf")), true, false, 1);
    compound.startReadData(); // without a stop
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);
    EDFReader reader(path(QStringLiteral("again.edf")));
    QVERIFY(reader.open());
}

void TestPipeline::writesTheRemainderOnRequest_data()
{
    QTest::addColumn<int>("blocks"); // of 25 samples; a record has 250
    QTest::addColumn<bool>("on");
    QTest::addColumn<int>("samples");
    QTest::addColumn<double>("padded");
    QTest::newRow("dropped unless asked for") << 13 << false << 250 << 0.0;
    QTest::newRow("padded") << 13 << true << 500 << 0.7;
    QTest::newRow("shorter than a record") << 3 << true << 250 << 0.7;
    QTest::newRow("whole records") << 10 << true << 250 << 0.0;
}

void TestPipeline::writesTheRemainderOnRequest()
{
    QFETCH(int, blocks);
    QFETCH(bool, on);
    QFETCH(int, samples);
    QFETCH(double, padded);
    FakeScript script;
    script.errorAfterReads = blocks;
    FakeAmplifier device(script);
    DataReader reader;
    reader.setNewMontage(&device, plainMontage(2));
    reader.setRecordPath(path(QStringLiteral("remainder.edf")));
    reader.setWriteRemainder(on);
    reader.runningThread(true);
    reader.setWriteDataFlag(true, false);
    reader.run();
    reader.slotSetLabelToEdf(QStringLiteral("last"));
    reader.setWriteDataFlag(false, false);
    QCOMPARE(reader.paddedSeconds(), padded);

    EDFReader file(path(QStringLiteral("remainder.edf")));
    QVERIFY(file.open());
    const std::vector<double> values = file.getChannelData(0, 0, 1000);
    QCOMPARE(values.size(), static_cast<std::size_t>(samples));
    const std::size_t last = static_cast<std::size_t>(std::min(blocks * 25, samples)) - 1;
    QVERIFY(std::fabs(values[last] - (1000.0 + static_cast<double>(last))) <= 1.0);
    QCOMPARE(file.annotations().size(), 1);
}

void TestPipeline::reportsARecordingThatIsNotComplete_data()
{
    QTest::addColumn<bool>("timed");
    QTest::addColumn<int>("channels"); // of a montage that ends it
    QTest::newRow("stopped") << false << 0;
    QTest::newRow("ended by itself") << true << 0;
    QTest::newRow("another montage") << false << 1;
}

void TestPipeline::reportsARecordingThatIsNotComplete()
{
#ifdef Q_OS_WIN
    QSKIP("A file that is open cannot be removed here");
#endif
    QFETCH(bool, timed);
    QFETCH(int, channels);
    FakeAmplifier device;
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy blocks(&compound, &DataCompound::newSampleData);
    QSignalSpy errors(&compound, &DataCompound::recordError);
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    int errorsBeforeEnd = 0;
    connect(&compound, &DataCompound::endWritingAndCloseFile, this, [&] { errorsBeforeEnd = errors.size(); });
    compound.startReadData();
    compound.startRecord(path(QStringLiteral("gone.edf")), true, false, timed ? 1 : 0);
    QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > 15, kTimeoutMs);
    QVERIFY(channels > 0 || QFile::remove(path(QStringLiteral("gone.edf"))));
    if (channels > 0) {
        compound.setNewAmplifier(&device, plainMontage(channels));
    } else if (!timed) {
        compound.stopRecord();
    }
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);
    QCOMPARE(errorsBeforeEnd, 1);
    QCOMPARE(errors.size(), 1);
    QVERIFY(errors[0][0].toString().contains(QLatin1String(channels > 0 ? "montage" : "gone.edf")));
}

/// A recording that is played faster than it was made.
void TestPipeline::followsTheSignalsClock()
{
    FakeScript script;
    script.value = alphaWave;
    FakeAmplifier device(script);
    DataCompound compound(&device, plainMontage(2));
    ResultReceiver receiver;
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    QSignalSpy times(&compound, &DataCompound::recordDurationChanged);
    compound.setAlgorithmParams(&receiver, {rhythm(QStringLiteral("alpha"), "8", "14")});
    compound.setSignalClock(true);
    const QDateTime start(QDate(2001, 2, 3), QTime(4, 5, 6));
    compound.setRecordStartTime(start);
    const QString file = path(QStringLiteral("played.edf"));
    compound.startRecord(file, true, true, 5); // 50 blocks of 100 ms, one every 5 ms
    compound.startReadData();
    QTRY_VERIFY_WITH_TIMEOUT(times.size() > 5, kTimeoutMs);
    compound.slotSetLabelToEDF(QStringLiteral("now"));
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);

    for (int i = 1; i < times.size(); ++i) { // the first is that of startRecord()
        QCOMPARE(times[i][0].toLongLong(), qint64{100} * i);
    }
    EDFReader reader(file);
    QVERIFY(reader.open());
    QCOMPARE(reader.getChannelData(0, 0, 10000).size(), std::size_t{5 * 250});
    QCOMPARE(reader.annotations().size(), 1);
    const double onset = reader.annotations().constFirst().onset * 10.0;
    QVERIFY(onset >= 5.0 && std::fabs(onset - std::round(onset)) < 0.001); // at a block's end
    QFile header(file);
    QVERIFY(header.open(QIODevice::ReadOnly));
    QVERIFY(header.read(256).contains("03.02.0104.05.06"));
    XLSReader sheet(file);
    QHash<QString, RhythmData> data;
    QVERIFY(sheet.readData(data));
    QCOMPARE(sheet.getDataCount(), 25);
}

void TestPipeline::leavesAHungDeviceBehind_data()
{
    QTest::addColumn<bool>("busy");
    QTest::newRow("waiting for something") << false;
    QTest::newRow("never waiting") << true;
}

void TestPipeline::leavesAHungDeviceBehind()
{
    QFETCH(bool, busy);
    FakeScript script;
    script.hangAtRead = 15;
    script.hangsBusy = busy;
    FakeAmplifier hung(script);
    FakeAmplifier next;
    const QString first = path(QStringLiteral("hung_%1.edf").arg(busy));
    const QString second = path(QStringLiteral("next_%1.edf").arg(busy));
    {
        DataCompound compound(&hung, plainMontage(2));
        QSignalSpy blocks(&compound, &DataCompound::newSampleData);
        QSignalSpy errors(&compound, &DataCompound::recordError);
        QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
        compound.startRecord(first, true, false, 0);
        compound.startReadData();
        QTRY_VERIFY_WITH_TIMEOUT(hung.isHanging(), kTimeoutMs);
        compound.slotSetLabelToEDF(QStringLiteral("hangs"));
        QVERIFY(compound.setNewAmplifier(&next, plainMontage(2)));
        QCOMPARE(errors.size(), busy ? 0 : 1);
        QCOMPARE(closed.size(), busy ? 0 : 1);
        blocks.clear();
        compound.startReadData();
        compound.startRecord(second, true, false, 0);
        QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > 15, kTimeoutMs);
    }
    hung.release();
    const auto labels = [](const QString &file) {
        EDFReader reader(file);
        return reader.open() ? reader.annotations().size() : -1;
    };
    QTRY_COMPARE_WITH_TIMEOUT(labels(first), 1, kTimeoutMs);
    QCOMPARE(labels(second), 0);
    QCOMPARE(hung.stops.load(), 0);
}

/// A wide montage whose host does not come to its events: the memory stays bounded, and what is missing is reported.
void TestPipeline::boundsWhatWaitsForTheHost()
{
    constexpr int kChannels = 500;
    FakeScript script;
    script.rate = 4000.0f; // a block's buffer takes 4 MB
    script.blockSize = 400;
    script.errorAfterReads = 300;
    FakeAmplifier device(script);
    DataCompound compound(&device, montageOf(std::vector<Inputs>(kChannels, {1, 0})));
    qint64 samples = 0;
    std::size_t bytes = 0;
    connect(&compound, &DataCompound::newSampleData, [&](const std::vector<float> &data, int count) {
        samples += count / kChannels;
        bytes += data.size() * sizeof(float);
    });
    qint64 missed = 0;
    connect(&compound, &DataCompound::samplesMissed, [&missed](qint64 count) { missed += count; });
    QSignalSpy ended(&compound, &DataCompound::currentDeviceReturnError);
    compound.startReadData();
    while (device.reads.load() <= script.errorAfterReads) {
        QThread::msleep(1); // the host does not come to its events
    }
    QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, kTimeoutMs);
    QVERIFY(missed > 0);
    QCOMPARE(samples + missed, qint64{script.errorAfterReads} * script.blockSize);
    QVERIFY2(bytes < 160e6, qPrintable(QString::number(bytes)));
}

void TestPipeline::restartsTenTimes()
{
    FakeAmplifier device;
    DataCompound compound(&device, plainMontage(2));
    QSignalSpy blocks(&compound, &DataCompound::newSampleData);
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    for (int round = 0; round < 10; ++round) {
        blocks.clear();
        closed.clear();
        compound.startRecord(path(QStringLiteral("round_%1.edf").arg(round)), true, false, 0);
        QVERIFY(compound.startReadData());
        for (int i = 0; i < 5; ++i) {
            compound.slotSetLabelToEDF(QStringLiteral("label %1").arg(i));
        }
        QTRY_VERIFY_WITH_TIMEOUT(blocks.size() > 12, kTimeoutMs);
        QVERIFY(compound.setNewAmplifier(&device, plainMontage(2)));
        compound.slotTakeCurrentState(static_cast<unsigned char>(round));
        compound.updateAlgorithm(UnitParams());
        compound.stopRecord();
        QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);
        QVERIFY(compound.stopReadData()); // and starts again at once
        EDFReader reader(path(QStringLiteral("round_%1.edf").arg(round)));
        QVERIFY(reader.open());
        QVERIFY(reader.annotations().size() >= 5);
    }
    QVERIFY(!compound.setNewAmplifier(&device, QSharedPointer<Montage>::create()));
    QVERIFY(!compound.isDataCompoundReady());
    QCOMPARE(device.starts.load(), device.stops.load());
}

void TestPipeline::allocatesNothingPerBlock()
{
    if (!AllocationCounter::isActive) {
        QSKIP("Nothing counts allocations under this sanitizer");
    }
    const auto allocationsOf = [this](int blocks) {
        FakeScript script;
        script.channels = 8;
        script.errorAfterReads = blocks;
        script.value = [](int c, qint64 k) { return static_cast<float>(c + k % 7); };
        FakeAmplifier device(script);
        QSharedPointer<Montage> montage = plainMontage(8);
        for (unsigned i = 0; i < montage->size(); ++i) {
            (*montage)[i]->setLPF(30.0f);
            (*montage)[i]->setHPF(0.5f);
            (*montage)[i]->setBSF(50.0f);
        }
        DataReader reader; // nobody listens, so that no copy is made
        reader.setNewMontage(&device, montage);
        reader.setRecordPath(path(QStringLiteral("heap.edf")));
        reader.setWriteStateTime(0);
        reader.runningThread(true);
        reader.setWriteDataFlag(true, false);
        const long before = AllocationCounter::count.load();
        reader.run();
        return AllocationCounter::count.load() - before;
    };
    for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
        BPCommon::setLogMode(static_cast<BPCommon::LogEvent>(event), false);
    }
    const long few = allocationsOf(10);
    const long many = allocationsOf(110);
    for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
        BPCommon::setLogMode(static_cast<BPCommon::LogEvent>(event), true);
    }
    // The fake notes each read in a list of texts that it drops again.
    const long perBlockOfTheFake = 1;
    QVERIFY2(many - few <= 100 * perBlockOfTheFake, qPrintable(QString::number(many - few)));
}

void TestPipeline::writesRhythmsBesideTheRecording()
{
    FakeScript script;
    script.value = alphaWave;
    FakeAmplifier device(script);
    DataCompound compound(&device, plainMontage(2));
    ResultReceiver receiver;
    QSignalSpy closed(&compound, &DataCompound::endWritingAndCloseFile);
    compound.setAlgorithmParams(
        &receiver, {rhythm(QStringLiteral("alpha"), "8", "14"), rhythm(QStringLiteral("beta"), "14", "35")});
    compound.startReadData();
    compound.startRecord(path(QStringLiteral("rhythms.edf")), true, true, 2);
    QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, kTimeoutMs);
    QVERIFY(receiver.results.value(QStringLiteral("alpha")) > 10);
    compound.stopReadData();
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(path(QStringLiteral("rhythms_rt.xls"))), kTimeoutMs);

    XLSReader reader(path(QStringLiteral("rhythms.edf")));
    QVERIFY2(reader.isOpened(), qPrintable(reader.lastError()));
    QHash<QString, RhythmData> data;
    QVERIFY(reader.readData(data));
    QCOMPARE(data.size(), 2);
    QVERIFY(reader.getDataCount() >= 9 && reader.getDataCount() <= 11); // two seconds, a row every 200 ms
    QVERIFY(data[QStringLiteral("alpha")].maximum > 50); // a pure tone in the band
    QVERIFY(data[QStringLiteral("alpha")].average > data[QStringLiteral("beta")].average);
}

void TestPipeline::keepsParameterSetsWholeUnderUpdates()
{
    FakeScript script;
    script.value = alphaWave;
    FakeAmplifier device(script);
    DataCompound compound(&device, plainMontage(2));
    ResultReceiver receiver;
    const UnitParams low = rhythm(QStringLiteral("alpha"), "8", "14");
    const UnitParams high = rhythm(QStringLiteral("alpha"), "14", "35");
    const UnitParams other = rhythm(QStringLiteral("beta"), "14", "35");
    const UnitParams formula = ParamFactory::makeCustomProperty(QStringLiteral("Math"));
    compound.setAlgorithmParams(&receiver, {low});
    compound.startReadData();
    for (int i = 0; i < 3000; ++i) {
        switch (i % 5) {
        case 0:
            compound.updateAlgorithm(high);
            break;
        case 1:
            compound.updateAlgorithm(std::vector<UnitParams>{low, other});
            break;
        case 2:
            compound.resetAlgorithm({low, other});
            break;
        case 3:
            compound.setAlgorithmParams(&receiver, {low, formula, other});
            break;
        default:
            compound.setAlgorithmParams(&receiver, {high});
            break;
        }
        if (i % 100 == 0) {
            QCoreApplication::processEvents();
        }
    }
    compound.setAlgorithmParams(&receiver, {low, other});
    receiver.results.clear();
    QTRY_VERIFY_WITH_TIMEOUT(receiver.results.value(QStringLiteral("beta")) > 2, kTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(receiver.results.value(QStringLiteral("alpha")) > 2, kTimeoutMs);
    const QSet<QString> whole{QStringLiteral("8-14"), QStringLiteral("14-35")};
    QVERIFY(whole.contains(receiver.bands)); // never the one's minimum with the other's maximum
}

BP_TEST_MAIN(TestPipeline)
#include "TestPipeline.moc"
