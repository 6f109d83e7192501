#include "server/http/HttpServer.h"

#include "common/BPCommon.h"
#include "server/http/HttpReply.h"
#include "server/http/RequestReader.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <numeric>
#include <utility>

namespace bp {

namespace {

constexpr BPCommon::LogEvent kLog = BPCommon::LogServer;
constexpr int kReadAttempts = 100;
constexpr int kReadWaitMs = 5;
/// What a client has sent beyond this before it is read stays in the system's buffers.
constexpr qint64 kMaxRequestBytes = qint64{4} * 1024 * 1024;
constexpr int kMaxClosingClients = 64;
/// Of all answers that are still being sent.
constexpr qint64 kMaxUnsentBytes = qint64{512} * 1024 * 1024;

} // namespace

HttpServer::HttpServer(Answer answer, QObject *parent)
    : QObject(parent)
    , m_answer(std::move(answer))
    , m_reader(new RequestReader(
          [this](QTcpSocket *client, const WholeRequest &request) { answerWhole(client, request); }, this))
    , m_server(new QTcpServer(this))
{
    connect(m_server, &QTcpServer::newConnection, this, &HttpServer::acceptClients);
}

void HttpServer::listen(const QHostAddress &address, quint16 port)
{
    m_server->listen(address, port);
}

bool HttpServer::isListening() const
{
    return m_server->isListening();
}

quint16 HttpServer::port() const
{
    return m_server->serverPort();
}

QString HttpServer::listenError() const
{
    return m_server->isListening() ? QString() : m_server->errorString();
}

void HttpServer::acceptClients()
{
    BPCommon::log(kLog, "DataServer::takeNewConnection");
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] { forget(socket); });
        answerEarlyRequest();
        dropClient();
        socket->setReadBufferSize(kMaxRequestBytes);
        if (m_wholeRequests) {
            m_reader->add(socket);
            continue;
        }
        m_client = socket;
        connect(socket, &QTcpSocket::readyRead, this, &HttpServer::answerClient);
        if (socket->bytesAvailable() > 0) {
            answerClient();
        }
    }
}

/// The request of the client that is about to be dropped may have arrived without a signal so far.
void HttpServer::answerEarlyRequest()
{
    if (m_client && m_client->bytesAvailable() == 0) {
        m_client->waitForReadyRead(0); // emits readyRead, which answers the request
    }
    if (m_client && m_client->bytesAvailable() > 0) {
        answerClient();
    }
}

void HttpServer::dropClient()
{
    if (m_client) {
        m_client->disconnect(this);
        m_client->abort();
        m_client->deleteLater();
        m_client.clear();
    }
}

void HttpServer::answerClient()
{
    if (m_client) {
        const QPointer<QTcpSocket> client = m_client; // may be deleted while the command is carried out
        const QByteArray answer = m_answer(readText());
        sendAndClose(client, answer);
        m_client.clear();
        keepUntilSent(client);
    }
}

void HttpServer::answerWhole(QTcpSocket *client, const WholeRequest &request)
{
    const QPointer<QTcpSocket> present = client; // as above
    const QString refusal = m_guard.refusal(request.head, client->localAddress());
    if (!refusal.isEmpty() || !request.refusal.isEmpty()) {
        sendAndClose(client, errorReply(refusal.isEmpty() ? request.refusal : refusal));
    } else if (request.head.line.startsWith("OPTIONS ")) { // asks what is allowed, and carries out nothing
        sendAndClose(client, preflightReply());
    } else {
        const QByteArray answer = m_answer(request.text);
        sendAndClose(present, answer);
    }
    keepUntilSent(present);
}

QString HttpServer::readText()
{
    QString text;
    for (int attempt = 0; m_client && attempt < kReadAttempts && text.isEmpty(); ++attempt) {
        const QByteArray bytes = m_client->readAll();
        text = QString::fromUtf8(bytes.constData(), bytes.size()); // a NUL does not end it
        if (text.isEmpty() && !m_client->waitForReadyRead(kReadWaitMs)
            && m_client->state() != QAbstractSocket::ConnectedState) {
            break; // nothing will come any more
        }
    }
    return text;
}

void HttpServer::forget(QTcpSocket *client)
{
    BPCommon::log(kLog, "DataServer::clientDisconnected");
    if (client != nullptr) {
        m_closing.removeOne(client);
        client->close();
        client->deleteLater();
    }
}

/// A client whose answer is still being sent is not dropped when the next one comes.
void HttpServer::keepUntilSent(QTcpSocket *client)
{
    if (client == nullptr) {
        return;
    }
    disconnect(client, &QTcpSocket::readyRead, this, &HttpServer::answerClient);
    if (client->state() != QAbstractSocket::UnconnectedState) {
        m_closing.append(client);
    }
    limitUnsentAnswers();
}

/// Drops the clients that have been receiving their answers for longest when there are too many or too much is unsent.
void HttpServer::limitUnsentAnswers()
{
    const auto unsent = [this] {
        return std::accumulate(m_closing.cbegin(), m_closing.cend(), qint64{0},
                               [](qint64 sum, const QTcpSocket *client) { return sum + client->bytesToWrite(); });
    };
    while (m_closing.size() > kMaxClosingClients || (m_closing.size() > 1 && unsent() > kMaxUnsentBytes)) {
        QTcpSocket *oldest = m_closing.takeFirst();
        oldest->abort();
    }
}

} // namespace bp
