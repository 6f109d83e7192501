#pragma once

#include <QByteArray>
#include <QSaveFile>
#include <QString>

namespace bp {

enum class SaveFallback { None, WriteInPlace };

/// Puts a whole file in the place of the one at the path, which stays as it is when that fails. A folder that takes no
/// new files can have its file written in place.
/// @return why it was not written, as part of a sentence; empty when it was
inline QString saveFile(const QString &path, const QByteArray &bytes, SaveFallback fallback = SaveFallback::None)
{
    QSaveFile file(path);
    file.setDirectWriteFallback(fallback == SaveFallback::WriteInPlace);
    // Unbuffered: commit() does not notice when the disk has no room for what is left in a buffer.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return file.errorString();
    }
    if (file.write(bytes) == bytes.size() && file.commit()) {
        return QString();
    }
    return file.error() == QFileDevice::NoError ? QStringLiteral("the disk may be full") : file.errorString();
}

} // namespace bp
