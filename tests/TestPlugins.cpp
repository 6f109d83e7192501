#include "../plugins/pacing/DevicePacer.h"
#include "support/DeviceRun.h"
#include "support/HandmadeEdf.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "devices/Amplifier.h"
#include "devices/AmplifierChannel.h"
#include "devices/AmplifierHelper.h"
#include "montage/Montage.h"

#include <QDir>
#include <QPluginLoader>
#include <QTemporaryDir>

#include <cmath>

namespace {

using Params = QMap<QString, QString>;

constexpr double kTwoPi = 6.283185307179586;
constexpr std::size_t kEverything = 1000000000;

QString text(double number)
{
    return QString::number(number);
}

AmplifierHelper *loadHelper(const QString &name)
{
    const QDir folder(QCoreApplication::applicationDirPath() + QStringLiteral("/HalvinDevices/") + name);
    for (const QString &file : folder.entryList(QDir::Files)) {
        QPluginLoader loader(folder.absoluteFilePath(file));
        if (auto *helper = qobject_cast<AmplifierHelper *>(loader.instance())) {
            return helper;
        }
        qWarning("%s", qPrintable(loader.errorString()));
    }
    return nullptr;
}

/// Power of one frequency, as the amplitude squared of a sinusoid that has it (Goertzel).
double powerAt(const std::vector<float> &signal, std::size_t from, std::size_t count, double hz, double rate)
{
    const double coefficient = 2.0 * std::cos(kTwoPi * hz / rate);
    double last = 0.0;
    double beforeLast = 0.0;
    for (std::size_t i = from; i < from + count; ++i) {
        const double now = static_cast<double>(signal[i]) + coefficient * last - beforeLast;
        beforeLast = std::exchange(last, now);
    }
    const double power = last * last + beforeLast * beforeLast - coefficient * last * beforeLast;
    return power * 4.0 / (static_cast<double>(count) * static_cast<double>(count));
}

/// Positions of the local maxima above the threshold, one per excursion.
std::vector<std::size_t> peaksAbove(const std::vector<float> &signal, float threshold)
{
    std::vector<std::size_t> peaks;
    bool above = false;
    for (std::size_t i = 0; i < signal.size(); ++i) {
        if (signal[i] > threshold && !above) {
            peaks.push_back(i);
        } else if (signal[i] > threshold && signal[i] > signal[peaks.back()]) {
            peaks.back() = i;
        }
        above = signal[i] > threshold;
    }
    return peaks;
}

double rms(const std::vector<float> &signal, double fromSecond, double toSecond, double rate)
{
    double sum = 0.0;
    const auto from = static_cast<std::size_t>(fromSecond * rate);
    const auto to = static_cast<std::size_t>(toSecond * rate);
    for (std::size_t i = from; i < to; ++i) {
        sum += static_cast<double>(signal[i]) * static_cast<double>(signal[i]);
    }
    return std::sqrt(sum / static_cast<double>(to - from));
}

/// Channels of "Simulator 8".
enum SimulatedChannel : std::size_t { Fp1 = 0, C3 = 2, O1 = 6, Ecg = 8, Emg = 9, Ppg = 13, Temp = 14 };

} // namespace

class TestPlugins : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    void pacerDoesNotDrift_data();
    void pacerDoesNotDrift();
    void pacerWithoutPace();

    void simulatorDescribesItself_data();
    void simulatorDescribesItself();
    void sameSeedSameSamples_data();
    void sameSeedSameSamples();
    void anotherSeedOtherSamples();
    void backgroundIsTheSameAtEveryRate_data();
    void backgroundIsTheSameAtEveryRate();
    void alphaFollowsTheEyes();
    void mainsHum();
    void heartBeats_data();
    void heartBeats();
    void muscleRestsAndContracts();
    void simulatorFaultsLoseNothing_data();
    void simulatorFaultsLoseNothing();
    void simulatorRefusesToStart();
    void simulatorEnds_data();
    void simulatorEnds();
    void simulatorImpedance();

    void playbackGivesMicrovolts();
    void playbackNamesWhatItLeavesOut();
    void playbackRange_data();
    void playbackRange();
    void playbackOfOddRecords_data();
    void playbackOfOddRecords();
    void playbackAnnotations();
    void playbackRefuses_data();
    void playbackRefuses();
    void playbackKeepsItsFileWhileRunning();

private:
    Amplifier &simulator(int index, const Params &params);
    /// A fast run of "Simulator 8" in the reader's blocks of half a second.
    DeviceRun simulate(Params params, double seconds);
    QString path(const QString &name) const { return m_folder.filePath(name); }

    AmplifierHelper *m_simulators = nullptr;
    Amplifier *m_playback = nullptr;
    QTemporaryDir m_folder;
};

void TestPlugins::initTestCase()
{
    m_simulators = loadHelper(QStringLiteral("Simulator"));
    QVERIFY(m_simulators != nullptr);
    AmplifierHelper *playback = loadHelper(QStringLiteral("Playback"));
    QVERIFY(playback != nullptr);
    QList<Amplifier *> devices;
    playback->findDevices(devices);
    playback->findDevices(devices);
    QCOMPARE(devices.size(), 2);
    QCOMPARE(devices[0], devices[1]);
    m_playback = devices[0];
    QVERIFY(m_folder.isValid());
}

Amplifier &TestPlugins::simulator(int index, const Params &params)
{
    QList<Amplifier *> devices;
    m_simulators->findDevices(devices);
    DeviceRun::configure(*devices[index], params);
    return *devices[index];
}

DeviceRun TestPlugins::simulate(Params params, double seconds)
{
    params.insert(QStringLiteral("speed"), QStringLiteral("0"));
    Amplifier &device = simulator(0, params);
    const auto rate = static_cast<double>(device.getFreqValue());
    return DeviceRun::of(device, {static_cast<int>(rate * 0.5) * 15}, static_cast<std::size_t>(rate * seconds));
}

void TestPlugins::pacerDoesNotDrift_data()
{
    QTest::addColumn<double>("rate");
    QTest::addColumn<double>("speed");
    QTest::addColumn<qint64>("inAnHour");
    QTest::newRow("250 Hz") << 250.0 << 1.0 << qint64(900000);
    QTest::newRow("a fractional rate") << 12.8 << 1.0 << qint64(46080);
    QTest::newRow("slower than real time") << 360.0 << 0.5 << qint64(648000);
    QTest::newRow("faster") << 2000.0 << 7.0 << qint64(50400000);
}

void TestPlugins::pacerDoesNotDrift()
{
    QFETCH(double, rate);
    QFETCH(double, speed);
    QFETCH(qint64, inAnHour);
    const std::chrono::nanoseconds hour = std::chrono::hours(1);
    std::chrono::nanoseconds now = std::chrono::hours(70000);
    const std::chrono::nanoseconds start = now;
    DevicePacer pacer([&now] { return now; });
    pacer.start(rate, speed);
    qint64 taken = 0;
    for (int read = 0; now - start < hour; ++read) {
        // Periods that no sampling interval divides; now and then the reader is away for four seconds.
        now = std::min(now + std::chrono::nanoseconds(read % 1000 == 999 ? 4000000007 : 50333333), start + hour);
        const qint64 available = pacer.available();
        QVERIFY(available >= 0);
        pacer.take(available);
        taken += available;
    }
    QCOMPARE(taken, inAnHour);
}

void TestPlugins::pacerWithoutPace()
{
    DevicePacer pacer([] { return std::chrono::nanoseconds(5); });
    pacer.start(250.0, 0.0);
    pacer.take(1000000);
    QVERIFY(pacer.available() > 1000000);
}

void TestPlugins::simulatorDescribesItself_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("serial");
    QTest::addColumn<int>("channels");
    QTest::addColumn<QString>("lastElectrode");
    QTest::newRow("8") << 0 << "SIM-8" << 15 << "O2";
    QTest::newRow("19") << 1 << "SIM-19" << 26 << "O2";
    QTest::newRow("32") << 2 << "SIM-32" << 39 << "O2";
}

void TestPlugins::simulatorDescribesItself()
{
    QFETCH(int, index);
    QFETCH(QString, serial);
    QFETCH(int, channels);
    QFETCH(QString, lastElectrode);
    Amplifier &device = simulator(index, {});
    QCOMPARE(device.getAmplifierInfo().serial(), serial);
    QCOMPARE(device.getAmplifierInfo().channels(), channels);
    const QSharedPointer<Montage> montage = device.getMontage();
    QCOMPARE(montage->size(), static_cast<unsigned>(channels));
    QCOMPARE(montage->getChannelNames().removeDuplicates(), 0);
    for (unsigned i = 0; i < montage->size(); ++i) {
        QCOMPARE((*montage)[i]->getGroup1(), i + 1);
        QCOMPARE((*montage)[i]->getGroup2(), 0u);
    }
    const auto electrodes = static_cast<unsigned>(channels) - 7;
    QCOMPARE((*montage)[electrodes - 1]->getName(), lastElectrode);
    for (unsigned type = BPCommon::ECG; type <= BPCommon::Temp; ++type) {
        QCOMPARE(static_cast<unsigned>((*montage)[electrodes + type - 1]->getChannelType()), type);
    }
    QVERIFY(device.setFreqValue(900.0f));
    QCOMPARE(device.getFreqValue(), 1000.0f);
    QCOMPARE(device.getAmplifierInfo().getCurrentFreqValue(), 1000.0f);
    DeviceRun::configure(device, {{QStringLiteral("frequency"), QStringLiteral("1")}});
    QCOMPARE(device.getFreqValue(), 500.0f);
    QCOMPARE(device.getAmplifierInfo().getCurrentFreqValue(), 500.0f);
}

void TestPlugins::sameSeedSameSamples_data()
{
    QTest::addColumn<Params>("params");
    QTest::addColumn<QVector<int>>("capacities");
    const Params fast{{QStringLiteral("speed"), QStringLiteral("0")}};
    Params limited = fast;
    limited.insert(QStringLiteral("block"), QStringLiteral("3"));
    QTest::newRow("a sample at a time") << fast << QVector<int>{15};
    QTest::newRow("uneven blocks, rests of capacity") << fast << QVector<int>{15, 7 * 15 + 14, 331 * 15 + 1, 29};
    QTest::newRow("one long block") << fast << QVector<int>{15 * 1500};
    QTest::newRow("a block limit") << limited << QVector<int>{15 * 125};
}

void TestPlugins::sameSeedSameSamples()
{
    QFETCH(Params, params);
    QFETCH(QVector<int>, capacities);
    const DeviceRun expected = simulate({}, 6.0);
    DeviceRun run = DeviceRun::of(simulator(0, params), std::vector<int>(capacities.begin(), capacities.end()), 1500);
    QCOMPARE(run.breach, QString());
    for (std::size_t c = 0; c < run.channels.size(); ++c) {
        run.channels[c].resize(1500);
        QVERIFY2(run.channels[c] == expected.channels[c], qPrintable(QString::number(c)));
    }
}

void TestPlugins::anotherSeedOtherSamples()
{
    const DeviceRun first = simulate({}, 1.0);
    const DeviceRun second = simulate({{QStringLiteral("seed"), QStringLiteral("2")}}, 1.0);
    for (const std::size_t channel : {Fp1, O1, Ecg, Emg, Temp}) {
        QVERIFY(first.channels[channel] != second.channels[channel]);
    }
    QVERIFY(first.channels[Fp1] != first.channels[C3]);
}

void TestPlugins::backgroundIsTheSameAtEveryRate_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<double>("rate");
    QTest::newRow("250") << 0 << 250.0;
    QTest::newRow("500") << 1 << 500.0;
    QTest::newRow("1000") << 2 << 1000.0;
    QTest::newRow("2000") << 3 << 2000.0;
}

/// An electrode's background has 25/f µV²/Hz. The power of a bin of T seconds is 2/T of the density, with one degree of
/// scatter per bin and window: 120 windows of 2 s, a few bins each, keep the mean within some 6 %.
void TestPlugins::backgroundIsTheSameAtEveryRate()
{
    QFETCH(int, index);
    QFETCH(double, rate);
    const Params params{{QStringLiteral("frequency"), QString::number(index)},
                        {QStringLiteral("mains_amp"), QStringLiteral("0")},
                        {QStringLiteral("eyes_period"), QStringLiteral("0")}};
    const DeviceRun run = simulate(params, 240.0);
    const auto window = static_cast<std::size_t>(2.0 * rate);
    for (const double centre : {25.0, 80.0}) {
        double relative = 0.0;
        int bins = 0;
        for (std::size_t from = 0; from + window <= run.samples(); from += window) {
            for (double hz = centre - 2.0; hz <= centre + 2.0; hz += 1.0, ++bins) {
                relative += powerAt(run.channels[C3], from, window, hz, rate) * (2.0 / 2.0) * hz / 25.0;
            }
        }
        const double ratio = relative / bins;
        QVERIFY2(std::abs(ratio - 1.0) < 0.2, qPrintable(QStringLiteral("%1 Hz: %2").arg(centre).arg(ratio)));
    }
}

void TestPlugins::alphaFollowsTheEyes()
{
    const DeviceRun run = simulate({{QStringLiteral("eyes_period"), QStringLiteral("10")}}, 80.0);
    const auto power = [&run](std::size_t channel, double second, double hz) {
        double sum = 0.0;
        for (int window = 0; window < 8; ++window) {
            sum += powerAt(run.channels[channel], static_cast<std::size_t>((second + window) * 250.0), 250, hz, 250.0);
        }
        return sum / 8.0;
    };
    for (const double open : {1.0, 21.0, 41.0, 61.0}) {
        const double closed = open + 10.0;
        QVERIFY(power(O1, closed, 10.0) > 5.0 * power(O1, open, 10.0));
        QVERIFY(power(O1, closed, 10.0) > 20.0 * power(O1, closed, 15.0));
        QVERIFY(power(O1, closed, 10.0) > 10.0 * power(Fp1, closed, 10.0));
    }
    // Blinks stand out of the frontal background only while the eyes are open.
    const std::vector<std::size_t> blinks = peaksAbove(run.channels[10], 120.0f);
    QVERIFY(blinks.size() >= 5);
    for (const std::size_t blink : blinks) {
        QVERIFY(blink / 2500 % 2 == 0);
    }
}

void TestPlugins::mainsHum()
{
    const DeviceRun run = simulate(
        {{QStringLiteral("mains_freq"), QStringLiteral("60")}, {QStringLiteral("mains_amp"), QStringLiteral("20")}},
        10.0);
    for (const std::size_t channel : {Fp1, O1, Ecg}) {
        QVERIFY(std::abs(std::sqrt(powerAt(run.channels[channel], 0, 2500, 60.0, 250.0)) - 20.0) < 1.0);
        QVERIFY(powerAt(run.channels[channel], 0, 2500, 50.0, 250.0) < 1.0);
    }
    QVERIFY(powerAt(run.channels[Temp], 0, 2500, 60.0, 250.0) < 1e-4);
}

void TestPlugins::heartBeats_data()
{
    QTest::addColumn<double>("rate");
    QTest::newRow("slow") << 45.0;
    QTest::newRow("at rest") << 72.0;
    QTest::newRow("fast") << 150.0;
}

void TestPlugins::heartBeats()
{
    QFETCH(double, rate);
    const DeviceRun run = simulate({{QStringLiteral("heart_rate"), text(rate)}}, 120.0);
    const std::vector<std::size_t> beats = peaksAbove(run.channels[Ecg], 700.0f);
    const double perMinute =
        static_cast<double>(beats.size() - 1) * 60.0 * 250.0 / static_cast<double>(beats.back() - beats.front());
    QVERIFY2(std::abs(perMinute - rate) < 0.02 * rate, qPrintable(text(perMinute)));
    // Intervals vary, and each R peak is followed by its pulse wave about 0.35 s later.
    QVERIFY(beats[2] - beats[1] != beats[3] - beats[2] || beats[4] - beats[3] != beats[3] - beats[2]);
    const std::vector<std::size_t> pulses = peaksAbove(run.channels[Ppg], 80.0f);
    QVERIFY(pulses.size() + 1 >= beats.size());
    for (std::size_t beat = 0; beat + 2 < beats.size(); ++beat) {
        const auto pulse = std::upper_bound(pulses.begin(), pulses.end(), beats[beat] + 50);
        QVERIFY(pulse != pulses.end());
        QVERIFY(std::abs(static_cast<double>(*pulse - beats[beat]) / 250.0 - 0.35) < 0.03);
    }
}

void TestPlugins::muscleRestsAndContracts()
{
    const DeviceRun run = simulate({{QStringLiteral("mains_amp"), QStringLiteral("0")}}, 20.0);
    for (double cycle = 0.0; cycle < 20.0; cycle += 5.0) {
        const double rest = rms(run.channels[Emg], cycle + 0.1, cycle + 2.9, 250.0);
        const double contraction = rms(run.channels[Emg], cycle + 3.2, cycle + 4.8, 250.0);
        QVERIFY(contraction > 20.0 * rest);
    }
}

void TestPlugins::simulatorFaultsLoseNothing_data()
{
    QTest::addColumn<Params>("fault");
    QTest::addColumn<int>("capacity");
    QTest::addColumn<QVector<int>>("counts");
    QTest::addColumn<QVector<int>>("remainders");
    const auto fault = [](const char *key, const char *value) {
        return Params{{QLatin1String(key), QLatin1String(value)}};
    };
    QTest::newRow("none") << Params() << 15 * 400 << QVector<int>{400, 400, 200} << QVector<int>{0, 0, 0};
    QTest::newRow("no samples every second read")
        << fault("zero_every", "2") << 15 * 400 << QVector<int>{400, 0, 400, 0, 200} << QVector<int>{0, 0, 0, 0, 0};
    // The first read fits; the second leaves half of the 600 that are left, the fourth finds everything read.
    QTest::newRow("remainder every second read")
        << fault("remainder_every", "2") << 15 * 400 << QVector<int>{400, 300} << QVector<int>{0, 300 * 15};
    // Of 1000 due samples a block and another one behind it are announced.
    QTest::newRow("remainder beyond the block")
        << fault("remainder_every", "1") << 15 * 300 << QVector<int>{300, 200} << QVector<int>{300 * 15, 200 * 15};
    QTest::newRow("half of them late") << fault("late_percent", "50") << 15 * 1000
                                       << QVector<int>{500, 250, 125, 63, 31, 16, 8, 4, 2, 1} << QVector<int>(10, 0);
    QTest::newRow("block limit") << fault("block", "400") << 15 * 1000 << QVector<int>{400, 400, 200}
                                 << QVector<int>{0, 0, 0};
}

void TestPlugins::simulatorFaultsLoseNothing()
{
    QFETCH(Params, fault);
    QFETCH(int, capacity);
    QFETCH(QVector<int>, counts);
    QFETCH(QVector<int>, remainders);
    const DeviceRun expected = simulate({}, 4.0);
    fault.insert(QStringLiteral("speed"), QStringLiteral("0"));
    fault.insert(QStringLiteral("duration"), QStringLiteral("4"));
    DeviceRun run = DeviceRun::of(simulator(0, fault), {capacity}, kEverything);
    QCOMPARE(run.breach, QString());
    QCOMPARE(run.code, int(Amplifier::kEndOfData));
    run.counts.resize(static_cast<std::size_t>(counts.size()));
    run.remainders.resize(static_cast<std::size_t>(counts.size()));
    QCOMPARE(QVector<int>(run.counts.begin(), run.counts.end()), counts);
    QCOMPARE(QVector<int>(run.remainders.begin(), run.remainders.end()), remainders);
    QVERIFY(run.channels == expected.channels);
}

void TestPlugins::simulatorRefusesToStart()
{
    Amplifier &device = simulator(0, {{QStringLiteral("refuse_start"), QStringLiteral("1")}});
    QVERIFY(!device.startAcquisition());
    QVERIFY(!device.isAcquisitionRunning());
    float block[15];
    int remainder = 0;
    QVERIFY(device.readData(15, block, remainder) < 0);
    DeviceRun::configure(device, {});
    QVERIFY(device.startAcquisition());
    device.stopAcquisition();
}

void TestPlugins::simulatorEnds_data()
{
    QTest::addColumn<Params>("params");
    QTest::addColumn<std::size_t>("samples");
    QTest::addColumn<int>("code");
    const auto params = [](const char *duration, const char *code, const char *after) {
        return Params{{QStringLiteral("speed"), QStringLiteral("0")},
                      {QStringLiteral("duration"), QLatin1String(duration)},
                      {QStringLiteral("error_code"), QLatin1String(code)},
                      {QStringLiteral("error_after"), QLatin1String(after)}};
    };
    const int endOfData = Amplifier::kEndOfData;
    QTest::newRow("end of the signal") << params("2.5", "0", "0") << std::size_t(625) << endOfData;
    QTest::newRow("error") << params("0", "-42", "1.5") << std::size_t(375) << -42;
    QTest::newRow("error at once") << params("0", "-42", "0") << std::size_t(0) << -42;
    QTest::newRow("end before the error") << params("1", "-42", "2") << std::size_t(250) << endOfData;
    QTest::newRow("end and error together") << params("1", "-42", "1") << std::size_t(250) << endOfData;
}

/// The reader leaves its loop without stopAcquisition() after an error; the next start must begin afresh.
void TestPlugins::simulatorEnds()
{
    QFETCH(Params, params);
    QFETCH(std::size_t, samples);
    QFETCH(int, code);
    Amplifier &device = simulator(0, params);
    const DeviceRun first = DeviceRun::of(device, {125 * 15}, kEverything);
    QCOMPARE(first.samples(), samples);
    QCOMPARE(first.code, code);
    QVERIFY(!device.isAcquisitionRunning());
    QVERIFY(!device.getErrorText(code).isEmpty());
    const DeviceRun second = DeviceRun::of(device, {125 * 15}, kEverything);
    QVERIFY(second.channels == first.channels);
    QCOMPARE(second.code, code);
}

void TestPlugins::simulatorImpedance()
{
    Amplifier &device = simulator(0, {{QStringLiteral("speed"), QStringLiteral("0")}});
    std::vector<unsigned> impedance;
    DeviceRun::of(device, {125 * 15}, 125);
    QVERIFY(!device.isImpedanceReady(impedance));
    device.takeImpedanceData(true);
    std::vector<float> block(125 * 15);
    int remainder = 0;
    device.readData(125 * 15, block.data(), remainder);
    QVERIFY(device.isImpedanceReady(impedance));
    QCOMPARE(impedance.size(), std::size_t(15));
    QVERIFY(impedance[O1] > 1000 && impedance[O1] < 20000);
    QCOMPARE(impedance[Temp], 0u);
    std::vector<unsigned> later;
    for (int halfSecond = 0; halfSecond < 2; ++halfSecond) {
        device.readData(125 * 15, block.data(), remainder);
    }
    QVERIFY(device.isImpedanceReady(later));
    QVERIFY(later != impedance);
    device.takeImpedanceData(false);
    device.readData(125 * 15, block.data(), remainder);
    QVERIFY(!device.isImpedanceReady(later));
    device.stopAcquisition();
}

void TestPlugins::playbackGivesMicrovolts()
{
    HandmadeEdf file;
    file.records = 3;
    const auto ramp = [](int i) { return 10 * i - 100; };
    file.signalList = {{" EEG Fp1-A2", "uV", 50, ramp},  {"ECG MLII", "mV", 50, ramp}, {"EMG chin", "nV", 50, ramp},
                       {"EEG Cz", "V", 50, ramp},        {"EEG C3", "MV", 50, ramp},   {"EEG C4", "", 50, ramp},
                       {"Temp rectal", "degC", 50, ramp}};
    QVERIFY(m_playback->setFilePath(file.writeTo(path(QStringLiteral("units.edf")))));
    const AmplifierInfo info = m_playback->getAmplifierInfo();
    QCOMPARE(info.name(), QStringLiteral("Playback"));
    QCOMPARE(info.serial(), QStringLiteral("PLAYBACK"));
    QCOMPARE(m_playback->getFreqValue(), 50.0f);
    const QSharedPointer<Montage> montage = m_playback->getMontage();
    QCOMPARE(montage->getChannelNames().first(), QStringLiteral("EEG Fp1-A2"));
    QCOMPARE((*montage)[1]->getChannelType(), BPCommon::ECG);
    QCOMPARE((*montage)[6]->getChannelType(), BPCommon::Temp);

    DeviceRun::configure(*m_playback, {{QStringLiteral("speed"), QStringLiteral("0")}});
    const DeviceRun run = DeviceRun::of(*m_playback, {25 * 7, 7, 3 * 7 + 6}, kEverything);
    QCOMPARE(run.breach, QString());
    QCOMPARE(run.code, int(Amplifier::kEndOfData));
    QCOMPARE(run.samples(), std::size_t(150));
    const double factors[]{1.0, 1e3, 1e-3, 1e6, 1.0, 1.0, 1.0};
    for (std::size_t c = 0; c < 7; ++c) {
        for (int i = 0; i < 150; ++i) {
            // A tenth of the unit per step, inverted when it is read.
            const auto expected = static_cast<float>(-0.1 * ramp(i) * factors[c]);
            const float value = run.channels[c][static_cast<std::size_t>(i)];
            QVERIFY(std::abs(value - expected) <= 1e-4f * std::abs(expected) + 1e-6f);
        }
    }
    // It starts again after its end, without having been stopped.
    QVERIFY(DeviceRun::of(*m_playback, {25 * 7}, kEverything).channels == run.channels);
}

void TestPlugins::playbackNamesWhatItLeavesOut()
{
    HandmadeEdf file;
    const auto zero = [](int) { return 0; };
    file.signalList = {{"Resp oro-nasal", "", 1, zero},
                       {"EEG Fpz-Cz", "uV", 100, zero},
                       {"Temp rectal", "degC", 10, zero},
                       {"EOG", "uV", 100, zero}};
    TraceCapture trace;
    QVERIFY(m_playback->setFilePath(file.writeTo(path(QStringLiteral("mixed.edf")))));
    QCOMPARE(m_playback->getAmplifierInfo().channels(), 2);
    QCOMPARE(m_playback->getMontage()->getChannelNames(),
             QStringList({QStringLiteral("EEG Fpz-Cz"), QStringLiteral("EOG")}));
    m_playback->returnDefaultValue();
    Params values;
    m_playback->getCurrentPropValue(values);
    QCOMPARE(values[QStringLiteral("left_out")], QStringLiteral("Resp oro-nasal;Temp rectal"));
    QCOMPARE(trace.count(QStringLiteral("left out: Resp oro-nasal;Temp rectal")), 1);
}

void TestPlugins::playbackRange_data()
{
    QTest::addColumn<Params>("params");
    QTest::addColumn<std::size_t>("samples");
    QTest::addColumn<QVector<int>>("expected"); ///< file samples at every 50th sample delivered
    QTest::addColumn<int>("code");
    const auto params = [](const char *start, const char *repeat, const char *duration) {
        return Params{{QStringLiteral("speed"), QStringLiteral("0")},
                      {QStringLiteral("start"), QLatin1String(start)},
                      {QStringLiteral("repeat"), QLatin1String(repeat)},
                      {QStringLiteral("duration"), QLatin1String(duration)}};
    };
    const int end = Amplifier::kEndOfData;
    QTest::newRow("from an offset") << params("2.5", "0", "0") << std::size_t(150) << QVector<int>{250, 300, 350}
                                    << end;
    QTest::newRow("for a time") << params("1", "0", "1.5") << std::size_t(150) << QVector<int>{100, 150, 200} << end;
    QTest::newRow("longer than it is") << params("3", "0", "9") << std::size_t(100) << QVector<int>{300, 350} << end;
    QTest::newRow("repeated for a time") << params("3.5", "1", "2") << std::size_t(200)
                                         << QVector<int>{350, 350, 350, 350} << end;
    QTest::newRow("repeated for ever") << params("2", "1", "0") << std::size_t(500)
                                       << QVector<int>{200, 250, 300, 350, 200, 250, 300, 350, 200, 250} << 0;
    QTest::newRow("from beyond the end") << params("100", "0", "0") << std::size_t(0) << QVector<int>() << end;
    QTest::newRow("repeating nothing") << params("100", "1", "0") << std::size_t(0) << QVector<int>() << end;
}

void TestPlugins::playbackRange()
{
    QFETCH(Params, params);
    QFETCH(std::size_t, samples);
    QFETCH(QVector<int>, expected);
    QFETCH(int, code);
    HandmadeEdf file;
    file.records = 4;
    file.signalList = {{"EEG Cz", "uV", 100, [](int i) { return -10 * i; }}};
    QVERIFY(m_playback->setFilePath(file.writeTo(path(QStringLiteral("range.edf")))));
    DeviceRun::configure(*m_playback, params);
    const DeviceRun run = DeviceRun::of(*m_playback, {50}, code < 0 ? kEverything : samples);
    QCOMPARE(run.code, code);
    QCOMPARE(run.samples(), samples);
    for (int i = 0; i < expected.size(); ++i) {
        QCOMPARE(run.channels[0][static_cast<std::size_t>(50 * i)], static_cast<float>(expected[i]));
    }
    m_playback->stopAcquisition();
}

void TestPlugins::playbackOfOddRecords_data()
{
    QTest::addColumn<QByteArray>("recordDuration");
    QTest::addColumn<int>("samplesPerRecord");
    QTest::addColumn<float>("rate");
    QTest::newRow("long records") << QByteArray("30") << 3000 << 100.0f;
    QTest::newRow("short records") << QByteArray("0.05") << 10 << 200.0f;
    QTest::newRow("a fractional rate") << QByteArray("5") << 64 << 12.8f;
    QTest::newRow("no sample in half a second") << QByteArray("4") << 4 << 1.0f;
    QTest::newRow("a sample in ten seconds") << QByteArray("10") << 1 << 0.1f;
}

void TestPlugins::playbackOfOddRecords()
{
    QFETCH(QByteArray, recordDuration);
    QFETCH(int, samplesPerRecord);
    QFETCH(float, rate);
    HandmadeEdf file;
    file.recordDuration = recordDuration;
    file.records = 7;
    file.signalList = {{"EEG Cz", "uV", samplesPerRecord, [](int i) { return -10 * (i % 3000); }},
                       {"EEG Pz", "uV", samplesPerRecord, [](int i) { return 10 * (i % 3000); }}};
    QVERIFY(m_playback->setFilePath(file.writeTo(path(QStringLiteral("odd.edf")))));
    QCOMPARE(m_playback->getFreqValue(), rate);
    DeviceRun::configure(*m_playback, {{QStringLiteral("speed"), QStringLiteral("0")}});
    // The reader's blocks, which grow when the device asks for it.
    const int capacity = static_cast<int>(rate * 0.5f) * 2;
    const DeviceRun run =
        DeviceRun::of(*m_playback, capacity > 0 ? std::vector<int>{capacity} : std::vector<int>{0, 2}, kEverything);
    QCOMPARE(run.breach, QString());
    QCOMPARE(run.code, int(Amplifier::kEndOfData));
    QCOMPARE(run.samples(), static_cast<std::size_t>(7 * samplesPerRecord));
    for (std::size_t i = 0; i < run.samples(); ++i) {
        QCOMPARE(run.channels[0][i], static_cast<float>(i % 3000));
        QCOMPARE(run.channels[1][i], -static_cast<float>(i % 3000));
    }
    if (capacity == 0) {
        QCOMPARE(run.remainders.front(), 2);
    }
}

void TestPlugins::playbackAnnotations()
{
    HandmadeEdf file;
    file.records = 5;
    file.signalList = {{"EEG Cz", "uV", 100, [](int) { return 0; }}};
    file.annotations = {{"1.5", "eyes closed"}, {"4", "T1"}};
    QVERIFY(m_playback->setFilePath(file.writeTo(path(QStringLiteral("marks.edf")))));
    DeviceRun::configure(*m_playback, {{QStringLiteral("start"), QStringLiteral("1")}});
    QList<AnnotationStrct> annotations;
    QVERIFY(m_playback->getAnnotation(annotations));
    QCOMPARE(annotations.size(), 2);
    QCOMPARE(annotations[0].onset, 1.5);
    QCOMPARE(annotations[0].text, QStringLiteral("eyes closed"));
    QCOMPARE(annotations[1].onset, 4.0);
}

void TestPlugins::playbackRefuses_data()
{
    QTest::addColumn<QByteArray>("bytes");
    HandmadeEdf annotationsOnly;
    annotationsOnly.annotations = {{"0", "sleep"}};
    HandmadeEdf cut;
    cut.signalList = {{"EEG Cz", "uV", 100, [](int) { return 0; }}};
    QTest::newRow("no such file") << QByteArray();
    QTest::newRow("a web page") << QByteArray("<!DOCTYPE html><html><body>Not found</body></html>").repeated(20);
    QTest::newRow("annotations only") << annotationsOnly.make();
    QTest::newRow("a header that breaks off") << cut.make().left(300);
}

void TestPlugins::playbackRefuses()
{
    QFETCH(QByteArray, bytes);
    HandmadeEdf good;
    good.signalList = {{"EEG Cz", "uV", 100, [](int) { return 0; }}};
    QVERIFY(m_playback->setFilePath(good.writeTo(path(QStringLiteral("good.edf")))));
    const QString name = path(QStringLiteral("bad.edf"));
    QFile::remove(name);
    if (!bytes.isEmpty()) {
        QFile file(name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    TraceCapture trace;
    QVERIFY(!m_playback->setFilePath(name));
    QCOMPARE(trace.count(QStringLiteral("PlaybackAmplifier::setFilePath ")), 1);
    QCOMPARE(m_playback->getAmplifierInfo().channels(), 0);
    QVERIFY(m_playback->getMontage()->empty());
    QVERIFY(!m_playback->startAcquisition());
    QVERIFY(m_playback->setFilePath(path(QStringLiteral("good.edf"))));
    // The same file again: it is closed before it is opened.
    QVERIFY(m_playback->setFilePath(path(QStringLiteral("good.edf"))));
}

void TestPlugins::playbackKeepsItsFileWhileRunning()
{
    HandmadeEdf file;
    file.signalList = {{"EEG Cz", "uV", 100, [](int) { return 0; }}};
    const QString name = file.writeTo(path(QStringLiteral("running.edf")));
    QVERIFY(m_playback->setFilePath(name));
    QVERIFY(m_playback->startAcquisition());
    QVERIFY(!m_playback->setFilePath(path(QStringLiteral("other.edf"))));
    QCOMPARE(m_playback->getAmplifierInfo().channels(), 1);
    m_playback->stopAcquisition();
    QVERIFY(m_playback->setFilePath(name));
}

BP_TEST_MAIN(TestPlugins)
#include "TestPlugins.moc"
