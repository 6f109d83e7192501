#include "server/JsonNumbers.h"

#include <QLocale>

#include <array>
#include <charconv>
#include <cmath>

namespace bp {

namespace {

constexpr float kMaxSpectrum = 10000.0f;
/// Above, Qt's writer may choose the exponent form.
constexpr double kMaxPlainHundredths = 1e12;

void appendInteger(QByteArray &json, qint64 value)
{
    std::array<char, 24> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    json.append(text.data(), static_cast<int>(end - text.data()));
}

void appendDigit(QByteArray &json, qint64 digit)
{
    json.append(static_cast<char>('0' + digit));
}

} // namespace

void appendTruncated(QByteArray &json, float sample)
{
    if (!std::isfinite(sample)) {
        json.append("null", 4);
        return;
    }
    const double hundredths = std::trunc(static_cast<double>(sample) * 100.0);
    if (std::abs(hundredths) >= kMaxPlainHundredths) {
        json.append(QByteArray::number(hundredths / 100.0, 'g', QLocale::FloatingPointShortest));
        return;
    }
    const auto value = static_cast<qint64>(hundredths);
    const qint64 size = value < 0 ? -value : value;
    if (value < 0) {
        json.append('-');
    }
    appendInteger(json, size / 100);
    if (size % 100 != 0) {
        json.append('.');
        appendDigit(json, size / 10 % 10);
        if (size % 10 != 0) {
            appendDigit(json, size % 10);
        }
    }
}

void appendThreeDecimals(QByteArray &json, float value)
{
    const float shown = value > 0.0f && value <= kMaxSpectrum ? value : 0.0f;
    // A float times 1000 is exact in double, and so is the rounding.
    const auto thousandths = static_cast<qint64>(static_cast<double>(shown) * 1000.0 + 0.5);
    appendInteger(json, thousandths / 1000);
    json.append('.');
    appendDigit(json, thousandths / 100 % 10);
    appendDigit(json, thousandths / 10 % 10);
    appendDigit(json, thousandths % 10);
}

} // namespace bp
