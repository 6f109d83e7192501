#include "learning/TrainingData.h"

#include "commands/Refusal.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cmath>

namespace {

struct NamedFile
{
    QString path;
    QString label;
};

NamedFile parseFile(const QString &text, bool hasEvents)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    if (hasEvents || QFileInfo::exists(text)) {
        if (!hasEvents) {
            refuseUsage(QStringLiteral("--data takes FILE:LABEL; \"%1\" has no label.").arg(text));
        }
        return {text, QString()};
    }
    if (colon < 1 || colon + 1 == text.size()) {
        refuseUsage(QStringLiteral("--data takes FILE:LABEL, not \"%1\".").arg(text));
    }
    return {text.left(colon), text.mid(colon + 1)};
}

/// Labels that are numbers keep them; others are numbered from 1 in the order in which they come.
QMap<QString, int> numberLabels(const QStringList &names)
{
    QMap<QString, int> numbers;
    bool areNumbers = true;
    for (const QString &name : names) {
        bool isNumber = false;
        numbers.insert(name, name.toInt(&isNumber));
        areNumbers = areNumbers && isNumber && numbers.value(name) >= 0;
    }
    const QList<int> values = numbers.values();
    if (!areNumbers || QSet<int>(values.begin(), values.end()).size() != values.size()) { // "1" and "01" are two names
        for (auto it = numbers.begin(); it != numbers.end(); ++it) {
            it.value() = static_cast<int>(names.indexOf(it.key())) + 1;
        }
    }
    return numbers;
}

std::size_t sampleAt(double seconds, const Recording &recording)
{
    const double sample = std::round(seconds * recording.rate);
    return static_cast<std::size_t>(std::clamp(sample, 0.0, static_cast<double>(recording.size())));
}

} // namespace

void TrainingData::addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const char *text, const char *value, const char *preset = "") {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value),
                          QString::fromLatin1(preset)});
    };
    add("data", "A recording (EDF, BDF, text) of one class (repeatable); without a label when --events is given.",
        "FILE:LABEL");
    add("events", "Classes are trials that begin at annotations of these names.", "A,B");
    add("from", "Beginning of a trial, seconds from its event.", "S", "0");
    add("to", "End of a trial, seconds from its event.", "S", "4");
    add("channels", "Channels by name, in this order; of a text, columns from 1. All unless said.", "A,B");
    add("rate", "Sampling rate of texts.", "HZ", "0");
}

TrainingData TrainingData::read(const QCommandLineParser &parser, double highPass)
{
    const QStringList files = parser.values(QStringLiteral("data"));
    const QStringList events = parser.value(QStringLiteral("events")).split(QLatin1Char(','), Qt::SkipEmptyParts);
    const QStringList channels = parser.value(QStringLiteral("channels")).split(QLatin1Char(','), Qt::SkipEmptyParts);
    const double textRate = Option::number(parser, "rate", 0.0, 1e6);
    const double from = Option::number(parser, "from", -1e6, 1e6);
    const double to = Option::number(parser, "to", -1e6, 1e6);
    if (QStringList(channels).removeDuplicates() > 0) {
        refuseUsage(QStringLiteral("--channels names a channel twice: %1.").arg(channels.join(QLatin1Char(','))));
    }
    if (files.isEmpty()) {
        refuseUsage(QStringLiteral("Say what to learn from: --data FILE:LABEL, once per recording."));
    }
    std::vector<NamedFile> named;
    QStringList labels = events;
    for (const QString &file : files) {
        named.push_back(parseFile(file, !events.isEmpty()));
        if (events.isEmpty() && !labels.contains(named.back().label)) {
            labels << named.back().label;
        }
    }
    const QMap<QString, int> numbers = numberLabels(labels);
    TrainingData data;
    for (auto it = numbers.cbegin(); it != numbers.cend(); ++it) {
        data.classes.insert(it.value(), it.key());
    }
    for (const NamedFile &file : named) {
        data.recordings.push_back(Recording::read(file.path, channels, textRate));
        data.recordings.back().highPass(highPass);
        const Recording &first = data.recordings.front();
        const Recording &last = data.recordings.back();
        if (last.rate != first.rate || last.rows.size() != first.rows.size()) {
            refuse(QStringLiteral("%1 has %2 channels at %3 Hz, but %4 has %5 at %6 Hz: they don't go together.")
                       .arg(last.path)
                       .arg(last.rows.size())
                       .arg(last.rate)
                       .arg(first.path)
                       .arg(first.rows.size())
                       .arg(first.rate));
        }
        data.recordings.back().arrange(first.names);
        if (events.isEmpty()) {
            data.segments.push_back({data.recordings.size() - 1, 0, last.size(), numbers.value(file.label), false});
        } else {
            data.addTrials(data.recordings.size() - 1, events, from, to);
        }
    }
    data.rate = static_cast<int>(std::lround(data.recordings.front().rate));
    return data;
}

void TrainingData::addTrials(std::size_t recording, const QStringList &names, double from, double to)
{
    if (!(from < to)) {
        refuseUsage(
            QStringLiteral("A trial ends after it begins: --to %1 has to be above --from %2.").arg(to).arg(from));
    }
    const Recording &source = recordings[recording];
    QStringList seen;
    const std::size_t before = segments.size();
    for (const Event &event : source.events) {
        if (!seen.contains(event.text)) {
            seen << event.text;
        }
        if (!names.contains(event.text)) {
            continue;
        }
        const int label = classes.key(event.text);
        segments.push_back(
            {recording, sampleAt(event.onset + from, source), sampleAt(event.onset + to, source), label, true});
    }
    if (segments.size() == before) {
        refuse(QStringLiteral("%1 has no event %2; it has %3.")
                   .arg(source.path, names.join(QStringLiteral(" or ")),
                        seen.isEmpty() ? QStringLiteral("none at all") : seen.join(QStringLiteral(", "))));
    }
}

double Option::number(const QCommandLineParser &parser, const char *name, double least, double most)
{
    bool isNumber = false;
    const QString text = parser.value(QLatin1String(name));
    const double value = text.toDouble(&isNumber);
    if (!isNumber || !(value >= least && value <= most)) {
        refuseUsage(QStringLiteral("--%1 takes a number from %2 to %3, not \"%4\".")
                        .arg(QLatin1String(name))
                        .arg(least)
                        .arg(most)
                        .arg(text));
    }
    return value;
}

int Option::integer(const QCommandLineParser &parser, const char *name, int least, int most)
{
    const double value = number(parser, name, least, most);
    if (value != std::floor(value)) {
        refuseUsage(QStringLiteral("--%1 takes a whole number, not \"%2\".")
                        .arg(QLatin1String(name), parser.value(QLatin1String(name))));
    }
    return static_cast<int>(value);
}

std::vector<QPair<float, float>> Option::bands(const QCommandLineParser &parser, const char *name)
{
    std::vector<QPair<float, float>> bands;
    const QString text = parser.value(QLatin1String(name));
    for (const QString &part : text.split(QLatin1Char(','))) {
        const QStringList edges = part.split(QLatin1Char('-'));
        bool isLow = false;
        bool isHigh = false;
        const float low = edges.value(0).toFloat(&isLow);
        const float high = edges.value(1).toFloat(&isHigh);
        if (edges.size() != 2 || !isLow || !isHigh || !(low >= 0.0f && high > low)) {
            refuseUsage(QStringLiteral("--%1 takes bands in Hz such as 8-13,13-30, not \"%2\".")
                            .arg(QLatin1String(name), text));
        }
        bands.push_back({low, high});
    }
    return bands;
}
