#include "server/ParamLimits.h"

#include "algorithms/UnitParams.h"

#include <QJsonValue>

#include <cmath>

namespace bp {

namespace {

/// Whether the number lies below the lower or above the upper limit; a limit that is no number is none.
bool isBeyond(double number, const QString &minimum, const QString &maximum)
{
    bool hasMinimum = false;
    bool hasMaximum = false;
    const double lower = minimum.toDouble(&hasMinimum);
    const double upper = maximum.toDouble(&hasMaximum);
    return (hasMinimum && number < lower) || (hasMaximum && number > upper);
}

QString describe(const custom_param &param)
{
    if (param.controlType == custom_param::ControlCheckBox) {
        return QStringLiteral("0 or 1");
    }
    if (param.controlType == custom_param::ControlChoice) {
        return QStringLiteral("the number of a choice from 0 to %1").arg(param.choices.count(QLatin1Char(';')));
    }
    return param.minimum.isEmpty() ? QStringLiteral("a number")
                                   : QStringLiteral("a number from %1 to %2").arg(param.minimum, param.maximum);
}

} // namespace

bool isWithinLimits(const custom_param &param, const QString &value)
{
    if (value.isEmpty()) {
        return true;
    }
    bool isNumber = false;
    const double number = value.toDouble(&isNumber);
    if (!isNumber) {
        return param.valueType == custom_param::ValueText;
    }
    const bool isWhole = number == std::floor(number);
    switch (param.controlType) {
    case custom_param::ControlCheckBox:
        return number == 0.0 || number == 1.0;
    case custom_param::ControlChoice:
        return isWhole && number >= 0.0 && number <= param.choices.count(QLatin1Char(';'));
    default:
        const bool isText = param.valueType == custom_param::ValueText; // a channel may be called "nan"
        const bool isOfType =
            isText || (std::isfinite(number) && (isWhole || param.valueType != custom_param::ValueInteger));
        return isOfType && !isBeyond(number, param.minimum, param.maximum);
    }
}

QString limitRefusal(const UnitParams &params, const UnitParams &before)
{
    for (const custom_param &param : params.getParamList()) {
        const bool isNew = !before.contain(param.key) || before.getParamValue(param.key) != param.getValue();
        if (isNew && !isWithinLimits(param, param.currentValue)) {
            return QStringLiteral("The parameter %1 takes %2").arg(param.key, describe(param));
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
