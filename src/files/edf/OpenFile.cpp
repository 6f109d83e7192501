#include "files/edf/OpenFile.h"

#include <QFileInfo>

#include <algorithm>
#include <mutex>
#include <vector>

namespace {

using Path = std::filesystem::path;

struct Table
{
    std::mutex mutex;
    std::vector<Path> paths; ///< one per object that holds a file
};

Table &table()
{
    static Table table;
    return table;
}

Path native(const QString &path)
{
#ifdef Q_OS_WIN
    return path.toStdWString();
#else
    return QFile::encodeName(path).toStdString();
#endif
}

bool isSame(const Path &a, const Path &b)
{
    std::error_code error;
    return std::filesystem::equivalent(a, b, error);
}

/// A path that leads to the open file also when it is renamed or removed, where the system has one.
Path pathOf(const QFile &file)
{
    const Path named = native(QFileInfo(file).absoluteFilePath());
    const Path open = native(QStringLiteral("/dev/fd/%1").arg(file.handle()));
    return isSame(open, named) ? open : named;
}

bool isListed(const Path &path)
{
    const std::vector<Path> &paths = table().paths;
    return std::any_of(paths.begin(), paths.end(), [&path](const Path &held) { return isSame(held, path); });
}

} // namespace

namespace bp {

void OpenFile::hold(const QFile &file)
{
    release();
    const std::lock_guard<std::mutex> lock(table().mutex);
    m_path = pathOf(file);
    table().paths.push_back(m_path);
}

Outcome OpenFile::holdToWrite(QFile &file)
{
    release();
    const std::lock_guard<std::mutex> lock(table().mutex);
    if (isListed(native(file.fileName()))) {
        return Outcome::failure(openReason());
    }
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        return Outcome::failure(file.errorString());
    }
    m_path = pathOf(file);
    table().paths.push_back(m_path);
    return Outcome::good();
}

void OpenFile::release()
{
    if (m_path.empty()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(table().mutex);
    std::vector<Path> &paths = table().paths;
    paths.erase(std::find(paths.begin(), paths.end(), m_path));
    m_path.clear();
}

bool OpenFile::isAt(const QString &path) const
{
    return !m_path.empty() && isSame(m_path, native(path));
}

bool OpenFile::isOpen(const QString &path)
{
    const std::lock_guard<std::mutex> lock(table().mutex);
    return isListed(native(path));
}

} // namespace bp
