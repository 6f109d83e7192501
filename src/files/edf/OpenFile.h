#pragma once

#include "common/detail/Outcome.h"

#include <QFile>
#include <QString>

#include <filesystem>

namespace bp {

/// A file that this process reads or writes, so that nothing of ours replaces it meanwhile. Any thread; an object by
/// one thread at a time.
///
/// Files are compared by device and file number: another spelling of a path, a symbolic link and a hard link lead to
/// the same file. The list of open files is the process's own and guarded by a mutex: it is used when files are opened
/// and closed only, which waits for the disk anyway.
class OpenFile
{
public:
    OpenFile() = default;
    ~OpenFile() { release(); }
    Q_DISABLE_COPY(OpenFile)

    /// @param file open; must stay so until release()
    void hold(const QFile &file);
    /// Creates the file, or opens it with its contents untouched, and holds it.
    /// Fails when it must not be written.
    Outcome holdToWrite(QFile &file);
    void release();
    /// Whether the path still leads to the file that is held. Where the system has no paths for open files, as Windows,
    /// which does not let them be replaced, this is whether there is a file.
    bool isAt(const QString &path) const;

    /// Whether this process has the file at that path open.
    static bool isOpen(const QString &path);
    static QString openReason() { return QStringLiteral("this program has it open already"); }

private:
    std::filesystem::path m_path; ///< empty: nothing is held
};

} // namespace bp
