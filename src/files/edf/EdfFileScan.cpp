#include "files/edf/EdfFileScan.h"

#include "files/edf/EdfHeaderRepair.h"
#include "files/edf/EdfTal.h"

#include <QDir>

#include <edflib.h>

#include <algorithm>
#include <cmath>

namespace {

/// Times are written with few digits; what is less than a tenth of a millisecond is no gap.
constexpr qint64 kTolerance = bp::kEdfTicks / 10000;
constexpr double kLongestFile = 1e11; ///< seconds; in ticks they fit 64 bits
constexpr qint64 kCheckEvery = 256; ///< records

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
    return start.size() < bp::EdfLayout::kFixedBytes || file.size() < headerBytes
        ? QStringLiteral("it ends within its header")
        : QStringLiteral("its header does not have the size that its number of signals calls for");
}

bp::Outcome formatError(const QString &fault)
{
    return bp::Outcome::failure(QStringLiteral("it has format errors: ") + fault);
}

void replaceNumber(QByteArray &header, int position, qint64 number)
{
    header.replace(position, bp::EdfLayout::kNumberWidth,
                   QByteArray::number(number).leftJustified(bp::EdfLayout::kNumberWidth));
}

} // namespace

namespace bp {

EdfFileScan::EdfFileScan(const QString &path, bool cutsTail)
    : m_path(path)
    , m_cutsTail(cutsTail)
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        m_outcome = Outcome::failure(file.errorString());
        return;
    }
    const Outcome examined = examine(file);
    if (!examined) {
        m_outcome = formatError(examined.reason());
    }
}

Outcome EdfFileScan::examine(QFile &file)
{
    m_layout = EdfLayout::read(file);
    if (m_layout.headerBytes.isEmpty()) {
        return Outcome::failure(headerFault(file));
    }
    if (m_layout.recordBytes < 1 || m_layout.recordBytes > EdfLayout::kMostRecordBytes
        || m_layout.signalCount > EDFLIB_MAXSIGNALS) {
        return Outcome::failure(QStringLiteral("its signals have numbers of samples that no record can have"));
    }
    m_layout.headerBytes = EdfHeaderRepair::mended(m_layout);
    const Outcome header = EdfHeaderRepair::check(m_layout);
    if (!header) {
        return header;
    }
    m_recordTicks = std::llround(m_layout.field(EdfLayout::kDurationAt, EdfLayout::kNumberWidth).toDouble()
                                 * static_cast<double>(kEdfTicks));
    return countRecords(file);
}

/// Finds the number of records; fails when it is not the one that the header announces.
Outcome EdfFileScan::countRecords(QFile &file)
{
    m_records = m_layout.wholeRecords(file.size());
    if (m_layout.isUnclosed() || (m_cutsTail && m_layout.records < 1)) {
        dropEmptyRecords(file);
    } else if (m_cutsTail) { // what lies behind the records that the header announces need not be signal
        m_records = std::min(m_records, m_layout.records);
    }
    return checkSize(file);
}

void EdfFileScan::readAnnotations(const std::function<bool()> &cancelled)
{
    if (!m_outcome) {
        return;
    }
    QFile file(m_path);
    m_outcome = file.open(QIODevice::ReadOnly) ? readLists(file, cancelled) : Outcome::failure(file.errorString());
    if (!m_outcome) {
        return;
    }
    m_missingAnnotations =
        EdfJournal::missing(EdfJournal::read(m_path, EdfJournal::identity(m_layout.headerBytes)), m_annotations);
    m_annotations += m_missingAnnotations;
    m_notice = describe();
}

QString EdfFileScan::describe() const
{
    if (m_layout.isUnclosed()) {
        return QStringLiteral("%1 was not closed, or is being recorded: its first %2 s are there, and "
                              "\"bioprocessing repair\" makes a sound copy of them.")
            .arg(m_path, QString::fromLatin1(edfSeconds(m_records * m_recordTicks)));
    }
    if (!m_missingAnnotations.isEmpty()) {
        return missingNotice(m_path, m_missingAnnotations.size(), !m_layout.annotationSignals.isEmpty());
    }
    QStringList faults;
    if (m_malformed > 0) {
        faults << QStringLiteral("%1 malformed annotations, which are left out").arg(m_malformed);
    }
    if (m_ignoredTimes > 0) {
        faults << QStringLiteral("%1 records whose times contradict a continuous recording and are ignored")
                      .arg(m_ignoredTimes);
    }
    return faults.isEmpty() ? QString()
                            : QStringLiteral("%1 has %2.").arg(m_path, faults.join(QStringLiteral(", and ")));
}

QString EdfFileScan::missingNotice(const QString &path, int count, bool hasRoom)
{
    const QString remedy = QStringLiteral(": \"bioprocessing repair\" puts them into a copy");
    return QStringLiteral("%1 lacks %2 of its labels, which are beside it%3.")
        .arg(path)
        .arg(count)
        .arg(hasRoom ? remedy : QString());
}

Outcome EdfFileScan::checkSize(QFile &file) const
{
    if (m_records < 1) {
        return Outcome::failure(QStringLiteral("it has no whole data record"));
    }
    if (static_cast<double>(m_records) * edfTime(m_recordTicks) > kLongestFile) {
        return Outcome::failure(QStringLiteral("it would last longer than %1 s").arg(kLongestFile));
    }
    if (m_layout.isUnclosed() || m_cutsTail) {
        return Outcome::good();
    }
    const qint64 excess = file.size() - m_layout.headerBytes.size() - m_layout.records * m_layout.recordBytes;
    if (excess == 0 && m_layout.records <= EdfLayout::kMostRecords) {
        return Outcome::good();
    }
    EdfFileScan whole = *this;
    whole.m_cutsTail = true;
    const Outcome counted = whole.countRecords(file);
    whole.m_outcome = counted ? counted : formatError(counted.reason());
    whole.readAnnotations();
    const QString remedy = whole.outcome()
        ? QStringLiteral("\"bioprocessing repair\" makes a copy of what is whole")
        : QStringLiteral("and what is there cannot be repaired: ") + whole.outcome().reason();
    return Outcome::failure(QStringLiteral("it is %1 bytes %2 than its header says; %3")
                                .arg(std::llabs(excess))
                                .arg(excess < 0 ? QStringLiteral("shorter") : QStringLiteral("longer"), remedy));
}

/// After a power cut a file may have got its length but not its bytes. Where records tell their times, one that has
/// neither a time nor a sample was not written.
void EdfFileScan::dropEmptyRecords(QFile &file)
{
    if (m_layout.annotationBlocks.isEmpty()) {
        return;
    }
    const auto hasTime = [this](const QByteArray &bytes) {
        return bytes.size() == m_layout.recordBytes && bytes[static_cast<int>(m_layout.annotationBlocks[0])] != '\0';
    };
    const auto isUnwritten = [&](qint64 record) {
        const QByteArray bytes = recordBytes(file, record);
        // Without its time, a record of a discontinuous recording has no place.
        return !hasTime(bytes) && (m_layout.isDiscontinuous || bytes.count('\0') == bytes.size());
    };
    const bool tellsTimes = hasTime(recordBytes(file, 0));
    while (tellsTimes && isUnwritten(m_records - 1)) {
        --m_records;
    }
}

QByteArray EdfFileScan::recordBytes(QFile &file, qint64 record) const
{
    return file.seek(m_layout.headerBytes.size() + record * m_layout.recordBytes) ? file.read(m_layout.recordBytes)
                                                                                  : QByteArray();
}

Outcome EdfFileScan::readLists(QFile &file, const std::function<bool()> &cancelled)
{
    for (qint64 record = 0; record < m_records && !m_layout.annotationSignals.isEmpty(); ++record) {
        if (record % kCheckEvery == 0 && cancelled && cancelled()) {
            return Outcome::failure(QStringLiteral("cancelled"));
        }
        for (int i = 0; i < m_layout.annotationSignals.size(); ++i) {
            const qint64 bytes = m_layout.blockBytes(m_layout.annotationSignals[i]);
            const qint64 at =
                m_layout.headerBytes.size() + record * m_layout.recordBytes + m_layout.annotationBlocks[i];
            const QByteArray block = file.seek(at) ? file.read(bytes) : QByteArray();
            if (block.size() != bytes) {
                return Outcome::failure(QStringLiteral("record %1 cannot be read").arg(record + 1));
            }
            const Outcome placed = i == 0 ? placeRecord(record, EdfTal::recordOnset(block)) : Outcome::good();
            if (!placed) {
                return formatError(placed.reason());
            }
            m_malformed += EdfTal::appendAnnotations(block, i == 0, m_annotations);
        }
    }
    for (EdfAnnotation &annotation : m_annotations) {
        annotation.onset -= m_firstOnset;
    }
    return Outcome::good();
}

/// Finds the pause before a record. In a file that calls itself continuous, a time that contradicts this is ignored.
Outcome EdfFileScan::placeRecord(qint64 record, qint64 onset)
{
    if (onset == EdfTal::kNoTime && !m_layout.isDiscontinuous) {
        onset = record == 0 ? 0 : m_lastOnset + m_recordTicks;
        m_recordsWithoutTime.emplace_back(record, onset);
    }
    if (onset == EdfTal::kNoTime) {
        return Outcome::failure(
            QStringLiteral("record %1 of this discontinuous recording does not tell its time").arg(record + 1));
    }
    if (record == 0) {
        m_firstOnset = onset;
        m_lastOnset = onset;
        return Outcome::good();
    }
    const qint64 end = m_lastOnset + m_recordTicks;
    const bool hasSignal = m_layout.annotationSignals.size() < m_layout.signalCount;
    if (onset - end < -kTolerance && m_layout.isDiscontinuous && hasSignal) {
        return Outcome::failure(QStringLiteral("record %1 begins before the one before it ends").arg(record + 1));
    }
    if (onset - end < -kTolerance && !m_layout.isDiscontinuous) {
        ++m_ignoredTimes;
        m_lastOnset = end;
        return Outcome::good();
    }
    if (onset - end > kTolerance && hasSignal) {
        m_pauses.push_back({record, end - m_firstOnset, onset - end});
    }
    m_lastOnset = onset;
    return Outcome::good();
}

QByteArray EdfFileScan::headerBytes() const
{
    QByteArray header = m_layout.headerBytes;
    replaceNumber(header, EdfLayout::kRecordCountAt, m_records);
    return header;
}

std::unique_ptr<QTemporaryFile> EdfFileScan::standIn() const
{
    QByteArray header = m_layout.headerBytes;
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

} // namespace bp
