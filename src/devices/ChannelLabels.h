#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"

#include <QString>

namespace bp {

/// Guesses the signal type from a label in the manner of EDF ("ECG MLII", "Resp oro-nasal", "SaO2 X9").
///
/// Whole words decide, never parts of electrode names: "T3" and "Temporal" are EEG, "Temp rectal" is a temperature.
/// EEG when nothing else is recognised.
BIOPROCESSING_EXPORT BPCommon::ChannelType channelTypeFromLabel(const QString &label);

} // namespace bp
