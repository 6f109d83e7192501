#include "Console.h"
#include "bci/ModelFile.h"
#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "commands/CommandRun.h"
#include "commands/Commands.h"
#include "commands/OutputFile.h"
#include "commands/Refusal.h"
#include "common/SaveFile.h"
#include "learning/TrainingData.h"
#include "learning/Validation.h"
#include "learning/Windows.h"

#include <QCommandLineParser>
#include <QJsonArray>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kLeastExamples = 2; ///< per class, for a cross-validation at all
/// Hz, where surface EMG begins (C. J. De Luca et al., Filtering the surface EMG signal, J. Biomech. 43, 2010).
constexpr double kMuscleHighPass = 20.0;

bool isMuscle(const QString &kind)
{
    return kind == QLatin1String("emg") || kind == QLatin1String("gesture");
}

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const char *text, const char *value, const char *preset = "") {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value),
                          QString::fromLatin1(preset)});
    };
    parser.setApplicationDescription(
        QStringLiteral("Learns to tell classes apart from labelled recordings, cross-validates, saves the model."));
    add("bci", "What to learn: eeg, portal, emg or gesture.", "KIND", "eeg");
    TrainingData::addOptions(parser);
    add("highpass", "High-pass in Hz, 0 for none; 20 for emg and gesture unless said.", "HZ");
    add("window", "Length of a window, seconds.", "S", "2");
    add("step", "From window to window, seconds.", "S", "0.5");
    add("bands", "eeg: bands in Hz.", "A-B,C-D", "4-8,8-13,13-30");
    add("band", "portal: band in Hz.", "A-B", "4-30");
    add("neighbours", "portal: training windows that vote.", "N", "5");
    parser.addOption({QStringLiteral("components"), QStringLiteral("portal: compare principal components.")});
    add("envelope", "emg: cut-off of the envelope, Hz.", "HZ", "5");
    add("order", "gesture: order of the autoregressive model.", "N", "4");
    add("shrinkage",
        "gesture: from 0, features vary together as in the examples, to 100, each on its own; from the data unless "
        "said.",
        "PERCENT");
    add("reject", "gesture: distance beyond which a window is no gesture; 0 for never.", "D", "0");
    add("folds", "Blocks of the cross-validation at most; whole recordings where a class has several.", "N", "5");
    add("minimum-rate", "Share of its own examples that every class must get right, 0 to 1.", "R", "0");
    add("save", "Write the model, trained on everything, into this file.", "MODEL");
    add("features", "Write every window's label, block and features into this file, tab-separated.", "FILE");
    addForceOption(parser);
    parser.addOption({QStringLiteral("json"), QStringLiteral("Print the result as one JSON object on a line.")});
}

bp::LearningSettings settingsFrom(const QCommandLineParser &parser)
{
    bp::LearningSettings settings;
    settings.kind = parser.value(QStringLiteral("bci"));
    if (!bp::learningKinds().contains(settings.kind)) {
        refuseUsage(QStringLiteral("--bci takes %1, not \"%2\".")
                        .arg(bp::learningKinds().join(QStringLiteral(", ")), settings.kind));
    }
    settings.bands = Option::bands(parser, "bands");
    settings.band = Option::bands(parser, "band").front();
    settings.neighbours = Option::integer(parser, "neighbours", 1, 1000000);
    settings.components = parser.isSet(QStringLiteral("components"));
    settings.envelope = Option::integer(parser, "envelope", 1, 100000);
    settings.order = Option::integer(parser, "order", 0, 32);
    if (parser.isSet(QStringLiteral("shrinkage"))) {
        settings.shrinkagePercent = Option::integer(parser, "shrinkage", 0, 100);
    }
    settings.rejectDistance = static_cast<float>(Option::number(parser, "reject", 0.0, 1e6));
    settings.minimumRate = static_cast<float>(Option::number(parser, "minimum-rate", 0.0, 1.0));
    return settings;
}

void checkClasses(const TrainingData &data, const Windows &windows, const QString &kind)
{
    const QMap<int, int> counts = windows.counts();
    for (auto it = data.classes.cbegin(); it != data.classes.cend(); ++it) {
        if (counts.value(it.key()) < kLeastExamples) {
            refuse(QStringLiteral("The class \"%1\" has %2: at least %3 are needed; longer recordings or a shorter "
                                  "--window help.")
                       .arg(it.value(),
                            counts.value(it.key()) == 1 ? QStringLiteral("one window") : QStringLiteral("no window"))
                       .arg(kLeastExamples));
        }
    }
    if (data.classes.size() < 2) {
        refuse(QStringLiteral("There is one class only, \"%1\": nothing can be told apart.").arg(data.classes.first()));
    }
    if (kind == QLatin1String("eeg") && data.classes.size() > 2) {
        refuse(QStringLiteral("--bci eeg tells two classes apart, not %1: take portal.").arg(data.classes.size()));
    }
    const auto channels = static_cast<int>(data.recordings.front().rows.size());
    if (kind == QLatin1String("eeg") && channels > 1) {
        refuseUsage(
            QStringLiteral("--bci eeg learns from one channel, and there are %1: choose one with --channels, for "
                           "example --channels %2, or take portal, which learns from all.")
                .arg(channels)
                .arg(data.recordings.front().names.constFirst()));
    }
    if (kind == QLatin1String("emg") && (data.classes.firstKey() != 0 || data.classes.lastKey() > channels)) {
        refuse(QStringLiteral("--bci emg takes the label 0 for rest and 1 to %1 for the movement of that channel.")
                   .arg(channels));
    }
}

/// A band in which the spectrum of a window has nothing would be learned as a constant.
void checkBands(const bp::LearningSettings &settings, const Windows &windows)
{
    const auto refuseBand = [](const char *option, const QPair<float, float> &band) {
        refuseUsage(QStringLiteral("--%1 %2-%3: there is nothing between these frequencies at this rate and window; "
                                   "choose a band below half the rate, or a longer --window.")
                        .arg(QLatin1String(option))
                        .arg(static_cast<double>(band.first))
                        .arg(static_cast<double>(band.second)));
    };
    const auto isEmpty = [&windows](std::size_t feature) {
        return std::all_of(windows.all().begin(), windows.all().end(), [feature](const LabelledWindow &window) {
            return window.features.front().size() <= feature || window.features.front()[feature] == 0.0f;
        });
    };
    for (std::size_t i = 0; settings.kind == QLatin1String("eeg") && i < settings.bands.size(); ++i) {
        if (isEmpty(i)) {
            refuseBand("bands", settings.bands[i]);
        }
    }
    if (settings.kind == QLatin1String("portal") && isEmpty(0)) {
        refuseBand("band", settings.band);
    }
}

void writeFeatures(const QString &path, const Windows &windows, const TrainingData &data)
{
    QByteArray text("label\tblock\trecording\tbegin\tfeatures\n");
    for (const LabelledWindow &window : windows.all()) {
        text += data.classes.value(window.label).toUtf8() + '\t' + QByteArray::number(window.fold) + '\t'
            + QByteArray::number(static_cast<qint64>(window.recording)) + '\t'
            + QByteArray::number(static_cast<qint64>(window.begin));
        for (const std::vector<float> &row : window.features) {
            for (const float value : row) {
                text += '\t' + QByteArray::number(static_cast<double>(value), 'g', 9);
            }
        }
        text += '\n';
    }
    const QString fault = bp::saveFile(path, text);
    if (!fault.isEmpty()) {
        refuse(QStringLiteral("%1 could not be written: %2.").arg(path, fault));
    }
}

void printResult(const Validation &validation, const TrainingData &data, const Windows &windows)
{
    const QMap<int, int> counts = windows.counts();
    QStringList classes;
    for (auto it = data.classes.cbegin(); it != data.classes.cend(); ++it) {
        classes << QStringLiteral("%1 of %2").arg(counts.value(it.key())).arg(it.value());
    }
    Console::print(QStringLiteral("Windows: %1; channels: %2; rate: %3 Hz")
                       .arg(classes.join(QStringLiteral(", ")))
                       .arg(data.recordings.front().rows.size())
                       .arg(data.rate));
    Console::print(QStringLiteral("Cross-validation over %1 %2: %3 % right (%4 % ± %5 % per block)")
                       .arg(validation.accuracies.size())
                       .arg(windows.followsRecordings() ? QStringLiteral("blocks of whole recordings")
                                                        : QStringLiteral("contiguous blocks"))
                       .arg(100.0 * validation.confusion.accuracy(), 0, 'f', 1)
                       .arg(100.0 * validation.mean(), 0, 'f', 1)
                       .arg(100.0 * validation.deviation(), 0, 'f', 1));
    if (validation.failedFolds > 0) {
        Console::print(QStringLiteral("In %1 of them nothing could be learned.").arg(validation.failedFolds));
    }
    Console::print(validation.confusion.table(data.classes));
}

QJsonObject jsonResult(const Validation &validation, const TrainingData &data, const Windows &windows)
{
    QJsonArray blocks;
    for (const double accuracy : validation.accuracies) {
        blocks.append(accuracy);
    }
    return {{QStringLiteral("windows"), static_cast<int>(windows.all().size())},
            {QStringLiteral("rate"), data.rate},
            {QStringLiteral("channels"), static_cast<int>(data.recordings.front().rows.size())},
            {QStringLiteral("accuracy"), validation.confusion.accuracy()},
            {QStringLiteral("blocks"), blocks},
            {QStringLiteral("failed_blocks"), validation.failedFolds},
            {QStringLiteral("whole_recordings"), windows.followsRecordings()},
            {QStringLiteral("classes"), validation.confusion.toJson(data.classes)}};
}

/// Trains on everything and writes the model.
void finish(bp::ModelFile &model, const Windows &windows, const QString &path)
{
    std::vector<const LabelledWindow *> all;
    for (const LabelledWindow &window : windows.all()) {
        all.push_back(&window);
    }
    model.pair.processor->setFs(model.rate);
    Console::showComplaints(model.kind == QLatin1String("emg"));
    const bool isTrained = trainPair(model.pair, all);
    Console::showComplaints(false);
    if (!isTrained) {
        refuse(QStringLiteral("Nothing could be learned from these recordings."));
    }
    if (!model.pair.processor->doValidate()) {
        refuse(
            QStringLiteral("Too few of the examples themselves are recognised (--minimum-rate): there is no model."));
    }
    QString reason;
    if (!path.isEmpty() && !model.write(path, reason)) {
        refuse(reason);
    }
}

/// What is to be trained. Throws a Refusal when it could not be used.
bp::ModelFile emptyModel(const QCommandLineParser &parser, const bp::LearningSettings &settings,
                         const TrainingData &data, double highPass)
{
    bp::ModelFile model;
    model.kind = settings.kind;
    model.rate = data.rate;
    model.window = Option::number(parser, "window", 1e-3, 3600.0);
    model.step = Option::number(parser, "step", 1e-3, 3600.0);
    model.highPass = highPass;
    model.channels = data.recordings.front().names;
    model.classes = data.classes;
    const QString fault = model.fault();
    if (!fault.isEmpty()) {
        refuseUsage(QStringLiteral("A model of these options %1.").arg(fault));
    }
    if (settings.kind == QLatin1String("emg") && 2 * settings.envelope >= data.rate) {
        refuseUsage(QStringLiteral("--envelope %1 needs a rate above %2 Hz.")
                        .arg(settings.envelope)
                        .arg(2 * settings.envelope));
    }
    model.pair = bp::makeLearningPair(settings);
    model.pair.preprocessor->setFs(data.rate);
    return model;
}

/// Refuses, before anything is learned, what --save and --features would destroy.
void checkOutputs(const QCommandLineParser &parser)
{
    QStringList inputs;
    for (const QString &data : parser.values(QStringLiteral("data"))) {
        inputs << data << data.left(data.lastIndexOf(QLatin1Char(':')));
    }
    for (const char *option : {"save", "features"}) {
        const QString path = parser.value(QLatin1String(option));
        if (!path.isEmpty()) {
            refuseInput(path, inputs);
            refuseToReplace(parser, path);
        }
    }
}

Console::ExitStatus train(const QCommandLineParser &parser)
{
    checkOutputs(parser);
    bp::LearningSettings settings = settingsFrom(parser);
    const double highPass = parser.isSet(QStringLiteral("highpass")) ? Option::number(parser, "highpass", 0.0, 1e6)
        : isMuscle(settings.kind)                                    ? kMuscleHighPass
                                                                     : 0.0;
    const TrainingData data = TrainingData::read(parser, highPass);
    settings.channels = static_cast<int>(data.recordings.front().rows.size());

    bp::ModelFile model = emptyModel(parser, settings, data, highPass);
    Windows windows(model.windowSamples(), model.stepSamples());
    windows.cut(data.recordings, data.segments, *model.pair.preprocessor);
    checkClasses(data, windows, settings.kind);
    checkBands(settings, windows);
    windows.split(Option::integer(parser, "folds", 2, 1000));
    if (parser.isSet(QStringLiteral("features"))) {
        writeFeatures(parser.value(QStringLiteral("features")), windows, data);
    }
    const Validation validation = Validation::run(windows, data.rate, settings, [&windows](int fold) {
        Console::progress(QStringLiteral("block %1 of %2").arg(fold + 1).arg(windows.folds()));
    });
    Console::progress(QString());
    if (parser.isSet(QStringLiteral("json"))) {
        Console::printJsonLine(jsonResult(validation, data, windows));
    } else {
        printResult(validation, data, windows);
    }
    finish(model, windows, parser.value(QStringLiteral("save")));
    return Console::Success;
}

} // namespace

int runTrain(const QStringList &arguments)
{
    return runCommand(arguments, addOptions, train);
}
