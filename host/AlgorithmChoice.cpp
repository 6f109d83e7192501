#include "AlgorithmChoice.h"

#include "Refusal.h"
#include "algorithms/ParamFactory.h"
#include "common/Rhythms.h"
#include "montage/Montage.h"

#include <QCommandLineParser>
#include <QFile>
#include <QXmlStreamReader>

#include <algorithm>

namespace {

const QString kRhythms = QStringLiteral("rhythms");
const QString kHeartRate = QStringLiteral("heart-rate");
const QString kAlgorithms = QStringLiteral("algorithms");

QStringList rhythmNames()
{
    QStringList names;
    for (const RhythmBand &band : Rhythms::kAll) {
        names << QString::fromLatin1(band.name);
    }
    return names;
}

UnitParams makeRhythm(const QString &name)
{
    using Maker = UnitParams (*)(const QString &);
    static const std::vector<std::pair<QString, Maker>> makers{
        {QStringLiteral("delta"), &ParamFactory::makeRhythmDelta},
        {QStringLiteral("theta"), &ParamFactory::makeRhythmTheta},
        {QStringLiteral("alpha"), &ParamFactory::makeRhythmAlpha},
        {QStringLiteral("mu"), &ParamFactory::makeRhythmMu},
        {QStringLiteral("beta"), &ParamFactory::makeRhythmBeta},
        {QStringLiteral("gamma"), &ParamFactory::makeRhythmGamma}};
    const auto found =
        std::find_if(makers.begin(), makers.end(), [&name](const auto &maker) { return maker.first == name; });
    if (found == makers.end()) {
        refuseUsage(QStringLiteral("--rhythms takes a list of %1, or all, not \"%2\".")
                        .arg(rhythmNames().join(QStringLiteral(", ")), name));
    }
    return found->second(QString());
}

UnitParams makeHeartRate(const QString &channel, const Montage &montage)
{
    bool isNumber = false;
    const int number = channel.toInt(&isNumber);
    const int index = isNumber ? number - 1 : montage.getIndexByName(channel);
    if (index < 0 || index >= static_cast<int>(montage.size())) {
        refuse(QStringLiteral("--heart-rate: there is no channel \"%1\" among %2.")
                   .arg(channel, montage.getChannelNames().join(QStringLiteral(", "))));
    }
    UnitParams params = ParamFactory::makeCustomProperty(QStringLiteral("ElectroCardiogram"));
    params.setParamDescriptor(QStringLiteral("heart_rate"));
    params.setParamValue(QStringLiteral("channel"), QString::number(index + 1));
    return params;
}

/// The algorithm's name that a saved set carries; empty when the file is no saved set.
QString savedName(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        refuse(QStringLiteral("Cannot read %1: %2.").arg(path, file.errorString()));
    }
    QXmlStreamReader reader(&file);
    if (reader.readNextStartElement() && reader.name() == QLatin1String("algo")) {
        while (reader.readNextStartElement()) {
            if (reader.name() == QLatin1String("name")) {
                return reader.readElementText();
            }
            reader.skipCurrentElement();
        }
    }
    return {};
}

UnitParams loadSet(const QString &path)
{
    UnitParams params = ParamFactory::makeCustomProperty(savedName(path));
    if (params.isEmpty() || !params.loadParamFromFile(path)) {
        refuse(QStringLiteral("%1 holds no parameter set of a known algorithm.").arg(path));
    }
    return params;
}

} // namespace

void AlgorithmChoice::addOptions(QCommandLineParser &parser)
{
    parser.addOption({kRhythms,
                      QStringLiteral("Rhythm indices: a list of %1, or all; also into FILE_rt.xls beside a recording.")
                          .arg(rhythmNames().join(QLatin1Char(','))),
                      QStringLiteral("LIST")});
    parser.addOption({kHeartRate, QStringLiteral("Heart rate from an ECG channel, by name or number from 1."),
                      QStringLiteral("CHANNEL")});
    parser.addOption({kAlgorithms, QStringLiteral("An algorithm's parameter set as saved to a file (repeatable)."),
                      QStringLiteral("FILE")});
}

std::vector<UnitParams> AlgorithmChoice::parse(const QCommandLineParser &parser, const Montage &montage)
{
    std::vector<UnitParams> algorithms;
    if (parser.isSet(kRhythms)) {
        const QString list = parser.value(kRhythms);
        for (const QString &name :
             list == QLatin1String("all") ? rhythmNames() : list.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
            algorithms.push_back(makeRhythm(name.trimmed()));
        }
    }
    if (parser.isSet(kHeartRate)) {
        algorithms.push_back(makeHeartRate(parser.value(kHeartRate), montage));
    }
    for (const QString &path : parser.values(kAlgorithms)) {
        algorithms.push_back(loadSet(path));
    }
    return algorithms;
}
