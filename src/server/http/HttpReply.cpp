#include "server/http/HttpReply.h"

#include <QTcpSocket>
#include <QTimer>

namespace bp {

namespace {

constexpr int kCloseTimeoutMs = 30000;

QByteArray successReply(int length, const QByteArray &body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(length)
        + "\r\nContent-Type: text/html\r\nAccess-Control-Allow-Origin: *\r\nConnection: close\r\n\r\n" + body;
}

} // namespace

QByteArray successReply(const QString &body, LengthIn unit)
{
    const QByteArray bytes = body.toUtf8();
    return successReply(unit == LengthIn::Bytes ? bytes.size() : body.size(), bytes);
}

QByteArray successReplyAscii(const QByteArray &body)
{
    return successReply(body.size(), body);
}

QByteArray errorReply(const QString &messageOrJson, LengthIn unit)
{
    const QString body = messageOrJson.startsWith(QLatin1Char('{'))
        ? messageOrJson
        : QStringLiteral("{\"error\":\"") + messageOrJson + QStringLiteral("\"}");
    const QByteArray bytes = body.toUtf8();
    return "HTTP/1.1 400 Bad Request\r\nContent-Type: text/html\r\nContent-Length: "
        + QByteArray::number(unit == LengthIn::Bytes ? bytes.size() : body.size())
        + "\r\nAccess-Control-Allow-Origin: *\r\nConnection: Closed\r\n\r\n" + bytes;
}

QByteArray preflightReply()
{
    return "HTTP/1.1 204 No Content\r\nAccess-Control-Allow-Origin: *\r\nAccess-Control-Allow-Methods: GET, POST\r\n"
           "Access-Control-Allow-Headers: *\r\nAccess-Control-Allow-Private-Network: true\r\nConnection: close\r\n\r\n";
}

void sendAndClose(QTcpSocket *client, const QByteArray &bytes)
{
    if (client == nullptr || client->state() != QAbstractSocket::ConnectedState) {
        return;
    }
    client->write(bytes);
    client->disconnectFromHost();
    if (client->state() != QAbstractSocket::UnconnectedState) {
        auto *timer = new QTimer(client); // deleted with the connection: there may be thousands a second
        timer->setSingleShot(true);
        QObject::connect(timer, &QTimer::timeout, client, &QTcpSocket::abort);
        timer->start(kCloseTimeoutMs);
    }
}

} // namespace bp
