#pragma once

#include <QList>
#include <QMetaObject>

/// A list of Qt connections that end together, at the latest with the list.
class ConnectionHelper
{
public:
    ConnectionHelper() = default;
    ConnectionHelper(const ConnectionHelper &) = delete;
    ConnectionHelper &operator=(const ConnectionHelper &) = delete;
    ~ConnectionHelper() { clear(); }

    void add(const QMetaObject::Connection &connection) { m_connections << connection; }
    ConnectionHelper &operator<<(const QMetaObject::Connection &connection)
    {
        add(connection);
        return *this;
    }
    /// Disconnects every connection of the list and empties it.
    void clear();
    int size() const { return m_connections.size(); }

private:
    QList<QMetaObject::Connection> m_connections;
};
