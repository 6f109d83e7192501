#include "files/edf/EdfFacts.h"

#include "files/edf/EdfLayout.h"

#include <QLocale>

#include <limits>

namespace {

constexpr int kNumberWidth = bp::EdfLayout::kNumberWidth;

/// A free text as one subfield of an EDF+ header.
QByteArray subfield(const QByteArray &text)
{
    const QByteArray kept = text.simplified();
    return kept.isEmpty() ? QByteArrayLiteral("X") : QByteArray(kept).replace(' ', '_');
}

} // namespace

namespace bp {

QByteArray edfPlusDate(const QDate &date)
{
    return QLocale::c().toString(date, QStringLiteral("dd-MMM-yyyy")).toUpper().toLatin1();
}

void EdfFacts::moveStart(qint64 ticks)
{
    static const QByteArray mark = QByteArrayLiteral("Startdate ");
    const QByteArray oldDate = edfPlusDate(start.date());
    const qint64 sum = startTicks + ticks;
    start = start.addSecs(sum / kEdfTicks);
    startTicks = sum % kEdfTicks;
    if (startTicks != 0 && !plus) { // only the annotation signal can tell a fraction
        plus = true;
        patient = "X X X " + subfield(patient);
        recording = mark + edfPlusDate(start.date()) + " X X " + subfield(recording);
    } else if (plus && recording.startsWith(mark + oldDate)) {
        recording.replace(mark.size(), oldDate.size(), edfPlusDate(start.date()));
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
