#pragma once

#include <QString>
#include <QStringList>

class UnitParams;

/// Whether values fit the parameters that they are for, of an algorithm or a device.
namespace ParameterCheck {

/// Takes a value over. Throws a Refusal for an unknown key, one that cannot be set and a value that does not fit, with
/// what there is.
/// @param origin        where it comes from: "--set" or the name of a file
/// @param channels      names that there are, for a selection of channels
/// @param onlyEditable  there is nothing but what a user edits; a device has texts that it only shows
void assign(UnitParams &params, const QString &key, const QString &value, const QString &origin,
            const QStringList &channels = {}, bool onlyEditable = false);

} // namespace ParameterCheck
