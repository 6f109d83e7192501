#include "files/edf/EdfHeaderRepair.h"

#include "files/edf/EdfHeader.h"
#include "files/edf/EdfLayout.h"

#include <QRegularExpression>
#include <QTextCodec>

#include <cmath>
#include <limits>

namespace {

using bp::EdfLayout;
using bp::Outcome;

constexpr int kUtf8Mib = 106;
constexpr double kLongestRecord = 1e8; ///< seconds
constexpr int kDateWidth = 8; ///< "02.03.51"; the time follows

constexpr int kKindWidth = 3; ///< "EDF" of "EDF+C"

struct Field
{
    int before; ///< bytes per signal before it
    int width;
};
constexpr Field kTexts[]{{0, EdfLayout::kLabelWidth},
                         {EdfLayout::kTransducerBefore, EdfLayout::kTransducerWidth},
                         {EdfLayout::kDimensionBefore, EdfLayout::kNumberWidth},
                         {EdfLayout::kPrefilterBefore, EdfLayout::kPrefilterWidth},
                         {EdfLayout::kSignalReservedBefore, EdfLayout::kSignalReservedWidth}};
constexpr int kNumbersBefore[]{EdfLayout::kPhysicalMinimumBefore, EdfLayout::kPhysicalMaximumBefore,
                               EdfLayout::kDigitalMinimumBefore, EdfLayout::kDigitalMaximumBefore,
                               EdfLayout::kSampleCountBefore};

void put(QByteArray &header, int position, int width, const QByteArray &text)
{
    header.replace(position, width, text.leftJustified(width, ' ', true));
}

char asciiOf(QChar character)
{
    constexpr ushort kMicro = 0xb5;
    constexpr ushort kMu = 0x3bc;
    if (character.unicode() < 127) {
        return character.unicode() < ' ' ? ' ' : character.toLatin1();
    }
    if (character.unicode() == kMicro || character.unicode() == kMu) {
        return 'u';
    }
    const QString parts = character.decomposition();
    return !parts.isEmpty() && parts[0].unicode() < 127 && parts[0].isPrint() ? parts[0].toLatin1() : '?';
}

/// A text of the header in ASCII, whether it is UTF-8 or Latin-1.
QByteArray ascii(const QByteArray &bytes)
{
    QTextCodec::ConverterState state;
    QString text = QTextCodec::codecForMib(kUtf8Mib)->toUnicode(bytes.constData(), bytes.size(), &state);
    if (state.invalidChars > 0 || state.remainingChars > 0) {
        text = QString::fromLatin1(bytes);
    }
    QByteArray result;
    for (const QChar character : qAsConst(text)) {
        result += asciiOf(character);
    }
    return result;
}

QByteArray number(QByteArray text)
{
    text.replace('\0', ' ').replace(',', '.');
    return text.trimmed();
}

/// "32767" of "32767.0".
QByteArray wholeNumber(const QByteArray &text)
{
    const int point = text.indexOf('.');
    return point >= 0 && text.count('0') - text.left(point).count('0') == text.size() - point - 1 ? text.left(point)
                                                                                                  : text;
}

void mendStart(QByteArray &header)
{
    QByteArray start;
    for (const char c : header.mid(EdfLayout::kStartAt, EdfLayout::kStartWidth)) {
        const bool isDigit = start.size() % 8 % 3 != 2;
        const bool isSeparator = c == '/' || c == '-' || c == ':' || c == ' ';
        start += isDigit ? (c == ' ' ? '0' : c) : isSeparator ? '.' : c;
    }
    put(header, EdfLayout::kStartAt, EdfLayout::kStartWidth, start);
}

/// EDF+ wants fields in these two texts; a text that has none becomes the last field.
void mendPlusTexts(QByteArray &header)
{
    static const QRegularExpression patient(
        QStringLiteral("^\\S+ [MFX] (X|[0-3]\\d-(JAN|FEB|MAR|APR|MAY|JUN|JUL|AUG|SEP|OCT|NOV|DEC)-\\d{4}) \\S"));
    static const QRegularExpression recording(QStringLiteral(
        "^Startdate (X|[0-3]\\d-(JAN|FEB|MAR|APR|MAY|JUN|JUL|AUG|SEP|OCT|NOV|DEC)-\\d{4}) \\S+ \\S+ \\S"));
    const auto mend = [&header](int position, const QRegularExpression &wanted, const char *empty) {
        const QByteArray text = header.mid(position, EdfLayout::kTextWidth).trimmed();
        if (!wanted.match(QString::fromLatin1(text)).hasMatch()) {
            const QByteArray kept = text.simplified().replace(' ', '_');
            put(header, position, EdfLayout::kTextWidth, empty + (kept.isEmpty() ? QByteArray("X") : kept));
        }
    };
    mend(EdfLayout::kPatientAt, patient, "X X X ");
    mend(EdfLayout::kRecordingAt, recording, "Startdate X X X ");
    // The date of the recording has to be the one that every EDF file gives, to the year.
    const QByteArray text = header.mid(EdfLayout::kRecordingAt, EdfLayout::kTextWidth);
    const QByteArray date = bp::edfPlusDate(bp::edfDate(header.mid(EdfLayout::kStartAt, kDateWidth)));
    if (text.at(10) != 'X' && text.mid(10, 11) != date) {
        put(header, EdfLayout::kRecordingAt, EdfLayout::kTextWidth, "Startdate X" + text.mid(21));
    }
}

void mendAnnotationSignals(QByteArray &header, const EdfLayout &layout)
{
    const auto set = [&](int signal, int before, int width, const char *text) {
        put(header, layout.fieldAt(signal, before, width), width, text);
    };
    put(header, EdfLayout::kReservedAt, kKindWidth, layout.kind());
    for (const int signal : layout.annotationSignals) {
        set(signal, 0, EdfLayout::kLabelWidth, layout.isBdf ? "BDF Annotations" : "EDF Annotations");
        set(signal, EdfLayout::kTransducerBefore, EdfLayout::kTransducerWidth, "");
        set(signal, EdfLayout::kPrefilterBefore, EdfLayout::kPrefilterWidth, "");
        set(signal, EdfLayout::kDigitalMinimumBefore, EdfLayout::kNumberWidth, layout.isBdf ? "-8388608" : "-32768");
        set(signal, EdfLayout::kDigitalMaximumBefore, EdfLayout::kNumberWidth, layout.isBdf ? "8388607" : "32767");
        const QByteArray minimum =
            layout.signalField(signal, EdfLayout::kPhysicalMinimumBefore, EdfLayout::kNumberWidth);
        const QByteArray maximum =
            layout.signalField(signal, EdfLayout::kPhysicalMaximumBefore, EdfLayout::kNumberWidth);
        if (number(minimum).toDouble() == number(maximum).toDouble()) {
            set(signal, EdfLayout::kPhysicalMinimumBefore, EdfLayout::kNumberWidth, "-1");
            set(signal, EdfLayout::kPhysicalMaximumBefore, EdfLayout::kNumberWidth, "1");
        }
    }
}

Outcome checkStart(const EdfLayout &layout)
{
    const QByteArray date = layout.headerBytes.mid(EdfLayout::kStartAt, kDateWidth);
    const QByteArray time = layout.headerBytes.mid(EdfLayout::kStartAt + kDateWidth, kDateWidth);
    if (!bp::edfDate(date).isValid()) {
        return Outcome::failure(QStringLiteral("its date \"%1\" is none").arg(QString::fromLatin1(date)));
    }
    if (!bp::edfClock(time).isValid()) {
        return Outcome::failure(QStringLiteral("its time \"%1\" is none").arg(QString::fromLatin1(time)));
    }
    return Outcome::good();
}

/// A number of a signal; NaN when it is none.
double valueOf(const EdfLayout &layout, int signal, int before)
{
    bool isNumber = false;
    const double value = layout.signalField(signal, before, EdfLayout::kNumberWidth).toDouble(&isNumber);
    return isNumber && std::isfinite(value) ? value : std::numeric_limits<double>::quiet_NaN();
}

/// A signal needs two pairs of numbers to be scaled with, and samples that have the digital ones.
Outcome checkRange(const EdfLayout &layout, int signal)
{
    const double physical = valueOf(layout, signal, EdfLayout::kPhysicalMaximumBefore)
        - valueOf(layout, signal, EdfLayout::kPhysicalMinimumBefore);
    const double minimum = valueOf(layout, signal, EdfLayout::kDigitalMinimumBefore);
    const double maximum = valueOf(layout, signal, EdfLayout::kDigitalMaximumBefore);
    const QString name = QStringLiteral("signal %1 \"%2\"")
                             .arg(signal + 1)
                             .arg(QString::fromLatin1(layout.signalField(signal, 0, EdfLayout::kLabelWidth)));
    if (!std::isfinite(physical) || physical == 0.0 || !(maximum > minimum)) {
        return Outcome::failure(name + QStringLiteral(" has no range that its values could be scaled with"));
    }
    const double most = layout.isBdf ? 8388607.0 : 32767.0;
    const bool isWhole = std::trunc(minimum) == minimum && std::trunc(maximum) == maximum;
    if (!isWhole || minimum < -most - 1.0 || maximum > most) {
        return Outcome::failure(
            name
            + QStringLiteral(" has the digital limits %1 and %2, which its samples of %3 bits cannot have")
                  .arg(minimum, 0, 'g', 10)
                  .arg(maximum, 0, 'g', 10)
                  .arg(8 * layout.sampleBytes));
    }
    return Outcome::good();
}

} // namespace

namespace bp {

QByteArray EdfHeaderRepair::mended(const EdfLayout &layout)
{
    QByteArray header = layout.headerBytes;
    mendStart(header);
    for (const int position : {EdfLayout::kPatientAt, EdfLayout::kRecordingAt}) {
        put(header, position, EdfLayout::kTextWidth, ascii(header.mid(position, EdfLayout::kTextWidth)));
    }
    put(header, EdfLayout::kReservedAt, EdfLayout::kReservedWidth,
        ascii(header.mid(EdfLayout::kReservedAt, EdfLayout::kReservedWidth)));
    for (const int position : {EdfLayout::kHeaderBytesAt, EdfLayout::kRecordCountAt, EdfLayout::kDurationAt}) {
        put(header, position, EdfLayout::kNumberWidth, number(header.mid(position, EdfLayout::kNumberWidth)));
    }
    put(header, EdfLayout::kSignalCountAt, EdfLayout::kSignalCountWidth, QByteArray::number(layout.signalCount));
    for (int signal = 0; signal < layout.signalCount; ++signal) {
        for (const Field &text : kTexts) {
            const int position = layout.fieldAt(signal, text.before, text.width);
            put(header, position, text.width, ascii(header.mid(position, text.width)));
        }
        for (const int before : kNumbersBefore) {
            const int position = layout.fieldAt(signal, before, EdfLayout::kNumberWidth);
            const QByteArray text = number(header.mid(position, EdfLayout::kNumberWidth));
            const bool isDigital =
                before == EdfLayout::kDigitalMinimumBefore || before == EdfLayout::kDigitalMaximumBefore;
            put(header, position, EdfLayout::kNumberWidth, isDigital ? wholeNumber(text) : text);
        }
    }
    if (layout.isPlus && layout.annotationSignals.isEmpty()) {
        put(header, EdfLayout::kReservedAt, EdfLayout::kReservedWidth, layout.isBdf ? "24BIT" : "");
    } else if (layout.isPlus) {
        mendPlusTexts(header);
        mendAnnotationSignals(header, layout);
    }
    return header;
}

Outcome EdfHeaderRepair::check(const EdfLayout &layout)
{
    const Outcome start = checkStart(layout);
    if (!start) {
        return start;
    }
    const bool hasOnlyAnnotations = layout.annotationSignals.size() == layout.signalCount;
    const double duration = layout.field(EdfLayout::kDurationAt, EdfLayout::kNumberWidth).toDouble();
    if (!(duration >= 0.0 && duration < kLongestRecord) || (duration == 0.0 && !hasOnlyAnnotations)) {
        return Outcome::failure(QStringLiteral("it does not say how long a data record lasts"));
    }
    for (int signal = 0; signal < layout.signalCount; ++signal) {
        const Outcome range = checkRange(layout, signal);
        if (!range) {
            return range;
        }
    }
    return Outcome::good();
}

} // namespace bp
