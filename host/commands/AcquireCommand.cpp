#include "Console.h"
#include "Interrupt.h"
#include "acquire/AcquireSession.h"
#include "acquire/AlgorithmChoice.h"
#include "acquire/DeviceFinder.h"
#include "acquire/MontageChoice.h"
#include "acquire/ParameterCheck.h"
#include "acquire/PlayedRecording.h"
#include "algorithms/UnitParams.h"
#include "commands/CommandRun.h"
#include "commands/Commands.h"
#include "commands/OutputFile.h"
#include "commands/Refusal.h"
#include "devices/Amplifier.h"
#include "montage/Montage.h"

#include <QCommandLineParser>
#include <QEventLoop>

#include <algorithm>
#include <cmath>

namespace {

const QString kDefaultDevice = QStringLiteral("Simulator");
const QString kPlaybackDevice = QStringLiteral("Playback");

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const char *text, const char *value = nullptr) {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value)});
    };
    parser.setApplicationDescription(
        QStringLiteral("Acquires until the time is up, the device ends or Ctrl-C, then prints a summary."));
    add("device", "Device by name, as \"devices\" lists it; the simulator unless said.", "NAME");
    add("playback", "Play an EDF or BDF recording as the device.", "FILE");
    add("speed", "Pace of a simulated or played device; 1 is real time.", "X|max");
    add("frequency", "Sampling rate in Hz, one that the device offers.", "HZ");
    add("set", "Set a parameter of the device (repeatable); an unknown key lists what there is.", "KEY=VALUE");
    add("montage", "Montage file; one channel per device channel unless given.", "FILE.xml");
    add("seconds", "Length in seconds of signal.", "N");
    add("record", "Record into this EDF+ file.", "FILE.edf");
    addForceOption(parser);
    add("patient", "Name of the patient in the recording; that of a played recording unless given.", "NAME");
    add("start",
        "Start time in the recording, 2024-03-01T10:00:00; that of a played recording, or the clock's, unless given.",
        "TIME");
    add("label",
        "Write an annotation at T seconds of the recording (repeatable); the annotations of a played recording are "
        "written anyway.",
        "T:TEXT");
    AlgorithmChoice::addOptions(parser);
    add("lsl", "Stream through a Lab Streaming Layer outlet of this name: samples, no labels.", "NAME");
    add("json", "Print the summary, and each second the live values, as one JSON object on a line.");
}

double positiveNumber(const QCommandLineParser &parser, const QString &option)
{
    if (!parser.isSet(option)) {
        return 0.0;
    }
    bool isNumber = false;
    const double value = parser.value(option).toDouble(&isNumber);
    if (!isNumber || !std::isfinite(value) || value <= 0.0) {
        refuseUsage(QStringLiteral("--%1 takes a number above 0, not \"%2\".").arg(option, parser.value(option)));
    }
    return value;
}

TimedLabel parseLabel(const QString &text)
{
    const int colon = text.indexOf(QLatin1Char(':'));
    bool isNumber = false;
    const double seconds = text.left(colon).toDouble(&isNumber);
    if (colon < 1 || !isNumber || !std::isfinite(seconds) || seconds < 0.0 || colon + 1 == text.size()) {
        refuseUsage(QStringLiteral("--label takes T:TEXT with T in seconds, not \"%1\".").arg(text));
    }
    return {seconds, text.mid(colon + 1)};
}

/// Refuses whatever a recording would destroy.
void checkRecordPath(const QCommandLineParser &parser)
{
    const QString path = parser.value(QStringLiteral("record"));
    if (path.isEmpty()) {
        for (const char *option : {"label", "patient", "start", "force"}) {
            if (parser.isSet(QLatin1String(option))) {
                refuseUsage(
                    QStringLiteral("--%1 needs --record: it is about the recording.").arg(QLatin1String(option)));
            }
        }
        return;
    }
    requireSuffix(path, QStringLiteral("--record"), {QStringLiteral(".edf")});
    QStringList inputs;
    for (const char *option : {"playback", "montage", "algorithms"}) {
        inputs << parser.values(QLatin1String(option));
    }
    const bool hasRhythms = parser.isSet(QStringLiteral("rhythms")) || parser.isSet(QStringLiteral("algorithms"));
    for (const QString &file : hasRhythms ? QStringList{path, AcquireSession::rhythmPath(path)} : QStringList{path}) {
        refuseInput(file, inputs);
        refuseToReplace(parser, file);
    }
}

AcquireOptions parseOptions(const QCommandLineParser &parser)
{
    if (!parser.positionalArguments().isEmpty()) {
        refuseUsage(
            QStringLiteral("acquire takes options only, not \"%1\".").arg(parser.positionalArguments().constFirst()));
    }
    if (parser.isSet(QStringLiteral("device")) && parser.isSet(QStringLiteral("playback"))) {
        refuseUsage(QStringLiteral("--device and --playback exclude each other."));
    }
    AcquireOptions options;
    options.seconds = positiveNumber(parser, QStringLiteral("seconds"));
    options.recordPath = parser.value(QStringLiteral("record"));
    options.lslName = parser.value(QStringLiteral("lsl"));
    options.json = parser.isSet(QStringLiteral("json"));
    options.recordStart = startOption(parser);
    if (parser.isSet(QStringLiteral("patient"))) {
        options.patient = PatientInfo();
        options.patient->gender = -1;
        options.patient->name = parser.value(QStringLiteral("patient"));
    }
    const QStringList labels = parser.values(QStringLiteral("label"));
    for (const QString &label : labels) {
        options.labels.push_back(parseLabel(label));
    }
    checkRecordPath(parser);
    return options;
}

Amplifier *openDevice(DeviceFinder &finder, const QCommandLineParser &parser, AcquireOptions &options)
{
    const QString file = parser.value(QStringLiteral("playback"));
    const QString name = !file.isEmpty()         ? kPlaybackDevice
        : parser.isSet(QStringLiteral("device")) ? parser.value(QStringLiteral("device"))
                                                 : kDefaultDevice;
    finder.search();
    Amplifier *device = finder.open(name);
    if (device == nullptr) {
        refuse(QStringLiteral("There is no device \"%1\": \"bioprocessing devices\" lists what there is.").arg(name));
    }
    if (!file.isEmpty()) {
        options.played.open(*device, file);
    } else if (device->getAmplifierInfo().name() == kPlaybackDevice) {
        refuseUsage(QStringLiteral("Say which recording the device plays: --playback FILE."));
    }
    return device;
}

void setParameter(UnitParams &params, const char *key, const QString &value, const QString &option)
{
    const QString name = QString::fromLatin1(key);
    if (!params.contain(name)) {
        refuseUsage(QStringLiteral("%1 is for simulated and played devices only.").arg(option));
    }
    ParameterCheck::assign(params, name, value, option);
}

void setFrequency(Amplifier *device, double frequency)
{
    QList<float> rates;
    AmplifierInfo info = device->getAmplifierInfo();
    info.getFrequencisList(rates);
    if (rates.contains(static_cast<float>(frequency)) && device->setFreqValue(static_cast<float>(frequency))) {
        return;
    }
    QStringList texts;
    for (const float rate : qAsConst(rates)) {
        texts << QString::number(static_cast<double>(rate));
    }
    refuse(QStringLiteral("The device has no rate of %1 Hz, only %2.")
               .arg(frequency)
               .arg(texts.join(QStringLiteral(", "))));
}

void setNamedParameters(UnitParams &params, const QStringList &assignments)
{
    for (const QString &assignment : assignments) {
        const int equals = assignment.indexOf(QLatin1Char('='));
        ParameterCheck::assign(params, assignment.left(equals), equals < 0 ? QString() : assignment.mid(equals + 1),
                               QStringLiteral("--set"), {}, true);
    }
}

void configure(Amplifier *device, const QCommandLineParser &parser, const AcquireOptions &options)
{
    const double frequency = positiveNumber(parser, QStringLiteral("frequency"));
    if (frequency > 0.0) {
        setFrequency(device, frequency);
    }
    UnitParams params;
    device->getUnitParams(params);
    setNamedParameters(params, parser.values(QStringLiteral("set")));
    if (parser.isSet(QStringLiteral("speed"))) {
        const bool max = parser.value(QStringLiteral("speed")) == QLatin1String("max");
        const double speed = max ? 0.0 : positiveNumber(parser, QStringLiteral("speed"));
        setParameter(params, "speed", QString::number(speed), QStringLiteral("--speed"));
    }
    if (options.seconds > 0.0 && params.contain(QStringLiteral("duration"))) {
        // The device ends on the sample; the session's own count would end some blocks later.
        setParameter(params, "duration", QString::number(options.seconds, 'g', 12), QStringLiteral("--seconds"));
    }
    device->setUnitParams(params);
}

/// What goes with a played recording into the one that is made, unless the user said otherwise.
void takePlayed(Amplifier *device, const QCommandLineParser &parser, AcquireOptions &options)
{
    UnitParams params;
    device->getUnitParams(params);
    const QString speed = params.getParamValue(QStringLiteral("speed"));
    options.isPaced = parser.isSet(QStringLiteral("playback")) || (!speed.isEmpty() && speed != QLatin1String("1"));
    if (!parser.isSet(QStringLiteral("playback"))) {
        return;
    }
    options.played = options.played.fromWhereDeviceBegins(*device);
    if (options.patient) {
        options.played.patient = *options.patient;
    }
}

void printNotes(Amplifier *device, const AcquireOptions &options)
{
    const QStringList notes = options.played.notes + deviceNotes(*device, !options.recordPath.isEmpty());
    for (const QString &note : notes) {
        Console::error(note);
    }
}

void printRecord(const QJsonObject &record, bool hasFailed)
{
    const QString path = record[QLatin1String("path")].toString();
    const double padded = record[QLatin1String("padded_seconds")].toDouble();
    if (record[QLatin1String("complete")].toBool()) {
        Console::print(
            QStringLiteral("%1 %2: %3 bytes, %4 labels%5")
                .arg(hasFailed ? QStringLiteral("Recorded until then:") : QStringLiteral("Recorded into"), path)
                .arg(record[QLatin1String("bytes")].toDouble(), 0, 'f', 0)
                .arg(record[QLatin1String("labels")].toInt())
                .arg(padded > 0.0 ? QStringLiteral("; the last %1 s of it are zeros that fill its last second")
                                        .arg(padded, 0, 'g', 3)
                                  : QString()));
    }
    if (record.contains(QLatin1String("rhythms"))) {
        Console::print(QStringLiteral("Rhythms in %1").arg(record[QLatin1String("rhythms")].toString()));
    }
    const QJsonObject clipped = record[QLatin1String("clipped_samples")].toObject();
    QStringList channels;
    for (auto it = clipped.begin(); it != clipped.end(); ++it) {
        channels << QStringLiteral("%1 of %2").arg(it.value().toDouble(), 0, 'f', 0).arg(it.key());
    }
    if (!channels.isEmpty()) {
        Console::error(
            QStringLiteral("Samples beyond ±32767 µV were clipped in the recording (%1): a montage can scale "
                           "these channels.")
                .arg(channels.join(QStringLiteral(", "))));
    }
}

void printSummary(const QJsonObject &summary)
{
    Console::print(QStringLiteral("%1 (%2), %3 channels at %4 Hz: %5 s of signal in %6 blocks, %7 s by the clock")
                       .arg(summary[QLatin1String("name")].toString(), summary[QLatin1String("serial")].toString())
                       .arg(summary[QLatin1String("montage_channels")].toInt())
                       .arg(summary[QLatin1String("frequency")].toDouble())
                       .arg(summary[QLatin1String("seconds")].toDouble(), 0, 'f', 2)
                       .arg(summary[QLatin1String("blocks")].toInt())
                       .arg(summary[QLatin1String("wall_seconds")].toDouble(), 0, 'f', 2));
    const QJsonObject algorithms = summary[QLatin1String("algorithms")].toObject();
    for (auto it = algorithms.begin(); it != algorithms.end(); ++it) {
        const QJsonObject entry = it.value().toObject();
        const int results = entry[QLatin1String("results")].toInt();
        const bool isHeartRate = entry[QLatin1String("unit")] == QLatin1String("bpm");
        Console::print(results == 0 ? QStringLiteral("  %1  gave no result%2")
                                          .arg(it.key(), -12)
                                          .arg(isHeartRate ? QStringLiteral("; it needs some 8 seconds") : QString())
                                    : QStringLiteral("  %1 %2 %3 on average of %4 results")
                                          .arg(it.key(), -12)
                                          .arg(entry[QLatin1String("mean")].toDouble(), 8, 'f', 2)
                                          .arg(entry[QLatin1String("unit")].toString())
                                          .arg(results));
    }
    const QJsonObject record = summary[QLatin1String("record")].toObject();
    if (!record.isEmpty()) {
        printRecord(record, summary[QLatin1String("ended")] == QLatin1String("error"));
    }
}

Console::ExitStatus acquire(const QCommandLineParser &parser)
{
    AcquireOptions options = parseOptions(parser);
    DeviceFinder finder;
    Amplifier *device = openDevice(finder, parser, options);
    configure(device, parser, options);
    takePlayed(device, parser, options);

    const QSharedPointer<Montage> montage = MontageChoice::choose(device, parser.value(QStringLiteral("montage")));
    options.algorithms = AlgorithmChoice::parse(parser, *montage);
    printNotes(device, options);
    Interrupt interrupt; // until the session has closed its files
    AcquireSession session(device, montage, options);
    QEventLoop loop;
    QObject::connect(&interrupt, &Interrupt::interrupted, &session,
                     [&session] { session.stop(QStringLiteral("interrupted")); });
    QObject::connect(&session, &AcquireSession::finished, &loop, &QEventLoop::quit, Qt::QueuedConnection);
    MontageChoice::printFilterNotes(*montage);
    session.start();
    loop.exec();

    const QJsonObject summary = session.summary();
    if (options.json) {
        Console::printJsonLine(summary);
    } else {
        printSummary(summary);
    }
    if (!session.errorText().isEmpty()) {
        Console::error(session.errorText());
        return Console::Failure;
    }
    if (Console::isOutputClosed()) {
        Console::error(QStringLiteral("The acquisition was ended, since nobody reads its output any more."));
    }
    return Console::Success;
}

} // namespace

int runAcquire(const QStringList &arguments)
{
    return runCommand(arguments, addOptions, acquire);
}
