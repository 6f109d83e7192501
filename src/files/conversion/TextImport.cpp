#include "files/conversion/TextImport.h"

#include "files/conversion/ChannelChoice.h"
#include "files/edf/EdfOutput.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

namespace {

/// A failure with a whole sentence.
bp::Outcome cannotWrite(const QString &path, const QString &reason)
{
    return bp::Outcome::failure(QStringLiteral("Cannot write %1: %2.").arg(path, reason));
}

} // namespace

namespace bp {

TextImport::TextImport(const QStringList &sources, const EDFTextFormat &format)
    : m_format(format)
    , m_text(sources, format.columns, format.hasLabelLine)
{
}

Outcome TextImport::write(const QString &target, const Tick &tick)
{
    if (!ChannelChoice::isRate(m_format.rate)) {
        return Outcome::failure(QStringLiteral("Text needs a sampling rate above 0 Hz."));
    }
    const Outcome measured = m_text.measure(m_ranges, tick);
    const Outcome planned = measured ? plan(target) : measured;
    if (!planned) {
        return planned;
    }
    EdfOutput output;
    const Outcome opened = output.open(target, m_header, m_plan, {});
    return opened ? fill(output, target, tick) : cannotWrite(target, opened.reason());
}

Outcome TextImport::plan(const QString &target)
{
    const QStringList labels = m_format.labels.isEmpty() ? m_text.labels() : m_format.labels;
    if (labels.size() != static_cast<int>(m_ranges.size())) {
        return Outcome::failure(
            QStringLiteral("There are %1 columns, but %2 labels.").arg(m_ranges.size()).arg(labels.size()));
    }
    const bool isDated = m_format.start.isValid();
    if (isDated && !isEdfDate(m_format.start.date())) {
        return Outcome::failure(
            QStringLiteral("The format holds dates from 1985 to 2084, not %1; choose another start.")
                .arg(m_format.start.date().toString(Qt::ISODate)));
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
        return Outcome::failure(
            QStringLiteral("A rate of %1 Hz does not fit into records of one duration; choose another.")
                .arg(m_format.rate));
    }
    return addChannels(labels);
}

Outcome TextImport::addChannels(const QStringList &labels)
{
    for (int i = 0; i < labels.size(); ++i) {
        EdfSignalHeader channel;
        const Outcome named = ChannelChoice::name(channel, labels[i], m_format.unit);
        if (!named) {
            return named;
        }
        channel.samplesPerRecord = static_cast<int>(m_plan.stepsPerRecord);
        if (!m_ranges[static_cast<std::size_t>(i)].setLimits(channel, m_header.bdf)) {
            return Outcome::failure(
                QStringLiteral("The values of %1 are too large or too small for the format; choose another unit.")
                    .arg(labels[i]));
        }
        m_header.channels << channel;
    }
    return Outcome::good();
}

Outcome TextImport::fill(EdfOutput &output, const QString &target, const Tick &tick)
{
    const auto perRecord = static_cast<std::size_t>(m_plan.stepsPerRecord);
    m_samples.resize(perRecord * m_ranges.size());
    std::vector<double> row(m_ranges.size());
    bool more = static_cast<bool>(m_text.rewind());
    for (qint64 record = 0; record < m_plan.records; ++record) {
        for (std::size_t k = 0; k < perRecord; ++k) {
            more = more && m_text.readRow(row); // behind the end, the last row stays
            store(row, k);
        }
        if (!m_text.outcome()) {
            return m_text.outcome();
        }
        if (!tick(m_text.bytesRead(), m_text.totalBytes())) {
            return Outcome::failure(QStringLiteral("cancelled"));
        }
        const Outcome written = output.writeRecord(m_samples);
        if (!written) {
            return cannotWrite(target, written.reason());
        }
    }
    const Outcome committed = output.commit();
    return committed ? committed : cannotWrite(target, committed.reason());
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
