#include "base/ConnectionHelper.h"

#include <QObject>

void ConnectionHelper::clear()
{
    for (const QMetaObject::Connection &connection : qAsConst(m_connections)) {
        QObject::disconnect(connection);
    }
    m_connections.clear();
}
