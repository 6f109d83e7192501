#include "pipeline/DataReader.h"

#include "algorithms/AlgorithmManager.h"
#include "algorithms/CustomAlgorithm.h"
#include "devices/Amplifier.h"
#include "filters/engine/ChannelFilterBank.h"
#include "montage/Montage.h"
#include "pipeline/reader/BlockRecorder.h"
#include "pipeline/reader/MontageMix.h"
#include "pipeline/reader/MontageSetup.h"
#include "pipeline/reader/StreamOutlets.h"
#include "pipeline/reader/TaskQueue.h"

#include <QPointer>
#include <QThread>

#include <algorithm>
#include <utility>

namespace {

constexpr qint64 kDefaultWriteStateMs = 10000;
constexpr int kLeastSleepMs = 5;
constexpr int kLongestSleepMs = 100; ///< after which the loop looks whether it shall end
constexpr std::size_t kAverageSamples = 1048576;
// A receiver that stops for a while gets everything later, within this memory: minutes of an ordinary device.
constexpr qint64 kMostWaitingFloats = 32 << 20;
constexpr qint64 kManyWaitingFloats = 4 << 20; ///< from here on only what is valid is copied

/// Qt lets only a thread's own class say where the thread may be terminated.
struct Termination : QThread
{
    using QThread::setTerminationEnabled;
};

} // namespace

DataReader::DataReader(QObject *parent)
    : QObject(parent)
    , m_writeStateMs(kDefaultWriteStateMs)
    , m_tasks(std::make_unique<bp::TaskQueue>())
    , m_recorder(new bp::BlockRecorder(this))
    , m_algorithms(new AlgorithmManager(this))
    , m_outlets(std::make_unique<bp::StreamOutlets>())
    , m_table(std::make_unique<bp::MontageTable>())
    , m_filters(std::make_unique<bp::ChannelFilterBank>())
    , m_average(kAverageSamples)
{
    BPCommon::log(BPCommon::LogReader, "DataReader::DataReader");
    bp::registerMetaTypes();
    // Direct: whoever holds the floor, on whatever thread, speaks for the reader.
    connect(m_recorder, &bp::BlockRecorder::endWritingAndCloseFile, this, &DataReader::endWritingAndCloseFile,
            Qt::DirectConnection);
    connect(m_recorder, &bp::BlockRecorder::annotationLabel, this, &DataReader::annotationLabel, Qt::DirectConnection);
    connect(m_recorder, &bp::BlockRecorder::recordError, this, &DataReader::recordError, Qt::DirectConnection);
    connect(m_recorder, &bp::BlockRecorder::recordNotice, this, &DataReader::recordNotice, Qt::DirectConnection);
    connect(m_recorder, &bp::BlockRecorder::signalLabel, this, &DataReader::signalLabel, Qt::DirectConnection);
}

DataReader::~DataReader()
{
    BPCommon::log(BPCommon::LogReader, "DataReader::~DataReader");
    if (isLoopActive()) {
        BPCommon::log(BPCommon::LogReader, "DataReader::~DataReader the loop was cut off");
    }
}

void DataReader::setNewMontage(Amplifier *device, const QSharedPointer<Montage> &montage)
{
    if (device == nullptr || montage.isNull()) {
        BPCommon::log(BPCommon::LogReader, "DataReader::setNewMontage no device or no montage");
        return;
    }
    const auto setup = std::make_shared<const bp::MontageSetup>(*device, montage);
    m_tasks->post([this, setup] {
        if (!m_isDeviceLost) {
            attach(*setup);
        }
    });
}

bool DataReader::isThreadRunning() const
{
    return m_running.load();
}

bool DataReader::isRecording() const
{
    return m_writeEdf.load();
}

bool DataReader::isAnyRecordingOpen() const
{
    return isRecording() || m_recorder->isTiming();
}

bool DataReader::isClosingFiles() const
{
    return m_recorder->isClosingFiles();
}

void DataReader::setRecordPath(const QString &path)
{
    m_recordPath = path;
}

QString DataReader::getRecordPath() const
{
    return m_recordPath;
}

void DataReader::setPatientInfo(const PatientInfo &patient)
{
    m_tasks->post([this, patient] { m_recorder->setPatientInfo(patient); });
}

void DataReader::setWriteRemainder(bool on)
{
    m_tasks->post([this, on] { m_recorder->setWriteRemainder(on); });
}

double DataReader::paddedSeconds() const
{
    return m_recorder->paddedSeconds();
}

void DataReader::setRecordStartTime(const QDateTime &start)
{
    m_tasks->post([this, start] { m_recorder->setStartTime(start); });
}

void DataReader::setSignalLabels(const QList<AnnotationStrct> &labels, double passSeconds)
{
    m_tasks->post([this, labels, passSeconds] { m_recorder->setSignalLabels(labels, passSeconds); });
}

void DataReader::setSignalStartTime(const QDateTime &start)
{
    m_tasks->post([this, start] { m_recorder->setSignalStartTime(start); });
}

void DataReader::setSignalClock(bool on)
{
    m_tasks->post([this, on] { m_recorder->setSignalClock(on); });
}

void DataReader::setWriteStateTime(int seconds)
{
    m_writeStateMs.store(qint64{seconds} * 1000);
}

void DataReader::setWriteDataFlag(bool edf, bool rhythm)
{
    BPCommon::log(BPCommon::LogReader, "DataReader::setWriteDataFlag %i", edf);
    m_writeEdf.store(edf);
    m_tasks->post([this, edf, rhythm, path = m_recordPath] { applyWriteFlags(edf, rhythm, path); });
}

void DataReader::setWriteRhythmData(bool on)
{
    m_tasks->post([this, on, path = m_recordPath] { m_recorder->applyRhythms(on, path, m_algorithms); });
}

void DataReader::addLSLStreamParams(const QString &streamName, bool synchro, const QString &syncStreamName)
{
    m_tasks->post([this, streamName, synchro, syncStreamName] {
        m_outlets->open({streamName, synchro, syncStreamName}, m_device, m_info, m_montage);
    });
}

void DataReader::setCurrentState(unsigned char state)
{
    BPCommon::log(BPCommon::LogReader, "DataReader::setCurrentState Current state %i", state);
    m_tasks->post([this, state, at = bp::BlockRecorder::clockMs()] { m_recorder->writeState(state, at); });
}

void DataReader::slotSetLabelToEdf(const QString &label)
{
    m_tasks->post([this, label, at = bp::BlockRecorder::clockMs()] { m_recorder->annotate(label, at); });
}

void DataReader::setLabelToEdfAt(const QString &label, qint64 elapsedMs)
{
    setLabelToEdfAt(label, elapsedMs, 0);
}

void DataReader::setLabelToEdfAt(const QString &label, qint64 elapsedMs, qint64 durationMs)
{
    m_tasks->post([this, label, elapsedMs, durationMs] { m_recorder->annotateAt(label, elapsedMs, durationMs); });
}

void DataReader::setAlgorithmClass(CustomAlgorithm *algorithm)
{
    if (algorithm == nullptr) {
        return;
    }
    algorithm->moveToThread(thread()); // results must reach other algorithms on the loop's thread
    m_tasks->post([this, algorithm] { m_algorithms->addAlgorithm(algorithm); });
}

void DataReader::setAlgorithmParams(QObject *receiver, const std::vector<UnitParams> &params)
{
    m_tasks->post(
        [this, receiver = QPointer<QObject>(receiver), params] { m_algorithms->setAlgorithmParams(receiver, params); });
}

void DataReader::resetAlgorithm(const std::vector<UnitParams> &params)
{
    m_tasks->post([this, params] { m_algorithms->resetAlgorithm(params); });
}

void DataReader::updateAlgorithm(const std::vector<UnitParams> &params)
{
    m_algorithms->updateAlgorithm(params);
}

void DataReader::updateAlgorithm(const UnitParams &params)
{
    m_algorithms->updateAlgorithm(params);
}

CustomAlgorithm *DataReader::getAlgorithmClass(const UnitParams &params)
{
    m_tasks->post([this, params] { m_algorithms->findAlgorithm(params.getName(), params.getParamDescriptor()); });
    return nullptr;
}

void DataReader::runningThread(bool running)
{
    BPCommon::log(BPCommon::LogReader, "DataReader::runningThread %i", running);
    LoopState expected = running ? LoopState::Idle : LoopState::Wanted;
    const bool isChanged = m_loopState.compare_exchange_strong(expected, running ? LoopState::Wanted : LoopState::Idle);
    if (running && isChanged) {
        // What is still asked for from the run before ends here and not in run(), so that a recording which is asked
        // for between the start of the thread and its first block is not lost. A file that is open stays open.
        m_writeEdf.store(false);
        m_tasks->post([this] { m_recorder->forgetWishes(); });
    }
    m_running.store(running);
    emit runningChanged(running);
}

void DataReader::attach(const bp::MontageSetup &setup)
{
    endRecordingThatNoLongerFits(setup);
    m_montage = setup.montage;
    m_device = setup.device;
    m_info = setup.info;
    m_frequency = setup.frequency;
    *m_table = setup.table;
    m_leftReferent = setup.leftReferent;
    m_rightReferent = setup.rightReferent;
    m_filters->follow(setup.filters);
    m_algorithms->setMontage(m_info, m_montage);
    resizeWorkBuffers();
    chooseHandlers(setup.filterFree);
    m_outlets->changeMontage(m_info, m_montage);
}

void DataReader::endRecordingThatNoLongerFits(const bp::MontageSetup &setup)
{
    const int frequency = static_cast<int>(setup.frequency);
    if (!m_recorder->isFileOpened()
        || (m_table->size() == setup.table.size() && static_cast<int>(m_frequency) == frequency)
        || m_recorder->reopenEmptyEdf({setup.montage, frequency, m_algorithms})) {
        return;
    }
    m_blockHandler = &DataReader::acceptReadDataWFree;
    m_writeEdf.store(false);
    m_recorder->abandonEdf(
        QStringLiteral("The recording was closed: the new montage has other channels or another rate."));
}

void DataReader::resizeWorkBuffers()
{
    BPCommon::log(BPCommon::LogReader, "DataReader::resizeWorkBuffers");
    m_halfSecond = std::max(1, static_cast<int>(m_frequency * 0.5f)); // one sample at least, below 2 Hz too
    setBufferSizes(static_cast<std::size_t>(m_halfSecond) * static_cast<std::size_t>(std::max(0, m_info.channels())));
}

void DataReader::setBufferSizes(std::size_t rawSize)
{
    // A montage may have more channels than the device; its block then needs more room than the device's.
    const std::size_t channels = static_cast<std::size_t>(std::max(1, m_info.channels()));
    const std::size_t outputSize = std::max(rawSize, rawSize / channels * m_table->size());
    m_raw.resize(rawSize);
    m_unfiltered.resize(outputSize);
    m_filtered.resize(outputSize);
}

void DataReader::chooseHandlers(bool filterFree)
{
    if (filterFree) {
        m_montageHandler = &DataReader::acceptMontageFilterFree;
        return;
    }
    switch (m_montage->getType()) {
    case Montage_Usual:
        m_montageHandler = &DataReader::acceptMontageAll;
        break;
    case Montage_Bipolar:
        m_montageHandler = &DataReader::acceptBPMontageAll;
        break;
    case Montage_Average:
        m_montageHandler = &DataReader::acceptAvMontageAll;
        break;
    }
}

/// What algorithms get that want raw data. The bipolar handler writes no unfiltered block, so the filtered one stands
/// in.
const std::vector<float> &DataReader::unfilteredBlock() const
{
    return m_montageHandler == &DataReader::acceptBPMontageAll ? m_filtered : m_unfiltered;
}

void DataReader::run()
{
    m_loopState.store(LoopState::Working);
    m_tasks->enter();
    m_recorder->resume();
    const int code = startDevice() ? runLoop() : -1;
    m_recorder->pause(); // labels at the end of the signal come before the news of its end
    reportMissedSamples();
    if (m_isDeviceGivenUp.load()) {
        endRunWithoutDevice();
    } else if (code < 0) {
        emit deviceReturnError(code); // the device is left as it is: it has ended by itself
    } else {
        m_outlets->close();
        callDevice([this] { m_device->stopAcquisition(); });
    }
    m_tasks->leave();
    m_loopState.store(LoopState::Idle);
}

/// The one place in which the thread may be terminated.
template <class Call> void DataReader::callDevice(const Call &call)
{
    const bool isOwnThread = QThread::currentThread() == thread();
    m_loopState.store(LoopState::InDevice);
    if (isOwnThread) {
        Termination::setTerminationEnabled(true);
    }
    call();
    if (isOwnThread) {
        Termination::setTerminationEnabled(false);
    }
    m_loopState.store(LoopState::Working);
}

bool DataReader::startDevice()
{
    bool isStarted = false;
    if (m_device != nullptr) {
        callDevice([this, &isStarted] {
            isStarted = m_device->startAcquisition();
            if (isStarted && !m_isDeviceGivenUp.load()) {
                m_pollMs = m_device->readPeriodMs();
                m_device->setReadBufferSize(static_cast<int>(m_raw.size()));
            }
        });
    }
    return isStarted;
}

/// Returns the negative code of a device that has failed, otherwise 0.
int DataReader::runLoop()
{
    while (m_running.load()) {
        m_tasks->runPending();
        m_algorithms->updateProperties();
        const int samples = readBlock();
        if (m_isDeviceGivenUp.load()) {
            break;
        }
        if (samples < 0) {
            BPCommon::log(BPCommon::LogReader, "DataReader::run Error code = %i", samples);
            return samples;
        }
        (this->*m_blockHandler)();
        pushDataToLSL();
        const int algorithmMs = m_algorithms->processData(m_samples, unfilteredBlock(), m_filtered);
        m_recorder->poll(m_samples, static_cast<double>(m_frequency));
        sleepUntilNextPoll(algorithmMs);
        keepRecordingTime();
    }
    return 0;
}

void DataReader::finishForTerminatedThread()
{
    if (isLoopActive()) {
        endRunWithoutDevice();
        m_recorder->pause();
        m_tasks->leave();
        m_loopState.store(LoopState::Idle);
    }
}

/// What was asked for while the device hung still counts for the recordings. No new one is opened: nothing would ever
/// be in it.
void DataReader::endRunWithoutDevice()
{
    m_device = nullptr;
    m_isDeviceLost = true;
    m_tasks->runPending();
    if (m_recorder->isFileOpened()) {
        m_recorder->abandonEdf(QStringLiteral("The recording was closed: the device does not answer any more."));
    }
    applyWriteFlags(false, false, QString());
    m_outlets->close();
}

/// Fills the raw block; m_samples per channel. Returns a negative code when the device has failed.
int DataReader::readBlock()
{
    m_samples = 0;
    int remainder = 0;
    int samples = 0;
    callDevice([&] { samples = m_device->readData(static_cast<int>(m_raw.size()), m_raw.data(), remainder); });
    const auto channels = static_cast<std::size_t>(std::max(0, m_info.channels()));
    if (samples >= 0 && remainder > 0 && !m_isDeviceGivenUp.load()) {
        BPCommon::log(BPCommon::LogReader, "DataReader::run remainder = %i", remainder);
        const std::size_t taken = channels * static_cast<std::size_t>(samples);
        setBufferSizes(std::max(m_raw.size(), taken + static_cast<std::size_t>(remainder)));
        const int room = static_cast<int>(m_raw.size() - taken);
        remainder = -1;
        // The tail fills the buffer behind the block; the block stays as long as the first call made it.
        int tail = 0;
        callDevice([&] { tail = m_device->readData(room, m_raw.data() + taken, remainder); });
        samples = tail < 0 ? tail : samples;
    }
    if (samples > 0) {
        const std::size_t fit = channels > 0 ? m_raw.size() / channels : 0;
        m_samples = static_cast<unsigned>(std::min({static_cast<std::size_t>(samples), fit, m_average.size()}));
    }
    return samples;
}

void DataReader::acceptReadDataAll()
{
    if (m_samples > 0) {
        computeMontage();
        publishBlock();
        recordBlock();
    }
}

void DataReader::acceptReadDataWFree()
{
    if (m_samples > 0) {
        computeMontage();
        BPCommon::log(BPCommon::LogReader, "DataReader::acceptReadDataWFree emit newData %i %i %i",
                      m_table->size() * m_samples, m_filtered.size(), m_raw.size());
        publishBlock();
    }
}

void DataReader::computeMontage()
{
    (this->*m_montageHandler)({m_raw.data(), static_cast<unsigned>(m_info.channels()), m_samples});
}

void DataReader::acceptMontageAll(const bp::RawBlock &raw)
{
    BPCommon::log(BPCommon::LogReader, "DataReader::acceptMontageAll %i %i", m_table->size(), m_samples);
    bp::mixUsual(raw, *m_table, m_filtered.data());
    filterChannels();
}

void DataReader::acceptMontageFilterFree(const bp::RawBlock &raw)
{
    BPCommon::log(BPCommon::LogReader, "DataReader::acceptMontageFilterFree %i", m_table->size());
    bp::mixUsual(raw, *m_table, m_filtered.data());
    std::copy(m_filtered.begin(), m_filtered.end(), m_unfiltered.begin());
}

void DataReader::acceptBPMontageAll(const bp::RawBlock &raw)
{
    bp::mixBipolar(raw, *m_table, m_leftReferent, m_rightReferent, m_filtered.data());
    m_filters->process(m_filtered.data(), m_samples); // the unfiltered block is left alone: kept as hosts know it
}

void DataReader::acceptAvMontageAll(const bp::RawBlock &raw)
{
    bp::averageReference(raw, *m_table, m_average.data());
    BPCommon::log(BPCommon::LogReader, "DataReader::acceptMontageAll %i %i", m_table->size(), m_samples);
    bp::mixAverage(raw, *m_table, m_average.data(), m_filtered.data());
    filterChannels();
}

void DataReader::filterChannels()
{
    std::copy_n(m_filtered.begin(), std::size_t{m_table->size()} * m_samples, m_unfiltered.begin());
    m_filters->process(m_filtered.data(), m_samples);
}

void DataReader::publishBlock()
{
    const qint64 waiting = m_isPublishingBounded ? m_waitingFloats.load() : 0;
    if (waiting > kMostWaitingFloats) {
        m_missedSamples += m_samples;
        return;
    }
    reportMissedSamples();
    if (m_device->isImpedanceReady(m_impedance)) {
        emit newImpedance(m_impedance, static_cast<int>(m_impedance.size()));
    }
    const int count = static_cast<int>(m_table->size() * m_samples);
    if (waiting > kManyWaitingFloats) {
        m_shortBlock.assign(m_filtered.begin(), m_filtered.begin() + count);
        publish(m_shortBlock, count);
    } else {
        publish(m_filtered, count);
    }
}

void DataReader::publish(const std::vector<float> &block, int count)
{
    m_waitingFloats.fetch_add(static_cast<qint64>(block.size()));
    emit newData(block, count);
}

void DataReader::reportMissedSamples()
{
    if (m_missedSamples > 0) {
        BPCommon::log(BPCommon::LogReader,
                      "DataReader::publishBlock the receiver is too slow, %i samples were not sent", m_missedSamples);
        emit samplesMissed(std::exchange(m_missedSamples, 0));
    }
}

void DataReader::recordBlock()
{
    m_recorder->record(m_samples, m_filtered.data());
}

void DataReader::pushDataToLSL()
{
    m_outlets->push(m_filtered.data(), m_table->size(), m_samples);
}

void DataReader::sleepUntilNextPoll(int algorithmMs)
{
    const bool behind = static_cast<int>(m_samples) >= m_halfSecond || m_pollMs < algorithmMs;
    int left = behind ? kLeastSleepMs : std::max(kLeastSleepMs, m_pollMs - algorithmMs);
    while (left > 0 && m_running.load()) {
        const int step = std::min(left, kLongestSleepMs);
        QThread::msleep(static_cast<unsigned long>(step));
        left -= step;
    }
}

void DataReader::keepRecordingTime()
{
    const qint64 elapsed = m_recorder->elapsed();
    if (elapsed > 0) {
        emit currentTime(elapsed);
    }
    const qint64 limit = m_writeStateMs.load();
    if (m_recorder->isTiming() && limit >= 1 && elapsed >= limit) {
        BPCommon::log(BPCommon::LogReader, "DataReader::setWriteDataFlag %i", 0);
        m_writeEdf.store(false);
        applyWriteFlags(false, false, QString());
    }
}

void DataReader::applyWriteFlags(bool edf, bool rhythm, const QString &path)
{
    if (m_isDeviceLost && edf) {
        emit recordError(QStringLiteral("%1 was not recorded: the device does not answer.").arg(path));
    }
    edf = edf && !m_isDeviceLost;
    rhythm = rhythm && !m_isDeviceLost;
    m_recorder->apply(edf, rhythm, path, {m_montage, static_cast<int>(m_frequency), m_algorithms});
    m_blockHandler = m_recorder->isFileOpened() ? &DataReader::acceptReadDataAll : &DataReader::acceptReadDataWFree;
    m_writeEdf.store(m_recorder->isEdfWanted());
}
