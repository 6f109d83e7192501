#include "files/conversion/TextImport.h"

#include "files/conversion/ChannelChoice.h"
#include "files/edf/EdfOutput.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

namespace {

QString cannotWrite(const QString &path, const QString &reason)
{
    return QStringLiteral("Cannot write %1: %2.").arg(path, reason);
}

} // namespace

namespace bp {

TextImport::TextImport(const QStringList &sources, const EDFTextFormat &format)
    : m_format(format)
    , m_text(sources, format.columns, format.hasLabelLine)
{
}

QString TextImport::write(const QString &target, const Tick &tick)
{
    if (!ChannelChoice::isRate(m_format.rate)) {
        return QStringLiteral("Text needs a sampling rate above 0 Hz.");
    }
    QString fault;
    if (!m_text.measure(m_ranges, tick, fault)) {
        return fault;
    }
    fault = plan(target);
    if (!fault.isEmpty()) {
        return fault;
    }
    EdfOutput sink;
    if (!sink.open(target, m_header, m_plan, {}, fault)) {
        return cannotWrite(target, fault);
    }
    return fill(sink, target, tick);
}

QString TextImport::plan(const QString &target)
{
    const QStringList labels = m_format.labels.isEmpty() ? m_text.labels() : m_format.labels;
    if (labels.size() != static_cast<int>(m_ranges.size())) {
        return QStringLiteral("There are %1 columns, but %2 labels.").arg(m_ranges.size()).arg(labels.size());
    }
    const bool isDated = m_format.start.isValid();
    if (isDated && !isEdfDate(m_format.start.date())) {
        return QStringLiteral("The format holds dates from 1985 to 2084, not %1; choose another start.")
            .arg(m_format.start.date().toString(Qt::ISODate));
    }
    m_header.bdf = target.endsWith(QLatin1String(".bdf"), Qt::CaseInsensitive);
    m_header.plus = true;
    m_header.start = isDated ? QDateTime(m_format.start.date(), m_format.start.time(), Qt::UTC)
                             : QDateTime(QDate(1985, 1, 1), QTime(0, 0), Qt::UTC);
    m_header.patient = "X X X X";
    m_header.recording = "Startdate " + (isDated ? edfPlusDate(m_header.start.date()) : QByteArray("X")) + " X X X";
    const Ratio rate = ChannelChoice::rateOf(m_format.rate);
    m_plan = EdfRecordPlan::make({rate.den, rate.num}, m_text.rows(),
                                 static_cast<qint64>(m_ranges.size()) * m_header.sampleBytes(), kEdfTicks);
    if (m_plan.stepsPerRecord == 0) {
        return QStringLiteral("A rate of %1 Hz does not fit into records of one duration; choose another.")
            .arg(m_format.rate);
    }
    return addChannels(labels);
}

QString TextImport::addChannels(const QStringList &labels)
{
    for (int i = 0; i < labels.size(); ++i) {
        EdfSignalHeader channel;
        const QString fault = ChannelChoice::name(channel, labels[i], m_format.unit);
        if (!fault.isEmpty()) {
            return fault;
        }
        channel.samplesPerRecord = static_cast<int>(m_plan.stepsPerRecord);
        if (!m_ranges[static_cast<std::size_t>(i)].setLimits(channel, m_header.bdf)) {
            return QStringLiteral("The values of %1 are too large or too small for the format; choose another unit.")
                .arg(labels[i]);
        }
        m_header.channels << channel;
    }
    return QString();
}

QString TextImport::fill(EdfOutput &sink, const QString &target, const Tick &tick)
{
    const auto perRecord = static_cast<std::size_t>(m_plan.stepsPerRecord);
    m_samples.resize(perRecord * m_ranges.size());
    std::vector<double> row(m_ranges.size());
    QString fault;
    bool more = m_text.rewind(fault);
    for (qint64 record = 0; record < m_plan.records; ++record) {
        for (std::size_t k = 0; k < perRecord; ++k) {
            more = more && m_text.readRow(row, fault); // behind the end, the last row stays
            store(row, k);
        }
        if (!fault.isEmpty()) {
            return fault;
        }
        if (!tick(m_text.bytesRead(), m_text.totalBytes())) {
            return QStringLiteral("cancelled");
        }
        if (!sink.writeRecord(m_samples, fault)) {
            return cannotWrite(target, fault);
        }
    }
    return sink.commit(fault) ? QString() : cannotWrite(target, fault);
}

/// Puts the values into their places in the record.
void TextImport::store(const std::vector<double> &row, std::size_t at)
{
    for (std::size_t c = 0; c < row.size(); ++c) {
        const EdfSignalHeader &channel = m_header.channels[static_cast<int>(c)];
        const double digital = channel.digitalMinimum + (row[c] - channel.physicalMinimum.toDouble()) / channel.gain();
        m_samples[c * static_cast<std::size_t>(channel.samplesPerRecord) + at] = channel.clipped(digital);
    }
}

} // namespace bp
