#pragma once

namespace bp {

/// Room that one number takes at most.
constexpr int kMaxNumberLength = 32;

/// Writes a sample truncated toward zero to two decimals, in the same form as Qt's JSON writer; "null" when it is not
/// finite.
/// @return behind the last character
char *writeTruncated(char *out, float sample);

/// Writes a spectrum value between 0 and 10000 with three decimals; what lies below counts as 0, and so does what lies
/// above or is no number.
/// @return behind the last character
char *writeThreeDecimals(char *out, float value);

} // namespace bp
