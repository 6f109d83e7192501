#include "files/edf/EdfUnclosedRecording.h"

#include "files/edf/EdfJournal.h"
#include "files/edf/EdfLayout.h"

#include <QFile>
#include <QFileInfo>

namespace {

QString freeName(const QString &path)
{
    const QFileInfo file(path);
    const QString suffix = file.suffix().isEmpty() ? QString() : QLatin1Char('.') + file.suffix();
    const QString base = path.chopped(suffix.size()) + QLatin1String("_unclosed");
    QString name = base + suffix;
    for (int number = 2; QFileInfo::exists(name) || QFileInfo::exists(bp::EdfJournal::pathFor(name)); ++number) {
        name = base + QString::number(number) + suffix;
    }
    return name;
}

} // namespace

namespace bp {

bool EdfUnclosedRecording::isAt(const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const EdfLayout layout = EdfLayout::read(file);
    return !layout.headerBytes.isEmpty()
        && (layout.isUnclosed() || !EdfJournal::read(path, EdfJournal::identity(layout.headerBytes)).isEmpty());
}

Outcome EdfUnclosedRecording::setAside(const QString &path, QString &movedTo)
{
    movedTo.clear();
    const bool movesRecording = isAt(path);
    const bool movesJournal = EdfJournal::hasEntries(path);
    if (!movesRecording && !movesJournal) {
        return Outcome::good();
    }
    // A link stays, and leads to the new recording as it led to the one before.
    const QString canonical = QFileInfo(path).canonicalFilePath();
    const QString recording = canonical.isEmpty() ? path : canonical;
    const QString name = freeName(recording);
    QFile file(recording);
    if (movesRecording && !file.rename(name)) {
        return Outcome::failure(
            QStringLiteral("an unrepaired recording is there and cannot be renamed (%1)").arg(file.errorString()));
    }
    QFile journal(EdfJournal::pathFor(path));
    if (movesJournal && !journal.rename(EdfJournal::pathFor(name))) {
        if (movesRecording) {
            file.rename(recording);
        }
        return Outcome::failure(
            QStringLiteral("the labels of an unrepaired recording are beside it and cannot be renamed (%1)")
                .arg(journal.errorString()));
    }
    movedTo = name;
    return Outcome::good();
}

} // namespace bp
