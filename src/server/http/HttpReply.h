#pragma once

#include "server/ProcessRequest.h"

#include <QByteArray>
#include <QString>

class QTcpSocket;

namespace bp {

/// A success of the command service.
QByteArray successReply(const QString &body, LengthIn unit = LengthIn::Utf16Units);
/// The same for a body of ASCII only, whose length is the same in every unit.
QByteArray successReplyAscii(const QByteArray &body);

/// An error. A message that does not begin with "{" is wrapped as {"error":"message"}, without escaping.
QByteArray errorReply(const QString &messageOrJson, LengthIn unit = LengthIn::Utf16Units);

/// What a browser is told that asks whether a page may send a request: that it may.
QByteArray preflightReply();

/// Writes an answer and asks the socket to disconnect. Nothing waits: whoever has not taken its answer after 30 s loses
/// the connection. A socket that is gone is left alone.
void sendAndClose(QTcpSocket *client, const QByteArray &bytes);

} // namespace bp
