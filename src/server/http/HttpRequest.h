#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

namespace bp {

/// What the head of a request says. Names of header fields count in any case.
struct RequestHead
{
    QByteArray line; ///< the request line
    int size = 0; ///< bytes up to the body
    qint64 bodySize = 0; ///< as announced; 0 when nothing is, or no number
    QHash<QByteArray, QByteArray> fields; ///< by lower-case name; of a field that is there twice, the first

    QByteArray field(const char *name) const { return fields.value(name); }
};

/// The head of a request; nothing while the blank line behind it is missing.
std::optional<RequestHead> parseHead(const QByteArray &bytes);
/// The same for a request that has no blank line, and no body therefore.
RequestHead parseBareHead(const QByteArray &bytes);

/// A whole request in the form that the handlers read: the line, and the body behind a "Content-Length" in their
/// spelling and unit. A client that announces bytes and one that announces UTF-16 units both get their body taken.
QString plainRequest(const RequestHead &head, const QByteArray &bytes);

} // namespace bp
