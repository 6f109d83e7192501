#pragma once

#include <QDateTime>
#include <QString>

/// The toolkit's console: every trace line goes through here.
class GlobalConsole
{
public:
    /// Writes one line. Any thread. Lines go to Qt's message log as information of the category "tavrix.console", so
    /// that a program redirects or filters them with the means it has for Qt's own messages.
    static void writeItem(const QString &source, const QString &message, const QDateTime &time);
};
