#pragma once

#include "algorithms/UnitParams.h"

#include <QJsonObject>
#include <QString>

#include <optional>
#include <vector>

/// What a service is set to for one purpose or person: a kind, and the algorithms that run.
struct Profile
{
    QString name;
    bool isBci = false; ///< mental states are recorded, trained and told; otherwise rhythms
    std::vector<UnitParams> algorithms;

    /// With the algorithms that a new profile begins with: the online spectrum, the standard rhythms fed by it, and
    /// the same bands in percent of the whole power ("alpha_index"), which the spreadsheets hold.
    static Profile makeStandard(const QString &name, bool isBci);

    /// A name for one more instance: its type's, with a number where that is taken. One without a name could not be
    /// removed by a client.
    static QString freeDescriptor(const QString &type, const std::vector<UnitParams> &algorithms);

    /// The instance of an algorithm; null when there is none.
    UnitParams *find(const QString &algorithm, const QString &descriptor);

    QJsonObject toJson() const;
    /// Nothing when this is no profile. Algorithms of a type that is not known are left out; those without a name get
    /// one, but for the online spectrum.
    static std::optional<Profile> fromJson(const QJsonObject &json);
};
