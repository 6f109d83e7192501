#include "files/edf/EdfOutput.h"

#include "files/edf/EdfLayout.h"
#include "files/edf/EdfSamples.h"
#include "files/edf/EdfSession.h"
#include "files/edf/EdfTal.h"

#include <QFileInfo>
#include <QLocale>
#include <QRandomGenerator>

#include <edflib.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

using bp::EdfLayout;

constexpr int kLeastAnnotationBytes = 60;
constexpr qint64 kMaxAnnotationBytes = 4 * 1024 * 1024;

QByteArray padded(const QByteArray &text, int width)
{
    return text.leftJustified(width, ' ', true);
}

QByteArray number(qint64 value, int width = EdfLayout::kNumberWidth)
{
    return padded(QByteArray::number(value), width);
}

/// Characters from the decimal point on; 0 for whole seconds.
int decimals(qint64 ticks)
{
    const QByteArray text = bp::edfSeconds(std::abs(ticks));
    const int point = text.indexOf('.');
    return point < 0 ? 0 : text.size() - point;
}

QByteArray timed(const bp::EdfAnnotation &annotation, qint64 startTicks)
{
    const qint64 onset = annotation.onset + startTicks;
    const QByteArray lasting = annotation.duration < 0 ? QByteArray() : bp::edfSeconds(annotation.duration);
    return bp::EdfTal::list(onset < 0, bp::edfSeconds(std::abs(onset)), lasting, annotation.text) + '\0';
}

std::filesystem::path nativePath(const QString &path)
{
#ifdef Q_OS_WIN
    return path.toStdWString();
#else
    return QFile::encodeName(path).toStdString();
#endif
}

/// The file that a link leads to: it is replaced, and the link stays.
QString behindLinks(const QString &path)
{
    const QString real = QFileInfo(path).canonicalFilePath();
    return real.isEmpty() ? path : real;
}

/// Also over an existing file, at once.
bool moveOver(const QString &from, const QString &to)
{
    if (QFileInfo::exists(to)) {
        QFile::setPermissions(from, QFile::permissions(to));
    }
    std::error_code error;
    std::filesystem::rename(nativePath(from), nativePath(to), error);
    return !error;
}

} // namespace

namespace bp {

EdfOutput::~EdfOutput()
{
    if (m_file) {
        const QString path = m_file->fileName();
        m_file.reset(); // removes what was not completed
        QFile::remove(path);
    }
}

Outcome EdfOutput::open(const QString &path, const EdfHeader &header, const EdfRecordPlan &plan,
                        const QVector<EdfAnnotation> &annotations)
{
    m_header = header;
    m_plan = plan;
    m_annotations = annotations;
    if (!annotations.isEmpty()) {
        m_header.makePlus();
    }
    for (const EdfSignalHeader &channel : m_header.channels) {
        m_samples += channel.samplesPerRecord;
    }
    if (m_header.plus) {
        sizeAnnotationBlock();
    }
    m_target = behindLinks(path);
    m_file = std::make_unique<QSaveFile>(
        QStringLiteral("%1.%2").arg(m_target, QString::number(QRandomGenerator::global()->generate(), 36)));
    if (!m_file->open(QIODevice::WriteOnly)) {
        return Outcome::failure(m_file->errorString());
    }
    const QByteArray bytes = headerBytes();
    if (m_annotationBytes > kMaxAnnotationBytes) {
        return Outcome::failure(QStringLiteral("so many annotations do not fit into so short a file"));
    }
    return m_file->write(bytes) == bytes.size() ? Outcome::good() : Outcome::failure(m_file->errorString());
}

QByteArray EdfOutput::timekeeping(qint64 record) const
{
    return '+' + edfSeconds(m_header.startTicks + record * m_plan.durationTicks) + "\x14\x14" + '\0';
}

/// Upper bound of the length of timekeeping(): the last record has the most integer digits, and a sum has no more
/// decimals than its parts.
qint64 EdfOutput::longestTimekeeping() const
{
    const int most = std::max(decimals(m_header.startTicks), decimals(m_plan.durationTicks));
    return timekeeping(m_plan.records).size() - decimals(m_header.startTicks + m_plan.records * m_plan.durationTicks)
        + most;
}

/// Places the annotations, from number `next` on, that belong into the record or an earlier one, as far as there is
/// room. Returns the number of the first that remains.
qint64 EdfOutput::placeAnnotations(qint64 record, qint64 next, QByteArray *block) const
{
    qint64 used = timekeeping(record).size();
    const qint64 end = (record + 1) * m_plan.durationTicks;
    const bool last = record + 1 == m_plan.records;
    for (; next < m_annotations.size(); ++next) {
        const EdfAnnotation &annotation = m_annotations[static_cast<int>(next)];
        const QByteArray text = timed(annotation, m_header.startTicks);
        if (used + text.size() > m_annotationBytes || (annotation.onset >= end && !last)) {
            break;
        }
        used += text.size();
        if (block != nullptr) {
            *block += text;
        }
    }
    return next;
}

void EdfOutput::sizeAnnotationBlock()
{
    int longest = 0;
    for (const EdfAnnotation &annotation : qAsConst(m_annotations)) {
        longest = std::max(longest, timed(annotation, m_header.startTicks).size());
    }
    // Even, and a whole number of samples of three bytes.
    const auto rounded = [](qint64 bytes) { return static_cast<int>((bytes + 5) / 6 * 6); };
    m_annotationBytes = rounded(
        std::max<qint64>(m_annotations.isEmpty() ? 0 : kLeastAnnotationBytes, longestTimekeeping() + qint64{longest}));
    // Placed from the front in every record, as writing does it, until nothing is left behind.
    const auto fits = [this] {
        qint64 next = 0;
        for (qint64 record = 0; record < m_plan.records && next < m_annotations.size(); ++record) {
            next = placeAnnotations(record, next, nullptr);
        }
        return next == m_annotations.size();
    };
    while (!fits() && m_annotationBytes <= kMaxAnnotationBytes) {
        m_annotationBytes = rounded(qint64{m_annotationBytes} * 2);
    }
}

QByteArray EdfOutput::headerBytes() const
{
    QVector<EdfSignalHeader> channels = m_header.channels;
    if (m_header.plus) {
        EdfSignalHeader annotations;
        annotations.label = m_header.bdf ? "BDF Annotations" : "EDF Annotations";
        annotations.physicalMinimum = "-1";
        annotations.physicalMaximum = "1";
        annotations.digitalMinimum = m_header.bdf ? -8388608 : -32768;
        annotations.digitalMaximum = m_header.bdf ? 8388607 : 32767;
        annotations.samplesPerRecord = m_annotationBytes / m_header.sampleBytes();
        channels << annotations;
    }
    const QByteArray kind = m_header.bdf ? "BDF" : "EDF";
    QByteArray bytes = m_header.bdf ? QByteArray("\xff"
                                                 "BIOSEMI")
                                    : padded("0", EdfLayout::kNumberWidth);
    bytes += padded(m_header.patient, EdfLayout::kTextWidth) + padded(m_header.recording, EdfLayout::kTextWidth)
        + QLocale::c().toString(m_header.start, QStringLiteral("dd.MM.yyHH.mm.ss")).toLatin1()
        + number(EdfLayout::kFixedBytes * (qint64{channels.size()} + 1))
        + padded(m_header.plus      ? kind + "+C"
                     : m_header.bdf ? QByteArray("24BIT")
                                    : QByteArray(),
                 EdfLayout::kReservedWidth)
        + number(m_plan.records) + padded(edfSeconds(m_plan.durationTicks), EdfLayout::kNumberWidth)
        + number(channels.size(), EdfLayout::kSignalCountWidth);
    return bytes + signalFields(channels);
}

QByteArray EdfOutput::signalFields(const QVector<EdfSignalHeader> &channels)
{
    QByteArray bytes;
    const auto field = [&](int width, auto text) {
        for (const EdfSignalHeader &channel : channels) {
            bytes += padded(text(channel), width);
        }
    };
    using Signal = const EdfSignalHeader &;
    field(EdfLayout::kLabelWidth, [](Signal c) { return c.label; });
    field(EdfLayout::kTransducerWidth, [](Signal c) { return c.transducer; });
    field(EdfLayout::kNumberWidth, [](Signal c) { return c.unit; });
    field(EdfLayout::kNumberWidth, [](Signal c) { return c.physicalMinimum; });
    field(EdfLayout::kNumberWidth, [](Signal c) { return c.physicalMaximum; });
    field(EdfLayout::kNumberWidth, [](Signal c) { return QByteArray::number(c.digitalMinimum); });
    field(EdfLayout::kNumberWidth, [](Signal c) { return QByteArray::number(c.digitalMaximum); });
    field(EdfLayout::kPrefilterWidth, [](Signal c) { return c.prefilter; });
    field(EdfLayout::kNumberWidth, [](Signal c) { return QByteArray::number(c.samplesPerRecord); });
    field(EdfLayout::kSignalReservedWidth, [](Signal) { return QByteArray(); });
    return bytes;
}

Outcome EdfOutput::writeRecord(const std::vector<qint32> &samples)
{
    m_buffer.resize(m_samples * m_header.sampleBytes());
    EdfSamples::pack(samples.data(), m_samples, m_header.sampleBytes(), m_buffer.data());
    if (m_annotationBytes > 0) {
        QByteArray block = timekeeping(m_record);
        m_nextAnnotation = placeAnnotations(m_record, m_nextAnnotation, &block);
        m_buffer += block.leftJustified(m_annotationBytes, '\0');
    }
    ++m_record;
    return m_file->write(m_buffer) == m_buffer.size()
        ? Outcome::good()
        : Outcome::failure(QStringLiteral("writing failed; the disk may be full"));
}

Outcome EdfOutput::commit()
{
    if (!m_file->commit()) {
        return Outcome::failure(QStringLiteral("it could not be completed; the disk may be full"));
    }
    const Outcome complete = readBack();
    if (complete && !moveOver(m_file->fileName(), m_target)) {
        return Outcome::failure(QStringLiteral("it could not be put in its place; close it in other programs"));
    }
    return complete;
}

/// Whether the new file is as it should be.
Outcome EdfOutput::readBack() const
{
    EdfSession session;
    const Outcome opened = session.open(m_file->fileName());
    if (!opened) {
        return Outcome::failure(QStringLiteral("what was written cannot be read again, as %1").arg(opened.reason()));
    }
    session.readAnnotations();
    const bool isComplete = session.header().edfsignals == m_header.channels.size()
        && session.header().datarecords_in_file == m_plan.records
        && session.annotations().size() == m_annotations.size();
    return isComplete ? Outcome::good()
                      : Outcome::failure(QStringLiteral("channels or annotations could not be read again"));
}

} // namespace bp
