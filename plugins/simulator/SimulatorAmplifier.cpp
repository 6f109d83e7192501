#include "SimulatorAmplifier.h"

#include "SimulatorLayout.h"

#include "devices/AmplifierChannel.h"
#include "montage/Montage.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

/// Ten reads fill the reader's block of half a second at real time.
constexpr int kReadPeriodMs = 50;
constexpr qint64 kEndless = std::numeric_limits<qint64>::max();
constexpr double kSecondsPerBatteryPercent = 360.0;
/// Streams of the seed for the impedances; SignalGenerator's own lie below.
constexpr quint64 kImpedanceStream = 1000000;

AmplifierInfo describe(const SimulatorLayout::DeviceModel &model)
{
    QList<float> rates;
    for (const float rate : SimulatorLayout::kRates) {
        rates << rate;
    }
    const int channels = static_cast<int>(model.electrodes.count + SimulatorLayout::kBodyChannels.size());
    return AmplifierInfo(QLatin1String(model.name), QString(), QLatin1String(model.serial), channels, rates);
}

bool hasElectrode(const AmplifierChannel &channel)
{
    const BPCommon::ChannelType type = channel.getChannelType();
    return type == BPCommon::EEG || type == BPCommon::ECG || type == BPCommon::EMG || type == BPCommon::EOG;
}

qint64 samplesIn(double seconds, double rate)
{
    return std::llround(std::ceil(seconds * rate));
}

} // namespace

SimulatorAmplifier::SimulatorAmplifier(const SimulatorLayout::DeviceModel &model)
    : Amplifier(describe(model))
    , m_model(model)
{
    for (const SimulatedElectrode &electrode : model.electrodes) {
        addChannel(QLatin1String(electrode.name), BPCommon::EEG);
    }
    for (const SimulatorLayout::BodyChannel &channel : SimulatorLayout::kBodyChannels) {
        addChannel(QLatin1String(channel.name), channel.type);
    }
    QList<AmplifierChannel *> outputs;
    for (const AmplifierChannel *channel : m_channels) {
        outputs << new AmplifierChannel(*channel);
    }
    const auto montage = QSharedPointer<Montage>::create(outputs);
    montage->setMontageName(m_info.name());
    montage->setCurrentSampleFreq(m_info.getCurrentFreqValue());
    setMontage(montage);
    m_params = SimulatorSettings::defaultParams();
}

SimulatorAmplifier::~SimulatorAmplifier() = default;

void SimulatorAmplifier::addChannel(const QString &name, BPCommon::ChannelType type)
{
    const auto number = static_cast<unsigned>(m_channels.size() + 1);
    auto channel = std::make_unique<AmplifierChannel>(number, 1.0f, type);
    channel->setChannelName(name);
    channel->setGroup1(number);
    m_channels.push_back(channel.release());
}

bool SimulatorAmplifier::startAcquisition()
{
    m_running.store(false);
    m_settings = SimulatorSettings::fromParams(m_params);
    BPCommon::log(BPCommon::LogDevice, "SimulatorAmplifier::startAcquisition %s %f Hz", m_info.serial(),
                  m_settings.signal.rate);
    if (m_settings.refuseStart) {
        m_endCode.store(kNotRunning);
        return false;
    }
    const double rate = m_settings.signal.rate;
    const qint64 endAt = m_settings.duration > 0.0 ? samplesIn(m_settings.duration, rate) : kEndless;
    const qint64 errorAt = m_settings.errorCode < 0 ? samplesIn(m_settings.errorAfter, rate) : kEndless;
    m_limit = std::min(errorAt, endAt);
    m_endCode.store(errorAt < endAt ? m_settings.errorCode : kEndOfData);
    m_delivered = 0;
    m_reads = 0;
    m_tail.reset();
    m_impedanceSecond = -1;
    m_generator = std::make_unique<SignalGenerator>(m_settings.signal, m_model.electrodes);
    m_runningRate.store(static_cast<float>(rate));
    m_pacer.start(rate, m_settings.speed);
    m_running.store(true);
    return true;
}

void SimulatorAmplifier::stopAcquisition()
{
    BPCommon::log(BPCommon::LogDevice, "SimulatorAmplifier::stopAcquisition %s", m_info.serial());
    m_running.store(false);
    m_endCode.store(kNotRunning);
}

int SimulatorAmplifier::readPeriodMs()
{
    return kReadPeriodMs;
}

bool SimulatorAmplifier::isAcquisitionRunning() const
{
    return m_running.load();
}

QString SimulatorAmplifier::getErrorText(int code) const
{
    switch (code) {
    case kEndOfData:
        return QStringLiteral("The simulated signal has ended.");
    case kNotRunning:
        return QStringLiteral("The simulator isn't acquiring.");
    default:
        return code < 0 ? QStringLiteral("Simulated error %1.").arg(code) : QString();
    }
}

int SimulatorAmplifier::getBatteryLevelPercent()
{
    return std::max(0, 100 - static_cast<int>(m_batterySeconds.load() / kSecondsPerBatteryPercent));
}

float SimulatorAmplifier::getFreqValue()
{
    if (m_running.load()) {
        return m_runningRate.load();
    }
    // The rate is a parameter, too: the description follows what the host has set there.
    const float rate = SimulatorSettings::rate(m_params);
    m_info.setCurrentFreqValue(rate);
    return rate;
}

bool SimulatorAmplifier::setFreqValue(float hz)
{
    if (m_running.load()) {
        return false;
    }
    SimulatorSettings::setRateIndex(m_params, m_info.setCurrentFreqValue(hz));
    return true;
}

bool SimulatorAmplifier::isFilterFreeData()
{
    return false;
}

bool SimulatorAmplifier::isImpedanceSupported() const
{
    return true;
}

bool SimulatorAmplifier::isBatterySupported() const
{
    return true;
}

void SimulatorAmplifier::setReadBufferSize(int floats)
{
    m_bufferSize.store(floats);
}

int SimulatorAmplifier::getReadBufferSize() const
{
    return m_bufferSize.load();
}

bool SimulatorAmplifier::isMeasureImpedance() const
{
    return m_impedanceRequested.load();
}

bool SimulatorAmplifier::openDevice()
{
    return true;
}

void SimulatorAmplifier::closeDevice()
{
    stopAcquisition();
}

void SimulatorAmplifier::resetDevice()
{
    stopAcquisition();
    m_batterySeconds.store(0.0);
}

bool SimulatorAmplifier::getImpedance(bool on)
{
    m_impedanceRequested.store(on);
    if (!on) {
        m_impedanceReady.store(false);
    } else if (!m_running.load()) {
        publishImpedance(SimulatorSettings::fromParams(m_params).signal.seed, 0);
    }
    return true;
}

int SimulatorAmplifier::readData(int capacity, float *block, int &remainder)
{
    const std::optional<qint64> tail = std::exchange(m_tail, std::nullopt);
    if (!m_running.load()) {
        return m_endCode.load();
    }
    const auto channels = static_cast<qint64>(channelCount());
    const qint64 room = block == nullptr ? 0 : std::max(0, capacity) / channels;
    if (tail && remainder < 0) {
        return deliver(std::min(*tail, room), block);
    }
    renewImpedance();
    ++m_reads;
    if (m_settings.zeroEvery > 0 && m_reads % m_settings.zeroEvery == 0) {
        return 0;
    }
    if (m_delivered >= m_limit) {
        return end();
    }
    const qint64 due = samplesDue();
    if (room < 1 && due > 0) {
        m_tail = 0;
        remainder = static_cast<int>(channels);
        return 0;
    }
    if (m_settings.remainderEvery > 0 && m_reads % m_settings.remainderEvery == 0) {
        return deliverPart(due, room, block, remainder);
    }
    return deliver(std::min(due, room), block);
}

int SimulatorAmplifier::end()
{
    BPCommon::log(BPCommon::LogDevice, "SimulatorAmplifier::readData %s ends with %i", m_info.serial(),
                  m_endCode.load());
    m_running.store(false);
    return m_endCode.load();
}

qint64 SimulatorAmplifier::samplesDue() const
{
    const qint64 due = std::min(m_pacer.available(), m_limit - m_delivered);
    const qint64 late = static_cast<qint64>(static_cast<double>(due) * m_settings.latePercent / 100.0);
    const qint64 limit = m_settings.blockLimit > 0 ? m_settings.blockLimit : kEndless;
    return std::min(due - late, limit);
}

/// Half of what is due, the other half (or a block more, when more is due) announced as remainder.
int SimulatorAmplifier::deliverPart(qint64 due, qint64 room, float *block, int &remainder)
{
    const qint64 part = std::min((due + 1) / 2, room);
    const qint64 rest = std::min(due - part, room);
    if (rest > 0) {
        m_tail = rest;
        remainder = static_cast<int>(rest * static_cast<qint64>(channelCount()));
    }
    return deliver(part, block);
}

int SimulatorAmplifier::deliver(qint64 samples, float *block)
{
    if (samples <= 0) {
        return 0;
    }
    m_generator->generate(block, static_cast<std::size_t>(samples));
    m_pacer.take(samples);
    m_delivered += samples;
    m_batterySeconds.store(m_batterySeconds.load() + static_cast<double>(samples) / m_settings.signal.rate);
    return static_cast<int>(samples);
}

void SimulatorAmplifier::renewImpedance()
{
    if (!m_impedanceRequested.load()) {
        m_impedanceSecond = -1;
        return;
    }
    const auto second = static_cast<qint64>(static_cast<double>(m_delivered) / m_settings.signal.rate);
    if (second != m_impedanceSecond) {
        m_impedanceSecond = second;
        publishImpedance(m_settings.signal.seed, second);
    }
    // The host may have ended the measurement between the two.
    if (!m_impedanceRequested.load()) {
        m_impedanceReady.store(false);
    }
}

void SimulatorAmplifier::publishImpedance(quint64 seed, qint64 second)
{
    m_impedance.assign(channelCount(), 0);
    for (std::size_t i = 0; i < channelCount(); ++i) {
        if (hasElectrode(*m_channels[i])) {
            const double ohms = SeededNoise(seed, kImpedanceStream + i).uniform(2000.0, 15000.0);
            const quint64 moment = static_cast<quint64>(second + 1) * kImpedanceStream + i;
            const double movement = SeededNoise(seed, kImpedanceStream + moment).uniform(0.95, 1.05);
            m_impedance[i] = static_cast<unsigned>(ohms * movement);
        }
    }
    m_impedanceReady.store(true);
}
