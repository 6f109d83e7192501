#include "PlaybackAmplifier.h"

#include "common/BPCommon.h"
#include "devices/AmplifierChannel.h"
#include "montage/Montage.h"
#include "pacing/DeviceParameters.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

using DeviceParameters::CheckBox;
using DeviceParameters::Description;
using DeviceParameters::number;
using DeviceParameters::Real;

namespace {

constexpr int kReadPeriodMs = 50;
constexpr qint64 kEndless = std::numeric_limits<qint64>::max();

/// Rows of kParameters.
enum Row { Speed, Start, Repeat, Duration, Block };

constexpr Description kParameters[]{
    {"speed", QT_TRANSLATE_NOOP("Generic", "Speed, 0 for the fastest"), Real, "1", "0", "1000", "0.1", ""},
    {"start", QT_TRANSLATE_NOOP("Generic", "Start at, sec"), Real, "0", "0", "1000000", "1", ""},
    {"repeat", QT_TRANSLATE_NOOP("Generic", "Repeat"), CheckBox, "0", "0", "1", "1", ""},
    {"duration", QT_TRANSLATE_NOOP("Generic", "Duration, sec"), Real, "0", "0", "1000000", "1", ""},
    {"block", QT_TRANSLATE_NOOP("Generic", "Signal in a block, sec"), Real, "0.5", "0.01", "0.5", "0.01", ""},
};

/// What the recording says of itself, for the host to show or to take over; not to be set.
struct Fact
{
    const char *key;
    const char *label;
};

constexpr Fact kFacts[]{
    {"start_time", QT_TRANSLATE_NOOP("Generic", "Start time")},
    {"patient_name", QT_TRANSLATE_NOOP("Generic", "Patient's name")},
    {"patient_gender", QT_TRANSLATE_NOOP("Generic", "Patient's gender")},
    {"patient_birth", QT_TRANSLATE_NOOP("Generic", "Patient's date of birth")},
    {"equipment", QT_TRANSLATE_NOOP("Generic", "Equipment")},
    {"true_rate", QT_TRANSLATE_NOOP("Generic", "Exact sampling rate, Hz")},
    {"clipped", QT_TRANSLATE_NOOP("Generic", "Samples beyond the range of a recording")},
};
const QString kClippedKey = QStringLiteral("clipped");

UnitParams makeParams(const QString &path, const Recording &recording)
{
    QMap<QString, QString> facts = recording.facts();
    facts.insert(QStringLiteral("true_rate"), recording.fractionalRate());
    facts.insert(kClippedKey, QStringLiteral("0"));
    UnitParams params;
    params.setParamName(QStringLiteral("Playback"));
    DeviceParameters::appendInformation(params, "file", QT_TRANSLATE_NOOP("Generic", "Recording"), path);
    DeviceParameters::appendInformation(params, "left_out", QT_TRANSLATE_NOOP("Generic", "Signals left out"),
                                        recording.leftOut().join(QLatin1Char(';')));
    DeviceParameters::appendAll(params, kParameters);
    for (const Fact &fact : kFacts) {
        DeviceParameters::appendInformation(params, fact.key, fact.label, facts.value(QLatin1String(fact.key)));
    }
    return params;
}

AmplifierInfo describe(int channels, const QList<float> &rates)
{
    return AmplifierInfo(QStringLiteral("Playback"), QString(), QStringLiteral("PLAYBACK"), channels, rates);
}

} // namespace

PlaybackAmplifier::PlaybackAmplifier()
    : Amplifier(describe(0, {}))
{
    m_params = makeParams(QString(), m_recording);
}

bool PlaybackAmplifier::setFilePath(const QString &path)
{
    if (m_running.load()) {
        BPCommon::log(BPCommon::LogDevice, "PlaybackAmplifier::setFilePath refused while acquiring: %s", path);
        return false;
    }
    const bool opened = m_recording.open(path);
    if (!opened) {
        BPCommon::log(BPCommon::LogDevice, "PlaybackAmplifier::setFilePath %s: %s", path, m_recording.reason());
    } else if (!m_recording.leftOut().isEmpty()) {
        BPCommon::log(BPCommon::LogDevice, "PlaybackAmplifier::setFilePath slower signals left out: %s",
                      m_recording.leftOut().join(QLatin1Char(';')));
    }
    describeRecording(opened ? path : QString());
    return opened;
}

void PlaybackAmplifier::describeRecording(const QString &path)
{
    qDeleteAll(m_channels);
    m_channels.clear();
    QList<AmplifierChannel *> outputs;
    for (const Recording::Signal &signal : m_recording.signalList()) {
        const auto number = static_cast<unsigned>(m_channels.size() + 1);
        auto channel = std::make_unique<AmplifierChannel>(number, 1.0f, signal.type);
        channel->setChannelName(signal.label);
        channel->setGroup1(number);
        outputs << new AmplifierChannel(*channel);
        m_channels.push_back(channel.release());
    }
    QList<float> rates;
    if (m_recording.isOpen()) {
        rates << m_recording.rate();
    }
    m_info = describe(static_cast<int>(m_channels.size()), rates);
    const auto montage = QSharedPointer<Montage>::create(outputs);
    montage->setMontageName(m_info.name());
    montage->setCurrentSampleFreq(m_info.getCurrentFreqValue());
    setMontage(montage);
    UnitParams params = makeParams(path, m_recording);
    for (const Description &parameter : kParameters) {
        const QString key = QLatin1String(parameter.key);
        params.setParamValue(key, std::as_const(m_params)[key]);
    }
    m_params = params;
}

bool PlaybackAmplifier::startAcquisition()
{
    m_running.store(false);
    if (!m_recording.isOpen()) {
        BPCommon::log(BPCommon::LogDevice, "PlaybackAmplifier::startAcquisition there is no recording to play");
        return false;
    }
    const auto value = [this](Row row) { return number(m_params, kParameters[row]); };
    const auto rate = static_cast<double>(m_recording.rate());
    m_first = std::min<qint64>(std::llround(value(Start) * rate), m_recording.sampleCount());
    const qint64 pass = m_recording.sampleCount() - m_first;
    m_limit = value(Repeat) > 0.0 && pass > 0 ? kEndless : pass;
    if (value(Duration) > 0.0) {
        m_limit = std::min<qint64>(m_limit, std::llround(std::ceil(value(Duration) * rate)));
    }
    m_block = std::max<qint64>(1, static_cast<qint64>(value(Block) * rate));
    m_recording.forgetClipped();
    m_position = m_first;
    m_delivered = 0;
    m_askedForRoom = false;
    m_endCode.store(kEndOfData);
    BPCommon::log(BPCommon::LogDevice, "PlaybackAmplifier::startAcquisition %i channels, %f Hz", m_channels.size(),
                  rate);
    m_pacer.start(rate, value(Speed));
    m_running.store(true);
    return true;
}

void PlaybackAmplifier::stopAcquisition()
{
    BPCommon::log(BPCommon::LogDevice, "PlaybackAmplifier::stopAcquisition");
    if (m_running.exchange(false)) {
        showClipped();
    }
    m_endCode.store(kNotRunning);
}

int PlaybackAmplifier::readPeriodMs()
{
    return kReadPeriodMs;
}

bool PlaybackAmplifier::isAcquisitionRunning() const
{
    return m_running.load();
}

QString PlaybackAmplifier::getErrorText(int code) const
{
    switch (code) {
    case kEndOfData:
        return QStringLiteral("The recording has ended.");
    case kNotRunning:
        return QStringLiteral("No recording is being played.");
    case kReadError:
        return QStringLiteral("The recording can't be read any more.");
    default:
        return QString();
    }
}

bool PlaybackAmplifier::setFreqValue(float)
{
    return m_recording.isOpen();
}

bool PlaybackAmplifier::isFilterFreeData()
{
    return false;
}

bool PlaybackAmplifier::getAnnotation(QList<AnnotationStrct> &annotations) const
{
    const QList<AnnotationStrct> own = m_recording.annotations();
    annotations += own;
    return !own.isEmpty();
}

bool PlaybackAmplifier::isImpedanceSupported() const
{
    return false;
}

bool PlaybackAmplifier::isBatterySupported() const
{
    return false;
}

void PlaybackAmplifier::setReadBufferSize(int floats)
{
    m_bufferSize.store(floats);
}

int PlaybackAmplifier::getReadBufferSize() const
{
    return m_bufferSize.load();
}

bool PlaybackAmplifier::openDevice()
{
    return true;
}

void PlaybackAmplifier::closeDevice()
{
    stopAcquisition();
}

void PlaybackAmplifier::resetDevice()
{
    stopAcquisition();
}

int PlaybackAmplifier::readData(int capacity, float *block, int &remainder)
{
    if (!m_running.load()) {
        return m_endCode.load();
    }
    if (std::exchange(m_askedForRoom, false) && remainder < 0) {
        return 0;
    }
    if (m_delivered >= m_limit) {
        return end(kEndOfData);
    }
    const auto channels = static_cast<qint64>(m_channels.size());
    const qint64 room = block == nullptr ? 0 : std::max(0, capacity) / channels;
    // Whole blocks at every pace: what algorithms give depends on the blocks they get.
    const qint64 samples = std::min(m_block, m_limit - m_delivered);
    if (m_pacer.available() < std::min(samples, std::max<qint64>(room, 1))) {
        return 0;
    }
    if (room < 1) {
        m_askedForRoom = true;
        remainder = static_cast<int>(channels);
        return 0;
    }
    return deliver(std::min(samples, room), block);
}

void PlaybackAmplifier::closeRecording()
{
    if (m_running.load()) {
        stopAcquisition();
    }
    m_recording.close();
}

int PlaybackAmplifier::deliver(qint64 samples, float *block)
{
    qint64 done = 0;
    while (done < samples) {
        if (m_position >= m_recording.sampleCount()) {
            m_position = m_first;
        }
        const qint64 piece = std::min(samples - done, m_recording.sampleCount() - m_position);
        if (!m_recording.read(m_position, piece, block + done, samples)) {
            return end(kReadError);
        }
        m_position += piece;
        done += piece;
    }
    m_pacer.take(done);
    m_delivered += done;
    return static_cast<int>(done);
}

int PlaybackAmplifier::end(int code)
{
    BPCommon::log(BPCommon::LogDevice, "PlaybackAmplifier::readData ends with %i", code);
    m_running.store(false);
    m_endCode.store(code);
    showClipped();
    return code;
}

/// The parameters belong to the host's thread, and a run ends on the reader's.
void PlaybackAmplifier::showClipped()
{
    const qint64 clipped = m_recording.clippedCount();
    BPCommon::log(BPCommon::LogDevice,
                  "PlaybackAmplifier::showClipped %lld samples are beyond the range of a recording", clipped);
    QMetaObject::invokeMethod(
        this, [this, clipped] { m_params.setParamValue(kClippedKey, QString::number(clipped)); }, Qt::QueuedConnection);
}
