#pragma once

#include "common/BPExport.h"

#include <QJsonObject>
#include <QString>

namespace bp {

/// No body is nested more deeply.
constexpr int kMaxJsonDepth = 256;

/// The top-level object of a JSON text (RFC 8259); empty for anything else.
///
/// The syntax is checked before Qt's parser sees it, which loses memory with each malformed text: whoever talks to the
/// service could fill it up.
BIOPROCESSING_EXPORT QJsonObject jsonObject(const QString &text);

} // namespace bp
