#pragma once

#include "common/BPExport.h"

#include <QJsonArray>
#include <QString>
#include <QStringList>

class UnitParams;
struct custom_param;

namespace bp {

/// Whether the value is what the parameter takes: a number within its limits, the index of one of its choices, "0" or
/// "1" for a flag. An empty value brings the default back. Texts are not looked into.
BIOPROCESSING_EXPORT bool isWithinLimits(const custom_param &param, const QString &value);

/// One sentence on the first value that is not what its parameter takes; empty when all are. Values that are as before
/// count as good.
BIOPROCESSING_EXPORT QString limitRefusal(const UnitParams &params, const UnitParams &before);

/// The keys of a list of values ("description" and "curr_val") that the set lacks.
BIOPROCESSING_EXPORT QStringList unknownKeys(const UnitParams &params, const QJsonArray &values);

} // namespace bp
