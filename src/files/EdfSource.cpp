#include "files/EdfSource.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr int kFixedBytes = 256;
constexpr int kMaxSignals = 4096;
constexpr qint64 kMaxRecordBytes = 64 * 1024 * 1024;
constexpr qint64 kWindowBytes = 1024 * 1024;
constexpr qint64 kCheckEvery = 256; // records
constexpr int kPivotYear = 85; // of two-digit years

/// Of the field that begins `before` bytes into each signal's share of the header.
QByteArray field(const QByteArray &header, int signalCount, int signal, int before, int width)
{
    return header.mid(signalCount * before + signal * width, width).trimmed();
}

bool isDecimal(const QByteArray &text)
{
    bool isNumber = false;
    return std::isfinite(text.toDouble(&isNumber)) && isNumber;
}

QDateTime parseStart(const QByteArray &text, const QByteArray &recording)
{
    static const QRegularExpression digits(QStringLiteral("^(\\d\\d).(\\d\\d).(\\d\\d)(\\d\\d).(\\d\\d).(\\d\\d)$"));
    const QRegularExpressionMatch match = digits.match(QString::fromLatin1(text));
    const auto number = [&match](int group) { return match.captured(group).toInt(); };
    int year = number(3) + (number(3) < kPivotYear ? 2000 : 1900);
    const int full = recording.startsWith("Startdate ") ? recording.mid(17, 4).toInt() : 0;
    if (full > 1900 && full % 100 == number(3)) {
        year = full;
    }
    return {QDate(year, number(2), number(1)), QTime(number(4), number(5), number(6)), Qt::UTC};
}

int signedSample(const char *bytes, int width)
{
    const auto at = [bytes](int i) { return static_cast<int>(static_cast<unsigned char>(bytes[i])); };
    return width == 2 ? at(0) + static_cast<signed char>(bytes[1]) * 256
                      : at(0) + at(1) * 256 + static_cast<signed char>(bytes[2]) * 65536;
}

} // namespace

namespace bp {

bool EdfSource::open(const QString &path, QString &error)
{
    m_file.setFileName(path);
    const QFileInfo info(path);
    if (!info.exists()) {
        error = QStringLiteral("there is no such file");
    } else if (!info.isFile()) {
        error = QStringLiteral("it is not a file");
    } else if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        error = QStringLiteral("this user may not open it");
    }
    return error.isEmpty() && readHeader(error);
}

bool EdfSource::readHeader(QString &error)
{
    const QByteArray fixed = m_file.read(kFixedBytes);
    if (!readFixed(fixed, error) || !readSignals(error)) {
        return false;
    }
    if (m_facts.channels.isEmpty()) {
        error = QStringLiteral("it holds annotations only, and no signal");
        return false;
    }
    if (m_recordTicks <= 0) {
        error = QStringLiteral("its records have no duration");
        return false;
    }
    for (EdfChannelFacts &channel : m_facts.channels) {
        channel.rate = Ratio::of(channel.samplesPerRecord * kEdfTicks, m_recordTicks);
    }
    return countRecords(fixed.mid(236, 8).trimmed(), error);
}

bool EdfSource::readFixed(const QByteArray &fixed, QString &error)
{
    const bool isEdf = fixed.startsWith("0       ");
    m_facts.bdf = fixed.startsWith("\xff"
                                   "BIOSEMI");
    m_signalCount = fixed.mid(252, 4).trimmed().toInt();
    m_headerBytes = fixed.mid(184, 8).trimmed().toLongLong();
    if (fixed.size() < kFixedBytes || (!isEdf && !m_facts.bdf) || m_signalCount < 1 || m_signalCount > kMaxSignals
        || m_headerBytes != kFixedBytes * (qint64{m_signalCount} + 1) || !isDecimal(fixed.mid(244, 8).trimmed())) {
        error = QStringLiteral("it is no EDF(+) or BDF(+) file, or its header has format errors");
        return false;
    }
    const QByteArray kind = fixed.mid(192, 5);
    m_facts.plus = kind == "EDF+C" || kind == "EDF+D" || kind == "BDF+C" || kind == "BDF+D";
    m_facts.patient = fixed.mid(8, 80).trimmed();
    m_facts.recording = fixed.mid(88, 80).trimmed();
    m_facts.start = parseStart(fixed.mid(168, 16), m_facts.recording);
    m_recordTicks = edfTicksOf(fixed.mid(244, 8));
    if (!m_facts.start.isValid()) {
        error = QStringLiteral("its header has no valid start date and time");
    }
    return error.isEmpty();
}

bool EdfSource::readSignals(QString &error)
{
    const QByteArray header = m_file.read(m_headerBytes - kFixedBytes);
    const auto text = [&](int signal, int before, int width) {
        return field(header, m_signalCount, signal, before, width);
    };
    for (int i = 0; i < m_signalCount; ++i) {
        EdfChannelFacts channel{
            text(i, 0, 16),  text(i, 16, 80),         text(i, 96, 8),          text(i, 136, 80),        text(i, 104, 8),
            text(i, 112, 8), text(i, 120, 8).toInt(), text(i, 128, 8).toInt(), text(i, 216, 8).toInt(), {},
            m_recordBytes};
        const qint64 bytes = qint64{channel.samplesPerRecord} * m_facts.sampleBytes();
        m_recordBytes += bytes;
        if (channel.samplesPerRecord < 1 || m_recordBytes > kMaxRecordBytes) {
            error = QStringLiteral("signal %1 has an impossible number of samples").arg(i + 1);
            return false;
        }
        if (channel.label == (m_facts.bdf ? "BDF Annotations" : "EDF Annotations")) {
            m_noteSignals << NoteSignal{channel.position, bytes};
            continue;
        }
        if (!isDecimal(channel.physicalMinimum) || !isDecimal(channel.physicalMaximum)
            || channel.digitalMinimum >= channel.digitalMaximum
            || channel.physicalMinimum.toDouble() == channel.physicalMaximum.toDouble()) {
            error = QStringLiteral("signal %1 (%2) has impossible limits")
                        .arg(i + 1)
                        .arg(QString::fromLatin1(channel.label));
            return false;
        }
        m_facts.channels << channel;
    }
    return true;
}

bool EdfSource::countRecords(const QByteArray &text, QString &error)
{
    bool isNumber = false;
    m_records = text.toLongLong(&isNumber);
    const qint64 inFile = std::max<qint64>(0, m_file.size() - m_headerBytes) / m_recordBytes;
    if (isNumber && m_records == -1) { // was never closed
        m_records = inFile;
    }
    if (!isNumber || m_records < 1) {
        error = QStringLiteral("it holds no data");
    } else if (m_records > inFile) {
        error = QStringLiteral("it is shorter than its header says: %1 of %2 records").arg(inFile).arg(m_records);
    }
    return error.isEmpty();
}

bool EdfSource::scan(const std::function<bool()> &cancelled, QString &error)
{
    if (m_noteSignals.isEmpty() || !m_facts.plus) {
        return true;
    }
    m_onsets.reserve(static_cast<std::size_t>(m_records));
    for (qint64 record = 0; record < m_records; ++record) {
        if (record % kCheckEvery == 0 && cancelled()) {
            return false;
        }
        for (int i = 0; i < m_noteSignals.size(); ++i) {
            const NoteSignal &signal = m_noteSignals[i];
            m_file.seek(m_headerBytes + record * m_recordBytes + signal.position);
            const QByteArray block = m_file.read(signal.bytes);
            if (block.size() != signal.bytes) {
                error = QStringLiteral("reading failed");
                return false;
            }
            takeNotes(block, record, i == 0);
        }
    }
    settleOnsets();
    return true;
}

void EdfSource::takeNotes(const QByteArray &block, qint64 record, bool timekeeping)
{
    qint64 recordOnset = record == 0 ? 0 : m_onsets.empty() ? 0 : m_onsets.back() + m_recordTicks;
    if (timekeeping && (block.startsWith('+') || block.startsWith('-'))) {
        recordOnset = edfTicksOf(block.left(block.indexOf('\x14')));
    }
    if (timekeeping) {
        m_onsets.push_back(recordOnset);
    }
    for (const QByteArray &list : block.split('\0')) {
        const int end = list.indexOf('\x14');
        if (end < 2) {
            continue;
        }
        const QList<QByteArray> times = list.left(end).split('\x15');
        EdfNote note;
        note.onset = edfTicksOf(times.constFirst());
        note.duration = times.size() > 1 ? edfTicksOf(times[1]) : -1;
        for (const QByteArray &text : list.mid(end + 1).split('\x14')) {
            note.text = text;
            if (!text.isEmpty()) {
                m_notes << note;
            }
        }
    }
}

void EdfSource::settleOnsets()
{
    const qint64 first = m_onsets.front();
    int densest = 1;
    for (const EdfChannelFacts &channel : m_facts.channels) {
        densest = std::max(densest, channel.samplesPerRecord);
    }
    const qint64 tolerance = std::max<qint64>(1, m_recordTicks / densest / 2);
    for (std::size_t i = 0; i < m_onsets.size(); ++i) {
        m_onsets[i] -= first;
        m_hasGaps = m_hasGaps || std::abs(m_onsets[i] - static_cast<qint64>(i) * m_recordTicks) > tolerance;
    }
    if (!m_hasGaps) {
        std::vector<qint64>().swap(m_onsets);
    }
    if (first > 0) {
        m_facts.moveStart(first);
    }
    for (EdfNote &note : m_notes) {
        note.onset -= first;
    }
    std::stable_sort(m_notes.begin(), m_notes.end(),
                     [](const EdfNote &a, const EdfNote &b) { return a.onset < b.onset; });
}

qint64 EdfSource::recordOnset(qint64 record) const
{
    return m_hasGaps ? m_onsets[static_cast<std::size_t>(record)] : record * m_recordTicks;
}

void EdfSource::hold(qint64 firstRecord, qint64 lastRecord)
{
    m_holdFirst = std::clamp<qint64>(firstRecord, 0, m_records - 1);
    m_holdLast = std::clamp<qint64>(lastRecord, m_holdFirst, m_records - 1);
}

bool EdfSource::load(qint64 record, QString &error)
{
    m_windowFirst = record >= m_holdFirst && record <= m_holdLast ? m_holdFirst : record;
    const qint64 held = std::max(record, m_holdLast) - m_windowFirst + 1;
    const qint64 wanted = std::max(held, std::max<qint64>(1, kWindowBytes / m_recordBytes));
    m_windowCount = std::min(wanted, m_records - m_windowFirst);
    m_window.resize(static_cast<int>(std::min<qint64>(m_windowCount * m_recordBytes, 1 << 30)));
    m_windowCount = m_window.size() / m_recordBytes;
    m_file.seek(m_headerBytes + m_windowFirst * m_recordBytes);
    if (m_file.read(m_window.data(), m_window.size()) == m_window.size()) {
        return true;
    }
    m_windowCount = 0;
    error = QStringLiteral("reading failed");
    return false;
}

bool EdfSource::read(int channel, qint64 first, int count, qint32 *out, QString &error)
{
    const EdfChannelFacts &facts = m_facts.channels[channel];
    const qint64 last = sampleCount(channel) - 1;
    const int width = m_facts.sampleBytes();
    for (int i = 0; i < count;) {
        const qint64 sample = std::clamp<qint64>(first + i, 0, last);
        const qint64 record = sample / facts.samplesPerRecord;
        const qint64 at = sample % facts.samplesPerRecord;
        if ((record < m_windowFirst || record >= m_windowFirst + m_windowCount) && !load(record, error)) {
            return false;
        }
        const char *bytes =
            m_window.constData() + (record - m_windowFirst) * m_recordBytes + facts.position + at * width;
        const bool inside = first + i >= 0 && first + i <= last;
        const auto run = static_cast<int>(inside ? std::min<qint64>(count - i, facts.samplesPerRecord - at) : 1);
        for (int k = 0; k < run; ++k) {
            out[i + k] = signedSample(bytes + qint64{k} * width, width);
        }
        i += run;
    }
    return true;
}

} // namespace bp
