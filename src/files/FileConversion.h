#pragma once

#include "common/BPExport.h"

#include <QObject>
#include <QString>

#include <atomic>

/// Something that makes one file of others, tells how far it is, and can be cancelled.
///
/// The work is done by the call that asks for it, on the calling thread. To keep a thread free, move the object to a
/// worker thread and call it through QMetaObject::invokeMethod(). The file under the final name is complete or
/// untouched: the work goes into a temporary file beside it, which takes the name at the end.
class BIOPROCESSING_EXPORT FileConversion : public QObject
{
    Q_OBJECT
public:
    explicit FileConversion(QObject *parent = nullptr);

    /// One sentence on why the last conversion failed; empty after one that worked.
    QString lastError() const { return m_lastError; }
    /// One sentence on what a user should know of the source of the last conversion that worked: that it was not
    /// closed, or that malformed annotations are missing in the result, for example. Empty when there is nothing.
    QString notice() const { return m_notice; }

public slots:
    /// Ends the running conversion soon, with finished(false). When none runs, the next one ends so, which may have
    /// been asked for and not begun yet on its worker thread. Any thread.
    void cancel() { m_cancelled = true; }

signals:
    void started(const QString &target);
    /// @param done,total bytes or records of the source; comes when the percentage has changed
    void progress(int percent, qint64 done, qint64 total);
    /// Comes once per conversion, last.
    void finished(bool done, const QString &error);

protected:
    void begin(const QString &target);
    bool isCancelled() const { return m_cancelled; }
    void report(qint64 done, qint64 total);
    void setNotice(const QString &notice) { m_notice = notice; }
    /// @param error what went wrong as a sentence; ignored after cancel()
    bool end(const QString &error);
    /// Empty when the target may be written; creates its folder.
    static QString targetFault(const QStringList &sources, const QString &target);

private:
    std::atomic<bool> m_cancelled{false};
    QString m_lastError;
    QString m_notice;
    int m_percent = -1;
};
