#include "DeviceParameters.h"

#include <algorithm>

namespace DeviceParameters {

namespace {

struct ControlKind
{
    custom_param::CONTROL_TYPE control;
    custom_param::TYPE_VAL value;
};

/// By Control.
constexpr ControlKind kKinds[]{{custom_param::ControlReal, custom_param::ValueReal},
                               {custom_param::ControlInteger, custom_param::ValueInteger},
                               {custom_param::ControlChoice, custom_param::ValueInteger},
                               {custom_param::ControlCheckBox, custom_param::ValueInteger}};

} // namespace

void append(UnitParams &params, const Description &description)
{
    custom_param param;
    param.controlType = kKinds[description.control].control;
    param.valueType = kKinds[description.control].value;
    param.key = QLatin1String(description.key);
    param.label = QString::fromUtf8(description.label);
    param.choices = QLatin1String(description.choices);
    param.defaultValue = QLatin1String(description.standard);
    param.minimum = QLatin1String(description.minimum);
    param.maximum = QLatin1String(description.maximum);
    param.step = QLatin1String(description.step);
    params.push_back(param);
}

void appendInformation(UnitParams &params, const char *key, const char *label, const QString &value)
{
    custom_param param;
    param.group = custom_param::GroupInformation;
    param.editType = custom_param::EditSelection;
    param.key = QLatin1String(key);
    param.label = QString::fromUtf8(label);
    param.defaultValue = value;
    params.push_back(param);
}

double number(const UnitParams &params, const Description &description)
{
    const auto toNumber = [](const char *text) { return QByteArray(text).toDouble(); };
    bool isNumber = false;
    const double value = params[QLatin1String(description.key)].toDouble(&isNumber);
    if (!isNumber || !(value == value)) {
        return toNumber(description.standard);
    }
    return std::clamp(value, toNumber(description.minimum), toNumber(description.maximum));
}

} // namespace DeviceParameters
