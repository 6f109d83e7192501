#include "files/EdfHeaderRepair.h"

#include "files/EdfLayout.h"

#include <QDir>

#include <algorithm>

namespace {

constexpr qint64 kChunkBytes = 1 << 20;
constexpr qint64 kUnknownRecords = -1; ///< in the header while a recording goes on

void blank(QByteArray &header, int position, int width)
{
    header.replace(position, width, QByteArray(width, ' '));
}

QByteArray mendedHeader(const bp::EdfLayout &layout, qint64 wholeRecords)
{
    QByteArray header = layout.header;
    if (layout.records == kUnknownRecords) {
        header.replace(bp::EdfLayout::kRecordCountAt, bp::EdfLayout::kNumberWidth,
                       QByteArray::number(wholeRecords).leftJustified(bp::EdfLayout::kNumberWidth));
    }
    const QByteArray type = header.mid(bp::EdfLayout::kReservedAt, 5);
    if (type != "EDF+C" && type != "BDF+C") {
        return header;
    }
    if (layout.annotationSignals.isEmpty()) {
        blank(header, bp::EdfLayout::kReservedAt, bp::EdfLayout::kReservedWidth);
    }
    for (const int signal : layout.annotationSignals) {
        blank(header, layout.fieldAt(signal, bp::EdfLayout::kTransducerBefore, bp::EdfLayout::kTransducerWidth),
              bp::EdfLayout::kTransducerWidth);
        blank(header, layout.fieldAt(signal, bp::EdfLayout::kPrefilterBefore, bp::EdfLayout::kPrefilterWidth),
              bp::EdfLayout::kPrefilterWidth);
    }
    return header;
}

} // namespace

namespace bp {

std::unique_ptr<QTemporaryFile> EdfHeaderRepair::mendedCopy(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return nullptr;
    }
    const EdfLayout layout = EdfLayout::read(file);
    if (layout.recordBytes < 1) {
        return nullptr;
    }
    const qint64 wholeRecords = (file.size() - layout.header.size()) / layout.recordBytes;
    const QByteArray header = mendedHeader(layout, wholeRecords);
    if (header == layout.header) {
        return nullptr;
    }
    qint64 left = file.size() - header.size();
    if (layout.records == kUnknownRecords) {
        left = wholeRecords * layout.recordBytes; // the last record may be incomplete
    }
    auto copy = std::make_unique<QTemporaryFile>(QDir::temp().filePath(QStringLiteral("XXXXXX.edf")));
    bool copied = copy->open() && copy->write(header) == header.size();
    while (copied && left > 0) {
        const QByteArray chunk = file.read(std::min(left, kChunkBytes));
        left -= chunk.size();
        copied = !chunk.isEmpty() && copy->write(chunk) == chunk.size();
    }
    return copied && copy->flush() ? std::move(copy) : nullptr;
}

} // namespace bp
