#include "base/TextHelper.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace {
constexpr double kLongestSeconds = 1e12;
}

QString TextHelper::TimeToText(double seconds, bool withMilliseconds)
{
    const double milliseconds = std::isfinite(seconds) ? std::min(std::fabs(seconds), kLongestSeconds) * 1000.0 : 0.0;
    const qint64 total =
        withMilliseconds ? std::llround(milliseconds) : static_cast<qint64>(milliseconds / 1000.0) * 1000;
    const QChar zero = QLatin1Char('0');
    QString text = QStringLiteral("%1:%2:%3")
                       .arg(total / 3600000, 2, 10, zero)
                       .arg(total / 60000 % 60, 2, 10, zero)
                       .arg(total / 1000 % 60, 2, 10, zero);
    if (withMilliseconds) {
        text += QStringLiteral(".%1").arg(total % 1000, 3, 10, zero);
    }
    return seconds < 0.0 && total > 0 ? QLatin1Char('-') + text : text;
}

QString TextHelper::printLikeTable(const QMap<QString, QString> &rows, const QString &separator)
{
    QStringList lines;
    for (auto it = rows.cbegin(); it != rows.cend(); ++it) {
        lines << it.key() + separator + it.value();
    }
    return lines.join(QLatin1Char('\n'));
}
