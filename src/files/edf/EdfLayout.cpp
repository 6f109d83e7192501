#include "files/edf/EdfLayout.h"

#include <QFile>

#include <algorithm>

namespace {

constexpr int kMostSignals = 9999; // four digits

qint64 numberAt(const QByteArray &header, int position, int width)
{
    return header.mid(position, width).trimmed().toLongLong();
}

/// Whether the header calls its file EDF or BDF with that ending.
bool isType(const QByteArray &header, const QByteArray &ending)
{
    const QByteArray type = header.mid(bp::EdfLayout::kReservedAt, 5);
    return type == "EDF" + ending || type == "BDF" + ending;
}

} // namespace

namespace bp {

bool EdfLayout::isAnnotationLabel(const QByteArray &label)
{
    const QByteArray text = label.trimmed();
    return text == "EDF Annotations" || text == "BDF Annotations";
}

int EdfLayout::fieldAt(int signal, int before, int width) const
{
    return kFixedBytes + signalCount * before + signal * width;
}

qint64 EdfLayout::wholeRecords(qint64 fileBytes) const
{
    const qint64 bytes = std::max<qint64>(0, fileBytes - headerBytes.size());
    return recordBytes > 0 ? std::min(bytes / recordBytes, kMostRecords) : 0;
}

EdfLayout EdfLayout::read(QFile &file)
{
    EdfLayout layout;
    const QByteArray fixed = file.read(kFixedBytes);
    const qint64 headerSize = numberAt(fixed, kHeaderBytesAt, kNumberWidth);
    const qint64 signalCount = numberAt(fixed, kSignalCountAt, kSignalCountWidth);
    layout.records = numberAt(fixed, kRecordCountAt, kNumberWidth);
    if (signalCount < 1 || signalCount > kMostSignals || headerSize != kFixedBytes * (signalCount + 1)
        || file.size() < headerSize) {
        return layout;
    }
    layout.signalCount = static_cast<int>(signalCount);
    layout.headerBytes = fixed + file.read(headerSize - kFixedBytes);
    layout.isBdf = layout.headerBytes.startsWith('\xff');
    layout.sampleBytes = layout.isBdf ? 3 : 2;
    layout.isDiscontinuous = isType(layout.headerBytes, "+D");
    layout.isPlus = layout.isDiscontinuous || isType(layout.headerBytes, "+C");
    const QByteArray kind = layout.kind();
    layout.isMisnamed = layout.isPlus && layout.headerBytes.mid(kReservedAt, kind.size()) != kind;
    for (int i = 0; i < layout.signalCount; ++i) {
        QByteArray label = layout.headerBytes.mid(layout.fieldAt(i, 0, kLabelWidth), kLabelWidth);
        std::replace_if(
            label.begin(), label.end(), [](char c) { return static_cast<uchar>(c) < ' '; }, ' '); // as it is mended
        const qint64 samples =
            numberAt(layout.headerBytes, layout.fieldAt(i, kSampleCountBefore, kNumberWidth), kNumberWidth);
        if (samples < 1) {
            layout.recordBytes = 0;
            break;
        }
        const qint64 bytes = samples * layout.sampleBytes;
        if (layout.isPlus && isAnnotationLabel(label)) {
            layout.isMisnamed = layout.isMisnamed || !label.startsWith(kind);
            layout.annotationSignals << i;
            layout.annotationBlocks << layout.recordBytes;
            layout.annotationBytes = bytes;
        }
        layout.blocks << Block{layout.recordBytes, samples};
        layout.recordBytes += bytes;
    }
    return layout;
}

} // namespace bp
