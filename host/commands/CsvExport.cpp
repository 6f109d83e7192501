#include "commands/CsvExport.h"

#include "files/EDFReader.h"

#include <QSaveFile>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr int kPrecision = 10; ///< digits; more only the arithmetic has made
constexpr unsigned kChunk = 4096; ///< lines at a time

/// A field as RFC 4180 has it.
QByteArray field(const QString &text)
{
    QByteArray bytes = text.toUtf8();
    if (bytes.contains(',') || bytes.contains('"') || bytes.contains('\n') || bytes.contains('\r')) {
        bytes = '"' + bytes.replace("\"", "\"\"") + '"';
    }
    return bytes;
}

/// One channel, read piece by piece in the order of its samples.
class Column
{
public:
    Column(EDFReader &reader, int channel, double lineRate)
        : m_reader(reader)
        , m_channel(static_cast<unsigned>(channel))
        , m_count(reader.getChannelSampleCount(channel))
        , m_linesPerSample(lineRate / static_cast<double>(reader.getChannelSampleRate(channel)))
    {
    }

    /// Appends the value of a line, if it has one. False when reading failed.
    bool append(qint64 line, QByteArray &text)
    {
        if (m_next >= m_count || line < std::llround(static_cast<double>(m_next) * m_linesPerSample)) {
            return true;
        }
        if (m_next >= m_from + static_cast<qint64>(m_piece.size())) {
            m_from = m_next;
            m_piece.resize(static_cast<std::size_t>(std::min<qint64>(kChunk, m_count - m_from)));
            if (m_reader.getChannelBuffData(m_channel, static_cast<unsigned>(m_from),
                                            static_cast<unsigned>(m_piece.size()), m_piece.data())
                != 0) {
                return false;
            }
        }
        // The reader inverts, as recordings of ours are inverted; 0 is added so that there is no "-0".
        text += QByteArray::number(0.0 - m_piece[static_cast<std::size_t>(m_next - m_from)], 'g', kPrecision);
        ++m_next;
        return true;
    }

private:
    EDFReader &m_reader;
    unsigned m_channel;
    qint64 m_count;
    double m_linesPerSample;
    qint64 m_next = 0;
    qint64 m_from = 0; ///< of the piece that is held
    std::vector<double> m_piece;
};

/// Turns seconds of signal into times of the file, which go on in a gap. Called in the order of time.
class Clock
{
public:
    explicit Clock(const QList<EDFGap> &gaps)
        : m_gaps(gaps)
    {
    }
    double timeOf(double signalSeconds, double slack)
    {
        while (m_next < m_gaps.size() && signalSeconds >= m_gaps[m_next].position - slack) {
            m_paused += m_gaps[m_next++].duration;
        }
        return signalSeconds + m_paused;
    }

private:
    const QList<EDFGap> m_gaps;
    int m_next = 0;
    double m_paused = 0.0;
};

} // namespace

CsvExport::CsvExport(QObject *parent)
    : FileConversion(parent)
{
}

bool CsvExport::convert(const QString &source, const QString &target)
{
    begin(target);
    return end(write(source, target));
}

QString CsvExport::write(const QString &source, const QString &target)
{
    EDFReader reader(source);
    if (!reader.open()) {
        return reader.lastError();
    }
    const QString fault = targetFault({source}, target);
    if (!fault.isEmpty()) {
        return fault;
    }
    QSaveFile file(target);
    // Unbuffered: commit() does not notice when the disk has no room for what is left in a buffer.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return QStringLiteral("Cannot write %1: %2.").arg(target, file.errorString());
    }
    const QString error = writeLines(reader, file);
    if (!error.isEmpty()) {
        return error;
    }
    return file.commit() ? QString() : QStringLiteral("Cannot write %1: %2.").arg(target, file.errorString());
}

QString CsvExport::writeLines(EDFReader &reader, QSaveFile &file)
{
    double rate = 0.0;
    for (int c = 0; c < reader.getChannelCount(); ++c) {
        rate = std::max(rate, static_cast<double>(reader.getChannelSampleRate(c)));
    }
    if (!(rate > 0.0)) {
        return QStringLiteral("The recording has annotations only, and no signal.");
    }
    std::vector<Column> columns;
    qint64 lines = 0;
    QByteArray text("Time (s)");
    for (int c = 0; c < reader.getChannelCount(); ++c) {
        const QString unit = reader.getPhysicalDimension(c);
        text +=
            ',' + field(reader.getChannelName(c) + (unit.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(unit)));
        columns.emplace_back(reader, c, rate);
        const double seconds = static_cast<double>(reader.getChannelSampleCount(c))
            / std::max(1e-9, static_cast<double>(reader.getChannelSampleRate(c)));
        lines = std::max<qint64>(lines, std::llround(seconds * rate));
    }
    text += '\n';
    Clock clock(reader.gaps());
    for (qint64 line = 0; line < lines; ++line) {
        text += QByteArray::number(clock.timeOf(static_cast<double>(line) / rate, 0.5 / rate), 'g', kPrecision);
        for (Column &column : columns) {
            text += ',';
            if (!column.append(line, text)) {
                return QStringLiteral("Cannot read the recording: reading failed.");
            }
        }
        text += '\n';
        if ((line + 1) % kChunk == 0 || line + 1 == lines) {
            if (isCancelled()) {
                return QStringLiteral("cancelled");
            }
            if (file.write(text) != text.size()) {
                return QStringLiteral("Cannot write %1: the disk may be full.").arg(file.fileName());
            }
            text.clear();
            report(line + 1, lines);
        }
    }
    return QString();
}
