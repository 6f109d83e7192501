#include "files/FileConversion.h"

#include "base/FileUtilities.h"
#include "common/BPCommon.h"
#include "files/edf/EdfFileLock.h"

#include <QFileInfo>
#include <QStringList>

FileConversion::FileConversion(QObject *parent)
    : QObject(parent)
{
}

void FileConversion::begin(const QString &target)
{
    m_lastError.clear();
    m_notice.clear();
    m_percent = -1;
    emit started(target);
}

void FileConversion::report(qint64 done, qint64 total)
{
    const int percent =
        total > 0 ? static_cast<int>(100.0 * static_cast<double>(done) / static_cast<double>(total)) : 0;
    if (percent != m_percent) {
        m_percent = percent;
        emit progress(percent, done, total);
    }
}

bool FileConversion::end(const QString &error)
{
    m_lastError = error.isEmpty() || !isCancelled() ? error : QStringLiteral("Cancelled; no file was written.");
    m_cancelled = false;
    if (!m_lastError.isEmpty()) {
        BPCommon::log(BPCommon::LogEdfWriter, "FileConversion::end %s", m_lastError);
        m_notice.clear();
    }
    emit finished(m_lastError.isEmpty(), m_lastError);
    return m_lastError.isEmpty();
}

QString FileConversion::targetFault(const QStringList &sources, const QString &target)
{
    const QFileInfo info(target);
    if (target.isEmpty() || (info.exists() && !info.isFile())) {
        return QStringLiteral("Cannot write \"%1\": it is no name of a file.").arg(target);
    }
    for (const QString &source : sources) {
        if (info.exists() && QFileInfo(source) == info) {
            return QStringLiteral("%1 is the source and the target; choose another name for the result.").arg(target);
        }
    }
    const bp::Outcome replaceable = bp::EdfFileLock::mayReplace(target);
    if (!replaceable) {
        return QStringLiteral("Cannot write %1: %2.").arg(target, replaceable.reason());
    }
    return FileUtilities::createIfNotExists(info.absolutePath())
        ? QString()
        : QStringLiteral("Cannot create the folder %1.").arg(info.absolutePath());
}
