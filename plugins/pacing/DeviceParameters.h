#pragma once

#include "algorithms/UnitParams.h"

#include <QLatin1String>

#include <cstddef>

/// How a device offers its parameters to the user, and how it reads them back.
namespace DeviceParameters {

enum Control { Real, Integer, Choice, CheckBox, Text };

/// One editable parameter; texts as custom_param carries them.
struct Description
{
    const char *key;
    const char *label;
    Control control;
    const char *standard; ///< default value
    const char *minimum;
    const char *maximum;
    const char *step;
    const char *choices; ///< ";"-separated, for a Choice only
};

/// A parameter that the device fills in for reading.
constexpr Description information(const char *key, const char *label)
{
    return {key, label, Text, "", "", "", "", ""};
}

void append(UnitParams &params, const Description &description, bool editable);

template <std::size_t N> void appendAll(UnitParams &params, const Description (&table)[N])
{
    for (const Description &description : table) {
        append(params, description, true);
    }
}

/// The value within the limits the parameter was described with, its default when it isn't a number.
double number(const UnitParams &params, const Description &description);

} // namespace DeviceParameters
