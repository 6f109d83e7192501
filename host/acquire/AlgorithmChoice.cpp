#include "acquire/AlgorithmChoice.h"

#include "acquire/AdaptiveHeartRate.h"
#include "acquire/ParameterCheck.h"
#include "algorithms/AlgorithmManager.h"
#include "algorithms/ParamFactory.h"
#include "commands/Refusal.h"
#include "common/Rhythms.h"
#include "devices/AmplifierChannel.h"
#include "montage/Montage.h"

#include <QCommandLineParser>
#include <QFile>
#include <QXmlStreamReader>

#include <algorithm>

namespace {

const QString kRhythms = QStringLiteral("rhythms");
const QString kChannels = QStringLiteral("channels");
const QString kHeartRate = QStringLiteral("heart-rate");
const QString kHeartAmp = QStringLiteral("heart-amp");
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

/// Rhythms are of the EEG: another signal would drown it, since the largest channel gives the index.
QStringList rhythmChannels(const QCommandLineParser &parser, const Montage &montage)
{
    const QStringList names = montage.getChannelNames();
    const QStringList wanted = parser.value(kChannels).split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString &name : wanted) {
        if (!names.contains(name)) {
            refuse(QStringLiteral("--channels: there is no channel \"%1\" among %2.")
                       .arg(name, names.join(QStringLiteral(", "))));
        }
    }
    if (!wanted.isEmpty()) {
        return wanted;
    }
    QStringList eeg;
    for (unsigned i = 0; i < montage.size(); ++i) {
        if (montage[i]->getChannelType() == BPCommon::EEG) {
            eeg << montage[i]->getName();
        }
    }
    if (eeg.isEmpty()) {
        refuse(QStringLiteral("--rhythms: there is no EEG channel; choose some with --channels from %1.")
                   .arg(names.join(QStringLiteral(", "))));
    }
    return eeg;
}

std::vector<UnitParams> makeRhythms(const QCommandLineParser &parser, const Montage &montage)
{
    const QString list = parser.value(kRhythms);
    const QStringList names =
        list == QLatin1String("all") ? rhythmNames() : list.split(QLatin1Char(','), Qt::SkipEmptyParts);
    const QString channels = rhythmChannels(parser, montage).join(QLatin1Char(';'));
    std::vector<UnitParams> rhythms;
    for (const QString &name : names) {
        rhythms.push_back(makeRhythm(name.trimmed()));
        rhythms.back().setParamValue(QStringLiteral("channel"), channels);
    }
    if (rhythms.empty()) {
        refuseUsage(
            QStringLiteral("--rhythms takes a list of %1, or all.").arg(rhythmNames().join(QStringLiteral(", "))));
    }
    return rhythms;
}

CustomAlgorithm *createHeartRate(const UnitParams &params, const QSharedPointer<Montage> &montage,
                                 const AmplifierInfo &info)
{
    return new AdaptiveHeartRate(params, montage, info);
}

UnitParams makeHeartRate(const QCommandLineParser &parser, const Montage &montage)
{
    const QString channel = parser.value(kHeartRate);
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
    if (parser.isSet(kHeartAmp)) {
        ParameterCheck::assign(params, QStringLiteral("ampMin"), parser.value(kHeartAmp),
                               QStringLiteral("--heart-amp"));
    }
    return params;
}

/// What a file of a parameter set says.
struct SavedSet
{
    QString name;
    std::vector<std::pair<QString, QString>> values; ///< key and value
};

/// Without a name when the file is no saved set.
SavedSet readSet(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        refuse(QStringLiteral("Cannot read %1: %2.").arg(path, file.errorString()));
    }
    SavedSet set;
    QXmlStreamReader reader(&file);
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("algo")) {
        return set;
    }
    while (reader.readNextStartElement()) {
        if (reader.name() == QLatin1String("name")) {
            set.name = reader.readElementText();
        } else if (reader.name() == QLatin1String("prop")) {
            while (reader.readNextStartElement()) {
                const QString key = reader.name().toString();
                set.values.emplace_back(key, reader.readElementText());
            }
        } else {
            reader.skipCurrentElement();
        }
    }
    return set;
}

UnitParams loadSet(const QString &path, const Montage &montage)
{
    const SavedSet set = readSet(path);
    UnitParams params = ParamFactory::makeCustomProperty(set.name);
    if (params.isEmpty()) {
        refuse(QStringLiteral("%1 holds no parameter set of a known algorithm.").arg(path));
    }
    const QStringList channels = montage.getChannelNames();
    for (const auto &[key, value] : set.values) {
        ParameterCheck::assign(params, key, value, path, channels);
    }
    params.loadParamFromFile(path); // its descriptor and the rest
    const bool isHeartRate = params.getName() == QLatin1String("ElectroCardiogram");
    if (isHeartRate && params.getParamValue(QStringLiteral("channel")).toInt() > channels.size()) {
        refuse(QStringLiteral("%1: there is no channel %2 among %3.")
                   .arg(path, params.getParamValue(QStringLiteral("channel")), channels.join(QStringLiteral(", "))));
    }
    return params;
}

QString titleOf(const UnitParams &params)
{
    return params.getParamDescriptor().isEmpty() ? params.getName() : params.getParamDescriptor();
}

/// Throws a Refusal when one of the algorithms would replace another, or would wait for one that is not there.
void checkTogether(const std::vector<UnitParams> &algorithms)
{
    QStringList titles;
    QStringList types;
    for (const UnitParams &params : algorithms) {
        if (titles.contains(titleOf(params))) {
            refuse(
                QStringLiteral("Two algorithms have the name \"%1\"; leave one out, or name it otherwise (\"desc\").")
                    .arg(titleOf(params)));
        }
        titles << titleOf(params);
        types << params.getName();
    }
    for (const UnitParams &params : algorithms) {
        const bool isFormula = params.getName() == QLatin1String("Math");
        const QString depend = isFormula ? params.getParamValue(QStringLiteral("depend")) : params.getDependName();
        for (const QString &name : depend.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
            if (!(isFormula ? titles : types).contains(name)) {
                refuse(QStringLiteral("\"%1\" needs the results of \"%2\", which is not chosen.")
                           .arg(titleOf(params), name));
            }
        }
    }
}

} // namespace

void AlgorithmChoice::addOptions(QCommandLineParser &parser)
{
    parser.addOption({kRhythms,
                      QStringLiteral("Rhythm indices: a list of %1, or all; also into FILE_rt.xls beside a recording.")
                          .arg(rhythmNames().join(QLatin1Char(','))),
                      QStringLiteral("LIST")});
    parser.addOption({kChannels, QStringLiteral("Channels of the rhythms, by name; the EEG channels unless given."),
                      QStringLiteral("A,B")});
    parser.addOption({kHeartRate, QStringLiteral("Heart rate from an ECG channel, by name or number from 1."),
                      QStringLiteral("CHANNEL")});
    parser.addOption(
        {kHeartAmp,
         QStringLiteral("Least rise and fall of a heart beat, \"ampMin\" of its parameters: 2.5 suits R peaks of "
                        "1 mV; measured in the first 6 seconds unless given."),
         QStringLiteral("X")});
    parser.addOption({kAlgorithms, QStringLiteral("An algorithm's parameter set as saved to a file (repeatable)."),
                      QStringLiteral("FILE")});
}

std::vector<UnitParams> AlgorithmChoice::parse(const QCommandLineParser &parser, const Montage &montage)
{
    for (const auto &[option, needed] : {std::pair{kChannels, kRhythms}, std::pair{kHeartAmp, kHeartRate}}) {
        if (parser.isSet(option) && !parser.isSet(needed)) {
            refuseUsage(QStringLiteral("--%1 needs --%2.").arg(option, needed));
        }
    }
    // For every heart rate, that of a file without "ampMin" too.
    AlgorithmManager::registerAlgorithm(QStringLiteral("ElectroCardiogram"), createHeartRate);
    std::vector<UnitParams> algorithms;
    if (parser.isSet(kRhythms)) {
        algorithms = makeRhythms(parser, montage);
    }
    if (parser.isSet(kHeartRate)) {
        algorithms.push_back(makeHeartRate(parser, montage));
    }
    for (const QString &path : parser.values(kAlgorithms)) {
        algorithms.push_back(loadSet(path, montage));
    }
    checkTogether(algorithms);
    return algorithms;
}
