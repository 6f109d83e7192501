#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

namespace bp {

/// A positive ratio in lowest terms; rates (Hz) and times (s) of files are exact this way.
struct Ratio
{
    qint64 num = 0;
    qint64 den = 1;

    static Ratio of(qint64 num, qint64 den)
    {
        const qint64 divisor = std::gcd(num, den);
        return divisor == 0 ? Ratio{} : Ratio{num / divisor, den / divisor};
    }
    double value() const { return static_cast<double>(num) / static_cast<double>(den); }
    bool operator==(const Ratio &other) const { return num == other.num && den == other.den; }
};

constexpr qint64 kEdfTicks = 10'000'000; ///< per second, as many as EDFlib's
constexpr qint64 kEdfWriteTicks = kEdfTicks / 10'000; ///< of 0.1 ms, in which EDFlib and journals write annotations

inline double edfTime(qint64 ticks)
{
    return static_cast<double>(ticks) / static_cast<double>(kEdfTicks);
}

/// The fields that the header has for one signal. Texts are without the blanks that fill the field.
struct EdfSignalHeader
{
    QByteArray label;
    QByteArray transducer;
    QByteArray unit;
    QByteArray prefilter;
    QByteArray physicalMinimum; ///< as text, since that is what the format keeps
    QByteArray physicalMaximum;
    int digitalMinimum = -32768;
    int digitalMaximum = 32767;
    int samplesPerRecord = 0;
    Ratio rate; ///< Hz
    int signal = 0; ///< its number in the file, annotation signals counted

    double gain() const
    {
        return (physicalMaximum.toDouble() - physicalMinimum.toDouble())
            / (double{1} * digitalMaximum - digitalMinimum);
    }
    /// The digital value nearest to a number, within the limits.
    qint32 clipped(double digital) const
    {
        return static_cast<qint32>(std::llround(std::clamp<double>(digital, digitalMinimum, digitalMaximum)));
    }
    double physical(int digital) const
    {
        return physicalMinimum.toDouble() + (double{1} * digital - digitalMinimum) * gain();
    }
};

/// The header of an EDF or BDF file.
struct EdfHeader
{
    bool bdf = false;
    bool plus = false; ///< EDF+ or BDF+
    QByteArray patient; ///< the whole field
    QByteArray recording;
    QDateTime start; ///< whole seconds, UTC standing for whatever zone the file is of
    qint64 startTicks = 0; ///< fraction of a second after `start`
    QVector<EdfSignalHeader> channels;

    int sampleBytes() const { return bdf ? 3 : 2; }
    /// Moves the start, and the date in the texts with it.
    void moveStart(qint64 ticks);
    /// Makes this the header of an EDF+ or BDF+ file: patient and recording get the subfields of that format. Does
    /// nothing when it is one already.
    void makePlus();
};

/// An annotation. Times in ticks, pauses included, from the first sample, or from the start of the file for one as it
/// stands there. EDFReader gives them to the outside in seconds, as AnnotationStrct.
struct EdfAnnotation
{
    qint64 onset = 0;
    qint64 duration = -1; ///< negative: none
    QByteArray text; ///< UTF-8, as the format has it; what else there may be stays as it is
};

/// Of a header's "dd.MM.yy", whose years are those from 1985 to 2084; invalid when there is no such day.
QDate edfDate(const QByteArray &text);
/// Of a header's "hh.mm.ss"; invalid when there is no such time.
QTime edfClock(const QByteArray &text);
/// Whether a header can hold a date.
bool isEdfDate(const QDate &date);
/// A date as EDF+ headers have it, 02-MAR-1951.
QByteArray edfPlusDate(const QDate &date);
/// Decimal text of a time in ticks, without needless zeros.
QByteArray edfSeconds(qint64 ticks);
/// The best text of a number in 8 characters without an exponent.
QByteArray edfNumber(double value);

} // namespace bp
