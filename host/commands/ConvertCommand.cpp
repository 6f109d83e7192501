#include "Console.h"
#include "commands/CommandRun.h"
#include "commands/Commands.h"
#include "commands/ConversionRun.h"
#include "commands/OutputFile.h"
#include "commands/Refusal.h"
#include "files/EDFConverter.h"
#include "files/EDFReader.h"

#include <QCommandLineParser>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace {

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const char *text, const char *value = nullptr) {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value)});
    };
    parser.setApplicationDescription(QStringLiteral("Makes an EDF or BDF file of others.\n"
                                                    "  convert crop FILE OUT --from S --to S\n"
                                                    "  convert channels FILE OUT [--choose A,B] [--rename A=B] "
                                                    "[--scale A=2.5[:unit]] [--rate HZ]\n"
                                                    "  convert text FILE... OUT --rate HZ [--labels A,B] [--unit uV]\n"
                                                    "The name of OUT tells its format, .edf or .bdf; crop and channels "
                                                    "keep that of the source."));
    parser.addPositionalArgument(QStringLiteral("crop|channels|text"), QStringLiteral("What to do."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("What to read; text takes several."),
                                 QStringLiteral("FILE..."));
    parser.addPositionalArgument(QStringLiteral("OUT"), QStringLiteral("The file to write."));
    addForceOption(parser);
    add("from", "crop: seconds at which to begin; the beginning unless said.", "S");
    add("to", "crop: seconds at which to end; the end unless said.", "S");
    add("choose", "channels: the labels to keep, in this order, or #NUMBER; all unless said.", "A,B");
    add("rename", "channels: a new label (repeatable).", "A=B");
    add("scale", "channels: a factor for the values, and a unit (repeatable).", "A=X[:UNIT]");
    add("rate", "channels: the rate to resample to, of all or of one (repeatable); text: that of the lines.",
        "HZ|A=HZ");
    add("labels", "text: the labels of the channels.", "A,B");
    add("header", "text: the first line holds labels.");
    add("columns", "text: the columns to take, counted from 1.", "N,N");
    add("unit", "text: the unit of the values; uV unless said.", "UNIT");
    add("start", "text: when the recording began, 2024-03-01T10:00:00.", "TIME");
}

double number(const QString &text, const char *option)
{
    bool isNumber = false;
    const double value = text.toDouble(&isNumber);
    if (!isNumber || !std::isfinite(value)) {
        refuseUsage(QStringLiteral("--%1 takes a number, not \"%2\".").arg(QLatin1String(option), text));
    }
    return value;
}

QStringList list(const QString &text)
{
    return text.isEmpty() ? QStringList() : text.split(QLatin1Char(','));
}

/// The change of a channel as it was called in the source.
EDFChannelChange &changeOf(QVector<EDFChannelChange> &changes, const QString &name)
{
    for (EDFChannelChange &change : changes) {
        if (change.source == name) {
            return change;
        }
    }
    QStringList names;
    for (const EDFChannelChange &change : qAsConst(changes)) {
        names << change.source;
    }
    refuse(QStringLiteral("There is no channel \"%1\" among those chosen: %2.")
               .arg(name, names.join(QStringLiteral(", "))));
}

std::pair<QString, QString> assignment(const QString &text, const char *option)
{
    const int equals = text.lastIndexOf(QLatin1Char('='));
    if (equals < 1 || equals + 1 == text.size()) {
        refuseUsage(QStringLiteral("--%1 takes CHANNEL=VALUE, not \"%2\".").arg(QLatin1String(option), text));
    }
    return {text.left(equals), text.mid(equals + 1)};
}

double rateOf(const QString &text)
{
    const double rate = number(text, "rate");
    if (rate <= 0.0) {
        refuseUsage(QStringLiteral("--rate takes a rate above 0 Hz, not \"%1\".").arg(text));
    }
    return rate;
}

QVector<EDFChannelChange> parseChanges(const QCommandLineParser &parser, const QString &source)
{
    QStringList names = list(parser.value(QStringLiteral("choose")));
    if (names.isEmpty()) {
        QString error;
        names = EDFConverter::channelLabels(source, &error);
        if (!error.isEmpty()) {
            refuse(error);
        }
        for (int i = 0; i < names.size(); ++i) { // twins can only be told by number
            if (names.count(names[i]) > 1) {
                const QString twin = names[i];
                for (int k = names.size() - 1; k >= i; --k) {
                    names[k] = names[k] == twin ? QStringLiteral("#%1").arg(k + 1) : names[k];
                }
            }
        }
    }
    QVector<EDFChannelChange> changes;
    for (const QString &name : qAsConst(names)) {
        changes << EDFChannelChange{name, {}, 1.0, {}, 0.0};
    }
    for (const QString &text : parser.values(QStringLiteral("rename"))) {
        const auto [name, label] = assignment(text, "rename");
        changeOf(changes, name).label = label;
    }
    for (const QString &text : parser.values(QStringLiteral("scale"))) {
        const auto [name, value] = assignment(text, "scale");
        const int colon = value.indexOf(QLatin1Char(':'));
        EDFChannelChange &change = changeOf(changes, name);
        change.factor = number(value.left(colon), "scale");
        change.unit = colon < 0 ? QString() : value.mid(colon + 1);
    }
    for (const QString &text : parser.values(QStringLiteral("rate"))) {
        if (text.contains(QLatin1Char('='))) {
            const auto [name, value] = assignment(text, "rate");
            changeOf(changes, name).rate = rateOf(value);
        } else {
            for (EDFChannelChange &change : changes) {
                change.rate = rateOf(text);
            }
        }
    }
    return changes;
}

EDFTextFormat parseFormat(const QCommandLineParser &parser)
{
    EDFTextFormat format;
    if (!parser.isSet(QStringLiteral("rate"))) {
        refuseUsage(QStringLiteral("convert text needs --rate HZ, since text does not tell it."));
    }
    format.rate = rateOf(parser.value(QStringLiteral("rate")));
    format.labels = list(parser.value(QStringLiteral("labels")));
    format.hasLabelLine = parser.isSet(QStringLiteral("header"));
    format.unit = parser.isSet(QStringLiteral("unit")) ? parser.value(QStringLiteral("unit")) : format.unit;
    for (const QString &text : list(parser.value(QStringLiteral("columns")))) {
        const double column = number(text, "columns");
        if (column < 1.0 || column > 100000.0 || column != std::floor(column)) {
            refuseUsage(QStringLiteral("--columns takes numbers from 1 on, not \"%1\".").arg(text));
        }
        format.columns << static_cast<int>(column);
    }
    format.start = startOption(parser);
    return format;
}

struct Mode
{
    const char *name;
    std::array<const char *, 7> options; ///< of its own, null where there are fewer
};

constexpr std::array<Mode, 3> kModes{{
    {"crop", {"from", "to"}},
    {"channels", {"choose", "rename", "scale", "rate"}},
    {"text", {"rate", "labels", "header", "columns", "unit", "start"}},
}};

bool hasOption(const Mode &mode, const QString &option)
{
    return std::any_of(mode.options.begin(), mode.options.end(),
                       [&option](const char *name) { return name != nullptr && option == QLatin1String(name); });
}

/// Refuses options of the other modes.
void checkMode(const QCommandLineParser &parser, const QString &word)
{
    const auto mode = std::find_if(kModes.begin(), kModes.end(),
                                   [&word](const Mode &entry) { return word == QLatin1String(entry.name); });
    if (mode == kModes.end()) {
        refuseUsage(QStringLiteral("Say what to do: convert crop, convert channels or convert text (see --help)."));
    }
    for (const QString &option : parser.optionNames()) {
        const bool isOfAnother = std::any_of(kModes.begin(), kModes.end(),
                                             [&option](const Mode &entry) { return hasOption(entry, option); });
        if (isOfAnother && !hasOption(*mode, option)) {
            refuseUsage(QStringLiteral("convert %1 has no option --%2 (see --help).").arg(word, option));
        }
    }
}

/// Samples are copied as they stand, so that the format stays.
void requireSameFormat(const QString &source, const QString &target, const QString &what)
{
    const EDFInfo info = EDFReader::fileInfo(source);
    if (info.valid) {
        const bool isBdf = info.fileType.startsWith(QLatin1String("BDF"));
        requireSuffix(target, what + (isBdf ? QStringLiteral(" of a BDF file") : QStringLiteral(" of an EDF file")),
                      {isBdf ? QStringLiteral(".bdf") : QStringLiteral(".edf")});
    }
}

Console::ExitStatus convertText(const QCommandLineParser &parser, const QStringList &sources, const QString &target)
{
    const EDFTextFormat format = parseFormat(parser);
    requireSuffix(target, QStringLiteral("convert text"), {QStringLiteral(".edf"), QStringLiteral(".bdf")});
    refuseInput(target, sources);
    refuseToReplace(parser, target);
    return runConversion<EDFConverter>(
        target, [=](EDFConverter &converter) { converter.convertText(sources, target, format); });
}

Console::ExitStatus crop(const QCommandLineParser &parser, const QString &source, const QString &target)
{
    const double from =
        parser.isSet(QStringLiteral("from")) ? number(parser.value(QStringLiteral("from")), "from") : 0.0;
    const bool hasEnd = parser.isSet(QStringLiteral("to"));
    const double to = hasEnd ? number(parser.value(QStringLiteral("to")), "to") : -1.0;
    if (hasEnd && to <= from) {
        refuseUsage(QStringLiteral("--to must be behind --from."));
    }
    return runConversion<EDFConverter>(target,
                                       [=](EDFConverter &converter) { converter.crop(source, target, from, to); });
}

Console::ExitStatus convert(const QCommandLineParser &parser)
{
    QStringList files = parser.positionalArguments();
    const QString what = files.isEmpty() ? QString() : files.takeFirst();
    checkMode(parser, what);
    const bool isText = what == QLatin1String("text");
    if (files.size() < 2 || (!isText && files.size() != 2)) {
        refuseUsage(isText ? QStringLiteral("convert text takes the text files, then the file to write.")
                           : QStringLiteral("convert %1 takes a file and the file to write.").arg(what));
    }
    const QString target = files.takeLast();
    if (isText) {
        return convertText(parser, files, target);
    }
    const QString source = files.constFirst();
    requireSameFormat(source, target, QStringLiteral("convert %1").arg(what));
    refuseInput(target, files);
    refuseToReplace(parser, target);
    if (what == QLatin1String("crop")) {
        return crop(parser, source, target);
    }
    const QVector<EDFChannelChange> changes = parseChanges(parser, source);
    return runConversion<EDFConverter>(
        target, [=](EDFConverter &converter) { converter.convertChannels(source, target, changes); });
}

} // namespace

int runConvert(const QStringList &arguments)
{
    return runCommand(arguments, addOptions, convert);
}
