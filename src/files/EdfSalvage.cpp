#include "files/EdfSalvage.h"

#include "files/EdfHeaderRepair.h"
#include "files/EdfTal.h"

#include <QDir>

#include <edflib.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

namespace {

constexpr long long kUnitsPerJournalUnit = EDFLIB_TIME_DIMENSION / 10000;
/// Times are written with few digits; what is less than a tenth of a millisecond is no gap.
constexpr long long kTolerance = EDFLIB_TIME_DIMENSION / 10000;
constexpr double kLongestFile = 1e11; ///< seconds; in 100 ns they fit 64 bits

double inSeconds(long long time)
{
    return static_cast<double>(time) / static_cast<double>(EDFLIB_TIME_DIMENSION);
}

/// Why bytes are no header at all.
QString headerFault(QFile &file)
{
    file.seek(0);
    const QByteArray start = file.read(bp::EdfLayout::kFixedBytes);
    if (start.isEmpty()) {
        return QStringLiteral("it is empty, as a recording is that did not get through its first second");
    }
    if (!(start.startsWith("0       ")
          || start.startsWith("\xff"
                              "BIOSEMI"))) {
        return QStringLiteral("it does not begin as EDF and BDF files do");
    }
    const qint64 headerBytes =
        start.mid(bp::EdfLayout::kHeaderBytesAt, bp::EdfLayout::kNumberWidth).trimmed().toLongLong();
    return file.size() < headerBytes
        ? QStringLiteral("it ends within its header")
        : QStringLiteral("its header does not have the size that its number of signals calls for");
}

void replaceNumber(QByteArray &header, int position, qint64 number)
{
    header.replace(position, bp::EdfLayout::kNumberWidth,
                   QByteArray::number(number).leftJustified(bp::EdfLayout::kNumberWidth));
}

} // namespace

namespace bp {

EdfSalvage::EdfSalvage(const QString &path, bool cutsTail)
    : m_path(path)
{
    examine(cutsTail);
    if (!m_reason.isEmpty()) {
        m_reason = QStringLiteral("it has format errors: ") + m_reason;
    }
}

EdfSalvage::~EdfSalvage() = default;

void EdfSalvage::examine(bool cutsTail)
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        m_reason = file.errorString();
        return;
    }
    m_layout = EdfLayout::read(file);
    if (m_layout.header.isEmpty()) {
        m_reason = headerFault(file);
        return;
    }
    if (m_layout.recordBytes < 1 || m_layout.recordBytes > EdfLayout::kMostRecordBytes
        || m_layout.signalCount > EDFLIB_MAXSIGNALS) {
        m_reason = QStringLiteral("its signals have numbers of samples that no record can have");
        return;
    }
    m_header = EdfHeaderRepair::mended(m_layout);
    m_layout.header = m_header;
    m_reason = EdfHeaderRepair::fault(m_layout);
    if (!m_reason.isEmpty()) {
        return;
    }
    m_recordDuration = std::llround(m_layout.field(EdfLayout::kDurationAt, EdfLayout::kNumberWidth).toDouble()
                                    * EDFLIB_TIME_DIMENSION);
    const bool isUnclosed = m_layout.records == EdfLayout::kUnknownRecords;
    m_records = m_layout.wholeRecords(file.size());
    if (isUnclosed || cutsTail) {
        dropEmptyRecords(file);
        m_journal = EdfJournal::read(m_path, EdfJournal::identity(m_header));
    }
    m_reason = countFault(file.size(), isUnclosed || cutsTail);
    m_reason = m_reason.isEmpty() ? readAnnotations(file) : m_reason;
    if (!m_reason.isEmpty()) {
        return;
    }
    m_annotations += missingAnnotations(m_journal, m_annotations);
    if (isUnclosed) {
        m_notice = QStringLiteral("%1 was not closed, or is being recorded: its first %2 s are there, and "
                                  "\"bioprocessing repair\" makes a sound copy of them.")
                       .arg(m_path)
                       .arg(static_cast<double>(m_records) * inSeconds(m_recordDuration));
    } else if (m_malformed > 0 || m_ignoresTimes) {
        m_notice = QStringLiteral("%1 has %2 malformed annotations or record times, which are left out.")
                       .arg(m_path)
                       .arg(m_malformed);
    }
}

QString EdfSalvage::countFault(qint64 fileBytes, bool cutsTail)
{
    if (m_records < 1) {
        return QStringLiteral("it has no whole data record");
    }
    if (static_cast<double>(m_records) * inSeconds(m_recordDuration) > kLongestFile) {
        return QStringLiteral("it would last longer than %1 s").arg(kLongestFile);
    }
    if (cutsTail) {
        return QString();
    }
    const qint64 excess = fileBytes - m_layout.header.size() - m_layout.records * m_layout.recordBytes;
    if (excess == 0 && m_layout.records <= EdfLayout::kMostRecords) {
        return QString();
    }
    return QStringLiteral(
               "it is %1 bytes %2 than its header says; \"bioprocessing repair\" makes a copy of what is whole")
        .arg(std::llabs(excess))
        .arg(excess < 0 ? QStringLiteral("shorter") : QStringLiteral("longer"));
}

/// After a power cut a file may have got its length but not its bytes: a record that was written has its time in it.
void EdfSalvage::dropEmptyRecords(QFile &file)
{
    if (m_layout.annotationBlocks.isEmpty()) {
        return;
    }
    const auto isEmpty = [&](qint64 record) {
        char first = '\0';
        const qint64 at = m_layout.header.size() + record * m_layout.recordBytes + m_layout.annotationBlocks[0];
        return !file.seek(at) || !file.getChar(&first) || first == '\0';
    };
    while (m_records > 0 && isEmpty(m_records - 1)) {
        --m_records;
    }
}

/// Returns why they contradict each other; empty when they don't.
QString EdfSalvage::readAnnotations(QFile &file)
{
    for (qint64 record = 0; record < m_records && !m_layout.annotationSignals.isEmpty(); ++record) {
        for (int i = 0; i < m_layout.annotationSignals.size(); ++i) {
            const qint64 bytes = m_layout.blockBytes(m_layout.annotationSignals[i]);
            const qint64 at = m_layout.header.size() + record * m_layout.recordBytes + m_layout.annotationBlocks[i];
            const QByteArray block = file.seek(at) ? file.read(bytes) : QByteArray();
            if (block.size() != bytes) {
                return QStringLiteral("record %1 cannot be read").arg(record + 1);
            }
            if (i == 0) {
                const QString fault = placeRecord(record, EdfTal::recordOnset(block.constData(), bytes));
                if (!fault.isEmpty()) {
                    return fault;
                }
            }
            m_malformed += EdfTal::appendAnnotations(block.constData(), bytes, i == 0, m_annotations);
        }
    }
    for (edf_annotation_struct &annotation : m_annotations) {
        annotation.onset -= m_firstOnset;
    }
    return QString();
}

/// Finds the gap before a record. What contradicts a file that calls itself continuous is not believed.
QString EdfSalvage::placeRecord(qint64 record, long long onset)
{
    if (onset == EdfTal::kNoTime && !m_layout.isDiscontinuous) {
        onset = record == 0 ? 0 : m_lastOnset + m_recordDuration;
        m_ignoresTimes = true;
    }
    if (onset == EdfTal::kNoTime) {
        return QStringLiteral("record %1 of this discontinuous recording does not tell its time").arg(record + 1);
    }
    if (record == 0) {
        m_firstOnset = onset;
        m_lastOnset = onset;
        return QString();
    }
    const long long pause = onset - m_lastOnset - m_recordDuration;
    const bool hasSignal = m_layout.annotationSignals.size() < m_layout.signalCount;
    if (pause < -kTolerance && m_layout.isDiscontinuous && hasSignal) {
        return QStringLiteral("record %1 begins before the one before it ends").arg(record + 1);
    }
    if (pause < -kTolerance && !m_layout.isDiscontinuous) {
        m_ignoresTimes = true;
        m_lastOnset += m_recordDuration;
        return QString();
    }
    if (pause > kTolerance && hasSignal) {
        m_gaps << EDFGap{static_cast<double>(record) * inSeconds(m_recordDuration),
                         inSeconds(m_lastOnset + m_recordDuration - m_firstOnset), inSeconds(pause)};
    }
    m_lastOnset = onset;
    return QString();
}

QByteArray EdfSalvage::header() const
{
    QByteArray header = m_header;
    replaceNumber(header, EdfLayout::kRecordCountAt, m_records);
    return header;
}

std::unique_ptr<QTemporaryFile> EdfSalvage::standIn() const
{
    QByteArray header = m_header;
    replaceNumber(header, EdfLayout::kRecordCountAt, 1);
    if (m_layout.isDiscontinuous) {
        header[EdfLayout::kReservedAt + 4] = 'C';
    }
    QByteArray record(static_cast<int>(m_layout.recordBytes), '\0');
    if (!m_layout.annotationBlocks.isEmpty()) {
        const QByteArray beginning = "+0\x14\x14";
        record.replace(static_cast<int>(m_layout.annotationBlocks[0]), beginning.size(), beginning);
        record.resize(static_cast<int>(m_layout.recordBytes));
    }
    auto file = std::make_unique<QTemporaryFile>(QDir::temp().filePath(QStringLiteral("XXXXXX.edf")));
    const bool written = file->open() && file->write(header) == header.size() && file->write(record) == record.size();
    return written && file->flush() ? std::move(file) : nullptr;
}

QList<edf_annotation_struct> EdfSalvage::missingAnnotations(const QList<EdfJournal::Entry> &journal,
                                                            const QList<edf_annotation_struct> &present)
{
    using Key = std::pair<long long, QByteArray>;
    std::map<Key, int> counts;
    for (const edf_annotation_struct &annotation : present) {
        ++counts[Key(annotation.onset, QByteArray(annotation.annotation))];
    }
    QList<edf_annotation_struct> missing;
    for (const EdfJournal::Entry &entry : journal) {
        edf_annotation_struct annotation{};
        annotation.onset = entry.onset * kUnitsPerJournalUnit;
        annotation.duration_l = entry.duration < 0 ? -EDFLIB_TIME_DIMENSION : entry.duration * kUnitsPerJournalUnit;
        qstrncpy(annotation.annotation, entry.text.constData(), sizeof(annotation.annotation));
        if (--counts[Key(annotation.onset, entry.text)] < 0) {
            missing << annotation;
        }
    }
    return missing;
}

} // namespace bp
