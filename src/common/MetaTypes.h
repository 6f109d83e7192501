#pragma once

#include "common/BPExport.h"

#include <QMetaType>

#include <vector>

// Published signatures carry the unqualified name ("newData(vector<float>,int)"): hosts connect by that string.
using std::vector;

namespace bp {

/// Registers the vector types under the names that the published signatures carry. Safe to call from any thread,
/// any number of times; every class that sends vectors across threads calls it when constructed.
BIOPROCESSING_EXPORT void registerMetaTypes();

} // namespace bp
