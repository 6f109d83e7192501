#include "CommandRun.h"
#include "Commands.h"
#include "Console.h"
#include "Refusal.h"
#include "bci/ModelFile.h"
#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "learning/TrainingData.h"
#include "learning/Validation.h"
#include "learning/Windows.h"

#include <QCommandLineParser>
#include <QJsonArray>
#include <QSaveFile>

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
    add("reject", "gesture: distance beyond which a window is no gesture; 0 for never.", "D", "0");
    add("folds", "Blocks of the cross-validation.", "N", "5");
    add("minimum-rate", "Share of its own examples that every class must get right, 0 to 1.", "R", "0");
    add("save", "Write the model, trained on everything, into this file.", "MODEL");
    add("features", "Write every window's label, block and features into this file, tab-separated.", "FILE");
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
    if (kind == QLatin1String("emg") && (data.classes.firstKey() != 0 || data.classes.lastKey() > channels)) {
        refuse(QStringLiteral("--bci emg takes the label 0 for rest and 1 to %1 for the movement of that channel.")
                   .arg(channels));
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
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
        refuse(QStringLiteral("%1 could not be written: %2.").arg(path, file.errorString()));
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
    Console::print(QStringLiteral("Cross-validation over %1 contiguous blocks: %2 % right (%3 % ± %4 % per block)")
                       .arg(validation.accuracies.size())
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

Console::ExitStatus train(const QCommandLineParser &parser)
{
    bp::LearningSettings settings = settingsFrom(parser);
    const double highPass = parser.isSet(QStringLiteral("highpass")) ? Option::number(parser, "highpass", 0.0, 1e6)
        : isMuscle(settings.kind)                                    ? kMuscleHighPass
                                                                     : 0.0;
    const TrainingData data = TrainingData::read(parser, highPass);
    settings.channels = static_cast<int>(data.recordings.front().rows.size());

    bp::ModelFile model;
    model.kind = settings.kind;
    model.rate = data.rate;
    model.window = Option::number(parser, "window", 1e-3, 3600.0);
    model.step = Option::number(parser, "step", 1e-3, 3600.0);
    model.highPass = highPass;
    model.channels = data.recordings.front().names;
    model.classes = data.classes;
    model.pair = bp::makeLearningPair(settings);
    model.pair.preprocessor->setFs(data.rate);

    const auto samples = [&data](double seconds) {
        return std::max<std::size_t>(1, static_cast<std::size_t>(seconds * data.recordings.front().rate));
    };
    Windows windows(samples(model.window), samples(model.step));
    windows.cut(data.recordings, data.segments, *model.pair.preprocessor);
    checkClasses(data, windows, settings.kind);
    const QMap<int, int> counts = windows.counts();
    const int folds =
        std::min(Option::integer(parser, "folds", 2, 1000), *std::min_element(counts.cbegin(), counts.cend()));
    windows.split(folds);
    if (parser.isSet(QStringLiteral("features"))) {
        writeFeatures(parser.value(QStringLiteral("features")), windows, data);
    }
    const Validation validation = Validation::run(windows, folds, data.rate, settings, [folds](int fold) {
        Console::progress(QStringLiteral("block %1 of %2").arg(fold + 1).arg(folds));
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
