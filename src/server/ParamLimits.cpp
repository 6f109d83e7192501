#include "server/ParamLimits.h"

#include "algorithms/UnitParams.h"

#include <QJsonValue>

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

QString limitRefusal(const UnitParams &params, const UnitParams &before)
{
    for (const custom_param &param : params.getParamList()) {
        const QString problem = before.problemOf(param.key, param.currentValue);
        if (!problem.isEmpty()) {
            return plain(problem);
        }
    }
    return {};
}

QStringList unknownKeys(const UnitParams &params, const QJsonArray &values)
{
    QStringList unknown;
    for (const QJsonValue &entry : values) {
        const QString key = entry[QLatin1String("description")].toString();
        if (!params.contain(key)) {
            unknown << key;
        }
    }
    return unknown;
}

} // namespace bp
