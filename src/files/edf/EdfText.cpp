#include "files/edf/EdfText.h"

#include <QTextCodec>

#include <algorithm>

namespace {

constexpr int kLabelLength = 15;
constexpr int kAnnotationBytes = 40;
constexpr int kUtf8Mib = 106;

} // namespace

namespace bp {

QByteArray EdfText::header(const QString &text)
{
    return text.toLatin1();
}

QByteArray EdfText::label(const QString &name)
{
    const QString label = name.left(kLabelLength);
    // A reader would take a signal of this name for its annotations, and refuse the file.
    return header(label.trimmed() == QLatin1String("EDF Annotations") ? label.toLower() : label);
}

QByteArray EdfText::annotation(const QString &text)
{
    QString kept = text.left(kAnnotationBytes);
    QByteArray bytes = kept.toLocal8Bit();
    while (bytes.size() > kAnnotationBytes || (!kept.isEmpty() && kept.at(kept.size() - 1).isHighSurrogate())) {
        kept.chop(1);
        bytes = kept.toLocal8Bit();
    }
    // Control characters separate annotations in the file.
    std::replace_if(
        bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '.');
    return bytes;
}

bool EdfText::isCut(const QString &text)
{
    return text.toLocal8Bit().size() > kAnnotationBytes;
}

QString EdfText::fromHeader(const char *text)
{
    return QString::fromLatin1(text).trimmed();
}

QString EdfText::fromPlusHeader(const char *text)
{
    const QString known = fromHeader(text);
    return known == QLatin1String("X") ? QString() : known;
}

QString EdfText::fromAnnotation(const char *text)
{
    QTextCodec::ConverterState state;
    const QString decoded = QTextCodec::codecForMib(kUtf8Mib)->toUnicode(text, static_cast<int>(qstrlen(text)), &state);
    return state.invalidChars == 0 && state.remainingChars == 0 ? decoded : QString::fromLocal8Bit(text);
}

} // namespace bp
