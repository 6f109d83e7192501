#include "server/outlets/LslOutlet.h"

#include "common/BPCommon.h"
#include "devices/AmplifierInfo.h"

#include <lsl_c.h>

#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <type_traits>

namespace bp {

namespace {

constexpr double kMaxRate = 1e6;
constexpr int32_t kDefaultChunk = 0;
constexpr int32_t kDefaultBufferSeconds = 360;
constexpr int32_t kPushThrough = 1;

struct StreamInfoDeleter
{
    void operator()(lsl_streaminfo info) const { lsl_destroy_streaminfo(info); }
};
using StreamInfo = std::unique_ptr<std::remove_pointer_t<lsl_streaminfo>, StreamInfoDeleter>;

QByteArray plainText(QString text)
{
    for (QChar &character : text) {
        if (character.category() == QChar::Other_Control || character.isNonCharacter()) {
            character = QLatin1Char(' ');
        }
    }
    return text.toUtf8();
}

QByteArray streamName(const QString &name)
{
    QByteArray text = plainText(name);
    if (!text.trimmed().isEmpty()) {
        return text;
    }
    BPCommon::log(BPCommon::LogOutlet, "LslOutlet::LslOutlet a stream without a name is called BioProcessing");
    return QByteArrayLiteral("BioProcessing");
}

double announcedRate(double rate)
{
    return rate > 0.0 && rate <= kMaxRate ? rate : LSL_IRREGULAR_RATE;
}

void describe(lsl_streaminfo info, const QStringList &channels)
{
    const lsl_xml_ptr root = lsl_get_desc(info);
    // Compatibility: manufacturer, unit and type are the same for every device and channel, because consumers know the
    // stream by them.
    lsl_append_child_value(root, "manufacturer", "BioSemi");
    const lsl_xml_ptr list = lsl_append_child(root, "channels");
    for (const QString &name : channels) {
        const lsl_xml_ptr channel = lsl_append_child(list, "channel");
        lsl_append_child_value(channel, "label", plainText(name).constData());
        lsl_append_child_value(channel, "unit", "microvolts");
        lsl_append_child_value(channel, "type", "eeg");
    }
}

} // namespace

QString lslSourceId(const AmplifierInfo &info, const QString &streamName)
{
    QStringList parts{info.name(), info.serial(), streamName};
    parts.removeAll(QString());
    return parts.join(QLatin1Char('/'));
}

LslOutlet::LslOutlet(const LslStream &stream)
    : m_deviceTime(stream.deviceTime)
    , m_sample(static_cast<std::size_t>(stream.channels.size()))
{
    const double rate = announcedRate(stream.rate);
    m_period = rate > 0.0 ? 1.0 / rate : 0.0;
    const QByteArray name = streamName(stream.name);
    StreamInfo info;
    if (!stream.channels.isEmpty()) {
        info.reset(lsl_create_streaminfo(name.constData(), "EEG", stream.channels.size(), rate, cft_float32,
                                         plainText(stream.sourceId).constData()));
    }
    if (info) {
        describe(info.get(), stream.channels);
        m_outlet = lsl_create_outlet(info.get(), kDefaultChunk, kDefaultBufferSeconds);
    }
    if (m_outlet == nullptr) {
        BPCommon::log(BPCommon::LogOutlet, "LslOutlet::LslOutlet no outlet for stream %s with %i channels",
                      QString::fromUtf8(name), stream.channels.size());
    }
}

LslOutlet::~LslOutlet()
{
    if (m_outlet != nullptr) {
        lsl_destroy_outlet(static_cast<lsl_outlet>(m_outlet));
    }
}

void LslOutlet::pushSample(const float *block, std::size_t samples, std::size_t index, std::optional<double> timestamp)
{
    if (m_outlet == nullptr || block == nullptr || index >= samples) {
        return;
    }
    for (std::size_t c = 0; c < m_sample.size(); ++c) {
        m_sample[c] = block[c * samples + index];
    }
    const int32_t result =
        lsl_push_sample_ftp(static_cast<lsl_outlet>(m_outlet), m_sample.data(), stampOf(timestamp), kPushThrough);
    if (result != lsl_no_error && !m_pushFailed) {
        m_pushFailed = true;
        BPCommon::log(BPCommon::LogOutlet, "LslOutlet::pushSample failed with code %i", result);
    }
}

void LslOutlet::pushBlock(const float *block, std::size_t samples, std::optional<double> timestamp)
{
    for (std::size_t k = 0; k < samples; ++k) {
        pushSample(block, samples, k, timestamp);
    }
}

void LslOutlet::pushBlock(const std::vector<float> &block, std::size_t samples, std::optional<double> timestamp)
{
    if (block.size() != m_sample.size() * samples) {
        throw std::runtime_error("Provided element count does not match the stream's channel count.");
    }
    pushBlock(block.data(), samples, timestamp);
}

double LslOutlet::stampOf(std::optional<double> timestamp)
{
    constexpr double kNow = 0.0; // the streaming library's way to ask for the current time
    const bool given = timestamp && std::isfinite(*timestamp);
    if (!m_deviceTime) {
        return given ? *timestamp : kNow;
    }
    m_lastStamp = given ? *timestamp : m_lastStamp + m_period;
    return m_lastStamp == kNow ? std::numeric_limits<double>::min() : m_lastStamp;
}

} // namespace bp
