#pragma once

namespace bp {

/// Upper bound of the characters of one number.
constexpr int kMaxNumberLength = 32;

/// Writes a sample truncated toward zero to two decimals, in the same form as Qt's JSON writer; "null" when it is not
/// finite.
/// @return behind the last character
char *writeTruncated(char *out, float sample);

/// Writes a spectrum value with three decimals; a value below 0 or above 10000 and NaN become 0.
/// @return behind the last character
char *writeThreeDecimals(char *out, float value);

} // namespace bp
