#pragma once

#include "server/http/BrowserGuard.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <functional>

class QTcpServer;
class QTcpSocket;

namespace bp {

class RequestReader;
struct WholeRequest;

/// The TCP side of the command service: accepts clients, reads one request of each, sends the answer and closes the
/// connection.
///
/// Two ways of reading, see DataServer::setWholeRequests(). Lives on the server's thread.
class HttpServer : public QObject
{
    Q_OBJECT
public:
    /// The bytes that a request is answered with.
    using Answer = std::function<QByteArray(const QString &requestText)>;

    HttpServer(Answer answer, QObject *parent);

    /// @param port  0 for any free one
    void listen(const QHostAddress &address, quint16 port);
    bool isListening() const;
    /// 0 while not listening.
    quint16 port() const;
    /// Why it does not listen; empty while it does.
    QString listenError() const;

    void setWholeRequests(bool on) { m_wholeRequests = on; }
    void setAllowedOrigins(const QStringList &origins) { m_guard.setAllowedOrigins(origins); }

    /// Accepts all clients that wait.
    void acceptClients();
    /// Answers what the client has sent, whole or not.
    void answerClient();
    /// The text of one read of the client, which is waited for half a second at most; empty without a client.
    QString readText();
    /// Closes and deletes a client that has disconnected; null is ignored.
    void forget(QTcpSocket *client);

private:
    void answerEarlyRequest();
    void dropClient();
    void answerWhole(QTcpSocket *client, const WholeRequest &request);
    void keepUntilSent(QTcpSocket *client);
    void limitUnsentAnswers();

    Answer m_answer;
    RequestReader *m_reader; ///< child
    QTcpServer *m_server; ///< child
    BrowserGuard m_guard;
    bool m_wholeRequests = false;
    QPointer<QTcpSocket> m_client; ///< the one that has not been answered; none while whole requests are read
    QList<QTcpSocket *> m_closing; ///< those whose answer is being sent, oldest first; children of the listener
};

} // namespace bp
