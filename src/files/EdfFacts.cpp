#include "files/EdfFacts.h"

#include <QLocale>

#include <limits>

namespace {

constexpr int kNumberWidth = 8;

QByteArray plusDate(const QDate &date)
{
    return QLocale::c().toString(date, QStringLiteral("dd-MMM-yyyy")).toUpper().toLatin1();
}

/// A free text as one subfield of an EDF+ header.
QByteArray subfield(const QByteArray &text)
{
    const QByteArray kept = text.simplified();
    return kept.isEmpty() ? QByteArrayLiteral("X") : QByteArray(kept).replace(' ', '_');
}

} // namespace

namespace bp {

void EdfFacts::moveStart(qint64 ticks)
{
    static const QByteArray mark = QByteArrayLiteral("Startdate ");
    const QByteArray oldDate = plusDate(start.date());
    const qint64 sum = startTicks + ticks;
    start = start.addSecs(sum / kEdfTicks);
    startTicks = sum % kEdfTicks;
    if (startTicks != 0 && !plus) { // only the annotation signal can tell a fraction
        plus = true;
        patient = "X X X " + subfield(patient);
        recording = mark + plusDate(start.date()) + " X X " + subfield(recording);
    } else if (plus && recording.startsWith(mark + oldDate)) {
        recording.replace(mark.size(), oldDate.size(), plusDate(start.date()));
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

qint64 edfTicksOf(const QByteArray &text)
{
    bool isNumber = false;
    const double seconds = text.trimmed().toDouble(&isNumber);
    if (!isNumber || !std::isfinite(seconds) || std::fabs(seconds) > 4e11) {
        return -1;
    }
    return std::llround(seconds * static_cast<double>(kEdfTicks));
}

} // namespace bp
