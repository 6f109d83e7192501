#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

namespace bp {

/// The head of a request. Names of header fields are compared without case.
struct RequestHead
{
    QByteArray line; ///< the request line
    int size = 0; ///< bytes up to the body
    qint64 bodySize = 0; ///< as announced; 0 when it is missing or not a number
    QHash<QByteArray, QByteArray> fields; ///< by lower-case name; the first of equal names

    QByteArray field(const char *name) const { return fields.value(name); }
};

/// The head of a request; std::nullopt while the blank line behind it is missing.
std::optional<RequestHead> parseHead(const QByteArray &bytes);
/// The same for a request without a blank line, which has no body.
RequestHead parseBareHead(const QByteArray &bytes);

/// A whole request in the form that the handlers read: the request line, and the body behind a "Content-Length" in
/// UTF-16 units. The body is complete for clients that announce bytes and for those that announce UTF-16 units.
QString plainRequest(const RequestHead &head, const QByteArray &bytes);

} // namespace bp
