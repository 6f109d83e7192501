#include "common/BPCommon.h"

#include "base/GlobalConsole.h"

#include <QDateTime>
#include <QMetaEnum>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::array<const char *, 9> kStateColors{"#CCC", "#C30", "#3C0", "#03C", "#CC0",
                                                   "#F0F", "#0CF", "#F80", "#F68"};
constexpr std::array<const char *, 8> kChannelTypeTexts{"EEG", "ECG", "EMG", "EOG", "Resp", "GSR", "PPG", "Temp"};

template <std::size_t N> QString textAt(const std::array<const char *, N> &texts, int index)
{
    return index >= 0 && index < static_cast<int>(N) ? QString::fromLatin1(texts[static_cast<std::size_t>(index)])
                                                     : QString();
}

/// Widths and precisions beyond this are a mistake in the format.
constexpr int kMostCharacters = 256;

/// Reads a number of at most three digits' meaning; −1 when there is none.
int takeNumber(const QString &format, int &position)
{
    int number = -1;
    for (; position < format.size() && format[position] >= QLatin1Char('0') && format[position] <= QLatin1Char('9');
         ++position) {
        number = std::min(std::max(number, 0) * 10 + format[position].digitValue(), kMostCharacters);
    }
    return number;
}

bool takeOne(const QString &format, int &position, char character)
{
    const bool isThere = position < format.size() && format[position] == QLatin1Char(character);
    position += isThere ? 1 : 0;
    return isThere;
}

} // namespace

std::array<std::atomic<bool>, BPCommon::kLogEventCount> BPCommon::s_enabled{
    true, true, true, true, true, true, true, true, true, true, true, true, true, true, true};
std::atomic<qint64> BPCommon::s_count{0};

BPCommon *BPCommon::Instance()
{
    static BPCommon instance;
    return &instance;
}

void BPCommon::log(const QString &source, const QString &message)
{
    s_count.fetch_add(1, std::memory_order_relaxed);
    GlobalConsole::writeItem(source, message, QDateTime::currentDateTime());
}

void BPCommon::setLogMode(LogEvent event, bool enabled)
{
    if (event >= 0 && event < kLogEventCount) {
        s_enabled[static_cast<std::size_t>(event)].store(enabled, std::memory_order_relaxed);
    }
}

QString BPCommon::logEventName(LogEvent event)
{
    return QString::fromLatin1(QMetaEnum::fromType<LogEvent>().valueToKey(event));
}

qint64 BPCommon::logCount()
{
    return s_count.load(std::memory_order_relaxed);
}

QString BPCommon::psychoStateColor(int state)
{
    return textAt(kStateColors, state);
}

QString BPCommon::channelTypeText(ChannelType type)
{
    return textAt(kChannelTypeTexts, type);
}

/// One conversion of a format, from its "%" to its letter.
struct BPCommon::LogConversion
{
    static constexpr int kFromArgument = -2;

    /// @param position of the "%"; moves behind the conversion
    /// @return false, and nothing moves, when this is no conversion
    bool parse(const QString &format, int &position)
    {
        int at = position + 1;
        for (; at < format.size() && QStringLiteral("-+ #0").contains(format[at]); ++at) {
            flags += format[at];
        }
        width = takeOne(format, at, '*') ? kFromArgument : takeNumber(format, at);
        if (takeOne(format, at, '.')) {
            precision = takeOne(format, at, '*') ? kFromArgument : std::max(takeNumber(format, at), 0);
        }
        for (; at < format.size() && QStringLiteral("hljztL").contains(format[at]); ++at) {
            halves += format[at] == QLatin1Char('h') ? 1 : 0;
        }
        if (at >= format.size()
            || !(format[at].toLower() >= QLatin1Char('a') && format[at].toLower() <= QLatin1Char('z'))) {
            return false;
        }
        letter = format[at].toLatin1();
        position = at + 1;
        return true;
    }
    bool isOneOf(const char *letters) const { return letter != 0 && std::strchr(letters, letter) != nullptr; }
    QString padded(const QString &text) const
    {
        const bool left = flags.contains(QLatin1Char('-'));
        return left ? text.leftJustified(width) : text.rightJustified(std::max(width, 0));
    }
    /// As printf writes it, in the C locale: whatever stands for the decimal point becomes one.
    /// @param without flags that the conversion does not have
    template <class Value> QString printed(const char *as, const char *without, Value value) const
    {
        QByteArray format("%");
        for (const QChar flag : flags) {
            format += std::strchr(without, flag.toLatin1()) == nullptr ? QByteArray(1, flag.toLatin1()) : QByteArray();
        }
        format += width > 0 ? QByteArray::number(width) : QByteArray();
        format += precision >= 0 ? '.' + QByteArray::number(precision) : QByteArray();
        char text[4 * kMostCharacters]; // 309 digits before the point, and the most behind it
        std::snprintf(text, sizeof text, (format + as).constData(), value);
        QString line;
        for (const char *c = text; *c != 0; ++c) {
            const bool isPoint = std::strchr("+- ", *c) == nullptr && !std::isalnum(static_cast<unsigned char>(*c));
            if (!isPoint || !line.endsWith(QLatin1Char('.'))) {
                line += QLatin1Char(isPoint ? '.' : *c);
            }
        }
        return line;
    }

    QString flags;
    int width = -1; ///< −1: none
    int precision = -1;
    int halves = 0; ///< how many "h"
    char letter = 0;
};

QString BPCommon::renderWhole(const LogConversion &conversion, const LogArgument &argument)
{
    const int bytes = conversion.halves > 1 ? 1 : conversion.halves == 1 ? std::min(argument.bytes, 2) : argument.bytes;
    const int unused = 64 - 8 * std::clamp(bytes, 1, 8);
    const quint64 bits = (static_cast<quint64>(argument.integer) << unused) >> unused;
    if (conversion.letter == 'c' && bits <= 0xFF) {
        return conversion.padded(QString(QLatin1Char(static_cast<char>(bits))));
    }
    if (conversion.isOneOf("xXo")) {
        const char as[]{'l', 'l', conversion.letter, '\0'};
        return conversion.printed(as, "+ ", static_cast<unsigned long long>(bits));
    }
    if (argument.kind == LogArgument::Signed) {
        const bool isNegative = (bits >> (63 - unused)) != 0;
        const quint64 extended = isNegative ? bits | ~(~quint64{0} >> unused) : bits;
        return conversion.printed("lld", "#", static_cast<long long>(extended));
    }
    return conversion.printed("llu", "+ #", static_cast<unsigned long long>(bits));
}

QString BPCommon::renderReal(const LogConversion &conversion, double value)
{
    const char own[]{conversion.letter, '\0'};
    const char *fallback = conversion.precision >= 0 ? "f" : "g";
    return conversion.printed(conversion.isOneOf("eEfFgG") ? own : fallback, "", value);
}

QString BPCommon::render(LogConversion conversion, const LogArgument &argument)
{
    switch (argument.kind) {
    case LogArgument::Signed:
    case LogArgument::Unsigned:
        return renderWhole(conversion, argument);
    case LogArgument::Real:
        return renderReal(conversion, argument.real);
    case LogArgument::Pointer:
        conversion.letter = 'x';
        conversion.flags += QLatin1Char('#');
        return renderWhole(conversion, argument);
    case LogArgument::Text:
        break;
    }
    const bool isCut = conversion.letter == 's' && conversion.precision >= 0;
    QString text = isCut ? argument.text.left(conversion.precision) : argument.text;
    if (isCut && !text.isEmpty() && text.at(text.size() - 1).isHighSurrogate()) {
        text.chop(1);
    }
    return conversion.padded(text);
}

void BPCommon::writeFormatted(LogEvent event, const char *format, const LogArgument *arguments, int count)
{
    const QString pattern = QString::fromUtf8(format);
    QString line;
    int used = 0;
    const auto takeStar = [&](int &value) {
        if (value == LogConversion::kFromArgument && used < count) {
            const bool isWhole = arguments[used].kind <= LogArgument::Unsigned;
            value = isWhole
                ? static_cast<int>(std::clamp<qint64>(arguments[used].integer, -kMostCharacters, kMostCharacters))
                : -1;
            ++used;
        }
    };
    for (int position = 0; position < pattern.size();) {
        const int start = position;
        LogConversion conversion;
        if (pattern[start] != QLatin1Char('%')) {
            const int next = pattern.indexOf(QLatin1Char('%'), start);
            position = next < 0 ? pattern.size() : next;
            line += pattern.midRef(start, position - start);
        } else if (++position; takeOne(pattern, position, '%')) {
            line += QLatin1Char('%');
        } else if (position = start; !conversion.parse(pattern, position)) {
            line += pattern[position++];
        } else {
            takeStar(conversion.width);
            takeStar(conversion.precision);
            if (conversion.width < -1) { // a negative width from an argument is the flag "-"
                conversion.flags += QLatin1Char('-');
                conversion.width = -conversion.width;
            }
            line += used < count ? render(conversion, arguments[used++]) : pattern.mid(start, position - start);
        }
    }
    log(logEventName(event), line);
}
