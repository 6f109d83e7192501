#include "base/GlobalConsole.h"

#include <QLoggingCategory>

namespace {
Q_LOGGING_CATEGORY(console, "tavrix.console", QtInfoMsg)
}

void GlobalConsole::writeItem(const QString &source, const QString &message, const QDateTime &time)
{
    qCInfo(console).noquote().nospace() << time.toString(QStringLiteral("hh:mm:ss.zzz")) << ' ' << source << ": "
                                        << message;
}
