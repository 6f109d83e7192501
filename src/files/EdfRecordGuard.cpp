#include "files/EdfRecordGuard.h"

#include "files/EdfLayout.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

/// Of a time in 0.1 ms.
QByteArray seconds(long long tenthMilliseconds)
{
    return QByteArray::number(tenthMilliseconds / 10000) + '.'
        + QByteArray::number(tenthMilliseconds % 10000).rightJustified(4, '0');
}

} // namespace

namespace bp {

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
    if (layout.header.isEmpty() || layout.recordBytes <= 0) {
        return 0;
    }
    const qint64 bytes = std::min(m_soundBytes, file.size()) - layout.header.size();
    const qint64 records = std::min(m_soundRecords, std::max<qint64>(0, bytes) / layout.recordBytes);
    const qint64 size = layout.header.size() + records * layout.recordBytes;
    if (!hasFailed() && file.size() == size && layout.records == records) {
        return records;
    }
    const QByteArray count = QByteArray::number(records).leftJustified(EdfLayout::kNumberWidth);
    const bool mended = file.resize(size) && file.seek(EdfLayout::kRecordCountAt) && file.write(count) == count.size()
        && writeAnnotations(file, layout, records) && file.flush();
    return mended ? records : 0;
}

/// In the order in which EDFlib fills its slots. Nothing grows: this works on a full disk.
bool EdfRecordGuard::writeAnnotations(QFile &file, const EdfLayout &layout, qint64 records) const
{
    const qint64 slotCount = layout.annotationBlocks.size();
    const qint64 fitting = std::min<qint64>(m_annotations.size(), records * slotCount);
    for (qint64 i = 0; i < fitting; ++i) {
        const auto slot = static_cast<int>(i % slotCount);
        const qint64 position =
            layout.header.size() + i / slotCount * layout.recordBytes + layout.annotationBlocks[slot];
        if (!file.seek(position)) {
            return false;
        }
        // The first slot of a record begins with the record's own time.
        const QByteArray content = file.read(layout.annotationBytes);
        const QByteArray kept = slot == 0 ? content.left(content.indexOf('\0') + 1) : QByteArray();
        const QByteArray filled = (kept + m_annotations[static_cast<int>(i)])
                                      .leftJustified(static_cast<int>(layout.annotationBytes), '\0', true);
        if (!file.seek(position) || file.write(filled) != filled.size()) {
            return false;
        }
    }
    return true;
}

} // namespace bp
