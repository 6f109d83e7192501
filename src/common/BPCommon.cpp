#include "common/BPCommon.h"

#include "base/GlobalConsole.h"

#include <QDateTime>
#include <QMetaEnum>
#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr std::array<const char *, 9> kStateColors{"#CCC", "#C30", "#3C0", "#03C", "#CC0",
                                                   "#F0F", "#0CF", "#F80", "#F68"};
constexpr std::array<const char *, 8> kChannelTypeTexts{"EEG", "ECG", "EMG", "EOG", "Resp", "GSR", "PPG", "Temp"};

template <std::size_t N> QString textAt(const std::array<const char *, N> &texts, int index)
{
    return index >= 0 && index < static_cast<int>(N) ? QString::fromLatin1(texts[static_cast<std::size_t>(index)])
                                                     : QString();
}

/// Plug-ins still write trace lines while the program's statics are being destroyed.
const QRegularExpression &neverDestroyed(const char *pattern)
{
    return *new QRegularExpression(QString::fromLatin1(pattern));
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

QString BPCommon::render(const QString &conversion, const LogArgument &argument)
{
    static const auto &parts = neverDestroyed("%([-0]*)(\\d*)(?:\\.(\\d+))?");
    const auto match = parts.match(conversion);
    QString text;
    switch (argument.kind) {
    case LogArgument::Signed:
        text = QString::number(argument.integer);
        break;
    case LogArgument::Unsigned:
        text = QString::number(static_cast<quint64>(argument.integer));
        break;
    case LogArgument::Real: {
        const bool fixed = match.capturedLength(3) > 0 || conversion.endsWith(QLatin1Char('f'));
        const int precision = match.capturedLength(3) > 0 ? match.captured(3).toInt() : 6;
        text = QString::number(argument.real, fixed ? 'f' : 'g', std::min(precision, 17));
        break;
    }
    case LogArgument::Text:
        text = argument.text;
        break;
    }
    const int width = std::min(match.captured(2).toInt(), 256);
    if (match.captured(1).contains(QLatin1Char('-'))) {
        return text.leftJustified(width);
    }
    if (argument.kind != LogArgument::Text && match.captured(1).contains(QLatin1Char('0'))) {
        const int sign = text.startsWith(QLatin1Char('-')) ? 1 : 0;
        return text.left(sign) + text.mid(sign).rightJustified(width - sign, QLatin1Char('0'));
    }
    return text.rightJustified(width);
}

void BPCommon::writeFormatted(LogEvent event, const char *format, const LogArgument *arguments, int count)
{
    static const auto &conversions = neverDestroyed("%%|%[-+ #0]*\\d*(?:\\.\\d+)?(?:hh|h|ll|l|j|z|t|L)?[a-zA-Z]");
    const QString pattern = QString::fromUtf8(format);
    QString line;
    int copied = 0;
    int used = 0;
    for (auto it = conversions.globalMatch(pattern); it.hasNext();) {
        const auto match = it.next();
        line += pattern.midRef(copied, match.capturedStart() - copied);
        copied = match.capturedEnd();
        if (match.captured() == QLatin1String("%%")) {
            line += QLatin1Char('%');
        } else if (used < count) {
            line += render(match.captured(), arguments[used++]);
        } else {
            line += match.captured();
        }
    }
    line += pattern.midRef(copied);
    log(logEventName(event), line);
}
