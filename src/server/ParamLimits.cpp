#include "server/ParamLimits.h"

#include "algorithms/UnitParams.h"

#include <QJsonObject>

#include <algorithm>

namespace bp {

namespace {

/// Answers hold texts as they are: without what JSON would escape, and without the full stop.
QString plain(QString sentence)
{
    const auto isEscaped = [](QChar c) {
        return c < QLatin1Char(' ') || c == QLatin1Char('"') || c == QLatin1Char('\\');
    };
    sentence.chop(1);
    sentence.resize(static_cast<int>(std::remove_if(sentence.begin(), sentence.end(), isEscaped) - sentence.begin()));
    return sentence;
}

} // namespace

QString valuesProblem(const UnitParams &params, const QJsonArray &values)
{
    const QString problem = params.problemOf(QJsonObject{{QStringLiteral("data"), values}});
    return problem.isEmpty() ? problem : plain(problem);
}

} // namespace bp
