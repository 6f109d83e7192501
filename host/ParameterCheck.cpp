#include "ParameterCheck.h"

#include "Refusal.h"
#include "algorithms/UnitParams.h"

#include <algorithm>
#include <cmath>

namespace {

QStringList choicesOf(const custom_param &param)
{
    return param.choices.split(QLatin1Char(';'), Qt::SkipEmptyParts);
}

bool isWithin(const custom_param &param, double number)
{
    return std::isfinite(number) && (param.minimum.isEmpty() || number >= param.minimum.toDouble())
        && (param.maximum.isEmpty() || number <= param.maximum.toDouble());
}

} // namespace

QString ParameterCheck::expected(const custom_param &param, const QStringList &channels)
{
    const auto limited = [&param](const QString &what) {
        return param.minimum.isEmpty() ? what
                                       : QStringLiteral("%1 from %2 to %3").arg(what, param.minimum, param.maximum);
    };
    switch (param.controlType) {
    case custom_param::ControlReal:
        return limited(QStringLiteral("a number"));
    case custom_param::ControlInteger:
        return limited(QStringLiteral("a whole number"));
    case custom_param::ControlCheckBox:
        return QStringLiteral("0 or 1");
    case custom_param::ControlChoice: {
        QStringList numbered;
        for (const QString &text : choicesOf(param)) {
            numbered << QStringLiteral("%1 (%2)").arg(numbered.size()).arg(text);
        }
        return numbered.join(QStringLiteral(", "));
    }
    case custom_param::ControlChannels:
        return QStringLiteral("channels separated by \";\" of these: %1").arg(channels.join(QStringLiteral(", ")));
    case custom_param::ControlColor:
    case custom_param::ControlText:
        break;
    }
    return QStringLiteral("a text");
}

bool ParameterCheck::isFit(const custom_param &param, const QString &value, const QStringList &channels)
{
    bool isNumber = false;
    const double number = value.toDouble(&isNumber);
    switch (param.controlType) {
    case custom_param::ControlReal:
        return isNumber && isWithin(param, number);
    case custom_param::ControlInteger:
        return isNumber && isWithin(param, number) && number == std::floor(number);
    case custom_param::ControlCheckBox:
        return value == QLatin1String("0") || value == QLatin1String("1");
    case custom_param::ControlChoice:
        return isNumber && number >= 0.0 && number < choicesOf(param).size() && number == std::floor(number);
    case custom_param::ControlChannels: {
        const QStringList names = value.split(QLatin1Char(';'), Qt::SkipEmptyParts);
        return std::all_of(names.begin(), names.end(),
                           [&channels](const QString &name) { return channels.contains(name); });
    }
    case custom_param::ControlColor:
    case custom_param::ControlText:
        break;
    }
    return true;
}

void ParameterCheck::assign(UnitParams &params, const QString &key, const QString &value, const QString &origin,
                            const QStringList &channels, bool onlyEditable)
{
    QStringList keys;
    for (const custom_param &param : params.getParamList()) {
        if (onlyEditable && !param.isEditable()) {
            continue;
        }
        if (param.key != key) {
            keys << param.key;
            continue;
        }
        // An empty value is the default.
        if (!value.isEmpty() && !isFit(param, value, channels)) {
            refuseUsage(
                QStringLiteral("%1: %2 takes %3, not \"%4\".").arg(origin, key, expected(param, channels), value));
        }
        params.setParamValue(key, value);
        return;
    }
    refuseUsage(
        QStringLiteral("%1: there is no parameter \"%2\", only %3.").arg(origin, key, keys.join(QStringLiteral(", "))));
}
