#pragma once

#include "common/BPExport.h"

#include <QByteArray>

namespace bp {

/// Appends a sample truncated toward zero to two decimals, in the same form as Qt's JSON writer; "null" when it is not
/// finite.
BIOPROCESSING_EXPORT void appendTruncated(QByteArray &json, float sample);

/// Appends a spectrum value between 0 and 10000 with three decimals; what lies below counts as 0, and so does what lies
/// above or is no number.
BIOPROCESSING_EXPORT void appendThreeDecimals(QByteArray &json, float value);

} // namespace bp
