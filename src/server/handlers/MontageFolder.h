#pragma once

#include <QSharedPointer>
#include <QString>
#include <QStringList>

class Montage;

namespace bp {

/// The montage files that a client may use: those in one folder.
class MontageFolder
{
public:
    explicit MontageFolder(const QString &path);

    /// Names of the files, sorted.
    QStringList files() const;
    /// The file of that name, with or without ".xml", in upper or lower case. When there is none: the name, with ".xml"
    /// appended where it is missing.
    QString fileName(const QString &name) const;
    /// False for an empty name, and for one with a path separator, a drive or "..".
    static bool isPlainName(const QString &name);
    bool contains(const QString &name) const;
    /// Null when the name is not plain, or the file cannot be read.
    QSharedPointer<Montage> read(const QString &name) const;

private:
    QString m_path;
};

} // namespace bp
