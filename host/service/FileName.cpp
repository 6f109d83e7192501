#include "service/FileName.h"

#include <QRegularExpression>

namespace {

bool isPlain(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') || character == '-'
        || character == '_';
}

bool isReserved(const QByteArray &bytes)
{
    static const QRegularExpression pattern(QStringLiteral("^(con|prn|aux|nul|com[0-9]|lpt[0-9])$"));
    return pattern.match(QString::fromLatin1(bytes)).hasMatch();
}

} // namespace

QString FileName::encoded(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    bool escape = isReserved(bytes);
    QString name;
    for (const char byte : bytes) {
        if (isPlain(byte) && !escape) {
            name += QLatin1Char(byte);
        } else {
            name += QStringLiteral("%%1").arg(static_cast<uint>(static_cast<uchar>(byte)), 2, 16, QLatin1Char('0'));
        }
        escape = false; // one letter is enough
    }
    return name;
}

QString FileName::readable(const QString &text)
{
    QString name = text;
    return name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9-]")), QStringLiteral("_")).left(64);
}
