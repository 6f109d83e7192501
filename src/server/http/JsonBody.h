#pragma once

#include <QJsonObject>
#include <QString>

namespace bp {

/// No body is nested more deeply.
constexpr int kMaxJsonDepth = 256;

/// The top-level object of a JSON text (RFC 8259); empty for anything else. Numbers beyond the range of a double make
/// no JSON text here; of members with the same name the last one counts.
///
/// Does not go through Qt's parser, which loses memory with each malformed text, and with containers under a name that
/// occurs twice: whoever talks to the service could fill it up.
QJsonObject jsonObject(const QString &text);

} // namespace bp
