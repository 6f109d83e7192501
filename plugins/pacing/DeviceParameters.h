#pragma once

#include "algorithms/UnitParams.h"

#include <QString>

#include <cstddef>

/// How a device offers its parameters to the user, and how it reads them back.
namespace DeviceParameters {

enum Control { Real, Integer, Choice, CheckBox };

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

void append(UnitParams &params, const Description &description);

/// A text that the device shows, and that restoring defaults keeps. In the group of what cannot be set.
void appendInformation(UnitParams &params, const char *key, const char *label, const QString &value);

template <std::size_t N> void appendAll(UnitParams &params, const Description (&table)[N])
{
    for (const Description &description : table) {
        append(params, description);
    }
}

/// The value within the limits the parameter was described with, its default when it isn't a number.
double number(const UnitParams &params, const Description &description);

} // namespace DeviceParameters
