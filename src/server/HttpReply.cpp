#include "server/HttpReply.h"

namespace bp {

QByteArray successReply(const QString &body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\nContent-Type: text/html\r\nAccess-Control-Allow-Origin: *\r\nConnection: close\r\n\r\n" + body.toUtf8();
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
