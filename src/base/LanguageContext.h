#pragma once

#include <QSet>
#include <QString>

/// Translations of captions across languages.
class LanguageContext
{
public:
    /// The caption itself, its translation in the running program's language, and its translations in every
    /// translation file ("*.qm") of the program's "translations" folder; so that a file written under one language is
    /// understood under another. Any thread.
    /// @param context translation context, "Generic" for the library's captions
    static QSet<QString> multilingualTranslate(const QString &context, const QString &caption);
};
