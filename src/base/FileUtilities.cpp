#include "base/FileUtilities.h"

#include <QDir>
#include <QFileInfo>

QString FileUtilities::filename(const QString &path)
{
    return QFileInfo(path).completeBaseName();
}

QStringList FileUtilities::getFilesOfType(const QString &folder, const QString &suffix)
{
    QStringList paths;
    const QFileInfoList entries = QDir(folder).entryInfoList(QDir::Files, QDir::Name);
    for (const QFileInfo &entry : entries) {
        if (entry.suffix().compare(suffix, Qt::CaseInsensitive) == 0) {
            paths << entry.absoluteFilePath();
        }
    }
    return paths;
}

bool FileUtilities::createIfNotExists(const QString &folder)
{
    return QDir().mkpath(folder);
}
