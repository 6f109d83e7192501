#pragma once

#include <QString>
#include <QStringList>

/// File helpers of the toolkit.
class FileUtilities
{
public:
    /// Name of a file without its folder and its last suffix: "/a/b.c.edf" gives "b.c".
    static QString filename(const QString &path);
    /// Absolute paths of the files in a folder whose suffix is the given one ("edf", without the dot, compared without
    /// case), sorted by name; empty for a folder that does not exist.
    static QStringList getFilesOfType(const QString &folder, const QString &suffix);
    /// Creates a folder and its parents; true when it exists afterwards.
    static bool createIfNotExists(const QString &folder);
};
