#include "service/ProfileStore.h"

#include "Console.h"
#include "common/SaveFile.h"
#include "service/FileName.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>

namespace {

constexpr qint64 kMaxFileBytes = qint64{16} * 1024 * 1024;
constexpr int kSchema = 1;
const QString kCurrent = QStringLiteral("current");
const QString kFirstProfile = QStringLiteral("default");

bool byName(const Profile &left, const Profile &right)
{
    return left.name < right.name;
}

/// The object in a file; empty when there is none.
QJsonObject readObject(const QString &path, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = file.errorString();
        return {};
    }
    QJsonParseError parsing;
    QJsonObject object = QJsonDocument::fromJson(file.read(kMaxFileBytes), &parsing).object();
    error = parsing.error != QJsonParseError::NoError ? parsing.errorString() : QString();
    return object;
}

void writeObject(const QString &path, const QJsonObject &object)
{
    const QString fault = bp::saveFile(path, QJsonDocument(object).toJson());
    if (!fault.isEmpty()) {
        Console::error(QStringLiteral("Cannot write %1: %2.").arg(path, fault));
    }
}

/// Nothing that was written by hand or by a later version is thrown away.
void setAside(const QString &path, const QString &reason)
{
    QString aside = path + QLatin1String(".damaged");
    for (int i = 2; QFile::exists(aside); ++i) {
        aside = QStringLiteral("%1.damaged%2").arg(path).arg(i);
    }
    const bool moved = QFile::rename(path, aside);
    Console::error(QStringLiteral("%1 cannot be used (%2)%3.")
                       .arg(path, reason, moved ? QStringLiteral(" and was renamed to %1").arg(aside) : QString()));
}

} // namespace

ProfileStore::ProfileStore(const QString &dataFolder)
    : m_folder(dataFolder + QLatin1String("/profiles"))
    , m_settingsPath(dataFolder + QLatin1String("/settings.json"))
{
    QDir().mkpath(m_folder);
    load();
    if (m_profiles.empty()) {
        m_profiles.push_back(Profile::makeStandard(kFirstProfile, false));
        save(m_profiles.front());
    }
    loadCurrent();
}

void ProfileStore::load()
{
    const QFileInfoList files = QDir(m_folder).entryInfoList({QStringLiteral("*.json")}, QDir::Files, QDir::Name);
    for (const QFileInfo &file : files) {
        loadProfile(file.filePath());
    }
    std::sort(m_profiles.begin(), m_profiles.end(), byName);
}

void ProfileStore::loadProfile(const QString &path)
{
    QString error;
    const std::optional<Profile> profile = Profile::fromJson(readObject(path, error));
    if (!profile) {
        setAside(path, error.isEmpty() ? QStringLiteral("it is no profile") : error);
    } else if (filePath(profile->name) != path) {
        setAside(path, QStringLiteral("its name is not that of the profile in it"));
    } else {
        m_profiles.push_back(*profile);
    }
}

void ProfileStore::loadCurrent()
{
    QString error;
    const bool isThere = QFile::exists(m_settingsPath);
    const QJsonObject settings = isThere ? readObject(m_settingsPath, error) : QJsonObject();
    if (isThere && settings.isEmpty()) {
        setAside(m_settingsPath, error.isEmpty() ? QStringLiteral("it holds no settings") : error);
    }
    const int index = indexOf(settings[kCurrent].toString());
    m_current = static_cast<std::size_t>(std::max(0, index));
    if (index < 0) {
        saveCurrent(); // profiles that are added later do not change it
    }
}

QStringList ProfileStore::names() const
{
    QStringList names;
    for (const Profile &profile : m_profiles) {
        names << profile.name;
    }
    return names;
}

QString ProfileStore::checkName(const QString &name)
{
    if (name.isEmpty()) {
        return QStringLiteral("A profile needs a name.");
    }
    const QByteArray bytes = name.toUtf8();
    if (QString::fromUtf8(bytes.constData(), bytes.size()) != name) { // half a surrogate pair
        return QStringLiteral("The name of the new profile is no valid text.");
    }
    if (FileName::encoded(name).size() > kMaxNameBytes) {
        return QStringLiteral("The name of the new profile is too long.");
    }
    return {};
}

QString ProfileStore::check(const QStringList &names) const
{
    QSet<QString> known;
    for (const Profile &profile : m_profiles) {
        known.insert(profile.name);
    }
    for (const QString &name : names) {
        const QString reason = checkName(name);
        if (!reason.isEmpty()) {
            return reason;
        }
        if (known.contains(name)) {
            return QStringLiteral("The profile is there already.");
        }
        if (known.size() >= kMaxProfiles) {
            return QStringLiteral("There are %1 profiles already, which is the limit.").arg(kMaxProfiles);
        }
        known.insert(name);
    }
    return {};
}

QString ProfileStore::add(const QString &name, bool isBci)
{
    const QString reason = check({name});
    if (!reason.isEmpty()) {
        return reason;
    }
    const QString currentName = current().name;
    m_profiles.push_back(Profile::makeStandard(name, isBci));
    save(m_profiles.back());
    std::sort(m_profiles.begin(), m_profiles.end(), byName);
    m_current = static_cast<std::size_t>(indexOf(currentName));
    return {};
}

QString ProfileStore::remove(const QString &name)
{
    const int index = indexOf(name);
    if (index < 0) {
        return QStringLiteral("There is no such profile.");
    }
    if (m_profiles.size() == 1) {
        return QStringLiteral("The profile stays: it is the only one.");
    }
    if (!QFile::remove(filePath(name)) && QFile::exists(filePath(name))) {
        return QStringLiteral("Cannot remove %1.").arg(filePath(name));
    }
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd_hhmmss_zzz"));
    QDir().rename(stateFolder(name), stateFolder(name) + QLatin1String(".removed_") + stamp);
    const QString currentName = current().name;
    m_profiles.erase(m_profiles.begin() + index);
    m_current = static_cast<std::size_t>(std::max(0, indexOf(currentName)));
    if (currentName == name) {
        saveCurrent();
    }
    return {};
}

QString ProfileStore::select(const QString &name)
{
    const int index = indexOf(name);
    if (index < 0) {
        return QStringLiteral("There is no such profile.");
    }
    m_current = static_cast<std::size_t>(index);
    saveCurrent();
    return {};
}

void ProfileStore::setAlgorithms(const std::vector<UnitParams> &algorithms)
{
    m_profiles[m_current].algorithms = algorithms;
    save(current());
}

QString ProfileStore::stateFolder(const QString &name) const
{
    return m_folder + QLatin1Char('/') + FileName::encoded(name);
}

int ProfileStore::indexOf(const QString &name) const
{
    const auto found =
        std::find_if(m_profiles.begin(), m_profiles.end(), [&name](const Profile &p) { return p.name == name; });
    return found != m_profiles.end() ? static_cast<int>(found - m_profiles.begin()) : -1;
}

QString ProfileStore::filePath(const QString &name) const
{
    return m_folder + QLatin1Char('/') + FileName::encoded(name) + QLatin1String(".json");
}

void ProfileStore::save(const Profile &profile) const
{
    QDir().mkpath(m_folder);
    writeObject(filePath(profile.name), profile.toJson());
}

void ProfileStore::saveCurrent() const
{
    writeObject(m_settingsPath, {{QStringLiteral("schema"), kSchema}, {kCurrent, current().name}});
}
