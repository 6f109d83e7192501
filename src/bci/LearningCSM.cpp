#include "bci/LearningCSM.h"

#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "bci/model/SlidingWindow.h"
#include "bci/utilities.h"
#include "common/ExceptionText.h"
#include "filters/Filtrator.h"
#include "pipeline/DataSource.h"

#include <QThread>

#include <algorithm>

namespace {

constexpr std::size_t kReservedLabels = 16384;
constexpr std::size_t kReservedRows = 32;

bool hasMethod(const QObject *object, const char *signature)
{
    return object->metaObject()->indexOfMethod(signature) >= 0;
}

/// Runs on the processor's thread. An exception from runSlot() would end the program; here the training has failed.
void runGuarded(Processor *processor)
{
    try {
        QMetaObject::invokeMethod(processor, "runSlot", Qt::DirectConnection);
    } catch (...) {
        BPCommon::log(BPCommon::LogSolverModel, "LearningCSM::prepeareThread runSlot failed: %s", bp::exceptionText());
        QMetaObject::invokeMethod(processor, "getTrainProcessResult", Qt::DirectConnection, Q_ARG(bool, false));
        QMetaObject::invokeMethod(processor, "finishThread", Qt::DirectConnection);
    }
}

} // namespace

LearningCSM::LearningCSM(Preprocessor *preprocessor, Processor *processor, DataSource *trainSource,
                         DataSource *processSource, QObject *parent)
    : ClassificationSM(nullptr, preprocessor, processor, processSource, parent)
    , m_trainSource(trainSource)
{
    BPCommon::log(m_logLevel, "LearningCSM::LearningCSM created");
    m_labelHistory.reserve(kReservedLabels);
    m_trainBlock.reserve(kReservedRows);
    prepeareThread(processor);
    if (trainSource == nullptr) {
        traceFailure("LearningCSM::LearningCSM", "There is no training source");
        return;
    }
    connect(trainSource, qOverload<vector<vector<double>>, int>(&DataSource::receivedNewStack), this,
            &LearningCSM::_trainDataBuffer, Qt::QueuedConnection);
    connect(trainSource, &DataSource::endOfData, this, &LearningCSM::_validate, Qt::QueuedConnection);
}

LearningCSM::LearningCSM(QObject *parent)
    : ClassificationSM(parent)
{
    BPCommon::log(m_logLevel, "LearningCSM::LearningCSM created Paramfree");
}

LearningCSM::~LearningCSM()
{
    BPCommon::log(m_logLevel, "LearningCSM::~LearningCSM");
    stopThread();
    delete m_thread;
    if (m_processor != nullptr && m_thread != nullptr) {
        m_processor->setQThread(nullptr);
        if (m_processor->thread() != QThread::currentThread()) {
            m_processor->moveToThread(QThread::currentThread());
        }
    }
}

void LearningCSM::prepeareThread(Processor *processor)
{
    BPCommon::log(m_logLevel, "LearningCSM::prepeareThread ");
    if (processor == nullptr) {
        traceFailure("LearningCSM::prepeareThread", "There is no processor");
        return;
    }
    m_thread = new QThread(this);
    if (processor->parent() == nullptr && processor->thread() == QThread::currentThread()) {
        processor->moveToThread(m_thread);
    } else {
        traceFailure("LearningCSM::prepeareThread", "The processor stays on the thread where it is");
    }
    processor->setQThread(m_thread);
    // By name: only some processors train on a thread.
    if (hasMethod(processor, "runSlot()")) {
        connect(m_thread, &QThread::started, processor, [processor] { runGuarded(processor); });
    }
    if (hasMethod(processor, "finishThread()")) {
        connect(processor, SIGNAL(finishThread()), m_thread, SLOT(quit()));
    }
    if (hasMethod(processor, "getTrainProcessResult(bool)")) {
        connect(processor, SIGNAL(getTrainProcessResult(bool)), this, SLOT(_takeTrainResult(bool)));
    }
}

void LearningCSM::stopThread()
{
    if (m_thread != nullptr && m_thread->isRunning()) {
        m_thread->quit();
        m_thread->wait();
    }
}

void LearningCSM::Initialize(float window, float step, int channels, bool waitFull, bool resetAfterUse)
{
    BPCommon::log(m_logLevel, "LearningCSM::Initialize %d %d %i %i", static_cast<double>(window),
                  static_cast<double>(step), channels, waitFull);
    SolverModel::Initialize(window, step, channels, waitFull, resetAfterUse);
    m_labelHistory.clear();
    m_newestLabel.reset();
}

void LearningCSM::TrainFast()
{
    startTraining(false, false, nullptr, "LearningCSM::TrainFast");
}

void LearningCSM::TrainRealTime()
{
    startTraining(true, false, nullptr, "LearningCSM::TrainRealTime");
}

void LearningCSM::ReTrainFast()
{
    startTraining(false, true, "LearningCSM::ReTrainFast", "LearningCSM::TrainFast");
}

void LearningCSM::ReTrainRealTime()
{
    startTraining(true, true, "LearningCSM::ReTrainRealTime", "LearningCSM::TrainRealTime");
}

void LearningCSM::startTraining(bool realTime, bool forget, const char *again, const char *plain)
{
    if (again != nullptr) {
        BPCommon::log(m_logLevel, "%s", again);
    }
    const bool isRefused = isProcessorBusy();
    if (forget && !isRefused && m_processor != nullptr) {
        m_processor->ResetTrainData();
    }
    BPCommon::log(m_logLevel, "%s", plain);
    if (isRefused) {
        traceFailure(plain, "The processor is training, wait for its result");
    } else if (m_trainSource == nullptr) {
        traceFailure(plain, "There is no training source");
    } else {
        if (m_isArrivalOrder) { // what was classified or learned before is no part of the first window
            ResetDataBuffer();
            m_newestLabel.reset();
        }
        m_trainSource->SendData(realTime);
    }
}

void LearningCSM::_trainDataBuffer(vector<vector<double>> input, int labelInput)
{
    BPCommon::log(m_logLevel, "LearningCSM::_trainDataBuffer %i", labelInput);
    if (m_processor == nullptr || isProcessorBusy()) {
        traceFailure("LearningCSM::_trainDataBuffer", "There is no processor that could take an example now");
        return;
    }
    resizeInternalBuff(input.empty() ? 0u : static_cast<unsigned int>(input.front().size()));
    const bool isStart = isNewTrial(labelInput);
    if (isStart) {
        ResetDataBuffer();
    }
    const int label = pushLabel(labelInput, isStart);

    m_trainBlock.resize(input.size());
    for (std::size_t i = 0; i < input.size(); ++i) {
        m_trainBlock[i].resize(input[i].size());
        std::transform(input[i].begin(), input[i].end(), m_trainBlock[i].begin(),
                       [](double value) { return static_cast<float>(value); });
    }
    if (!AchieveData(m_trainBlock) && m_waitFull) {
        BPCommon::log(m_logLevel, "LearningCSM::_trainDataBuffer Waiting for buffer to fill");
        return;
    }
    if (m_window->samples() > 0 && preprocessWindow()) {
        guarded("LearningCSM::_trainDataBuffer", [&] { m_processor->preTrain(m_preprocessed, label); });
    }
    if (m_resetAfterUse) {
        BPCommon::log(m_logLevel, "LearningCSM::_trainDataBuffer Reset Buffer");
        ResetDataBuffer();
    }
}

void LearningCSM::resizeInternalBuff(unsigned int blockSamples)
{
    const auto blocks = static_cast<std::size_t>(m_window->blocks(blockSamples));
    BPCommon::log(m_logLevel, "LearningCSM::resizeInternalBuff %i", blocks);
    if (m_isArrivalOrder && m_labelHistory.size() > blocks) {
        m_labelHistory.erase(m_labelHistory.begin(), m_labelHistory.end() - static_cast<std::ptrdiff_t>(blocks));
    } else if (m_isArrivalOrder && !m_labelHistory.empty()) {
        m_labelHistory.insert(m_labelHistory.begin(), blocks - m_labelHistory.size(), m_labelHistory.front());
    } else if (m_labelHistory.size() < blocks) {
        m_labelHistory.resize(blocks, 0.0f);
    }
}

/// Whether the label differs from that of the block before, or from 0 at the first block. In the order of arrival, the
/// first block always starts a trial.
bool LearningCSM::isNewTrial(int label) const
{
    if (m_isArrivalOrder && !m_newestLabel) {
        return true;
    }
    return m_trainSource != nullptr && m_trainSource->getLabelType() == DataSource::TrialLabels
        && label != m_newestLabel.value_or(0);
}

/// The label of the window: the median of the last blocks' labels.
int LearningCSM::pushLabel(int label, bool isStart)
{
    m_newestLabel = label;
    return m_isArrivalOrder ? pushInOrder(label, isStart) : pushSorted(label);
}

int LearningCSM::pushSorted(int label)
{
    std::rotate(m_labelHistory.begin(), m_labelHistory.begin() + 1, m_labelHistory.end());
    m_labelHistory.back() = static_cast<float>(label);
    // Compatibility: Median sorts the history, so that the next block replaces the smallest label, not the oldest.
    return static_cast<int>(utilities::Median(m_labelHistory));
}

int LearningCSM::pushInOrder(int label, bool isStart)
{
    if (isStart) {
        std::fill(m_labelHistory.begin(), m_labelHistory.end(), static_cast<float>(label));
        return label;
    }
    std::rotate(m_labelHistory.begin(), m_labelHistory.begin() + 1, m_labelHistory.end());
    m_labelHistory.back() = static_cast<float>(label);
    m_sortedLabels = m_labelHistory;
    const auto middle = m_sortedLabels.begin() + static_cast<std::ptrdiff_t>((m_sortedLabels.size() - 1) / 2);
    std::nth_element(m_sortedLabels.begin(), middle, m_sortedLabels.end());
    return static_cast<int>(*middle);
}

void LearningCSM::_validate()
{
    if (m_processor == nullptr || isProcessorBusy()) {
        traceFailure("LearningCSM::_validate", "There is no processor that could be trained now");
        if (m_processor == nullptr) {
            _takeTrainResult(false);
        }
        return;
    }
    // After its result the thread is about to end, and postTrain() can only start it when it has ended.
    stopThread();
    setProcessorBusy(true);
    const bool isTrained = guarded("LearningCSM::_validate", [this] { m_processor->postTrain(); });
    const bool isOnThread = hasMethod(m_processor, "getTrainProcessResult(bool)") && m_thread->isRunning();
    if (!isProcessorBusy() || (isTrained && isOnThread)) {
        return;
    }
    bool isValid = false;
    if (isTrained) {
        guarded("LearningCSM::_validate", [&] { isValid = m_processor->doValidate(); });
    }
    _takeTrainResult(isValid);
}

void LearningCSM::_takeTrainResult(bool in_result)
{
    BPCommon::log(m_logLevel, "LearningCSM::_takeTrainResult %i", in_result);
    setProcessorBusy(false);
    if (m_processor != nullptr && m_processor->getFs() != m_window->fs()) {
        m_processor->setFs(m_window->fs());
    }
    emit onTrainComplete(in_result);
}

void LearningCSM::setChannelsCount(int channels)
{
    BPCommon::log(m_logLevel, "LearningCSM::setChannelsCount %i", channels);
    m_sampleChannels = channels;
}

void LearningCSM::sendSamples(std::vector<float> *samples, int count)
{
    BPCommon::log(m_logLevel, "LearningCSM::sendSamples %i", count);
    if (fillDataVector(m_sampleBlock, samples, count)) {
        ProcessDataBuffer(m_sampleBlock);
    }
}

bool LearningCSM::fillDataVector(vector<vector<float>> &out, const std::vector<float> *samples, int count)
{
    BPCommon::log(m_logLevel, "LearningCSM::fillDataVector %i", count);
    if (m_sampleChannels <= 0 || samples == nullptr) {
        traceFailure("LearningCSM::fillDataVector", "There are no channels or no samples");
        return false;
    }
    const auto channels = static_cast<std::size_t>(m_sampleChannels);
    const auto usable = std::min(static_cast<std::size_t>(std::max(count, 0)), samples->size());
    const auto perChannel = usable / channels;
    out.resize(channels);
    auto from = samples->begin();
    for (auto &row : out) {
        row.assign(from, from + static_cast<std::ptrdiff_t>(perChannel));
        from += static_cast<std::ptrdiff_t>(perChannel);
    }
    return true;
}
