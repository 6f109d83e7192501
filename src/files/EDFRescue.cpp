#include "files/EDFRescue.h"

#include "files/EDFReader.h"
#include "files/edf/EdfAnnotationSlots.h"
#include "files/edf/EdfFileScan.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

constexpr qint64 kChunkBytes = 1 << 20;

EDFRescue::Result failure(const QString &text)
{
    return {false, text, QString()};
}

bool copy(QFile &from, QFile &to, qint64 bytes)
{
    while (bytes > 0) {
        const QByteArray chunk = from.read(std::min(bytes, kChunkBytes));
        if (chunk.isEmpty() || to.write(chunk) != chunk.size()) {
            return false;
        }
        bytes -= chunk.size();
    }
    return true;
}

/// Writes the records, with their times, and the annotations. Returns how many annotations found no room, −1 when
/// writing failed.
int writeRepaired(const bp::EdfFileScan &scan, const QString &path, QFile &to)
{
    QFile from(path);
    const bp::EdfLayout &layout = scan.layout();
    const qint64 headerBytes = scan.headerBytes().size();
    if (!from.open(QIODevice::ReadOnly) || !from.seek(headerBytes) || to.write(scan.headerBytes()) != headerBytes
        || !copy(from, to, scan.records() * layout.recordBytes)) {
        return -1;
    }
    for (const auto &[record, time] : scan.recordsWithoutTime()) {
        bp::EdfAnnotationSlots::writeTime(to, layout, record, time);
    }
    QList<QByteArray> lists;
    for (const bp::EdfAnnotation &annotation : scan.missingAnnotations()) {
        lists << bp::EdfAnnotationSlots::list(annotation);
    }
    const int placed = bp::EdfAnnotationSlots::add(to, layout, scan.records(), lists);
    return placed < 0 || !to.flush() ? -1 : lists.size() - placed;
}

/// Whether a copy would be no better.
bool isWhole(const bp::EdfFileScan &scan, const QString &path)
{
    const bool hasSlots = !scan.layout().annotationSignals.isEmpty();
    QFile file(path);
    return (scan.missingAnnotations().isEmpty() || !hasSlots) && scan.recordsWithoutTime().empty()
        && file.open(QIODevice::ReadOnly) && file.read(scan.headerBytes().size()) == scan.headerBytes()
        && file.size() == scan.headerBytes().size() + scan.records() * scan.layout().recordBytes;
}

EDFRescue::Result answerForWhole(const bp::EdfFileScan &scan, const QString &path)
{
    const EDFInfo info = EDFReader::fileInfo(path);
    if (!info.valid) {
        return failure(info.error);
    }
    const bool isSound = scan.notice().isEmpty();
    return {true,
            isSound ? QStringLiteral("%1 is sound: there is nothing to repair.").arg(path)
                    : scan.notice() + QStringLiteral(" Repair cannot mend that."),
            QString()};
}

QString summary(const bp::EdfFileScan &scan, const QString &path, const QString &target, int left)
{
    const qint64 bytes = scan.headerBytes().size() + scan.records() * scan.layout().recordBytes;
    const qint64 excess = QFileInfo(path).size() - bytes;
    QString text = QStringLiteral("%1 has %2 s and %3 annotations of %4")
                       .arg(target, QString::fromLatin1(bp::edfSeconds(scan.records() * scan.recordTicks())),
                            QString::number(scan.annotations().size() - left), path);
    if (excess > 0) {
        text += QStringLiteral("; the %1 bytes behind these records are left out").arg(excess);
    }
    if (left > 0) {
        text += QStringLiteral("; %1 more find no room in it and stay in %2, and \"bioprocessing convert channels\" "
                               "makes a file with all")
                    .arg(left)
                    .arg(bp::EdfJournal::pathFor(path));
    }
    return text + QLatin1Char('.');
}

} // namespace

QString EDFRescue::repairedPath(const QString &path)
{
    const QFileInfo file(path);
    const QString suffix = file.suffix().isEmpty() ? QString() : QLatin1Char('.') + file.suffix();
    return path.left(path.size() - suffix.size()) + QLatin1String("_repaired") + suffix;
}

EDFRescue::Result EDFRescue::repair(const QString &path, const QString &target)
{
    if (!QFileInfo(path).isFile()) {
        return failure(QStringLiteral("Cannot repair %1: there is no such file.").arg(path));
    }
    bp::EdfFileScan scan(path, true);
    scan.readAnnotations();
    if (!scan.outcome()) {
        return failure(QStringLiteral("Cannot repair %1: %2.").arg(path, scan.outcome().reason()));
    }
    if (isWhole(scan, path)) {
        return answerForWhole(scan, path);
    }
    QFile file(target);
    if (!file.open(QIODevice::ReadWrite | QIODevice::NewOnly)) {
        return failure(QFileInfo::exists(target)
                           ? QStringLiteral("Cannot write %1: it exists already.").arg(target)
                           : QStringLiteral("Cannot write %1: %2.").arg(target, file.errorString()));
    }
    const int left = writeRepaired(scan, path, file);
    const QString writeError = file.error() == QFileDevice::NoError
        ? QStringLiteral("writing failed; the disk may be full")
        : file.errorString();
    file.close();
    EDFReader reader(target);
    const bool readable = left >= 0 && reader.open();
    if (!readable) {
        file.remove();
        return failure(left < 0 ? QStringLiteral("Cannot write %1: %2.").arg(target, writeError)
                                : QStringLiteral("Cannot repair %1: its copy is not readable either.").arg(path));
    }
    return {true, summary(scan, path, target, left), target};
}
