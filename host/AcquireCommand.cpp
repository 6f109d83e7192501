#include "AcquireSession.h"
#include "AlgorithmChoice.h"
#include "CommandRun.h"
#include "Commands.h"
#include "Console.h"
#include "DeviceFinder.h"
#include "Interrupt.h"
#include "MontageChoice.h"
#include "Refusal.h"
#include "algorithms/UnitParams.h"
#include "devices/Amplifier.h"
#include "files/EDFReader.h"
#include "montage/Montage.h"

#include <QCommandLineParser>
#include <QEventLoop>

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
    add("label", "Write an annotation at T seconds of the recording (repeatable).", "T:TEXT");
    AlgorithmChoice::addOptions(parser);
    add("lsl", "Stream through a Lab Streaming Layer outlet of this name.", "NAME");
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
    const QStringList labels = parser.values(QStringLiteral("label"));
    for (const QString &label : labels) {
        options.labels.push_back(parseLabel(label));
    }
    if (!labels.isEmpty() && options.recordPath.isEmpty()) {
        refuseUsage(QStringLiteral("--label needs --record: labels are written into the recording."));
    }
    return options;
}

Amplifier *openDevice(DeviceFinder &finder, const QCommandLineParser &parser)
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
        EDFReader reader(file);
        if (!reader.open()) {
            refuse(reader.lastError());
        }
        reader.close();
        if (!device->setFilePath(file)) {
            refuse(QStringLiteral("%1 has no signal to play.").arg(file));
        }
    }
    return device;
}

void setParameter(UnitParams &params, const char *key, const QString &value, const QString &option)
{
    const QString name = QString::fromLatin1(key);
    if (!params.contain(name)) {
        refuseUsage(QStringLiteral("%1 is for simulated and played devices only.").arg(option));
    }
    params.setParamValue(name, value);
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
        const QString key = assignment.left(equals);
        if (equals < 1 || !params.contain(key)) {
            refuseUsage(QStringLiteral("--set takes KEY=VALUE with one of the device's parameters: %1.")
                            .arg(QStringList(params.getParamNames()).join(QStringLiteral(", "))));
        }
        params.setParamValue(key, assignment.mid(equals + 1));
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
        params.setParamValue(QStringLiteral("duration"), QString::number(options.seconds, 'g', 12));
    }
    device->setUnitParams(params);
}

void printLeftOut(Amplifier *device)
{
    UnitParams params;
    device->getUnitParams(params);
    const UnitParams &values = params;
    const QString leftOut = values.contain(QStringLiteral("left_out")) ? values[QStringLiteral("left_out")] : QString();
    if (!leftOut.isEmpty()) {
        Console::error(QStringLiteral("Left out, since their rate differs: %1.")
                           .arg(QString(leftOut).replace(QLatin1Char(';'), QLatin1String(", "))));
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
        Console::print(QStringLiteral("  %1 %2 on average of %3 results")
                           .arg(it.key(), -12)
                           .arg(entry[QLatin1String("mean")].toDouble(), 8, 'f', 2)
                           .arg(entry[QLatin1String("results")].toInt()));
    }
    const QJsonObject record = summary[QLatin1String("record")].toObject();
    if (!record.isEmpty()) {
        Console::print(QStringLiteral("Recorded into %1: %2 bytes, %3 labels")
                           .arg(record[QLatin1String("path")].toString())
                           .arg(record[QLatin1String("bytes")].toDouble(), 0, 'f', 0)
                           .arg(record[QLatin1String("labels")].toInt()));
    }
}

Console::ExitStatus acquire(const QCommandLineParser &parser)
{
    AcquireOptions options = parseOptions(parser);
    DeviceFinder finder;
    Amplifier *device = openDevice(finder, parser);
    configure(device, parser, options);
    printLeftOut(device);

    const QSharedPointer<Montage> montage = MontageChoice::choose(device, parser.value(QStringLiteral("montage")));
    options.algorithms = AlgorithmChoice::parse(parser, *montage);
    AcquireSession session(device, montage, options);
    Interrupt interrupt;
    QEventLoop loop;
    QObject::connect(&interrupt, &Interrupt::interrupted, &session,
                     [&session] { session.stop(QStringLiteral("interrupted")); });
    QObject::connect(&session, &AcquireSession::finished, &loop, &QEventLoop::quit, Qt::QueuedConnection);
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
    return Console::Success;
}

} // namespace

int runAcquire(const QStringList &arguments)
{
    return runCommand(arguments, addOptions, acquire);
}
