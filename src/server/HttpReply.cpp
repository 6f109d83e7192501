#include "server/HttpReply.h"

namespace bp {

namespace {

QByteArray successReply(int length, const QByteArray &body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(length)
        + "\r\nContent-Type: text/html\r\nAccess-Control-Allow-Origin: *\r\nConnection: close\r\n\r\n" + body;
}

} // namespace

QByteArray successReply(const QString &body)
{
    return successReply(body.size(), body.toUtf8());
}

QByteArray successReplyAscii(const QByteArray &body)
{
    return successReply(body.size(), body);
}

QByteArray errorReply(const QString &messageOrJson)
{
    const QString body = messageOrJson.startsWith(QLatin1Char('{'))
        ? messageOrJson
        : QStringLiteral("{\"error\":\"") + messageOrJson + QStringLiteral("\"}");
    return "HTTP/1.1 400 Bad Request\r\nContent-Type: text/html\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\nAccess-Control-Allow-Origin: *\r\nConnection: Closed\r\n\r\n" + body.toUtf8();
}

} // namespace bp
