#include "pipeline/DataCompound.h"

#include "common/BPCommon.h"
#include "devices/Amplifier.h"
#include "montage/Montage.h"
#include "pipeline/DataReader.h"

#include <QThread>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr int kPollAttempts = 50;
constexpr unsigned long kPollMs = 100;
constexpr unsigned long kTerminationMs = 1000;

} // namespace

DataCompound::DataCompound(Amplifier *device, QSharedPointer<Montage> montage, QObject *parent)
    : QObject(parent)
{
    setNewAmplifier(device, std::move(montage));
}

DataCompound::~DataCompound()
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::~DataCompound");
    removeComponents();
}

bool DataCompound::setNewAmplifier(Amplifier *device, QSharedPointer<Montage> montage)
{
    const bool accepted = device != nullptr && !montage.isNull() && !montage->empty();
    if (m_ready && (!accepted || device != m_device)) {
        stopThread();
    }
    m_ready = accepted;
    if (!accepted) {
        BPCommon::log(BPCommon::LogReader, "DataCompound::setNewAmplifier error");
        return false;
    }
    m_info = device->getAmplifierInfo();
    m_device = device;
    m_montage = std::move(montage);
    prepeareThread();
    return true;
}

void DataCompound::prepeareThread()
{
    createComponents();
    m_reader->setNewMontage(m_device, m_montage);
    if (std::exchange(m_algorithmsDue, false)) {
        m_reader->setAlgorithmParams(m_receiver, m_algorithms); // they are made for a montage
    }
}

void DataCompound::createComponents()
{
    if (m_reader == nullptr) {
        m_thread = std::make_unique<QThread>();
        m_reader = std::make_unique<DataReader>();
        connectComponents();
        m_reader->moveToThread(m_thread.get());
        for (const auto &setting : m_settings) {
            setting.second(*m_reader);
        }
        m_algorithmsDue = !m_algorithms.empty();
        m_reader->setWriteStateTime(-1);
    } else if (!m_reader->isAnyRecordingOpen()) {
        m_reader->setWriteStateTime(-1); // a recording that is running keeps its time on another montage
    }
}

void DataCompound::set(Setting setting, Apply apply)
{
    if (m_reader != nullptr) {
        apply(*m_reader);
    }
    m_settings[setting] = std::move(apply);
}

void DataCompound::connectComponents()
{
    DataReader *reader = m_reader.get();
    connect(reader, &DataReader::currentTime, this, &DataCompound::recordDurationChanged);
    connect(m_thread.get(), &QThread::started, reader, &DataReader::run);
    connect(reader, &DataReader::finishThread, m_thread.get(), &QThread::quit);
    connect(reader, &DataReader::deviceReturnError, this, &DataCompound::slotErrorCurrentDevice);
    // By name: the names under which the vectors are registered are the contract.
    connect(reader, SIGNAL(newData(vector<float>, int)), this, SLOT(takeCurrentData(vector<float>, int)));
    connect(reader, SIGNAL(newImpedance(vector<uint>, int)), this, SLOT(takeCurrentImpedance(vector<uint>, int)));
    connect(reader, &DataReader::endWritingAndCloseFile, this, &DataCompound::endWritingAndCloseFile);
    connect(reader, &DataReader::annotationLabel, this, &DataCompound::currentLabel);
    connect(reader, &DataReader::recordError, this, &DataCompound::recordError);
    connect(reader, &DataReader::recordNotice, this, &DataCompound::recordNotice);
    connect(reader, &DataReader::samplesMissed, this, &DataCompound::samplesMissed);
    connect(reader, &DataReader::signalLabel, this, &DataCompound::signalLabel);
    reader->setPublishingBounded();
}

bool DataCompound::startReadData()
{
    setThreadRunning(true);
    return true;
}

bool DataCompound::stopReadData()
{
    setThreadRunning(false);
    return true;
}

void DataCompound::setThreadRunning(bool running)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::setThreadRunning %i", running);
    if (!m_ready) {
        return;
    }
    if (running) {
        startThread();
    } else {
        askThreadToStop();
    }
}

void DataCompound::startThread()
{
    if (m_thread->isRunning() && !(m_running && m_reader->isLoopActive())) {
        endThread(); // still ending from the stop before, or of a device that has failed: a start now would be lost
        if (m_reader == nullptr) {
            prepeareThread();
        }
    }
    m_running = true;
    m_reader->runningThread(true);
    if (std::exchange(m_recordFromStart, false)) {
        m_reader->setWriteDataFlag(m_recordEdf, m_recordRhythm); // a run begins without a recording
    }
    m_thread->start(QThread::HighestPriority);
    m_thread->start(QThread::InheritPriority); // kept: no effect on a running thread
}

void DataCompound::askThreadToStop()
{
    m_running = false;
    if (m_thread->isRunning()) {
        m_reader->runningThread(false);
        emit m_reader->finishThread();
    }
}

void DataCompound::stopThread()
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::setThreadRunning %i", 0);
    endThread();
}

/// A thread that had to be terminated takes the reader with it.
void DataCompound::endThread()
{
    askThreadToStop();
    if (!waitForThread()) {
        terminateThread();
    }
}

bool DataCompound::waitForThread()
{
    int attempts = 0;
    while (attempts < kPollAttempts) {
        if (m_thread->wait(kPollMs)) {
            return true;
        }
        attempts += m_reader->isClosingFiles() ? 0 : 1; // what was recorded is worth any time
    }
    return !m_thread->isRunning();
}

void DataCompound::terminateThread()
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::terminateThread the device does not answer");
    m_reader->giveUpDevice();
    m_thread->terminate();
    while (!m_thread->wait(kTerminationMs) && m_reader->isClosingFiles()) { }
    const bool isTerminated = m_thread->isFinished();
    if (isTerminated) {
        m_reader->finishForTerminatedThread();
    }
    disconnect(m_reader.get(), nullptr, nullptr, nullptr);
    disconnect(m_thread.get(), nullptr, m_reader.get(), nullptr);
    if (!isTerminated) {
        // The thread is still within a call of the device that never waits, so it cannot be terminated, and it uses
        // both objects. They are left to it on purpose; should it end one day, they go with it.
        QThread *thread = m_thread.release();
        connect(thread, &QThread::finished, m_reader.release(), &QObject::deleteLater);
        connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    }
    m_reader.reset();
    m_thread.reset();
}

void DataCompound::removeComponents()
{
    if (m_reader == nullptr) {
        return;
    }
    disconnect(m_reader.get(), nullptr, this, nullptr); // a host must not be called by an object that is going
    stopThread();
    if (m_reader != nullptr) {
        disconnect(m_reader.get(), nullptr, nullptr, nullptr);
        disconnect(m_thread.get(), nullptr, m_reader.get(), nullptr);
        m_reader.reset();
        m_thread.reset();
    }
}

bool DataCompound::isRecording() const
{
    if (m_reader == nullptr) {
        BPCommon::log(BPCommon::LogReader, "DataCompound::isRecording error");
        return false;
    }
    return m_reader->isRecording();
}

bool DataCompound::isDataCompoundReady() const
{
    return m_ready;
}

Amplifier *DataCompound::getAmplifier() const
{
    return m_device;
}

void DataCompound::startRecord(const QString &path, bool edf, bool rhythm, int seconds)
{
    createComponents();
    m_reader->setWriteStateTime(seconds);
    set(Setting::RecordPath, [path](DataReader &reader) { reader.setRecordPath(path); });
    setStartWriteDataFlag(edf, rhythm);
    emit recordStarted(path);
    emit recordDurationChanged(0);
}

void DataCompound::stopRecord()
{
    if (m_reader == nullptr) {
        return;
    }
    const QString path = m_reader->getRecordPath();
    setStartWriteDataFlag(false, false);
    emit recordStopped(path);
}

void DataCompound::setStartWriteDataFlag(bool edf, bool rhythm)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::setStartWriteDataFlag %i", edf);
    m_recordEdf = edf;
    m_recordRhythm = rhythm;
    m_recordFromStart = (edf || rhythm) && !(m_running && m_reader != nullptr && m_reader->isLoopActive());
    if (m_reader != nullptr) {
        m_reader->setWriteDataFlag(edf, rhythm);
    }
}

void DataCompound::setPatientInfo(const PatientInfo &patient)
{
    set(Setting::Patient, [patient](DataReader &reader) { reader.setPatientInfo(patient); });
}

void DataCompound::setWriteRemainder(bool on)
{
    set(Setting::WriteRemainder, [on](DataReader &reader) { reader.setWriteRemainder(on); });
}

double DataCompound::paddedSeconds() const
{
    return m_reader != nullptr ? m_reader->paddedSeconds() : 0.0;
}

void DataCompound::setRecordStartTime(const QDateTime &start)
{
    set(Setting::StartTime, [start](DataReader &reader) { reader.setRecordStartTime(start); });
}

void DataCompound::setSignalClock(bool on)
{
    set(Setting::SignalClock, [on](DataReader &reader) { reader.setSignalClock(on); });
}

void DataCompound::setSignalLabels(const QList<AnnotationStrct> &labels, double passSeconds)
{
    set(Setting::SignalLabels,
        [labels, passSeconds](DataReader &reader) { reader.setSignalLabels(labels, passSeconds); });
}

void DataCompound::setSignalStartTime(const QDateTime &start)
{
    set(Setting::SignalStartTime, [start](DataReader &reader) { reader.setSignalStartTime(start); });
}

void DataCompound::setLabelToEDFAt(const QString &label, double seconds)
{
    setLabelToEDFAt(label, seconds, 0);
}

void DataCompound::setLabelToEDFAt(const QString &label, double seconds, qint64 durationMs)
{
    if (isRecording()) {
        m_reader->setLabelToEdfAt(label, std::llround(seconds * 1000.0), durationMs);
    }
}

void DataCompound::setLSLStreamParametrs(const QString &streamName, bool synchro, const QString &syncStreamName)
{
    if (m_reader != nullptr) {
        m_reader->addLSLStreamParams(streamName, synchro, syncStreamName);
    }
}

void DataCompound::setAlgorithmClass(CustomAlgorithm *algorithm)
{
    if (m_reader != nullptr) {
        m_reader->setAlgorithmClass(algorithm);
    }
}

void DataCompound::setAlgorithmParams(QObject *receiver, const std::vector<UnitParams> &params)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::setAlgorithmParams %i", params.size());
    m_receiver = receiver;
    m_algorithms = params;
    m_algorithmsDue = m_reader == nullptr;
    if (m_reader != nullptr) {
        m_reader->setAlgorithmParams(receiver, params);
    }
}

void DataCompound::resetAlgorithm(const std::vector<UnitParams> &params)
{
    if (m_reader != nullptr) {
        m_reader->resetAlgorithm(params);
    }
}

void DataCompound::updateAlgorithm(const std::vector<UnitParams> &params)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::updateAlgorithm %i", params.size());
    std::for_each(params.begin(), params.end(), [this](const UnitParams &set) { rememberAlgorithm(set); });
    if (m_reader != nullptr) {
        m_reader->updateAlgorithm(params);
    }
}

void DataCompound::updateAlgorithm(const UnitParams &params)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::updateAlgorithm");
    rememberAlgorithm(params);
    if (m_reader != nullptr) {
        m_reader->updateAlgorithm(params);
    }
}

void DataCompound::rememberAlgorithm(const UnitParams &params)
{
    const auto same = std::find_if(m_algorithms.begin(), m_algorithms.end(), [&params](const UnitParams &known) {
        return known.getName() == params.getName() && known.getParamDescriptor() == params.getParamDescriptor();
    });
    if (same != m_algorithms.end()) {
        *same = params;
    } else {
        m_algorithms.push_back(params);
    }
}

void DataCompound::slotErrorCurrentDevice(int code)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::slotErrorCurrentDevice %i", code);
    emit currentDeviceReturnError(code);
}

void DataCompound::slotSetLabelToEDF(const QString &label)
{
    if (isRecording()) {
        m_reader->slotSetLabelToEdf(label);
    }
}

void DataCompound::slotTakeCurrentState(unsigned char state)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::slotTakeCurrentState %i", state);
    if (m_reader != nullptr) {
        m_reader->setCurrentState(state);
    }
}

void DataCompound::takeCurrentData(const vector<float> &data, int count)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::takeCurrentData %i", count);
    if (m_reader != nullptr && sender() == m_reader.get()) {
        m_reader->blockTaken(data.size());
    }
    emit newSampleData(data, count);
}

void DataCompound::takeCurrentImpedance(const vector<unsigned int> &impedance, int count)
{
    BPCommon::log(BPCommon::LogReader, "DataCompound::takeCurrentImpedance %i", count);
    emit newSampleImpedance(impedance, count);
}
