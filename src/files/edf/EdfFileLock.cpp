#include "files/edf/EdfFileLock.h"

#include "common/BPCommon.h"
#include "files/edf/EdfLibrary.h"
#include "files/edf/EdfUnclosedRecording.h"

#include <QDir>
#include <QFileInfo>

namespace {

/// The same for every path that leads to the file, hard links excepted.
QString lockPath(const QString &path)
{
    const QFileInfo file(path);
    const QString canonical = file.canonicalFilePath();
    const QString folder = QFileInfo(file.absolutePath()).canonicalFilePath();
    const bool isNew = canonical.isEmpty() && !folder.isEmpty();
    return (isNew                     ? QDir(folder).filePath(file.fileName())
                : canonical.isEmpty() ? file.absoluteFilePath()
                                      : canonical)
        + QLatin1String(".lock");
}

std::unique_ptr<QLockFile> makeLock(const QString &path)
{
    auto lock = std::make_unique<QLockFile>(lockPath(path));
    lock->setStaleLockTime(0); // a recording may take days; the lock of a process that is gone is stale all the same
    return lock;
}

/// Why a lock was not had.
QString holder(const QString &path, const QLockFile &lock)
{
    qint64 process = 0;
    QString computer;
    QString program;
    const QString name = lockPath(path);
    if (!lock.getLockInfo(&process, &computer, &program)) {
        return QStringLiteral("another program records into it; if none does, remove %1").arg(name);
    }
    return QStringLiteral("%1 (process %2 on %3) records into it; if it does not, remove %4")
        .arg(program.isEmpty() ? QStringLiteral("another program") : program)
        .arg(process)
        .arg(computer, name);
}

bool isOpenHere(const QString &path)
{
    return bp::EdfLibrary::isFileUsed(path) || bp::OpenFile::isOpen(path);
}

} // namespace

namespace bp {

Outcome EdfFileLock::acquire(const QString &path)
{
    release();
    m_setAsidePath.clear();
    if (isOpenHere(path)) {
        return Outcome::failure(OpenFile::openReason());
    }
    Outcome outcome = lock(path);
    if (outcome) {
        outcome = EdfUnclosedRecording::setAside(path, m_setAsidePath);
    }
    if (outcome) {
        m_file.setFileName(path);
        outcome = m_use.holdToWrite(m_file);
    }
    if (outcome && !m_file.resize(0)) {
        outcome = Outcome::failure(m_file.errorString());
    }
    if (!outcome) {
        release();
    }
    return outcome;
}

/// Good also where there cannot be a lock at all.
Outcome EdfFileLock::lock(const QString &path)
{
    m_lock = makeLock(path);
    if (m_lock->tryLock(0)) {
        return Outcome::good();
    }
    const bool isHeld = m_lock->error() == QLockFile::LockFailedError;
    const Outcome outcome = isHeld ? Outcome::failure(holder(path, *m_lock)) : Outcome::good();
    if (!isHeld) {
        BPCommon::log(BPCommon::LogEdfWriter, "EDFWriter::open records without a lock, %s cannot be written",
                      lockPath(path));
    }
    m_lock.reset();
    return outcome;
}

void EdfFileLock::release()
{
    m_use.release();
    m_file.close();
    m_lock.reset();
}

Outcome EdfFileLock::mayReplace(const QString &path)
{
    if (!QFileInfo::exists(path)) {
        return Outcome::good();
    }
    if (isOpenHere(path)) {
        return Outcome::failure(OpenFile::openReason());
    }
    if (QFileInfo::exists(lockPath(path))) {
        const std::unique_ptr<QLockFile> lock = makeLock(path);
        if (!lock->tryLock(0) && lock->error() == QLockFile::LockFailedError) {
            return Outcome::failure(holder(path, *lock));
        }
    }
    return EdfUnclosedRecording::isAt(path)
        ? Outcome::failure(QStringLiteral("it is a recording that was not closed; \"bioprocessing repair\" "
                                          "makes a sound one of it, and another name leaves it alone"))
        : Outcome::good();
}

} // namespace bp
