#include "server/http/RequestReader.h"

#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace bp {

namespace {

/// The end of a request without a body from the library's own client, which sends no blank line.
const QByteArray kOwnEnd("\r\nAccept: application/json, text/j\r\n");

const QString kTooLarge = QStringLiteral("The request is too large");

} // namespace

RequestReader::RequestReader(Receive receive, QObject *parent)
    : QObject(parent)
    , m_receive(std::move(receive))
{
}

void RequestReader::add(QTcpSocket *socket)
{
    auto *timer = new QTimer(socket);
    timer->setSingleShot(true);
    m_clients.push_back({socket, timer, {}});
    connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readBytes(socket); });
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] { forget(socket); });
    connect(timer, &QTimer::timeout, this, [this, socket] { handleTimeout(socket); });
    timer->start(kTimeoutMs);
    if (m_clients.size() > kMaxClients) {
        m_clients.front().socket->abort(); // its signal removes it from the list
    }
    readBytes(socket);
}

void RequestReader::readBytes(QTcpSocket *socket)
{
    const auto client = find(socket);
    if (client == m_clients.end() || socket->bytesAvailable() == 0) {
        return;
    }
    client->bytes += socket->readAll();
    WholeRequest request;
    if (examine(*client, request) != State::Incomplete) {
        finish(socket, request);
    }
}

/// Fills in the request when it is complete, or the reason to reject it.
RequestReader::State RequestReader::examine(Client &client, WholeRequest &request)
{
    const auto refused = [&request](const QString &reason) {
        request.refusal = reason;
        return State::Refused;
    };
    const std::optional<RequestHead> head = parseHead(client.bytes);
    if (!head) {
        request.head = parseBareHead(client.bytes);
        request.text = plainRequest(request.head, client.bytes);
        client.timer->start(kQuietMs);
        return client.bytes.size() > kMaxHeadBytes ? refused(kTooLarge)
            : client.bytes.endsWith(kOwnEnd)       ? State::Complete
                                                   : State::Incomplete;
    }
    request.head = *head;
    if (!head->field("transfer-encoding").isEmpty()) {
        return refused(QStringLiteral("Send the body in one piece, with a Content-Length"));
    }
    if (head->bodySize > kMaxBytes || head->size > kMaxHeadBytes) {
        return refused(kTooLarge);
    }
    if (client.bytes.size() - head->size >= head->bodySize) {
        request.text = plainRequest(*head, client.bytes);
        return State::Complete;
    }
    if (!client.isContinued && head->field("expect").toLower() == "100-continue") {
        client.isContinued = true;
        client.socket->write("HTTP/1.1 100 Continue\r\n\r\n");
    }
    client.timer->start(kTimeoutMs);
    return State::Incomplete;
}

void RequestReader::handleTimeout(QTcpSocket *socket)
{
    const auto client = find(socket);
    if (client == m_clients.end()) {
        return;
    }
    if (client->bytes.isEmpty()) {
        socket->abort();
        return;
    }
    WholeRequest request;
    if (examine(*client, request) == State::Incomplete && parseHead(client->bytes)) {
        request.refusal = QStringLiteral("The announced body has not come");
    }
    finish(socket, request);
}

void RequestReader::finish(QTcpSocket *socket, const WholeRequest &request)
{
    forget(socket);
    m_receive(socket, request);
}

std::vector<RequestReader::Client>::iterator RequestReader::find(const QTcpSocket *socket)
{
    return std::find_if(m_clients.begin(), m_clients.end(),
                        [socket](const Client &client) { return client.socket == socket; });
}

void RequestReader::forget(QTcpSocket *socket)
{
    const auto client = find(socket);
    if (client != m_clients.end()) {
        socket->disconnect(this);
        client->timer->disconnect(this);
        client->timer->deleteLater();
        m_clients.erase(client);
    }
}

} // namespace bp
