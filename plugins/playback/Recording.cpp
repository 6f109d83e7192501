#include "Recording.h"

#include "devices/ChannelLabels.h"
#include "files/EDFReader.h"

#include <QDate>

#include <algorithm>
#include <cmath>

namespace {

struct Unit
{
    const char *dimension; ///< as EDF writes it, with case
    double toMicrovolt;
};
constexpr double kRecordableMaximum = 32767.0;
constexpr Unit kVoltageUnits[]{{"nV", 1e-3}, {"mV", 1e3}, {"V", 1e6}};

double factorToMicrovolt(const QString &dimension)
{
    for (const Unit &unit : kVoltageUnits) {
        if (dimension.trimmed() == QLatin1String(unit.dimension)) {
            return unit.toMicrovolt;
        }
    }
    return 1.0;
}

} // namespace

Recording::Recording() = default;
Recording::~Recording() = default;

bool Recording::open(const QString &path)
{
    close();
    m_reader = std::make_unique<EDFReader>(path);
    if (!m_reader->open()) {
        return fail(m_reader->lastError());
    }
    if (!takeSignals()) {
        return fail(QStringLiteral("The recording has no signal with samples."));
    }
    m_aheadCapacity = std::max<qint64>(1, std::llround(std::ceil(m_rate)));
    m_ahead.resize(static_cast<std::size_t>(m_aheadCapacity) * m_signals.size());
    m_scratch.resize(static_cast<std::size_t>(m_aheadCapacity));
    return true;
}

bool Recording::takeSignals()
{
    const int channels = m_reader->getChannelCount();
    for (int channel = 0; channel < channels; ++channel) {
        if (m_reader->getChannelSampleCount(channel) > 0) {
            m_rate = std::max(m_rate, m_reader->getChannelSampleRate(channel));
        }
    }
    if (!(m_rate > 0.0f) || !std::isfinite(m_rate)) {
        return false;
    }
    for (int channel = 0; channel < channels; ++channel) {
        const QString label = m_reader->getChannelName(channel).trimmed();
        const qint64 samples = m_reader->getChannelSampleCount(channel);
        if (samples <= 0 || m_reader->getChannelSampleRate(channel) < m_rate) {
            m_leftOut << label;
            continue;
        }
        m_sampleCount = m_signals.empty() ? samples : std::min(m_sampleCount, samples);
        m_signals.push_back({channel, label, bp::channelTypeFromLabel(label),
                             factorToMicrovolt(m_reader->getPhysicalDimension(channel))});
    }
    return !m_signals.empty();
}

bool Recording::fail(const QString &reason)
{
    close();
    m_reason = reason;
    return false;
}

void Recording::close()
{
    m_reader.reset();
    m_signals.clear();
    m_leftOut.clear();
    m_reason.clear();
    m_rate = 0.0f;
    m_sampleCount = 0;
    m_aheadFrom = 0;
    m_aheadCount = 0;
    m_clipped = 0;
}

QMap<QString, QString> Recording::facts() const
{
    PatientInfo patient;
    if (!m_reader || !m_reader->getPatientInfo(patient)) {
        return {};
    }
    const QDate birth(patient.birthYear, patient.birthMonth, patient.birthDay);
    return {{QStringLiteral("start_time"), m_reader->getStartDateTime().toString(Qt::ISODateWithMs)},
            {QStringLiteral("patient_name"), patient.name},
            {QStringLiteral("patient_gender"), m_reader->getPatientGender()},
            {QStringLiteral("patient_birth"), birth.toString(Qt::ISODate)},
            {QStringLiteral("equipment"), patient.equipment}};
}

QString Recording::fractionalRate() const
{
    constexpr int kDigitsOfFloat = 7;
    return std::floor(m_rate) == m_rate ? QString() : QString::number(static_cast<double>(m_rate), 'g', kDigitsOfFloat);
}

QList<AnnotationStrct> Recording::annotations() const
{
    QList<AnnotationStrct> list = m_reader ? m_reader->annotations() : QList<AnnotationStrct>();
    for (AnnotationStrct &annotation : list) {
        annotation.onset = m_reader->signalTime(annotation.onset);
    }
    return list;
}

bool Recording::read(qint64 from, qint64 count, float *planar, qint64 stride)
{
    qint64 done = 0;
    while (done < count) {
        const qint64 position = from + done;
        if ((position < m_aheadFrom || position >= m_aheadFrom + m_aheadCount) && !fetch(position)) {
            return false;
        }
        const qint64 inAhead = position - m_aheadFrom;
        const qint64 piece = std::min(count - done, m_aheadCount - inAhead);
        for (std::size_t s = 0; s < m_signals.size(); ++s) {
            const float *source = m_ahead.data() + static_cast<qint64>(s) * m_aheadCapacity + inAhead;
            std::copy_n(source, piece, planar + static_cast<qint64>(s) * stride + done);
        }
        done += piece;
    }
    return true;
}

bool Recording::fetch(qint64 from)
{
    const qint64 count = std::min(m_aheadCapacity, m_sampleCount - from);
    m_aheadFrom = from;
    m_aheadCount = 0;
    if (count <= 0) {
        return false;
    }
    for (std::size_t s = 0; s < m_signals.size(); ++s) {
        const Signal &signal = m_signals[s];
        if (m_reader->getChannelBuffData(static_cast<unsigned>(signal.fileChannel), static_cast<unsigned>(from),
                                         static_cast<unsigned>(count), m_scratch.data())
            != 0) {
            return false;
        }
        float *ahead = m_ahead.data() + static_cast<qint64>(s) * m_aheadCapacity;
        qint64 clipped = 0;
        std::transform(m_scratch.begin(), m_scratch.begin() + count, ahead, [&](double value) {
            const double microvolt = value * signal.toMicrovolt;
            clipped += std::abs(microvolt) > kRecordableMaximum ? 1 : 0;
            return static_cast<float>(microvolt);
        });
        m_clipped += clipped;
    }
    m_aheadCount = count;
    return true;
}
