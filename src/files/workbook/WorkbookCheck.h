#pragma once

#include "common/detail/Outcome.h"

#include <QByteArray>

namespace bp {

constexpr qint64 kMaxWorkbookBytes = qint64{64} * 1024 * 1024; ///< packed; a rhythm spreadsheet has 0.7 MB per hour

/// Whether a workbook can be handed to the spreadsheet library, which trusts what it reads: an archive in one piece
/// whose parts really have the sizes and checksums that they claim, XML that is well-formed, and numbers of sheets,
/// columns and cells that fit in memory.
Outcome checkWorkbook(const QByteArray &workbook);

} // namespace bp
