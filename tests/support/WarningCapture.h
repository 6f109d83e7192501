#pragma once

#include <QMutex>
#include <QStringList>
#include <QtGlobal>

/// Collects the warnings that Qt writes while it lives, from every thread. One at a time, made before a TraceCapture.
class WarningCapture
{
public:
    WarningCapture()
    {
        s_active = this;
        m_previous = qInstallMessageHandler(take);
    }
    ~WarningCapture()
    {
        qInstallMessageHandler(m_previous);
        s_active = nullptr;
    }
    WarningCapture(const WarningCapture &) = delete;
    WarningCapture &operator=(const WarningCapture &) = delete;

    QStringList lines() const
    {
        QMutexLocker locker(&m_mutex);
        return m_lines;
    }

private:
    static void take(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (type == QtWarningMsg) {
            QMutexLocker locker(&s_active->m_mutex);
            s_active->m_lines << message;
        }
        s_active->m_previous(type, context, message);
    }

    static inline WarningCapture *s_active = nullptr;
    mutable QMutex m_mutex;
    QStringList m_lines;
    QtMessageHandler m_previous = nullptr;
};
