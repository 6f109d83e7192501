#include "server/handlers/SignalRequests.h"

#include "algorithms/freqspace.h"
#include "montage/Montage.h"
#include "server/handlers/Conditions.h"
#include "server/handlers/LastValues.h"
#include "server/handlers/SampleBuffer.h"
#include "server/http/JsonNumbers.h"

#include <algorithm>

namespace {

constexpr ProcessRequest::Precondition kIsReading{bp::isReading, "Halvin is not in state mode"};

/// Bytes of a number with its comma, as a first guess.
constexpr std::size_t kBytesPerNumber = 9;

/// The shortest decimal that reads back as the same float: 0.1, and not 0.10000000149.
double shortest(float value)
{
    double decimal = static_cast<double>(value);
    for (int digits = 6; digits <= 9; ++digits) {
        decimal = QByteArray::number(static_cast<double>(value), 'g', digits).toDouble();
        if (static_cast<float>(decimal) == value) {
            break;
        }
    }
    return decimal;
}

QJsonArray toArray(const std::vector<float> &values)
{
    QJsonArray array;
    for (const float value : values) {
        array.append(shortest(value));
    }
    return array;
}

QJsonArray rhythmArray(const LastValues &last)
{
    QJsonArray rhythms;
    for (auto it = last.rhythms.cbegin(); it != last.rhythms.cend(); ++it) {
        rhythms.append(QJsonObject{{QStringLiteral("name"), it.key()}, {QStringLiteral("value"), toArray(it.value())}});
    }
    return rhythms;
}

/// Values per rhythm.
int rhythmSamples(const LastValues &last)
{
    std::size_t samples = 0;
    for (const std::vector<float> &values : last.rhythms) {
        samples = std::max(samples, values.size());
    }
    return static_cast<int>(samples);
}

/// [[…],[…]]: one array per channel, written by write(out, channel, position), which returns the end.
template <class Write> void appendRows(QByteArray &json, std::size_t rows, std::size_t length, Write write)
{
    json.reserve(json.size() + static_cast<int>(rows * (length * kBytesPerNumber + 3)) + 64);
    json.append('[');
    std::vector<char> text(length * (bp::kMaxNumberLength + 1) + 2);
    for (std::size_t row = 0; row < rows; ++row) {
        char *out = text.data();
        *out++ = '[';
        for (std::size_t i = 0; i < length; ++i) {
            out = write(out, row, i);
            *out++ = ',';
        }
        out -= length > 0 ? 1 : 0; // the last comma
        *out++ = ']';
        if (row > 0) {
            json.append(',');
        }
        json.append(text.data(), static_cast<int>(out - text.data()));
    }
    json.append(']');
}

} // namespace

RequestGetInfo::RequestGetInfo(server_state &state, const LastValues &last)
    : ProcessRequest(state, {on("getinfo", &RequestGetInfo::getInfo, {kIsReading})})
    , m_last(last)
{
}

void RequestGetInfo::getInfo()
{
    const float rate = state().currentDevice.getCurrentFreqValue();
    QJsonArray channels;
    if (state().currentMontage) {
        for (const QString &name : state().currentMontage->getChannelNames()) {
            channels.append(QJsonObject{{QStringLiteral("name"), name}});
        }
    }
    std::vector<float> frequencies;
    const unsigned points = m_last.spectrumPoints > 0 ? m_last.spectrumPoints : state().spectrumNormalLength;
    freqspace::getSpectrumFrequencies(rate, points, frequencies);
    ok(QJsonObject{{QStringLiteral("result"), true},
                   {QStringLiteral("frequency"), shortest(rate)},
                   {QStringLiteral("channelAmount"), channels.size()},
                   {QStringLiteral("spectrumFrequencies"), toArray(frequencies)},
                   {QStringLiteral("channels"), channels}});
}

RequestGetData::RequestGetData(server_state &state, SampleBuffer &samples)
    : ProcessRequest(state, {on("getdata", &RequestGetData::getData, {kIsReading})})
    , m_samples(samples)
{
}

void RequestGetData::getData()
{
    const std::size_t count = m_samples.sampleCount();
    QByteArray json("{\"data\":[{\"d\":");
    appendRows(json, m_samples.channelCount(), count, [this](char *out, std::size_t channel, std::size_t i) {
        return bp::writeTruncated(out, m_samples.channel(channel)[i]);
    });
    json += ",\"t\":" + QByteArray::number(static_cast<qint64>(now()))
        + "}],\"result\":" + (state().clientActive ? "true" : "false")
        + ",\"samples\":" + QByteArray::number(static_cast<qint64>(count)) + '}';
    m_samples.clear();
    okAscii(json);
}

RequestGetSpectrum::RequestGetSpectrum(server_state &state, const LastValues &last)
    : ProcessRequest(state, {on("getspectrum", &RequestGetSpectrum::getSpectrum, {kIsReading})})
    , m_last(last)
{
}

void RequestGetSpectrum::getSpectrum()
{
    const std::size_t points = m_last.spectrumPoints;
    const std::size_t channels = points == 0 ? 0 : m_last.spectrum.size() / points;
    QByteArray json("{\"last_spectrum\":{\"d\":");
    appendRows(json, channels, points, [this, points](char *out, std::size_t channel, std::size_t i) {
        *out++ = '"';
        out = bp::writeThreeDecimals(out, m_last.spectrum[channel * points + i]);
        *out++ = '"';
        return out;
    });
    json += ",\"t\":" + QByteArray::number(static_cast<qint64>(now()))
        + "},\"result\":true,\"samples\":" + QByteArray::number(static_cast<qint64>(points)) + '}';
    okAscii(json);
}

RequestGetLastRhythm::RequestGetLastRhythm(server_state &state, const LastValues &last)
    : ProcessRequest(state,
                     {on("getlastrhythm", &RequestGetLastRhythm::getLastRhythm,
                         {kIsReading, {bp::showsRhythms, "Halvin is not in BCI mode"}})})
    , m_last(last)
{
}

void RequestGetLastRhythm::getLastRhythm()
{
    ok(QJsonObject{{QStringLiteral("result"), true},
                   {QStringLiteral("samples"), rhythmSamples(m_last)},
                   {QStringLiteral("rhythms"), rhythmArray(m_last)},
                   {QStringLiteral("t"), now()}});
}

RequestGetLastRhythmOrState::RequestGetLastRhythmOrState(server_state &state, const LastValues &last)
    : ProcessRequest(
        state, {on("bci", &RequestGetLastRhythmOrState::getLastRhythmOrState, {{bp::isReading, "Device is not open"}})})
    , m_last(last)
{
}

void RequestGetLastRhythmOrState::getLastRhythmOrState()
{
    QJsonObject body{{QStringLiteral("result"), true}};
    if (state().bciMode) {
        body.insert(QStringLiteral("type"), QStringLiteral("state"));
        body.insert(QStringLiteral("state"), m_last.states.empty() ? 0 : static_cast<int>(m_last.states.back().state));
        body.insert(QStringLiteral("samples"), static_cast<int>(m_last.states.size()));
    } else {
        body.insert(QStringLiteral("type"), QStringLiteral("rhythms"));
        body.insert(QStringLiteral("rhythms"), rhythmArray(m_last));
        body.insert(QStringLiteral("samples"), rhythmSamples(m_last));
    }
    ok(body);
}
