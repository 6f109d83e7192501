#include "files/EDFRescue.h"

#include "files/EDFReader.h"
#include "files/edf/EdfContents.h"
#include "files/edf/EdfSlots.h"

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

/// Writes the records and the annotations. Returns how many annotations found no room, −1 when writing failed.
int writeRepaired(const bp::EdfContents &contents, const QString &path, QFile &to)
{
    QFile from(path);
    const bp::EdfLayout &layout = contents.layout();
    const qint64 headerBytes = contents.header().size();
    if (!from.open(QIODevice::ReadOnly) || !from.seek(headerBytes) || to.write(contents.header()) != headerBytes
        || !copy(from, to, contents.records() * layout.recordBytes)) {
        return -1;
    }
    QList<QByteArray> lists;
    for (const bp::EdfJournal::Entry &entry : contents.journal()) {
        lists << bp::EdfSlots::list(entry.onset, entry.duration, entry.text);
    }
    const int placed = lists.isEmpty() ? 0 : bp::EdfSlots::write(to, layout, contents.records(), lists);
    return placed < 0 || !to.flush() ? -1 : lists.size() - placed;
}

bool isSound(const bp::EdfContents &contents, const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(contents.header().size()) == contents.header()
        && file.size() == contents.header().size() + contents.records() * contents.layout().recordBytes;
}

QString summary(const EDFReader &reader, const QString &path, const QString &target, int left)
{
    QString text = QStringLiteral("%1 has %2 s and %3 annotations of %4")
                       .arg(target)
                       .arg(reader.getExactDuration())
                       .arg(reader.annotations().size())
                       .arg(path);
    if (left > 0) {
        text += QStringLiteral("; %1 more found no room and stay in %2").arg(left).arg(bp::EdfJournal::pathFor(path));
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
    bp::EdfContents contents(path, true);
    contents.readAnnotations();
    if (!contents.reason().isEmpty()) {
        return failure(QStringLiteral("Cannot repair %1: %2.").arg(path, contents.reason()));
    }
    EDFReader original(path);
    if (isSound(contents, path) && original.open() && original.notice().isEmpty()) {
        return {true, QStringLiteral("%1 is sound: there is nothing to repair.").arg(path), QString()};
    }
    original.close();
    QFile file(target);
    if (!file.open(QIODevice::ReadWrite | QIODevice::NewOnly)) {
        return failure(QFileInfo::exists(target)
                           ? QStringLiteral("Cannot write %1: it exists already.").arg(target)
                           : QStringLiteral("Cannot write %1: %2.").arg(target, file.errorString()));
    }
    const int left = writeRepaired(contents, path, file);
    const QString writeError = file.errorString();
    file.close();
    EDFReader reader(target);
    const bool readable = left >= 0 && reader.open();
    if (!readable) {
        file.remove();
        return failure(left < 0 ? QStringLiteral("Cannot write %1: %2.").arg(target, writeError)
                                : QStringLiteral("Cannot repair %1: its copy is not readable either.").arg(path));
    }
    return {true, summary(reader, path, target, left), target};
}
