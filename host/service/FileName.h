#pragma once

#include <QString>

/// File names from any text, also one that came over the network.
namespace FileName {

/// Letters without case, digits, '-' and '_' stay, every other byte of the UTF-8 text becomes %XX: upper-case letters
/// too, so that two texts differ where the file system ignores case. A text that is a device name of some system
/// ("con") is changed as well. Different texts give different names; an empty one gives an empty name.
QString encoded(const QString &text);

/// For a reader, and not unique: what is no letter, digit or '-' becomes '_'.
QString readable(const QString &text);

} // namespace FileName
