#pragma once

#include <QLoggingCategory>
#include <QMutex>
#include <QStringList>

/// Collects the trace lines written while it lives, from every thread. One at a time.
class TraceCapture
{
public:
    TraceCapture()
    {
        s_active = this;
        QLoggingCategory::setFilterRules(QStringLiteral("tavrix.console=true"));
        m_previous = qInstallMessageHandler(take);
    }
    ~TraceCapture()
    {
        qInstallMessageHandler(m_previous);
        QLoggingCategory::setFilterRules(QStringLiteral("tavrix.console=false"));
        s_active = nullptr;
    }
    TraceCapture(const TraceCapture &) = delete;
    TraceCapture &operator=(const TraceCapture &) = delete;

    QStringList lines() const
    {
        QMutexLocker locker(&m_mutex);
        return m_lines;
    }
    /// Number of lines that contain the text.
    int count(const QString &text) const { return lines().filter(text).size(); }

private:
    static void take(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (qstrcmp(context.category, "tavrix.console") != 0) {
            s_active->m_previous(type, context, message);
            return;
        }
        QMutexLocker locker(&s_active->m_mutex);
        s_active->m_lines << message;
    }

    static inline TraceCapture *s_active = nullptr;
    mutable QMutex m_mutex;
    QStringList m_lines;
    QtMessageHandler m_previous = nullptr;
};
