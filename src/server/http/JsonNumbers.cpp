#include "server/http/JsonNumbers.h"

#include <QByteArray>
#include <QLocale>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace bp {

namespace {

constexpr float kMaxSpectrum = 10000.0f;
/// From here on floats are whole numbers. Qt's writer shows them without an exponent as long as they fit an integer.
constexpr double kMinWhole = 1e10;
constexpr double kMaxInteger = 9223372036854775808.0;

template <class Integer> char *writeInteger(char *out, Integer value)
{
    return std::to_chars(out, out + kMaxNumberLength, value).ptr;
}

char digit(qint64 value)
{
    return static_cast<char>('0' + value);
}

char *writeText(char *out, const char *text, int length)
{
    return std::copy_n(text, std::min(length, kMaxNumberLength), out);
}

} // namespace

char *writeTruncated(char *out, float sample)
{
    if (!std::isfinite(sample)) {
        return writeText(out, "null", 4);
    }
    const double shown = static_cast<double>(sample);
    if (std::abs(shown) >= kMaxInteger) {
        const QByteArray text = QByteArray::number(shown, 'g', QLocale::FloatingPointShortest);
        return writeText(out, text.constData(), text.size());
    }
    if (std::abs(shown) >= kMinWhole) {
        return writeInteger(out, static_cast<qint64>(shown));
    }
    const auto hundredths = static_cast<qint64>(shown * 100.0);
    const qint64 size = hundredths < 0 ? -hundredths : hundredths;
    if (hundredths < 0) {
        *out++ = '-';
    }
    out = writeInteger(out, size / 100);
    if (size % 100 != 0) {
        *out++ = '.';
        *out++ = digit(size / 10 % 10);
        if (size % 10 != 0) {
            *out++ = digit(size % 10);
        }
    }
    return out;
}

char *writeThreeDecimals(char *out, float value)
{
    const float shown = value > 0.0f && value <= kMaxSpectrum ? value : 0.0f;
    // A float times 1000 is exact in double, and so is the rounding.
    const auto thousandths = static_cast<quint32>(static_cast<double>(shown) * 1000.0 + 0.5);
    const quint32 fraction = thousandths % 1000;
    out = writeInteger(out, thousandths / 1000);
    *out++ = '.';
    *out++ = digit(fraction / 100);
    *out++ = digit(fraction / 10 % 10);
    *out++ = digit(fraction % 10);
    return out;
}

} // namespace bp
