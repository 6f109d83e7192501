#pragma once

#include "common/BPExport.h"

#include <QString>

#include <vector>

namespace bp {

/// Reads a text file of numbers in columns separated by tabs or blanks: one row per sample, one column per channel.
///
/// Lines that begin with '#' and empty lines are skipped; so is one line of column titles ahead of the first row. The
/// decimal sign is a point. Anything else among the numbers, a row of another length, and a value that is not finite
/// are refused.
/// @param columns  one vector per column, all of the same length; unchanged when the file is refused
/// @param error    one sentence with file name and line number; set only when the file is refused
BIOPROCESSING_EXPORT bool readTextTable(const QString &path, std::vector<std::vector<double>> &columns, QString &error);

} // namespace bp
