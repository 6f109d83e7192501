#pragma once

#include "service/Profile.h"

#include <QString>
#include <QStringList>

#include <vector>

/// The profiles of a data folder, one file each, and which of them is current. There is always one at least.
///
/// Every change is on disk before the operation returns: written beside the file, then renamed. What cannot be written
/// is told on standard error, and holds until the program ends.
class ProfileStore
{
public:
    static constexpr int kMaxNameBytes = 200; ///< of the encoded name
    static constexpr int kMaxProfiles = 256;

    /// Reads what is there. A file that is no profile is renamed to end in ".damaged"; an empty folder gets the profile
    /// "default".
    /// @param dataFolder  exists
    explicit ProfileStore(const QString &dataFolder);

    QStringList names() const;
    const Profile &current() const { return m_profiles[m_current]; }

    /// Whether profiles of these names can be added, all of them: empty, or why not.
    QString check(const QStringList &names) const;
    /// Empty on success, otherwise why not, as one sentence.
    QString add(const QString &name, bool isBci);
    /// The state files are kept beside, under another name. When it was current, the first of the others becomes it.
    QString remove(const QString &name);
    QString select(const QString &name);
    /// Replaces the current profile's algorithms.
    void setAlgorithms(const std::vector<UnitParams> &algorithms);

    /// Where a profile's state files belong; need not exist.
    QString stateFolder(const QString &name) const;

private:
    static QString checkName(const QString &name);
    int indexOf(const QString &name) const;
    QString filePath(const QString &name) const;
    void load();
    void loadProfile(const QString &path);
    void loadCurrent();
    void save(const Profile &profile) const;
    void saveCurrent() const;

    QString m_folder; ///< of the profiles
    QString m_settingsPath;
    std::vector<Profile> m_profiles; ///< by name
    std::size_t m_current = 0;
};
