#include "base/LanguageContext.h"

#include <QCoreApplication>
#include <QDir>
#include <QTranslator>

QSet<QString> LanguageContext::multilingualTranslate(const QString &context, const QString &caption)
{
    const QByteArray contextBytes = context.toUtf8();
    const QByteArray captionBytes = caption.toUtf8();
    QSet<QString> texts{caption, QCoreApplication::translate(contextBytes.constData(), captionBytes.constData())};

    const QDir folder(QCoreApplication::applicationDirPath() + QStringLiteral("/translations"));
    const QStringList files = folder.entryList({QStringLiteral("*.qm")}, QDir::Files);
    for (const QString &file : files) {
        QTranslator translator;
        if (translator.load(folder.filePath(file))) {
            texts.insert(translator.translate(contextBytes.constData(), captionBytes.constData()));
        }
    }
    texts.remove(QString());
    return texts;
}
