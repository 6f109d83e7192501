#include "files/EdfLayout.h"

#include <QFile>

namespace {

constexpr int kFixedHeaderBytes = 256;
constexpr int kHeaderBytesAt = 184;
constexpr int kSignalCountAt = 252;
constexpr int kSignalCountWidth = 4;
constexpr int kLabelWidth = 16;
constexpr int kSampleCountBefore = 216;

qint64 numberAt(const QByteArray &header, int position, int width)
{
    return header.mid(position, width).trimmed().toLongLong();
}

} // namespace

namespace bp {

int EdfLayout::fieldAt(int signal, int before, int width) const
{
    return kFixedHeaderBytes + signalCount * before + signal * width;
}

EdfLayout EdfLayout::read(QFile &file)
{
    EdfLayout layout;
    const QByteArray fixed = file.read(kFixedHeaderBytes);
    const qint64 headerBytes = numberAt(fixed, kHeaderBytesAt, kNumberWidth);
    layout.signalCount = static_cast<int>(numberAt(fixed, kSignalCountAt, kSignalCountWidth));
    layout.records = numberAt(fixed, kRecordCountAt, kNumberWidth);
    if (layout.signalCount < 1 || headerBytes != kFixedHeaderBytes * (qint64{layout.signalCount} + 1)
        || file.size() < headerBytes) {
        return layout;
    }
    layout.header = fixed + file.read(headerBytes - kFixedHeaderBytes);
    const bool isBdf = layout.header.startsWith('\xff');
    for (int i = 0; i < layout.signalCount; ++i) {
        const QByteArray label = layout.header.mid(layout.fieldAt(i, 0, kLabelWidth), kLabelWidth).trimmed();
        const qint64 samples =
            numberAt(layout.header, layout.fieldAt(i, kSampleCountBefore, kNumberWidth), kNumberWidth);
        const qint64 bytes = samples * (isBdf ? 3 : 2);
        if (label == (isBdf ? "BDF Annotations" : "EDF Annotations")) {
            layout.annotationSignals << i;
            layout.annotationBlocks << layout.recordBytes;
            layout.annotationBytes = bytes;
        }
        layout.recordBytes += bytes;
    }
    return layout;
}

} // namespace bp
