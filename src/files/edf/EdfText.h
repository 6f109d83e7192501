#pragma once

#include <QByteArray>
#include <QString>

namespace bp {

/// Texts as EDF files hold them.
class EdfText
{
public:
    /// Latin-1, of which EDFlib makes the ASCII of the header by dropping accents; other characters become "?".
    static QByteArray header(const QString &text);
    /// The first 15 characters, as header().
    static QByteArray label(const QString &name);
    /// The local 8-bit text, cut between two characters to the 40 bytes that EDFlib keeps of a description, with "."
    /// for control characters.
    static QByteArray annotation(const QString &text);
    /// Whether annotation() cuts the text.
    static bool isCut(const QString &text);

    /// Without the blanks that fill the field.
    static QString fromHeader(const char *text);
    /// Of an EDF+ header, where "X" stands for "not known"; empty then.
    static QString fromPlusHeader(const char *text);
    /// UTF-8 as the format has it, or the local 8-bit encoding when it isn't.
    static QString fromAnnotation(const char *text);
};

} // namespace bp
