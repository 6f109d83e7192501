#pragma once

#include "algorithms/UnitParams.h"

#include <QSharedPointer>

#include <vector>

class Montage;
class QCommandLineParser;

/// The algorithms that a command line asks for: --rhythms, --heart-rate and --algorithms.
namespace AlgorithmChoice {

void addOptions(QCommandLineParser &parser);
/// Throws a Refusal that names the option which is wrong.
std::vector<UnitParams> parse(const QCommandLineParser &parser, const Montage &montage);

} // namespace AlgorithmChoice
