#pragma once

#include "common/BPExport.h"

#include <QJsonArray>
#include <QString>

class UnitParams;

namespace bp {

/// One sentence on the first of the values ("description" and "curr_val") that the set lacks or does not take, in the
/// form of an error of the service; empty when all are good.
BIOPROCESSING_EXPORT QString valuesProblem(const UnitParams &params, const QJsonArray &values);

} // namespace bp
