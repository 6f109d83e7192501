#include "service/TrainingSide.h"

#include "Console.h"
#include "bci/Processor.h"
#include "devices/AmplifierChannel.h"
#include "files/EDFReader.h"
#include "learning/LiveClassifier.h"
#include "montage/Montage.h"
#include "pipeline/OfflineDataSource.h"
#include "service/RecordKeeper.h"

#include <QFileInfo>

#include <cmath>

namespace {

constexpr double kWindowSeconds = 2.0;
constexpr double kStepSeconds = 0.5;
constexpr float kMinimumRate = 0.5f; ///< of every state's own examples

QString modelPath(const QString &folder)
{
    return folder + QLatin1String("/model.json");
}

/// The EEG channels, if there are any: mental states hardly show in the others. All of them otherwise.
std::vector<DataSource::Channel> channelsToLearnFrom(const Montage &montage)
{
    std::vector<DataSource::Channel> eeg;
    std::vector<DataSource::Channel> all;
    for (unsigned i = 0; i < montage.size(); ++i) {
        all.push_back({static_cast<int>(i), -1, 1.0f, montage[i]->getName()});
        if (montage[i]->getChannelType() == BPCommon::EEG) {
            eeg.push_back(all.back());
        }
    }
    return eeg.empty() ? all : eeg;
}

QStringList namesOf(const std::vector<DataSource::Channel> &channels)
{
    QStringList names;
    for (const DataSource::Channel &channel : channels) {
        names << channel.name;
    }
    return names;
}

bp::ModelFile newModel(const QStringList &channels, int rate, const QList<int> &states)
{
    bp::LearningSettings settings;
    settings.kind = QStringLiteral("portal");
    settings.channels = channels.size();
    settings.minimumRate = kMinimumRate;
    bp::ModelFile model;
    model.kind = settings.kind;
    model.rate = rate;
    model.window = kWindowSeconds;
    model.step = kStepSeconds;
    model.channels = channels;
    for (const int state : states) {
        model.classes.insert(state, QStringLiteral("state %1").arg(state));
    }
    model.pair = bp::makeLearningPair(settings);
    return model;
}

} // namespace

TrainingSide::TrainingSide(QObject *parent)
    : QObject(parent)
{
}

TrainingSide::~TrainingSide() = default;

void TrainingSide::open(const QString &folder)
{
    stop();
    m_current.reset();
    m_folder = folder;
    emit modelChanged();
    bp::ModelFile model;
    QString reason;
    if (folder.isEmpty() || !QFileInfo::exists(modelPath(folder))) {
        return;
    }
    if (model.read(modelPath(folder), reason)) {
        use(std::make_unique<LiveClassifier>(std::move(model)));
    } else {
        Console::error(reason);
    }
}

QString TrainingSide::start(const QString &folder, const QList<int> &states)
{
    if (m_training) {
        return QStringLiteral("starttraining: the training is running");
    }
    if (states.size() < 2) {
        return QStringLiteral("starttraining: two recorded states are needed to tell apart");
    }
    QList<QString> files;
    QList<fileProperty> labels;
    for (const int state : states) {
        files << RecordKeeper::statePath(folder, state);
        labels << fileProperty{state};
    }
    EDFReader reader(files.constFirst());
    if (!reader.open()) {
        return QStringLiteral("starttraining: ") + reader.lastError();
    }
    const std::vector<DataSource::Channel> channels = channelsToLearnFrom(*reader.getFileMontage());
    const int rate = static_cast<int>(std::lround(static_cast<double>(reader.getSampleRate())));
    reader.close();
    m_source = std::make_unique<OfflineDataSource>(std::vector<QString>(), rate, kStepSeconds, channels,
                                                   OfflineDataSource::EDF);
    m_source->setSegmentsWithinFiles(true);
    if (!m_source->setFileList(files, labels, DataSource::TrialLabels)) {
        return QStringLiteral("starttraining: ") + m_source->errorText();
    }
    m_folder = folder;
    m_training = std::make_unique<LiveClassifier>(newModel(namesOf(channels), rate, states), m_source.get());
    // Queued, so that the training is not deleted while it tells of its end.
    connect(m_training.get(), &LiveClassifier::trained, this, &TrainingSide::takeTraining, Qt::QueuedConnection);
    m_training->train();
    return {};
}

void TrainingSide::stop()
{
    m_training.reset();
    m_source.reset();
}

void TrainingSide::takeTraining(bool isTrained)
{
    if (!m_training || sender() != m_training.get()) {
        return; // given up meanwhile
    }
    const std::unique_ptr<OfflineDataSource> source = std::move(m_source);
    std::unique_ptr<LiveClassifier> training = std::move(m_training);
    QString reason;
    if (!isTrained || !training->model().pair.processor->doValidate()) {
        emit finished(QStringLiteral("The states could not be told apart: record them again, or longer ones."));
        return;
    }
    if (!training->model().write(modelPath(m_folder), reason)) {
        Console::error(reason); // the model holds until the program ends
    }
    // Made anew from what was written: the training, which is fed by the state files, ends here.
    bp::ModelFile model;
    if (reason.isEmpty() && !model.read(modelPath(m_folder), reason)) {
        emit finished(reason);
        return;
    }
    use(reason.isEmpty() ? std::make_unique<LiveClassifier>(std::move(model)) : std::move(training));
    emit finished(QString());
}

void TrainingSide::use(std::unique_ptr<LiveClassifier> classifier)
{
    m_current = std::move(classifier);
    connect(m_current.get(), &LiveClassifier::classified, this, &TrainingSide::stateFound);
    join();
    emit modelChanged();
}

int TrainingSide::highestState() const
{
    return m_current && !m_current->model().classes.isEmpty() ? m_current->model().classes.lastKey() : 0;
}

void TrainingSide::setStream(const QStringList &channels, double rate)
{
    m_channels = channels;
    m_rate = rate;
    join();
}

void TrainingSide::join()
{
    if (!m_current || m_channels.isEmpty()) {
        return;
    }
    const bool fits = static_cast<int>(std::lround(m_rate)) == m_current->model().rate;
    if (!fits || !m_current->setChannels(m_channels)) {
        m_current->setChannels({});
        Console::error(QStringLiteral("The trained model does not fit the device: it needs %1 at %2 Hz.")
                           .arg(m_current->model().channels.join(QStringLiteral(", ")))
                           .arg(m_current->model().rate));
    }
}

void TrainingSide::takeSamples(const std::vector<float> &planar, int count)
{
    if (m_current) {
        m_current->takeSamples(planar, count);
    }
}
