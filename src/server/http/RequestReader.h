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
    QString refusal; ///< why it cannot be taken; empty otherwise
};

/// Reads requests of many clients at a time, each to its end: the head, and the body that it announces, in however many
/// pieces they come.
///
/// A request without the blank line behind its head is taken when nothing more comes for a moment. A client that sends
/// nothing, or not all that it announced, is given up after 10 s; of 64 clients the oldest goes when one more comes.
class RequestReader : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMaxClients = 64;
    static constexpr int kMaxHeadBytes = 64 * 1024;
    static constexpr int kMaxBytes = 4 * 1024 * 1024;
    static constexpr int kTimeoutMs = 10000;
    static constexpr int kQuietMs = 250;

    using Take = std::function<void(QTcpSocket *client, const WholeRequest &request)>;

    /// @param take  gets each request; the client is no longer read from then
    RequestReader(Take take, QObject *parent);

    /// @param socket  borrowed; forgotten when it disconnects
    void add(QTcpSocket *socket);

private:
    struct Client
    {
        QTcpSocket *socket;
        QTimer *timer; ///< child of the socket
        QByteArray bytes;
        bool isContinued = false; ///< was told to send its body
    };
    enum class State { Incomplete, Complete, Refused };

    void takeBytes(QTcpSocket *socket);
    void takeTimeout(QTcpSocket *socket);
    static State examine(Client &client, WholeRequest &request);
    void finish(QTcpSocket *socket, const WholeRequest &request);
    std::vector<Client>::iterator find(const QTcpSocket *socket);
    void forget(QTcpSocket *socket);

    Take m_take;
    std::vector<Client> m_clients; ///< oldest first
};

} // namespace bp
