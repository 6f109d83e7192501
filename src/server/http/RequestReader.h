#pragma once

#include "server/http/HttpRequest.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <vector>

class QTcpSocket;
class QTimer;

namespace bp {

/// A request as a client has sent it.
struct WholeRequest
{
    RequestHead head;
    QString text; ///< see plainRequest()
    QString refusal; ///< why it is rejected; empty otherwise
};

/// Reads requests of many clients at a time, each to its end: the head and the body that it announces, in any number of
/// pieces.
///
/// A request without a blank line behind its head is complete when nothing more comes for kQuietMs. A client that sends
/// nothing is dropped after kTimeoutMs, one that sends less than it announced gets an error. When one client more than
/// kMaxClients connects, the oldest is dropped.
class RequestReader : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMaxClients = 64;
    static constexpr int kMaxHeadBytes = 64 * 1024;
    static constexpr int kMaxBytes = 4 * 1024 * 1024;
    static constexpr int kTimeoutMs = 10000;
    static constexpr int kQuietMs = 250;

    using Receive = std::function<void(QTcpSocket *client, const WholeRequest &request)>;

    /// @param receive  called with each request; its client is not read any more
    RequestReader(Receive receive, QObject *parent);

    /// @param socket  borrowed; forgotten when it disconnects
    void add(QTcpSocket *socket);

private:
    struct Client
    {
        QTcpSocket *socket;
        QTimer *timer; ///< child of the socket
        QByteArray bytes;
        bool isContinued = false; ///< "100 Continue" has been sent
    };
    enum class State { Incomplete, Complete, Refused };

    void readBytes(QTcpSocket *socket);
    void handleTimeout(QTcpSocket *socket);
    static State examine(Client &client, WholeRequest &request);
    void finish(QTcpSocket *socket, const WholeRequest &request);
    std::vector<Client>::iterator find(const QTcpSocket *socket);
    void forget(QTcpSocket *socket);

    Receive m_receive;
    std::vector<Client> m_clients; ///< oldest first
};

} // namespace bp
