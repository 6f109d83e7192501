#include "Console.h"
#include "acquire/PlayedRecording.h"
#include "commands/Commands.h"
#include "common/BPCommon.h"
#include "devices/AmplifierChannel.h"
#include "devices/AnnotationStrct.h"
#include "files/EDFReader.h"
#include "montage/Montage.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

namespace {

constexpr int kTimeDigits = 14;

QJsonArray channelsToJson(EDFReader &reader)
{
    QJsonArray channels;
    const QSharedPointer<Montage> montage = reader.getFileMontage();
    for (int i = 0; i < reader.getChannelCount(); ++i) {
        channels << QJsonObject{
            {QStringLiteral("name"), reader.getChannelName(i).trimmed()},
            {QStringLiteral("type"), (*montage)[static_cast<unsigned>(i)]->getTextType()},
            {QStringLiteral("frequency"), static_cast<double>(reader.getChannelSampleRate(i))},
            {QStringLiteral("unit"), reader.getPhysicalDimension(i)},
            {QStringLiteral("samples"), reader.getChannelSampleCount(i)},
        };
    }
    return channels;
}

QJsonArray annotationsToJson(const EDFReader &reader)
{
    QJsonArray annotations;
    for (const AnnotationStrct &annotation : reader.annotations()) {
        QJsonObject object{{QStringLiteral("onset"), annotation.onset}, {QStringLiteral("text"), annotation.text}};
        if (annotation.duration >= 0.0) {
            object.insert(QStringLiteral("duration"), annotation.duration);
        }
        annotations << object;
    }
    return annotations;
}

QJsonArray gapsToJson(const EDFReader &reader)
{
    QJsonArray gaps;
    for (const EDFGap &gap : reader.gaps()) {
        gaps << QJsonObject{{QStringLiteral("position"), gap.position},
                            {QStringLiteral("start"), gap.start},
                            {QStringLiteral("duration"), gap.duration}};
    }
    return gaps;
}

QString startText(const QDateTime &start)
{
    return start.toString(start.time().msec() == 0 ? Qt::ISODate : Qt::ISODateWithMs);
}

QJsonObject toJson(EDFReader &reader, const QString &path)
{
    QJsonObject object{
        {QStringLiteral("file"), path},
        {QStringLiteral("type"), reader.fileTypeText()},
        {QStringLiteral("start"), startText(reader.getStartDateTime())},
        {QStringLiteral("seconds"), reader.getExactDuration()},
        {QStringLiteral("patient"), reader.getPatientName()},
        {QStringLiteral("equipment"), reader.getEquipmentInfo()},
        {QStringLiteral("channels"), channelsToJson(reader)},
        {QStringLiteral("annotations"), annotationsToJson(reader)},
    };
    if (!reader.gaps().isEmpty()) {
        object.insert(QStringLiteral("gaps"), gapsToJson(reader));
    }
    if (!reader.notice().isEmpty()) {
        object.insert(QStringLiteral("notice"), reader.notice());
    }
    return object;
}

/// A time in seconds with all digits that it has in the file.
QString seconds(const QJsonValue &value)
{
    return QString::number(value.toDouble(), 'g', kTimeDigits);
}

void printGaps(const QJsonArray &gaps)
{
    for (const QJsonValue &value : gaps) {
        const QJsonObject gap = value.toObject();
        Console::print(QStringLiteral("  gap of %1 s at %2 s, after %3 s of signal")
                           .arg(seconds(gap[QLatin1String("duration")]), seconds(gap[QLatin1String("start")]),
                                seconds(gap[QLatin1String("position")])));
    }
}

void printAnnotations(const QJsonArray &annotations)
{
    for (const QJsonValue &value : annotations) {
        const QJsonObject annotation = value.toObject();
        const QJsonValue duration = annotation[QLatin1String("duration")];
        const bool lasts = duration.toDouble() > kNoDuration;
        Console::print(QStringLiteral("  at %1 s%2: %3")
                           .arg(seconds(annotation[QLatin1String("onset")]),
                                lasts ? QStringLiteral(" for %1 s").arg(seconds(duration)) : QString(),
                                annotation[QLatin1String("text")].toString()));
    }
}

void printText(const QJsonObject &info)
{
    const QJsonArray channels = info[QLatin1String("channels")].toArray();
    const QJsonArray annotations = info[QLatin1String("annotations")].toArray();
    Console::print(QStringLiteral("%1: %2, %3 s from %4, %5 channels, %6 annotations")
                       .arg(info[QLatin1String("file")].toString(), info[QLatin1String("type")].toString(),
                            seconds(info[QLatin1String("seconds")]), info[QLatin1String("start")].toString(),
                            QString::number(channels.size()), QString::number(annotations.size())));
    for (const auto &[caption, key] : {std::pair("Patient", "patient"), std::pair("Equipment", "equipment")}) {
        const QString text = info[QLatin1String(key)].toString();
        if (!text.isEmpty()) {
            Console::print(QStringLiteral("%1: %2").arg(QLatin1String(caption), text));
        }
    }
    for (const QJsonValue &value : channels) {
        const QJsonObject channel = value.toObject();
        Console::print(QStringLiteral("  %1 %2 %3 Hz  %4")
                           .arg(channel[QLatin1String("name")].toString(), -16)
                           .arg(channel[QLatin1String("type")].toString(), -5)
                           .arg(channel[QLatin1String("frequency")].toDouble(), 8)
                           .arg(channel[QLatin1String("unit")].toString()));
    }
    printGaps(info[QLatin1String("gaps")].toArray());
    printAnnotations(annotations);
}

} // namespace

int runInfo(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Tells what an EDF or BDF file holds."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The EDF(+) or BDF(+) file."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print a JSON object."));
    parser.addOption(json);
    Console::ExitStatus status = Console::Success;
    if (!Console::parse(parser, arguments, status)) {
        return status;
    }
    if (parser.positionalArguments().size() != 1) {
        Console::error(QStringLiteral("info takes one file."));
        return Console::WrongUsage;
    }

    const QString path = parser.positionalArguments().constFirst();
    EDFReader reader(path);
    if (!reader.open()) {
        Console::error(reader.lastError());
        return Console::Failure;
    }
    const QJsonObject info = toJson(reader, path);
    if (parser.isSet(json)) {
        Console::printJson(info);
    } else {
        printText(info);
        if (!reader.notice().isEmpty()) {
            Console::error(reader.notice());
        }
    }
    return Console::Success;
}
