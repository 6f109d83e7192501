#include "files/edf/EdfRecordGuard.h"

#include "files/edf/EdfAnnotationSlots.h"
#include "files/edf/EdfLayout.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace bp {

void EdfRecordGuard::begin(const QString &path)
{
    m_path = path;
    m_soundRecords = 0;
    m_soundBytes = kUnlimited;
    m_lostAnnotations = 0;
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

void EdfRecordGuard::noteAnnotation(const EdfAnnotation &annotation)
{
    m_annotations << EdfAnnotationSlots::list(annotation);
}

void EdfRecordGuard::beginClose()
{
    QFile file(m_path);
    if (hasFailed() || m_soundRecords == 0 || !file.open(QIODevice::ReadOnly)) {
        return;
    }
    const EdfLayout layout = EdfLayout::read(file);
    if (layout.headerBytes.isEmpty() || file.size() < layout.headerBytes.size() + m_soundRecords * layout.recordBytes) {
        m_soundBytes = file.size();
    }
}

bool EdfRecordGuard::mend()
{
    m_lostAnnotations = m_annotations.size();
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
    if (layout.headerBytes.isEmpty() || layout.recordBytes <= 0) {
        return 0;
    }
    const qint64 bytes = std::min(m_soundBytes, file.size()) - layout.headerBytes.size();
    const qint64 records = std::min(m_soundRecords, std::max<qint64>(0, bytes) / layout.recordBytes);
    const qint64 size = layout.headerBytes.size() + records * layout.recordBytes;
    if (hasFailed() || file.size() != size || layout.records != records) {
        const QByteArray count = QByteArray::number(records).leftJustified(EdfLayout::kNumberWidth);
        if (!file.resize(size) || !file.seek(EdfLayout::kRecordCountAt) || file.write(count) != count.size()) {
            return 0;
        }
    }
    m_lostAnnotations = m_annotations.size() - placeAnnotations(file, layout, records);
    return file.flush() ? records : 0;
}

/// Returns how many annotations are in the file then.
qint64 EdfRecordGuard::placeAnnotations(QFile &file, const EdfLayout &layout, qint64 records) const
{
    return EdfAnnotationSlots::hold(file, layout, records, m_annotations)
        ? m_annotations.size()
        : std::max(0, EdfAnnotationSlots::write(file, layout, records, m_annotations));
}

} // namespace bp
