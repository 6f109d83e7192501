#include "server/http/HttpRequest.h"

#include <algorithm>

namespace bp {

namespace {

RequestHead headOf(const QByteArray &text)
{
    RequestHead head;
    bool isLine = true;
    for (const QByteArray &line : text.split('\n')) {
        const int colon = line.indexOf(':');
        const QByteArray name = line.left(colon).trimmed().toLower();
        if (isLine) {
            head.line = line.endsWith('\r') ? line.chopped(1) : line;
        } else if (colon > 0 && !head.fields.contains(name)) {
            head.fields.insert(name, line.mid(colon + 1).trimmed());
        }
        isLine = false;
    }
    head.size = text.size();
    head.bodySize = std::max<qint64>(0, head.field("content-length").toLongLong());
    return head;
}

} // namespace

std::optional<RequestHead> parseHead(const QByteArray &bytes)
{
    const QByteArray blankLine("\r\n\r\n");
    const int end = bytes.indexOf(blankLine);
    if (end < 0) {
        return std::nullopt;
    }
    return headOf(bytes.left(end + blankLine.size()));
}

RequestHead parseBareHead(const QByteArray &bytes)
{
    RequestHead head = headOf(bytes);
    head.bodySize = 0;
    return head;
}

QString plainRequest(const RequestHead &head, const QByteArray &bytes)
{
    const QByteArray rest = bytes.mid(head.size);
    QString body = QString::fromUtf8(rest.constData(), rest.size()); // a NUL does not end it
    if (head.bodySize < body.size()) {
        body.truncate(static_cast<int>(head.bodySize));
    }
    return QString::fromUtf8(head.line.constData(), head.line.size())
        + QStringLiteral("\r\nContent-Length: %1\r\n\r\n").arg(body.size()) + body;
}

} // namespace bp
