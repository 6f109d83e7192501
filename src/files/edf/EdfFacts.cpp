#include "files/edf/EdfFacts.h"

#include "files/edf/EdfLayout.h"

#include <QLocale>
#include <QRegularExpression>

#include <limits>

namespace {

constexpr int kNumberWidth = bp::EdfLayout::kNumberWidth;
constexpr int kFirstYear = 1985; // two digits stand for this one and the 99 years behind it

constexpr const char *kStartDate = "Startdate ";

/// A free text as one subfield of an EDF+ header.
QByteArray subfield(const QByteArray &text)
{
    const QByteArray kept = text.simplified();
    return kept.isEmpty() ? QByteArrayLiteral("X") : QByteArray(kept).replace(' ', '_');
}

} // namespace

namespace bp {

QDate edfDate(const QByteArray &text)
{
    static const QRegularExpression pattern(QStringLiteral("^(\\d\\d)\\.(\\d\\d)\\.(\\d\\d)$"));
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(text));
    const int year = match.captured(3).toInt() + kFirstYear / 100 * 100;
    return match.hasMatch()
        ? QDate(year < kFirstYear ? year + 100 : year, match.captured(2).toInt(), match.captured(1).toInt())
        : QDate();
}

bool isEdfDate(const QDate &date)
{
    return date.year() >= kFirstYear && date.year() < kFirstYear + 100;
}

QByteArray edfPlusDate(const QDate &date)
{
    return QLocale::c().toString(date, QStringLiteral("dd-MMM-yyyy")).toUpper().toLatin1();
}

void EdfFacts::moveStart(qint64 ticks)
{
    const QByteArray mark = kStartDate;
    const QByteArray oldDate = edfPlusDate(start.date());
    const qint64 sum = startTicks + ticks;
    start = start.addSecs(sum / kEdfTicks);
    startTicks = sum % kEdfTicks;
    if (startTicks != 0 && !plus) { // only the annotation signal can tell a fraction
        makePlus();
    } else if (plus && recording.startsWith(mark + oldDate)) {
        recording.replace(mark.size(), oldDate.size(), edfPlusDate(start.date()));
    }
}

void EdfFacts::makePlus()
{
    if (!plus) {
        plus = true;
        patient = "X X X " + subfield(patient);
        recording = kStartDate + edfPlusDate(start.date()) + " X X " + subfield(recording);
    }
}

QByteArray edfSeconds(qint64 ticks)
{
    QByteArray text = QByteArray::number(ticks / kEdfTicks);
    const qint64 fraction = ticks % kEdfTicks;
    if (fraction != 0) {
        text += '.' + QByteArray::number(fraction).rightJustified(7, '0');
        while (text.endsWith('0')) {
            text.chop(1);
        }
    }
    return text;
}

QByteArray edfNumber(double value)
{
    QByteArray best;
    double error = std::numeric_limits<double>::infinity();
    for (int decimals = 0; decimals <= kNumberWidth - 2; ++decimals) {
        const QByteArray text = QByteArray::number(value, 'f', decimals);
        const double off = std::fabs(text.toDouble() - value);
        if (text.size() <= kNumberWidth && off < error) {
            best = text;
            error = off;
        }
    }
    return best;
}

} // namespace bp
