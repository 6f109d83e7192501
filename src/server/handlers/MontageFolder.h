#pragma once

#include <QSharedPointer>
#include <QString>
#include <QStringList>

class Montage;

namespace bp {

/// The montage files that a client may name: those in one folder, and nothing outside it.
class MontageFolder
{
public:
    explicit MontageFolder(const QString &path);

    /// Names of the files, sorted.
    QStringList files() const;
    /// The file that a client means: one of the folder by its own name, or by its name without ".xml", in any case. A
    /// name that fits no file gets ".xml" where it lacks that.
    QString fileName(const QString &name) const;
    /// False for what is no plain file name: empty, with a path separator, a drive or "..".
    static bool isPlainName(const QString &name);
    bool contains(const QString &name) const;
    /// Null when the name is not plain, or the file cannot be read.
    QSharedPointer<Montage> read(const QString &name) const;

private:
    QString m_path;
};

} // namespace bp
