#include "base/GlobalConsole.h"

#include <QLoggingCategory>

namespace {

/// Never destroyed: plug-ins still write lines while the program's statics are.
const QLoggingCategory &console()
{
    static const auto &category = *new QLoggingCategory("tavrix.console", QtInfoMsg);
    return category;
}

} // namespace

void GlobalConsole::writeItem(const QString &source, const QString &message, const QDateTime &time)
{
    qCInfo(console).noquote().nospace() << time.toString(QStringLiteral("hh:mm:ss.zzz")) << ' ' << source << ": "
                                        << message;
}
