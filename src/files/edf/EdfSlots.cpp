#include "files/edf/EdfSlots.h"

#include "files/edf/EdfLayout.h"
#include "files/edf/EdfTal.h"

#include <QFile>

#include <cstdlib>

namespace {

/// Of a time in 0.1 ms, as EDFlib writes it.
QByteArray seconds(long long tenthMilliseconds)
{
    const QByteArray whole = QByteArray::number(tenthMilliseconds / 10000);
    const long long fraction = tenthMilliseconds % 10000;
    return fraction == 0 ? whole : whole + '.' + QByteArray::number(fraction).rightJustified(4, '0');
}

qint64 slotAt(const bp::EdfLayout &layout, qint64 slot)
{
    const qint64 perRecord = layout.annotationBlocks.size();
    return layout.header.size() + slot / perRecord * layout.recordBytes
        + layout.annotationBlocks[static_cast<int>(slot % perRecord)];
}

} // namespace

namespace bp {

bool EdfSlots::hold(QFile &file, const EdfLayout &layout, qint64 records, const QList<QByteArray> &lists)
{
    if (lists.size() > records * layout.annotationBlocks.size()) {
        return false;
    }
    for (int i = 0; i < lists.size(); ++i) {
        const QByteArray slot = file.seek(slotAt(layout, i)) ? file.read(layout.annotationBytes) : QByteArray();
        if (!slot.contains(lists[i])) {
            return false;
        }
    }
    return true;
}

QByteArray EdfSlots::list(long long onset, long long duration, const QByteArray &text)
{
    return EdfTal::list(onset < 0, seconds(std::llabs(onset)), duration >= 0 ? seconds(duration) : QByteArray(), text);
}

int EdfSlots::write(QFile &file, const EdfLayout &layout, qint64 records, const QList<QByteArray> &lists)
{
    const qint64 perRecord = layout.annotationBlocks.size();
    const bool isTight = lists.size() > records * perRecord;
    const auto bytes = static_cast<int>(layout.annotationBytes);
    int placed = 0;
    // Where several share a slot, those that are left over are emptied.
    for (qint64 slot = 0; (isTight || placed < lists.size()) && slot < records * perRecord; ++slot) {
        const qint64 position = slotAt(layout, slot);
        QByteArray content;
        if (slot % perRecord == 0) { // begins with the record's own time
            if (!file.seek(position)) {
                return -1;
            }
            content = file.read(bytes);
            content.truncate(content.indexOf('\0') + 1);
        }
        const int first = placed;
        while (placed < lists.size() && (isTight || placed == first) && content.size() + lists[placed].size() < bytes) {
            content += lists[placed++] + '\0';
        }
        content = content.leftJustified(bytes, '\0', true);
        if (!file.seek(position) || file.write(content) != bytes) {
            return -1;
        }
    }
    return placed;
}

} // namespace bp
