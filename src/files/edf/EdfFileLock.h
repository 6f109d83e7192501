#pragma once

#include "files/edf/OpenFile.h"

#include <QFile>
#include <QLockFile>
#include <QString>

#include <memory>

namespace bp {

/// A recording's exclusive right to its path.
///
/// Within this process OpenFile keeps others away. Other programs are kept away by a lock file beside the recording,
/// that of "a.edf" in "a.edf.lock", which disappears when it is released. The lock of a program that was killed is
/// taken over; that of a program on another computer stays until it is removed. A folder that takes no new files has no
/// locks either.
class EdfFileLock
{
public:
    ~EdfFileLock() { release(); }

    /// Creates an empty file, or empties the one that is there unless it is an unrepaired recording, which is renamed.
    /// Nothing is touched when somebody reads or writes the file.
    /// Fails when the file must not be written.
    Outcome acquire(const QString &path);
    void release();
    /// Whether the file is still at its path, and has not been replaced by another one.
    bool isInPlace() const { return m_use.isAt(m_file.fileName()); }
    /// Where an unrepaired recording that was at the path has gone; empty when there was none.
    QString setAsidePath() const { return m_setAsidePath; }

    /// Fails when a file must not be replaced by one that is not a recording.
    static Outcome mayReplace(const QString &path);

private:
    Outcome lock(const QString &path);

    std::unique_ptr<QLockFile> m_lock;
    QFile m_file; ///< open while it is locked, so that it keeps its identity
    OpenFile m_use;
    QString m_setAsidePath;
};

} // namespace bp
