#include "Console.h"
#include "Interrupt.h"
#include "acquire/DeviceFinder.h"
#include "acquire/MontageChoice.h"
#include "acquire/SampleWatch.h"
#include "bci/ModelFile.h"
#include "bci/Preprocessor.h"
#include "commands/CommandRun.h"
#include "commands/Commands.h"
#include "commands/Refusal.h"
#include "devices/Amplifier.h"
#include "learning/LiveClassifier.h"
#include "learning/TrainingData.h"
#include "learning/Validation.h"
#include "montage/Montage.h"
#include "pipeline/DataCompound.h"

#include <QCommandLineParser>
#include <QEventLoop>
#include <QJsonObject>

#include <cmath>

namespace {

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const char *text, const char *value, const char *preset = "") {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value),
                          QString::fromLatin1(preset)});
    };
    parser.setApplicationDescription(
        QStringLiteral("Classifies a recording, or a device's stream, window by window with a trained model."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("recording: EDF, BDF or text"),
                                 QStringLiteral("[FILE]"));
    add("model", "Model that \"train --save\" wrote.", "MODEL");
    add("events", "Classify the trials at these annotations only, and count what is right.", "A,B");
    add("from", "Beginning of a trial, seconds from its event.", "S", "0");
    add("to", "End of a trial, seconds from its event.", "S", "4");
    add("rate", "Sampling rate of a text.", "HZ", "0");
    add("device", "Classify the stream of this device until --seconds or Ctrl-C.", "NAME");
    add("montage", "Montage file for the device; one channel per device channel unless given.", "FILE.xml");
    add("seconds", "Length of the stream, seconds; 0 for no end.", "N", "0");
    parser.addOption({QStringLiteral("json"), QStringLiteral("Print JSON objects, one on a line.")});
}

void checkRate(const Recording &recording, const bp::ModelFile &model)
{
    if (static_cast<int>(std::lround(recording.rate)) != model.rate) {
        refuse(QStringLiteral("%1 is sampled at %2 Hz, but the model was trained at %3 Hz.")
                   .arg(recording.path)
                   .arg(recording.rate)
                   .arg(model.rate));
    }
}

void printWindow(double seconds, const QString &name, bool json)
{
    if (json) {
        Console::printJsonLine({{QStringLiteral("time"), seconds}, {QStringLiteral("class"), name}});
    } else {
        Console::print(QStringLiteral("%1 s  %2").arg(seconds, 9, 'f', 2).arg(name));
    }
}

void printSummary(const Confusion &confusion, const QMap<int, QString> &classes, bool json)
{
    if (json) {
        Console::printJsonLine({{QStringLiteral("accuracy"), confusion.accuracy()},
                                {QStringLiteral("windows"), confusion.total()},
                                {QStringLiteral("classes"), confusion.toJson(classes)}});
    } else {
        Console::print(QStringLiteral("%1 % of %2 windows right")
                           .arg(100.0 * confusion.accuracy(), 0, 'f', 1)
                           .arg(confusion.total()));
        Console::print(confusion.table(classes));
    }
}

Console::ExitStatus classifyFile(const QCommandLineParser &parser, bp::ModelFile &model)
{
    TrainingData data;
    data.classes = model.classes;
    data.recordings.push_back(Recording::read(parser.positionalArguments().constFirst(), model.channels,
                                              Option::number(parser, "rate", 0.0, 1e6)));
    const Recording &recording = data.recordings.front();
    checkRate(recording, model);
    data.recordings.front().highPass(model.highPass);
    const QStringList events = parser.value(QStringLiteral("events")).split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (events.isEmpty()) {
        data.segments.push_back({0, 0, recording.size(), 0, false});
    } else {
        for (const QString &event : events) {
            if (!model.classes.values().contains(event)) {
                refuse(QStringLiteral("The model knows no class \"%1\", only %2.")
                           .arg(event, QStringList(model.classes.values()).join(QStringLiteral(", "))));
            }
        }
        data.addTrials(0, events, Option::number(parser, "from", -1e6, 1e6), Option::number(parser, "to", -1e6, 1e6));
    }
    const bool json = parser.isSet(QStringLiteral("json"));
    Windows windows(model.windowSamples(), model.stepSamples());
    windows.cut(data.recordings, data.segments, *model.pair.preprocessor);
    if (windows.all().empty()) {
        refuse(QStringLiteral("%1 is shorter than a window of %2 s.").arg(recording.path).arg(model.window));
    }
    Confusion confusion;
    for (const LabelledWindow &window : windows.all()) {
        std::vector<std::vector<float>> features = window.features;
        const int answer = classify(model.pair, features);
        printWindow(static_cast<double>(window.begin) / recording.rate, nameOf(answer, model.classes), json);
        confusion.add(window.label, answer);
    }
    if (!events.isEmpty()) {
        printSummary(confusion, model.classes, json);
    }
    return Console::Success;
}

Amplifier *openDevice(DeviceFinder &finder, const QString &name, int rate)
{
    finder.search();
    Amplifier *device = finder.open(name);
    if (device == nullptr) {
        refuse(QStringLiteral("There is no device \"%1\": \"bioprocessing devices\" lists what there is.").arg(name));
    }
    device->setFreqValue(static_cast<float>(rate));
    if (static_cast<int>(std::lround(device->getFreqValue())) != rate) {
        refuse(QStringLiteral("The device cannot sample at %1 Hz, at which the model was trained.").arg(rate));
    }
    return device;
}

Console::ExitStatus classifyDevice(const QCommandLineParser &parser, bp::ModelFile &&model)
{
    DeviceFinder finder;
    Amplifier *device = openDevice(finder, parser.value(QStringLiteral("device")), model.rate);
    const QSharedPointer<Montage> montage = MontageChoice::choose(device, parser.value(QStringLiteral("montage")));
    const double limit = Option::number(parser, "seconds", 0.0, 1e9);
    const double rate = model.rate;
    LiveClassifier classifier(std::move(model));
    if (!classifier.setChannels(montage->getChannelNames())) {
        refuse(QStringLiteral("The model needs the channels %1; the device has %2.")
                   .arg(classifier.model().channels.join(QStringLiteral(", ")),
                        montage->getChannelNames().join(QStringLiteral(", "))));
    }
    DataCompound compound(device, montage);
    MontageChoice::printFilterNotes(*montage);
    Interrupt interrupt;
    SampleWatch watch;
    QEventLoop loop;
    qint64 samples = 0;
    int deviceCode = 0;
    const auto print = [&](const QString &name) {
        printWindow(static_cast<double>(samples) / rate, name, parser.isSet(QStringLiteral("json")));
    };
    QObject::connect(&classifier, &LiveClassifier::classified, &loop,
                     [&](int label) { print(nameOf(label, classifier.model().classes)); });
    QObject::connect(&classifier, &LiveClassifier::notClassified, &loop, [&] { print(QStringLiteral("none")); });
    QObject::connect(&compound, &DataCompound::newSampleData, &loop, [&](const std::vector<float> &data, int count) {
        watch.takeBlock();
        samples += count / static_cast<int>(montage->size());
        classifier.takeSamples(data, count);
        if (limit > 0.0 && static_cast<double>(samples) >= limit * rate) {
            loop.quit();
        }
    });
    QObject::connect(&compound, &DataCompound::currentDeviceReturnError, &loop, [&](int code) {
        deviceCode = code;
        loop.quit();
    });
    QObject::connect(&interrupt, &Interrupt::interrupted, &loop, &QEventLoop::quit);
    watch.start();
    compound.startReadData();
    loop.exec();
    watch.stop();
    compound.stopReadData();
    if (deviceCode != 0 && deviceCode != Amplifier::kEndOfData) {
        refuse(QStringLiteral("The device stopped with code %1 (%2).")
                   .arg(deviceCode)
                   .arg(device->getErrorText(deviceCode)));
    }
    return Console::Success;
}

Console::ExitStatus classifyWhat(const QCommandLineParser &parser)
{
    const bool isLive = parser.isSet(QStringLiteral("device"));
    if (!parser.isSet(QStringLiteral("model")) || parser.positionalArguments().size() != (isLive ? 0 : 1)) {
        refuseUsage(QStringLiteral("Say what to classify, and with what: --model MODEL FILE, or --device NAME."));
    }
    bp::ModelFile model;
    QString reason;
    if (!model.read(parser.value(QStringLiteral("model")), reason)) {
        refuse(reason);
    }
    return isLive ? classifyDevice(parser, std::move(model)) : classifyFile(parser, model);
}

} // namespace

int runClassify(const QStringList &arguments)
{
    return runCommand(arguments, addOptions, classifyWhat);
}
