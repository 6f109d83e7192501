#include "server/handlers/MontageFolder.h"

#include "montage/Montage.h"
#include "montage/MontageXmlReader.h"

#include <QDir>

namespace bp {

MontageFolder::MontageFolder(const QString &path)
    : m_path(path)
{
}

QStringList MontageFolder::files() const
{
    if (m_path.isEmpty()) {
        return {}; // a QDir without a path is the working folder
    }
    return QDir(m_path).entryList({QStringLiteral("*.xml")}, QDir::Files, QDir::Name);
}

QString MontageFolder::fileName(const QString &name) const
{
    const QLatin1String suffix(".xml");
    const QStringList all = files();
    if (all.contains(name) || all.contains(name + suffix)) {
        return all.contains(name) ? name : name + suffix;
    }
    for (const QString &file : all) {
        if (file.startsWith(name) && file.midRef(name.size()).compare(suffix, Qt::CaseInsensitive) == 0) {
            return file;
        }
    }
    return name.endsWith(suffix) ? name : name + suffix;
}

bool MontageFolder::isPlainName(const QString &name)
{
    for (const QChar character : name) {
        if (character == QLatin1Char('/') || character == QLatin1Char('\\') || character == QLatin1Char(':')
            || character.unicode() < 0x20) {
            return false;
        }
    }
    return !name.isEmpty() && !name.contains(QLatin1String(".."));
}

bool MontageFolder::contains(const QString &name) const
{
    return isPlainName(name) && files().contains(fileName(name));
}

QSharedPointer<Montage> MontageFolder::read(const QString &name) const
{
    if (!isPlainName(name) || m_path.isEmpty()) {
        return {};
    }
    return MontageXmlReader().readMontage(QDir(m_path).filePath(fileName(name)));
}

} // namespace bp
