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
constexpr int kEnd = Amplifier::kEndOfData;

/// "key=value key=value", as fast as the reader takes it.
Params fast(const char *text = "")
{
    Params params{{QStringLiteral("speed"), QStringLiteral("0")}};
    for (const QString &pair : QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        params.insert(pair.section(QLatin1Char('='), 0, 0), pair.section(QLatin1Char('='), 1));
    }
    return params;
}

AmplifierHelper *loadHelper(const QString &name)
{
    const QDir folder(QCoreApplication::applicationDirPath() + QStringLiteral("/HalvinDevices/") + name);
    AmplifierHelper *helper = nullptr;
    for (const QString &file : folder.entryList(QDir::Files)) {
        QPluginLoader loader(folder.absoluteFilePath(file));
        helper = helper ? helper : qobject_cast<AmplifierHelper *>(loader.instance());
    }
    return helper;
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

/// Channels of "Simulator 8".
enum SimulatedChannel : std::size_t { Fp1 = 0, C3 = 2, O1 = 6, Ecg = 8, Emg = 9, Eog = 10, Ppg = 13, Temp = 14 };

} // namespace

class TestPlugins : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    void pacerDoesNotDrift();

    void sameSeedSameSamples();
    void backgroundIsTheSameAtEveryRate();
    void alphaFollowsTheEyes();
    void heartBeats();
    void simulatorFaultsLoseNothing();
    void simulatorEnds();
    void simulatorImpedance();

    void playbackGivesMicrovolts();
    void playbackRange();
    void playbackOfOddRecords();
    void playbackBlocksAreTheSameAtEveryPace();
    void playbackSaysWhatTheFileIs();
    void playbackRefuses();

private:
    Amplifier &simulator(const Params &params);
    /// A fast run of the simulator in the reader's blocks of half a second.
    DeviceRun simulate(const char *params, double seconds);
    /// Has the playback device open a file.
    bool play(const HandmadeEdf &file) { return m_playback->setFilePath(file.writeTo(path("played.edf"))); }
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }

    Amplifier *m_simulator = nullptr; ///< "Simulator 8"
    Amplifier *m_playback = nullptr;
    QTemporaryDir m_folder;
};

void TestPlugins::initTestCase()
{
    AmplifierHelper *simulators = loadHelper(QStringLiteral("Simulator"));
    AmplifierHelper *playback = loadHelper(QStringLiteral("Playback"));
    QVERIFY(simulators != nullptr && playback != nullptr);
    QList<Amplifier *> devices;
    simulators->findDevices(devices);
    playback->findDevices(devices);
    playback->findDevices(devices);
    QCOMPARE(devices.size(), 5);
    QCOMPARE(devices[3], devices[4]); // found anew, the same
    m_simulator = devices[0];
    m_playback = devices[3];
}

Amplifier &TestPlugins::simulator(const Params &params)
{
    DeviceRun::configure(*m_simulator, params);
    return *m_simulator;
}

DeviceRun TestPlugins::simulate(const char *params, double seconds)
{
    Amplifier &device = simulator(fast(params));
    const auto rate = static_cast<double>(device.getFreqValue());
    return DeviceRun::of(device, {static_cast<int>(rate * 0.5) * 15}, static_cast<std::size_t>(rate * seconds));
}

void TestPlugins::pacerDoesNotDrift()
{
    struct Case
    {
        double rate, speed;
        qint64 inAnHour;
    };
    constexpr Case kCases[]{{250.0, 1.0, 900000}, {12.8, 1.0, 46080}, {360.0, 0.5, 648000}, {2000.0, 7.0, 50400000}};
    for (const Case &row : kCases) {
        std::chrono::nanoseconds now = std::chrono::hours(70000);
        const std::chrono::nanoseconds end = now + std::chrono::hours(1);
        DevicePacer pacer([&now] { return now; });
        pacer.start(row.rate, row.speed);
        qint64 taken = 0;
        for (int read = 0; now < end; ++read) {
            // Periods that no sampling interval divides; now and then the reader is away for four seconds.
            now = std::min(now + std::chrono::nanoseconds(read % 1000 == 999 ? 4000000007 : 50333333), end);
            const qint64 available = pacer.available();
            QVERIFY(available >= 0);
            pacer.take(available);
            taken += available;
        }
        QCOMPARE(taken, row.inAnHour);
    }
}

void TestPlugins::sameSeedSameSamples()
{
    const DeviceRun expected = simulate("", 6.0);
    for (const std::vector<int> &capacities :
         {std::vector<int>{15}, {15, 7 * 15 + 14, 331 * 15 + 1, 29}, {15 * 1500}}) {
        DeviceRun run = DeviceRun::of(simulator(fast()), capacities, 1500);
        QCOMPARE(run.breach, QString());
        for (std::size_t c = 0; c < run.channels.size(); ++c) {
            run.channels[c].resize(1500);
            QVERIFY2(run.channels[c] == expected.channels[c], qPrintable(QString::number(c)));
        }
    }
    const DeviceRun other = simulate("seed=2", 6.0);
    for (std::size_t c = 0; c < other.channels.size(); ++c) {
        QVERIFY(other.channels[c] != expected.channels[c]);
        QVERIFY(c == 0 || other.channels[c] != other.channels[c - 1]);
    }
}

/// An electrode's background has 25/f µV²/Hz. The power of a bin of T seconds is 2/T of the density, with one degree of
/// scatter per bin and window: 120 windows of 2 s, a few bins each, keep the mean within some 6 %.
void TestPlugins::backgroundIsTheSameAtEveryRate()
{
    for (const char *params : {"mains_amp=0 eyes_period=0 frequency=0", "mains_amp=0 eyes_period=0 frequency=3"}) {
        const DeviceRun run = simulate(params, 240.0);
        const auto rate = static_cast<double>(m_simulator->getFreqValue());
        const auto window = static_cast<std::size_t>(2.0 * rate);
        for (const double centre : {25.0, 80.0}) {
            double relative = 0.0;
            int bins = 0;
            for (std::size_t from = 0; from + window <= run.samples(); from += window) {
                for (double hz = centre - 2.0; hz <= centre + 2.0; hz += 1.0, ++bins) {
                    relative += powerAt(run.channels[C3], from, window, hz, rate) * hz / 25.0;
                }
            }
            QVERIFY2(std::abs(relative / bins - 1.0) < 0.2, qPrintable(QString::number(relative / bins)));
        }
    }
}

void TestPlugins::alphaFollowsTheEyes()
{
    const DeviceRun run = simulate("eyes_period=10 mains_freq=60 mains_amp=20", 80.0);
    const auto power = [&run](std::size_t channel, double second, double hz) {
        double sum = 0.0;
        for (int window = 0; window < 8; ++window) {
            sum += powerAt(run.channels[channel], static_cast<std::size_t>((second + window) * 250.0), 250, hz, 250.0);
        }
        return sum / 8.0;
    };
    for (const double open : {1.0, 21.0, 41.0, 61.0}) {
        const double alpha = power(O1, open + 10.0, 10.0);
        QVERIFY(alpha > 5.0 * power(O1, open, 10.0));
        QVERIFY(alpha > 20.0 * power(O1, open + 10.0, 15.0));
        QVERIFY(alpha > 10.0 * power(Fp1, open + 10.0, 10.0));
    }
    // Blinks stand out of the frontal background only while the eyes are open.
    const std::vector<std::size_t> blinks = peaksAbove(run.channels[Eog], 120.0f);
    QVERIFY(blinks.size() >= 5);
    QVERIFY(std::all_of(blinks.begin(), blinks.end(), [](std::size_t blink) { return blink / 2500 % 2 == 0; }));
    // The mains hum in what electrodes measure, and nowhere else.
    QVERIFY(std::abs(std::sqrt(powerAt(run.channels[O1], 0, 20000, 60.0, 250.0)) - 20.0) < 1.0);
    QVERIFY(powerAt(run.channels[O1], 0, 20000, 50.0, 250.0) < 1.0);
    QVERIFY(powerAt(run.channels[Temp], 0, 20000, 60.0, 250.0) < 1e-4);
}

void TestPlugins::heartBeats()
{
    for (const int rate : {45, 150}) {
        const DeviceRun run = simulate(("heart_rate=" + QByteArray::number(rate)).constData(), 120.0);
        const std::vector<std::size_t> beats = peaksAbove(run.channels[Ecg], 700.0f);
        const double minutes = static_cast<double>(beats.back() - beats.front()) / (60.0 * 250.0);
        QVERIFY(std::abs(static_cast<double>(beats.size() - 1) / minutes - rate) < 0.02 * rate);
        // Intervals vary, and each R peak is followed by its pulse wave about 0.35 s later.
        QVERIFY(beats[2] - beats[1] != beats[3] - beats[2] || beats[4] - beats[3] != beats[3] - beats[2]);
        const std::vector<std::size_t> pulses = peaksAbove(run.channels[Ppg], 80.0f);
        for (std::size_t beat = 0; beat + 2 < beats.size(); ++beat) {
            const auto pulse = std::upper_bound(pulses.begin(), pulses.end(), beats[beat] + 50);
            QVERIFY(pulse != pulses.end());
            QVERIFY(std::abs(static_cast<double>(*pulse - beats[beat]) / 250.0 - 0.35) < 0.03);
        }
    }
}

void TestPlugins::simulatorFaultsLoseNothing()
{
    struct Case
    {
        const char *fault;
        int block;
        std::vector<int> counts, remainders; ///< samples per channel
    };
    const Case cases[]{
        {"duration=4 zero_every=2", 400, {400, 0, 400, 0, 200}, {0, 0, 0, 0, 0}},
        // The first read fits; the second leaves half of the 600 that are left, the fourth finds everything read.
        {"duration=4 remainder_every=2", 400, {400, 300}, {0, 300}},
        // Of 1000 due samples a block and another one behind it are announced.
        {"duration=4 remainder_every=1", 300, {300, 200}, {300, 200}},
        {"duration=4 late_percent=50", 1000, {500, 250, 125, 63, 31, 16, 8, 4, 2, 1}, std::vector<int>(10, 0)},
        {"duration=4 block=400", 1000, {400, 400, 200}, {0, 0, 0}},
    };
    const DeviceRun expected = simulate("", 4.0);
    for (const Case &row : cases) {
        const DeviceRun run = DeviceRun::of(simulator(fast(row.fault)), {15 * row.block}, kEverything);
        QCOMPARE(run.breach, QString());
        QCOMPARE(run.code, kEnd);
        for (std::size_t read = 0; read < row.counts.size(); ++read) {
            QVERIFY2(run.counts.at(read) == row.counts[read], row.fault);
            QVERIFY2(run.remainders.at(read) == 15 * row.remainders[read], row.fault);
        }
        QVERIFY2(run.channels == expected.channels, row.fault);
    }
}

/// The reader leaves its loop without stopAcquisition() after an error; the next start must begin afresh.
void TestPlugins::simulatorEnds()
{
    struct Case
    {
        const char *params;
        std::size_t samples;
        int code;
    };
    constexpr Case kCases[]{{"duration=2.5", 625, kEnd},
                            {"error_code=-42 error_after=1.5", 375, -42},
                            {"error_code=-42", 0, -42},
                            {"duration=1 error_code=-42 error_after=1", 250, kEnd},
                            {"refuse_start=1", 0, -1}};
    for (const Case &row : kCases) {
        Amplifier &device = simulator(fast(row.params));
        const DeviceRun first = DeviceRun::of(device, {125 * 15}, kEverything);
        QVERIFY2(first.samples() == row.samples && first.code == row.code, row.params);
        QVERIFY(!device.isAcquisitionRunning());
        QVERIFY(!device.getErrorText(row.code).isEmpty());
        std::vector<float> block(15);
        int remainder = 0;
        QVERIFY(device.readData(15, block.data(), remainder) < 0);
        const DeviceRun second = DeviceRun::of(device, {125 * 15}, kEverything);
        QVERIFY2(second.channels == first.channels && second.code == row.code, row.params);
    }
}

void TestPlugins::simulatorImpedance()
{
    Amplifier &device = simulator(fast());
    std::vector<unsigned> first;
    std::vector<unsigned> later;
    std::vector<float> block(125 * 15);
    const auto isReadyAfter = [&](int reads, std::vector<unsigned> &impedance) {
        for (int remainder = 0; reads > 0; --reads) {
            device.readData(125 * 15, block.data(), remainder);
        }
        return device.isImpedanceReady(impedance);
    };
    QVERIFY(device.startAcquisition());
    QVERIFY(!isReadyAfter(1, first));
    device.takeImpedanceData(true);
    QVERIFY(isReadyAfter(1, first));
    QCOMPARE(first.size(), std::size_t(15));
    QVERIFY(first[O1] > 1000 && first[O1] < 20000);
    QCOMPARE(first[Temp], 0u);
    QVERIFY(isReadyAfter(2, later));
    QVERIFY(later != first);
    device.takeImpedanceData(false);
    QVERIFY(!isReadyAfter(1, later));
    device.stopAcquisition();
}

void TestPlugins::playbackGivesMicrovolts()
{
    const auto ramp = [](int i) { return 10 * i - 100; };
    HandmadeEdf file{{{"Resp oro-nasal", "", 1}, {"Temp rectal", "degC", 10}}, 3};
    for (const QByteArray unit : {"uV", "mV", "nV", "V", "MV", "", "degC"}) {
        file.signalList.push_back({"ECG " + unit, unit, 50, ramp});
    }
    TraceCapture trace;
    QVERIFY(play(file));
    QCOMPARE(m_playback->getFreqValue(), 50.0f);
    QCOMPARE((*m_playback->getMontage())[0]->getName(), QStringLiteral("ECG uV"));
    QCOMPARE((*m_playback->getMontage())[0]->getChannelType(), BPCommon::ECG);

    DeviceRun::configure(*m_playback, fast());
    const DeviceRun run = DeviceRun::of(*m_playback, {25 * 7, 7, 3 * 7 + 6}, kEverything);
    QCOMPARE(run.breach, QString());
    QCOMPARE(run.code, kEnd);
    QCOMPARE(run.samples(), std::size_t(150));
    const std::vector<double> factors{1.0, 1e3, 1e-3, 1e6, 1.0, 1.0, 1.0};
    QCOMPARE(run.channels.size(), factors.size());
    for (std::size_t c = 0; c < 7; ++c) {
        for (std::size_t i = 0; i < 150; ++i) {
            // A tenth of the unit per step, inverted when it is read.
            const auto expected = static_cast<float>(-0.1 * ramp(static_cast<int>(i)) * factors[c]);
            QVERIFY(std::abs(run.channels[c][i] - expected) <= 1e-4f * std::abs(expected) + 1e-6f);
        }
    }
    // It starts again after its end, without having been stopped.
    QVERIFY(DeviceRun::of(*m_playback, {25 * 7}, kEverything).channels == run.channels);
    // What cannot be played or recorded is told: signals of other rates; beyond ±32767 µV all volts but the one that is
    // 0, and the millivolts from 33 on.
    QCoreApplication::processEvents();
    Params values;
    m_playback->getCurrentPropValue(values);
    QCOMPARE(values[QStringLiteral("clipped")], QString::number(149 + 107));
    QCOMPARE(values[QStringLiteral("left_out")], QStringLiteral("Resp oro-nasal;Temp rectal"));
    QCOMPARE(trace.count(QStringLiteral("left out: Resp oro-nasal;Temp rectal")), 1);
}

void TestPlugins::playbackRange()
{
    struct Case
    {
        const char *params;
        std::vector<float> expected; ///< file samples at every 50th sample delivered
        int code = kEnd;
    };
    const Case cases[]{{"start=2.5", {250, 300, 350}},
                       {"start=1 duration=1.5", {100, 150, 200}},
                       {"start=3 duration=9", {300, 350}}, // longer than the file
                       {"start=3.5 repeat=1 duration=1", {350, 350}},
                       {"start=3 repeat=1", {300, 350, 300, 350, 300}, 0},
                       {"start=100 repeat=1", {}}}; // nothing to repeat
    const HandmadeEdf::Signal down{"EEG Cz", "uV", 100, [](int i) { return -10 * i; }};
    QVERIFY(play({{down}, 4, "1", {{"1.5", "eyes closed"}, {"4", "T1"}}}));
    for (const Case &row : cases) {
        DeviceRun::configure(*m_playback, fast(row.params));
        const std::size_t samples = 50 * row.expected.size();
        const DeviceRun run = DeviceRun::of(*m_playback, {50}, row.code < 0 ? kEverything : samples);
        QVERIFY2(run.code == row.code && run.samples() == samples, row.params);
        for (std::size_t i = 0; i < row.expected.size(); ++i) {
            QCOMPARE(run.channels[0][50 * i], row.expected[i]);
        }
        m_playback->stopAcquisition();
        // Annotations stay where the file has them.
        QList<AnnotationStrct> annotations{{9.0, 0.0, QStringLiteral("of another device")}};
        QVERIFY(m_playback->getAnnotation(annotations));
        QCOMPARE(annotations.size(), 3);
        QCOMPARE(annotations[1].onset, 1.5);
        QCOMPARE(annotations[1].text, QStringLiteral("eyes closed"));
    }
}

void TestPlugins::playbackOfOddRecords()
{
    struct Case
    {
        const char *recordDuration;
        int samplesPerRecord;
        float rate;
    };
    constexpr Case kCases[]{
        {"30", 3000, 100.0f}, {"0.05", 10, 200.0f}, {"5", 64, 12.8f}, {"4", 4, 1.0f}, {"10", 1, 0.1f}};
    for (const auto &[recordDuration, samples, rate] : kCases) {
        const auto up = [](int i) { return 10 * (i % 3000); };
        const auto down = [](int i) { return -10 * (i % 3000); };
        QVERIFY(play({{{"EEG Cz", "uV", samples, down}, {"EEG Pz", "uV", samples, up}}, 7, recordDuration}));
        QCOMPARE(m_playback->getFreqValue(), rate);
        DeviceRun::configure(*m_playback, fast());
        // The reader's blocks, which grow when the device asks for it.
        const int capacity = static_cast<int>(rate * 0.5f) * 2;
        const DeviceRun run = DeviceRun::of(*m_playback, {capacity, std::max(capacity, 2)}, kEverything);
        QCOMPARE(run.breach, QString());
        QCOMPARE(run.code, kEnd);
        QCOMPARE(run.remainders.front(), capacity == 0 ? 2 : 0);
        QCOMPARE(run.samples(), static_cast<std::size_t>(7 * samples));
        for (std::size_t i = 0; i < run.samples(); ++i) {
            QCOMPARE(run.channels[0][i], static_cast<float>(i % 3000));
            QCOMPARE(run.channels[1][i], -static_cast<float>(i % 3000));
        }
    }
}

/// Results of algorithms depend on the blocks they get, and must not on the pace.
void TestPlugins::playbackBlocksAreTheSameAtEveryPace()
{
    QVERIFY(play({{{"EEG Cz", "uV", 100}}, 3}));
    for (const char *params : {"duration=2.3", "duration=2.3 speed=300", "duration=2.3 speed=40"}) {
        DeviceRun::configure(*m_playback, fast(params));
        QVERIFY(m_playback->startAcquisition());
        std::vector<float> block(50);
        std::vector<int> counts;
        int remainder = 0;
        for (int n = 0; n >= 0; n = m_playback->readData(50, block.data(), remainder)) {
            if (n > 0) {
                counts.push_back(n);
            }
        }
        QCOMPARE(counts, (std::vector<int>{50, 50, 50, 50, 30}));
    }
}

void TestPlugins::playbackSaysWhatTheFileIs()
{
    const auto value = [this](const char *key) {
        UnitParams params;
        m_playback->getUnitParams(params);
        const QString told = params.problemOf(QLatin1String(key), QStringLiteral("another"));
        return told.contains(QLatin1String("cannot be set")) ? params.getParamValue(QLatin1String(key)) : told;
    };
    QByteArray bytes = HandmadeEdf{{{"EEG Cz", "uV", 1001}}, 3, "4", {{"0", "plus"}}}.make();
    bytes = HandmadeEdf::changed(bytes, 8, "X F 05-MAR-1951 Some_body");
    QVERIFY(m_playback->setFilePath(HandmadeEdf::write(bytes, path("facts.edf"))));
    QCOMPARE(value("true_rate"), QStringLiteral("250.25"));
    QCOMPARE(value("start_time"), QStringLiteral("2020-01-02T03:04:05.000"));
    QCOMPARE(value("patient_name") + value("patient_gender"), QStringLiteral("Some bodyFemale"));
    QCOMPARE(value("patient_birth"), QStringLiteral("1951-03-05"));
    QVERIFY(play({{{"EEG Cz"}}}));
    QCOMPARE(value("true_rate") + value("patient_birth") + value("equipment"), QString());
    QList<AnnotationStrct> none;
    QVERIFY(!m_playback->getAnnotation(none));
}

void TestPlugins::playbackRefuses()
{
    QVERIFY(play({{{"EEG Cz"}}}));
    QVERIFY(m_playback->startAcquisition());
    QVERIFY(!m_playback->setFilePath(path("other.edf"))); // not while it runs
    QCOMPARE(m_playback->getAmplifierInfo().channels(), 1);
    m_playback->stopAcquisition();
    QTest::ignoreMessage(QtDebugMsg, "a read error occurred");
    for (const QString &bad :
         {path("missing.edf"), HandmadeEdf{{}, 1, "1", {{"0", "annotations only"}}}.writeTo(path("empty.edf")),
          HandmadeEdf::write(HandmadeEdf{{{"EEG Cz"}}}.make().left(300), path("cut.edf"))}) {
        TraceCapture trace;
        QVERIFY(!m_playback->setFilePath(bad));
        QCOMPARE(trace.count(QStringLiteral("PlaybackAmplifier::setFilePath ")), 1);
        QCOMPARE(m_playback->getAmplifierInfo().channels(), 0);
        QVERIFY(m_playback->getMontage()->empty());
        QVERIFY(!m_playback->startAcquisition());
        QVERIFY(m_playback->setFilePath(path("played.edf")));
        // The same file again: it is closed before it is opened.
        QVERIFY(m_playback->setFilePath(path("played.edf")));
    }
}

BP_TEST_MAIN(TestPlugins)
#include "TestPlugins.moc"
