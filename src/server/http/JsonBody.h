#pragma once

#include <QJsonObject>
#include <QString>

namespace bp {

/// Deepest nesting of a body.
constexpr int kMaxJsonDepth = 256;

/// The top-level object of a JSON text (RFC 8259); empty for anything else. A text with a number beyond the range of a
/// double counts as malformed. Of members with the same name the last one counts.
///
/// Why not QJsonDocument: its parser (Qt 5.15) leaks memory when a name occurs twice and has an array or an object as
/// its value, so a client could fill the memory. A check that finds such names first would be most of this reader.
QJsonObject jsonObject(const QString &text);

} // namespace bp
