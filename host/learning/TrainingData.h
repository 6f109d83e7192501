#pragma once

#include "bci/LearningPair.h"
#include "learning/Windows.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <vector>

class QCommandLineParser;

/// Labelled recordings as a command line names them: --data FILE:LABEL …, or --data FILE --events A,B --from --to.
struct TrainingData
{
    std::vector<Recording> recordings;
    std::vector<Segment> segments;
    QMap<int, QString> classes; ///< label → name
    int rate = 0; ///< Hz

    static void addOptions(QCommandLineParser &parser);
    /// @param highPass  Hz, see Recording::highPass(). Throws a Refusal.
    static TrainingData read(const QCommandLineParser &parser, double highPass);

    /// Labels the stretches around the events of these names. Throws a Refusal when there are none.
    void addTrials(std::size_t recording, const QStringList &names, double from, double to);
};

/// Helpers for numbers on the command line; they throw a Refusal that names the option.
namespace Option {

double number(const QCommandLineParser &parser, const char *name, double least, double most);
int integer(const QCommandLineParser &parser, const char *name, int least, int most);
/// "4-8,8-13" as pairs.
std::vector<QPair<float, float>> bands(const QCommandLineParser &parser, const char *name);

} // namespace Option
