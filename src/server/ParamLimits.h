#pragma once

#include "common/BPExport.h"

#include <QJsonArray>
#include <QString>
#include <QStringList>

class UnitParams;

namespace bp {

/// One sentence on the first value that is not what its parameter takes; empty when all are. Values that are as before
/// count as good.
BIOPROCESSING_EXPORT QString limitRefusal(const UnitParams &params, const UnitParams &before);

/// The keys of a list of values ("description" and "curr_val") that the set lacks.
BIOPROCESSING_EXPORT QStringList unknownKeys(const UnitParams &params, const QJsonArray &values);

} // namespace bp
