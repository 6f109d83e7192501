#include "acquire/ParameterCheck.h"

#include "algorithms/UnitParams.h"
#include "commands/Refusal.h"

namespace {

QStringList keysOf(const UnitParams &params, bool onlyEditable)
{
    QStringList keys;
    for (const custom_param &param : params.getParamList()) {
        if (param.isEditable() || !onlyEditable) {
            keys << param.key;
        }
    }
    return keys;
}

/// What is wrong with a list of channels, as one sentence; empty when nothing is.
QString channelProblem(const UnitParams &params, const QString &key, const QString &value, const QStringList &channels)
{
    for (const custom_param &param : params.getParamList()) {
        const bool isList = param.key == key && param.controlType == custom_param::ControlChannels;
        const QStringList names = isList ? value.split(QLatin1Char(';'), Qt::SkipEmptyParts) : QStringList();
        for (const QString &name : names) {
            if (!channels.contains(name)) {
                return QStringLiteral("\"%1\" has to be channels separated by \";\" of %2, not \"%3\".")
                    .arg(key, channels.join(QStringLiteral(", ")), name);
            }
        }
    }
    return {};
}

} // namespace

void ParameterCheck::assign(UnitParams &params, const QString &key, const QString &value, const QString &origin,
                            const QStringList &channels, bool onlyEditable)
{
    const QStringList keys = keysOf(params, onlyEditable);
    if (!keys.contains(key)) {
        refuseUsage(QStringLiteral("%1: there is no parameter \"%2\", only %3.")
                        .arg(origin, key, keys.join(QStringLiteral(", "))));
    }
    QString problem = params.problemOf(key, value);
    if (problem.isEmpty()) {
        problem = channelProblem(params, key, value, channels);
    }
    if (!problem.isEmpty()) {
        refuseUsage(QStringLiteral("%1: %2").arg(origin, problem));
    }
    params.setParamValue(key, value);
}
