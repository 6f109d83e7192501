#include "files/edf/EdfAnnotationSlots.h"

#include "files/edf/EdfHeader.h"
#include "files/edf/EdfLayout.h"
#include "files/edf/EdfTal.h"

#include <QFile>

#include <cstdlib>

namespace {

/// Where a slot stands, and what it holds without the zeros behind it.
struct Slot
{
    qint64 at = 0;
    qint64 size = 0; ///< bytes
    QByteArray content;

    Slot(QFile &file, const bp::EdfLayout &layout, qint64 record, int number)
        : at(layout.headerBytes.size() + record * layout.recordBytes + layout.annotationBlocks[number])
        , size(layout.blockBytes(layout.annotationSignals[number]))
        , content(file.seek(at) ? file.read(size) : QByteArray())
    {
        while (content.endsWith('\0')) {
            content.chop(1);
        }
    }
    bool isEmpty(bool holdsTime) const { return content.isEmpty() || (holdsTime && !content.contains('\0')); }
    bool append(const QByteArray &list)
    {
        const QByteArray more = content.isEmpty() ? list : content + '\0' + list;
        const bool fits = more.size() < size; // a zero ends it
        content = fits ? more : content;
        return fits;
    }
    bool writeTo(QFile &file) const
    {
        return file.seek(at) && file.write(content.leftJustified(static_cast<int>(size), '\0')) == size;
    }
};

template <class Visit> void forEachSlot(QFile &file, const bp::EdfLayout &layout, qint64 records, const Visit &visit)
{
    bool goesOn = true;
    for (qint64 record = 0; goesOn && record < records; ++record) {
        for (int number = 0; goesOn && number < layout.annotationBlocks.size(); ++number) {
            Slot slot(file, layout, record, number);
            goesOn = visit(slot, slot.isEmpty(number == 0));
        }
    }
}

/// A time in 0.1 ms as EDFlib writes it.
QByteArray seconds(qint64 tenthMilliseconds)
{
    const QByteArray whole = QByteArray::number(tenthMilliseconds / 10000);
    const qint64 fraction = tenthMilliseconds % 10000;
    return fraction == 0 ? whole : whole + '.' + QByteArray::number(fraction).rightJustified(4, '0');
}

qint64 slotAt(const bp::EdfLayout &layout, qint64 slot)
{
    const qint64 perRecord = layout.annotationBlocks.size();
    return layout.headerBytes.size() + slot / perRecord * layout.recordBytes
        + layout.annotationBlocks[static_cast<int>(slot % perRecord)];
}

} // namespace

namespace bp {

bool EdfAnnotationSlots::hold(QFile &file, const EdfLayout &layout, qint64 records, const QList<QByteArray> &lists)
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

QByteArray EdfAnnotationSlots::list(const EdfAnnotation &annotation)
{
    const qint64 onset = annotation.onset / kEdfWriteTicks;
    const bool hasDuration = annotation.duration >= 0;
    return EdfTal::list(onset < 0, seconds(std::abs(onset)),
                        hasDuration ? seconds(annotation.duration / kEdfWriteTicks) : QByteArray(), annotation.text);
}

int EdfAnnotationSlots::write(QFile &file, const EdfLayout &layout, qint64 records, const QList<QByteArray> &lists)
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

int EdfAnnotationSlots::add(QFile &file, const EdfLayout &layout, qint64 records, const QList<QByteArray> &lists)
{
    int room = 0;
    forEachSlot(file, layout, records, [&](const Slot &, bool isEmpty) {
        room += isEmpty ? 1 : 0;
        return room < lists.size();
    });
    const bool isTight = room < lists.size();
    bool isWritten = true;
    int placed = 0;
    forEachSlot(file, layout, records, [&](Slot &slot, bool isEmpty) {
        const int first = placed;
        while (placed < lists.size() && (isTight || (isEmpty && placed == first)) && slot.append(lists[placed])) {
            ++placed;
        }
        isWritten = placed == first || slot.writeTo(file);
        return isWritten && placed < lists.size();
    });
    return isWritten ? placed : -1;
}

bool EdfAnnotationSlots::writeTime(QFile &file, const EdfLayout &layout, qint64 record, qint64 ticks)
{
    Slot slot(file, layout, record, 0);
    QByteArray lists = slot.content;
    while (lists.startsWith('\0')) {
        lists.remove(0, 1);
    }
    slot.content.clear();
    return slot.append('+' + edfSeconds(ticks) + "\x14\x14") && (lists.isEmpty() || slot.append(lists))
        && slot.writeTo(file);
}

} // namespace bp
