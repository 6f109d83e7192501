#include "service/Profile.h"

#include "algorithms/ParamFactory.h"

#include <QJsonArray>

#include <algorithm>

namespace {

constexpr int kSchema = 1;
const QString kSpectrum = QStringLiteral("SpectrumOnline");
const QString kDepend = QStringLiteral("depend");

/// The type's set with the saved values; empty when the type is not known.
UnitParams algorithmFromJson(const QJsonObject &json)
{
    UnitParams params = ParamFactory::makeCustomProperty(json[QLatin1String("name")].toString());
    if (params.isEmpty() || !params.fromJson(json)) {
        return {};
    }
    params.setDependName(json[kDepend].toString());
    return params;
}

} // namespace

Profile Profile::makeStandard(const QString &name, bool isBci)
{
    Profile profile{name, isBci, {ParamFactory::makeCustomProperty(kSpectrum)}};
    const std::vector<UnitParams> rhythms = ParamFactory::makeStandardRhythmList();
    profile.algorithms.insert(profile.algorithms.end(), rhythms.begin(), rhythms.end());
    for (const auto make : {ParamFactory::makeRhythmAlpha, ParamFactory::makeRhythmBeta, ParamFactory::makeRhythmDelta,
                            ParamFactory::makeRhythmGamma, ParamFactory::makeRhythmTheta}) {
        UnitParams index = make(QString());
        index.setParamDescriptor(index.getParamDescriptor() + QLatin1String("_index"));
        profile.algorithms.push_back(index);
    }
    return profile;
}

QString Profile::freeDescriptor(const QString &type, const std::vector<UnitParams> &algorithms)
{
    const auto isTaken = [&](const QString &descriptor) {
        return std::any_of(algorithms.begin(), algorithms.end(), [&](const UnitParams &known) {
            return known.getName() == type && known.getParamDescriptor() == descriptor;
        });
    };
    QString descriptor = type;
    for (int i = 2; isTaken(descriptor); ++i) {
        descriptor = QStringLiteral("%1_%2").arg(type).arg(i);
    }
    return descriptor;
}

UnitParams *Profile::find(const QString &algorithm, const QString &descriptor)
{
    const auto found = std::find_if(algorithms.begin(), algorithms.end(), [&](const UnitParams &params) {
        return params.getName() == algorithm && params.getParamDescriptor() == descriptor;
    });
    return found != algorithms.end() ? &*found : nullptr;
}

QJsonObject Profile::toJson() const
{
    QJsonArray list;
    for (const UnitParams &params : algorithms) {
        QJsonObject entry = params.toJson();
        entry.insert(kDepend, params.getDependName());
        list << entry;
    }
    return {{QStringLiteral("schema"), kSchema},
            {QStringLiteral("name"), name},
            {QStringLiteral("type"), isBci ? QStringLiteral("bci") : QStringLiteral("rt")},
            {QStringLiteral("algorithms"), list}};
}

std::optional<Profile> Profile::fromJson(const QJsonObject &json)
{
    const QString type = json[QLatin1String("type")].toString();
    const bool isBci = type == QLatin1String("bci");
    if (json[QLatin1String("schema")].toInt() != kSchema || (!isBci && type != QLatin1String("rt"))
        || !json[QLatin1String("algorithms")].isArray()) {
        return std::nullopt;
    }
    Profile profile{json[QLatin1String("name")].toString(), isBci, {}};
    const QJsonArray list = json[QLatin1String("algorithms")].toArray();
    for (const QJsonValue &entry : list) {
        UnitParams params = algorithmFromJson(entry.toObject());
        if (params.getParamDescriptor().isEmpty() && params.getName() != kSpectrum) {
            params.setParamDescriptor(freeDescriptor(params.getName(), profile.algorithms));
        }
        if (!params.isEmpty() && profile.find(params.getName(), params.getParamDescriptor()) == nullptr) {
            profile.algorithms.push_back(params);
        }
    }
    if (profile.find(kSpectrum, QString()) == nullptr) {
        profile.algorithms.insert(profile.algorithms.begin(), ParamFactory::makeCustomProperty(kSpectrum));
    }
    return profile;
}
