#include "files/edf/EdfHeader.h"

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

/// The whole and the three parts of "dd.MM.yy" or "hh.mm.ss"; empty when it is something else.
QStringList twoDigitParts(const QByteArray &text)
{
    static const QRegularExpression pattern(QStringLiteral("^([0-9]{2})\\.([0-9]{2})\\.([0-9]{2})$"));
    return pattern.match(QString::fromLatin1(text)).capturedTexts();
}

} // namespace

namespace bp {

QDate edfDate(const QByteArray &text)
{
    const QStringList parts = twoDigitParts(text);
    const int year = parts.value(3).toInt() + kFirstYear / 100 * 100;
    return parts.isEmpty() ? QDate() : QDate(year < kFirstYear ? year + 100 : year, parts[2].toInt(), parts[1].toInt());
}

QTime edfClock(const QByteArray &text)
{
    const QStringList parts = twoDigitParts(text);
    return parts.isEmpty() ? QTime() : QTime(parts[1].toInt(), parts[2].toInt(), parts[3].toInt());
}

bool isEdfDate(const QDate &date)
{
    return date.year() >= kFirstYear && date.year() < kFirstYear + 100;
}

QByteArray edfPlusDate(const QDate &date)
{
    return QLocale::c().toString(date, QStringLiteral("dd-MMM-yyyy")).toUpper().toLatin1();
}

void EdfHeader::moveStart(qint64 ticks)
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

void EdfHeader::makePlus()
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
