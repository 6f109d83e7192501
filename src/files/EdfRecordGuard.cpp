#include "files/EdfRecordGuard.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

// The fixed part of the header, bytes; numbers are ASCII, left-justified and padded with blanks.
constexpr int kFixedHeaderBytes = 256;
constexpr int kHeaderBytesAt = 184;
constexpr int kRecordCountAt = 236;
constexpr int kSignalCountAt = 252;
constexpr int kNumberWidth = 8;
constexpr int kSignalCountWidth = 4;
constexpr int kLabelWidth = 16;
// One header field after the other, each for all signals: this many bytes per signal stand before the sample counts.
constexpr int kSignalBytesBeforeSampleCounts = 216;
constexpr int kSampleBytes = 2;

qint64 numberAt(const QByteArray &header, int position, int width = kNumberWidth)
{
    return header.mid(position, width).trimmed().toLongLong();
}

/// Seconds with a sign, as an annotation begins.
QByteArray seconds(long long tenthMilliseconds)
{
    return QByteArray::number(tenthMilliseconds / 10000) + '.'
        + QByteArray::number(tenthMilliseconds % 10000).rightJustified(4, '0');
}

} // namespace

namespace bp {

struct EdfLayout
{
    qint64 headerBytes = 0;
    qint64 recordBytes = 0; ///< 0: this is no EDF header
    qint64 records = 0;
    qint64 slotBytes = 0; ///< room of one annotation
    QList<qint64> slotsAt{}; ///< of the annotation signals, from the beginning of a record

    static EdfLayout read(QFile &file);
};

EdfLayout EdfLayout::read(QFile &file)
{
    EdfLayout layout;
    const QByteArray fixed = file.read(kFixedHeaderBytes);
    layout.headerBytes = numberAt(fixed, kHeaderBytesAt);
    layout.records = numberAt(fixed, kRecordCountAt);
    const auto signalCount = static_cast<int>(numberAt(fixed, kSignalCountAt, kSignalCountWidth));
    if (layout.headerBytes != kFixedHeaderBytes * (qint64{signalCount} + 1) || file.size() < layout.headerBytes) {
        return layout;
    }
    const QByteArray rest = file.read(layout.headerBytes - kFixedHeaderBytes);
    for (int i = 0; i < signalCount; ++i) {
        const int countAt = signalCount * kSignalBytesBeforeSampleCounts + i * kNumberWidth;
        const qint64 bytes = kSampleBytes * numberAt(rest, countAt);
        if (rest.mid(i * kLabelWidth, kLabelWidth).trimmed() == "EDF Annotations") {
            layout.slotsAt << layout.recordBytes;
            layout.slotBytes = bytes;
        }
        layout.recordBytes += bytes;
    }
    return layout;
}

void EdfRecordGuard::begin(const QString &path)
{
    m_path = path;
    m_soundRecords = 0;
    m_soundBytes = kUnlimited;
    m_annotations.clear();
}

void EdfRecordGuard::noteRecord(bool written)
{
    if (hasFailed()) {
        return;
    }
    if (written) {
        ++m_soundRecords;
    } else {
        m_soundBytes = QFileInfo(m_path).size();
    }
}

void EdfRecordGuard::noteAnnotation(long long onset, long long duration, const QByteArray &text)
{
    const QByteArray lasting = duration >= 0 ? '\x15' + seconds(duration) : QByteArray();
    m_annotations << '+' + seconds(onset) + lasting + '\x14' + text + '\x14';
}

bool EdfRecordGuard::mend()
{
    const qint64 inFile = cutToSoundRecords();
    const bool complete = !hasFailed() && inFile == m_soundRecords;
    m_soundRecords = inFile;
    return complete;
}

/// Returns the records that are in the file then.
qint64 EdfRecordGuard::cutToSoundRecords()
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly)) {
        return 0;
    }
    const EdfLayout layout = EdfLayout::read(file);
    if (layout.recordBytes <= 0) {
        return 0;
    }
    const qint64 bytes = std::min(m_soundBytes, file.size()) - layout.headerBytes;
    const qint64 records = std::min(m_soundRecords, std::max<qint64>(0, bytes) / layout.recordBytes);
    const qint64 size = layout.headerBytes + records * layout.recordBytes;
    if (!hasFailed() && file.size() == size && layout.records == records) {
        return records;
    }
    const QByteArray count = QByteArray::number(records).leftJustified(kNumberWidth);
    const bool mended = file.resize(size) && file.seek(kRecordCountAt) && file.write(count) == count.size()
        && writeAnnotations(file, layout, records) && file.flush();
    return mended ? records : 0;
}

/// In the order in which EDFlib fills its slots. Nothing grows: this works on a full disk.
bool EdfRecordGuard::writeAnnotations(QFile &file, const EdfLayout &layout, qint64 records) const
{
    const qint64 slotCount = layout.slotsAt.size();
    const qint64 fitting = std::min<qint64>(m_annotations.size(), records * slotCount);
    for (qint64 i = 0; i < fitting; ++i) {
        const auto slot = static_cast<int>(i % slotCount);
        const qint64 position = layout.headerBytes + i / slotCount * layout.recordBytes + layout.slotsAt[slot];
        if (!file.seek(position)) {
            return false;
        }
        // The first slot of a record begins with the record's own time.
        const QByteArray content = file.read(layout.slotBytes);
        const QByteArray kept = slot == 0 ? content.left(content.indexOf('\0') + 1) : QByteArray();
        const QByteArray filled =
            (kept + m_annotations[static_cast<int>(i)]).leftJustified(static_cast<int>(layout.slotBytes), '\0', true);
        if (!file.seek(position) || file.write(filled) != filled.size()) {
            return false;
        }
    }
    return true;
}

} // namespace bp
