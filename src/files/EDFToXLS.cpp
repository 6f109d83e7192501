#include "files/EDFToXLS.h"

#include "common/SaveFile.h"
#include "files/edf/EdfInput.h"
#include "files/edf/EdfText.h"
#include "files/workbook/RhythmSheet.h"

#include <QBuffer>
#include <QCoreApplication>

#include <xlsxdocument.h>
#include <xlsxworksheet.h>

#include <vector>

namespace {

constexpr const char *kInformation = QT_TRANSLATE_NOOP("Generic", "Information");
constexpr const char *kAnnotations = QT_TRANSLATE_NOOP("Generic", "Annotations");
constexpr const char *kData = QT_TRANSLATE_NOOP("Generic", "Data");
constexpr int kPrecision = 10;
constexpr int kCellText = 32767; // of the file format

QString translated(const char *text)
{
    return QCoreApplication::translate("Generic", text);
}

/// Without the digits that only the arithmetic has made.
double tidy(double value)
{
    return QByteArray::number(value, 'g', kPrecision).toDouble();
}

QString caption(const bp::EdfSignalHeader &channel)
{
    const QString unit = QString::fromLatin1(channel.unit);
    return QString::fromLatin1(channel.label) + (unit.isEmpty() ? QString() : QStringLiteral(", %1").arg(unit));
}

} // namespace

struct EDFToXLS::Job
{
    bp::EdfInput source;
    QXlsx::Document document;
    qint64 done = 0; ///< records, of all rates
    qint64 total = 0;

    QXlsx::Worksheet *addSheet(const QString &name)
    {
        document.addSheet(name);
        return static_cast<QXlsx::Worksheet *>(document.sheet(name));
    }
    void writeInformation(const QString &path);
    void writeNotes();
};

void EDFToXLS::Job::writeInformation(const QString &path)
{
    const bp::EdfHeader &header = source.header();
    QXlsx::Worksheet *sheet = addSheet(translated(kInformation));
    const std::pair<const char *, QVariant> rows[]{
        {QT_TRANSLATE_NOOP("Generic", "File"), path},
        {QT_TRANSLATE_NOOP("Generic", "Start time"), header.start.toString(QStringLiteral("yyyy/MM/dd hh:mm:ss"))},
        {QT_TRANSLATE_NOOP("Generic", "Subject"), QString::fromLatin1(header.patient)},
        {QT_TRANSLATE_NOOP("Generic", "Recording"), QString::fromLatin1(header.recording)},
        {QT_TRANSLATE_NOOP("Generic", "Duration, sec"), source.seconds()},
        {QT_TRANSLATE_NOOP("Generic", "Channels"), header.channels.size()},
    };
    int row = 0;
    for (const auto &[key, value] : rows) {
        sheet->writeString(++row, 1, translated(key));
        if (value.type() == QVariant::String) {
            sheet->writeString(row, 2, bp::cellText(value.toString()));
        } else {
            sheet->writeNumeric(row, 2, value.toDouble());
        }
    }
    for (const bp::EdfSignalHeader &channel : header.channels) {
        sheet->writeString(++row, 1, bp::cellText(QString::fromLatin1(channel.label)));
        sheet->writeNumeric(row, 2, channel.rate.value());
        sheet->writeString(row, 3, translated(QT_TRANSLATE_NOOP("Generic", "Hz")));
        sheet->writeString(row, 4, bp::cellText(QString::fromLatin1(channel.unit)));
    }
}

void EDFToXLS::Job::writeNotes()
{
    QXlsx::Worksheet *sheet = addSheet(translated(kAnnotations));
    int row = 1;
    sheet->writeString(row, 1, translated(QT_TRANSLATE_NOOP("Generic", "Onset, sec")));
    sheet->writeString(row, 2, translated(QT_TRANSLATE_NOOP("Generic", "Duration, sec")));
    sheet->writeString(row, 3, translated(QT_TRANSLATE_NOOP("Generic", "Text")));
    for (const bp::EdfAnnotation &annotation : source.annotations()) {
        if (++row > kMaxRows) {
            return;
        }
        sheet->writeNumeric(row, 1, bp::edfTime(annotation.onset));
        if (annotation.duration >= 0) {
            sheet->writeNumeric(row, 2, bp::edfTime(annotation.duration));
        }
        sheet->writeString(row, 3,
                           bp::cellText(bp::EdfText::fromAnnotation(annotation.text.constData())).left(kCellText));
    }
}

EDFToXLS::EDFToXLS(QObject *parent)
    : FileConversion(parent)
{
}

bool EDFToXLS::convert(const QString &source, const QString &target)
{
    begin(target);
    return end(write(source, target));
}

QString EDFToXLS::write(const QString &source, const QString &target)
{
    Job job;
    const bp::Outcome opened = job.source.open(source);
    const bp::Outcome read = opened ? job.source.scan([this] { return isCancelled(); }) : opened;
    if (!read) {
        return QStringLiteral("Cannot read %1: %2.").arg(source, read.reason());
    }
    setNotice(job.source.notice());
    QString error = targetFault({source}, target);
    qint64 cells = 3 * qint64{job.source.annotations().size()};
    QVector<int> rates;
    for (int i = 0; i < job.source.header().channels.size(); ++i) {
        const int perRecord = job.source.header().channels[i].samplesPerRecord;
        const bool ownTimes = !rates.contains(perRecord);
        rates << perRecord;
        cells += job.source.sampleCount(i) * (ownTimes ? 2 : 1);
    }
    if (error.isEmpty() && cells > kMaxCells) {
        return QStringLiteral("%1 is too large for a spreadsheet; crop it or choose channels first.").arg(source);
    }
    if (!error.isEmpty()) {
        return error;
    }
    job.writeInformation(source);
    error = writeSamples(job);
    job.writeNotes();
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!error.isEmpty() || isCancelled()) {
        return error.isEmpty() ? QStringLiteral("cancelled") : error;
    }
    if (!job.document.saveAs(&buffer) || isCancelled()) {
        return QStringLiteral("Cannot make a spreadsheet of %1.").arg(source);
    }
    const QString fault = bp::saveFile(target, bytes);
    return fault.isEmpty() ? QString() : QStringLiteral("Cannot write %1: %2.").arg(target, fault);
}

QString EDFToXLS::writeSamples(Job &job)
{
    const QVector<bp::EdfSignalHeader> &all = job.source.header().channels;
    QVector<QVector<int>> groups; // of one rate, in the order of their first channels
    for (int i = 0; i < all.size(); ++i) {
        int group = 0;
        while (group < groups.size() && !(all[groups[group].constFirst()].rate == all[i].rate)) {
            ++group;
        }
        if (group == groups.size()) {
            groups << QVector<int>();
        }
        groups[group] << i;
    }
    job.total = job.source.records() * groups.size();
    for (const QVector<int> &group : qAsConst(groups)) {
        const QString rate = QString::number(all[group.constFirst()].rate.value(), 'g', 6);
        const QString name = translated(kData)
            + (groups.size() > 1 ? QStringLiteral(" %1 %2").arg(rate, translated(QT_TRANSLATE_NOOP("Generic", "Hz")))
                                 : QString());
        const QString error = writeRate(job, group, name);
        if (!error.isEmpty() || isCancelled()) {
            return error;
        }
    }
    return QString();
}

QString EDFToXLS::writeRate(Job &job, const QVector<int> &channels, const QString &name)
{
    const QVector<bp::EdfSignalHeader> &channelHeaders = job.source.header().channels;
    const int perRecord = channelHeaders[channels.constFirst()].samplesPerRecord;
    std::vector<std::vector<qint32>> samples(static_cast<std::size_t>(channels.size()));
    QXlsx::Worksheet *sheet = nullptr;
    int row = m_rowsPerSheet;
    int number = 0;
    for (qint64 record = 0; record < job.source.records() && !isCancelled(); ++record) {
        job.source.hold(record, record);
        for (int c = 0; c < channels.size(); ++c) {
            auto &block = samples[static_cast<std::size_t>(c)];
            block.resize(static_cast<std::size_t>(perRecord));
            const bp::Outcome read = job.source.read(channels[c], record * perRecord, perRecord, block.data());
            if (!read) {
                return QStringLiteral("Cannot read the recording: %1.").arg(read.reason());
            }
        }
        for (int k = 0; k < perRecord; ++k) {
            if (row >= m_rowsPerSheet) {
                sheet = job.addSheet(++number == 1 ? name : QStringLiteral("%1 (%2)").arg(name).arg(number));
                row = 1;
                sheet->writeString(row, 1, translated(QT_TRANSLATE_NOOP("Generic", "Time, sec")));
                for (int c = 0; c < channels.size(); ++c) {
                    sheet->writeString(row, c + 2, bp::cellText(caption(channelHeaders[channels[c]])));
                }
            }
            const double inRecord = k * bp::edfTime(job.source.recordTicks()) / perRecord;
            sheet->writeNumeric(++row, 1, tidy(bp::edfTime(job.source.recordOnset(record)) + inRecord));
            for (int c = 0; c < channels.size(); ++c) {
                const qint32 digital = samples[static_cast<std::size_t>(c)][static_cast<std::size_t>(k)];
                sheet->writeNumeric(row, c + 2, tidy(channelHeaders[channels[c]].physical(digital)));
            }
        }
        report(++job.done, job.total);
    }
    return QString();
}
