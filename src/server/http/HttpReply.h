#pragma once

#include "server/ProcessRequest.h"

#include <QByteArray>
#include <QString>

class QTcpSocket;

namespace bp {

/// A success of the command service.
///
/// Compatibility: clients in the field compare every byte of the answers. See LengthIn for the announced length.
QByteArray successReply(const QString &body, LengthIn unit = LengthIn::Utf16Units);
/// The same for a body of ASCII only, whose length is the same in every unit.
QByteArray successReplyAscii(const QByteArray &body);

/// An error. A message that does not begin with "{" is wrapped as {"error":"message"}, without escaping.
QByteArray errorReply(const QString &messageOrJson, LengthIn unit = LengthIn::Utf16Units);

/// The answer to a browser that asks whether a page may send a request: it may.
QByteArray preflightReply();

/// Writes an answer and asks the socket to disconnect. Does not wait: a client that has not received its answer after
/// 30 s loses the connection. Null and closed sockets are ignored.
void sendAndClose(QTcpSocket *client, const QByteArray &bytes);

} // namespace bp
