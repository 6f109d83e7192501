#include "pipeline/reader/BlockRecorder.h"

#include "algorithms/AlgorithmManager.h"
#include "algorithms/CustomAlgorithm.h"
#include "base/TextHelper.h"
#include "common/BPCommon.h"
#include "files/EDFWriter.h"
#include "files/XLSWriter.h"

#include <QElapsedTimer>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace {

constexpr qint64 kMsPerSecond = 1000;
constexpr double kLeastPassSeconds = 0.001;

/// The system's clock as it was at the first call, steady from then on.
class SteadyClock
{
public:
    SteadyClock()
        : m_startMs(QDateTime::currentMSecsSinceEpoch())
    {
        m_timer.start();
    }
    qint64 ms() const { return m_startMs + m_timer.elapsed(); }

private:
    qint64 m_startMs;
    QElapsedTimer m_timer;
};

} // namespace

namespace bp {

BlockRecorder::BlockRecorder(QObject *parent)
    : QObject(parent)
    , m_edfWriter(std::make_unique<EDFWriter>())
    , m_rhythmWriter(new XLSWriter([this] { return m_sheetDateMs + now() - m_sheetStartMs; }, this))
{
    m_rhythmWriter->setTimerEnabled(false); // the thread's event loop goes on when the reader's loop has ended
    clockMs();
}

BlockRecorder::~BlockRecorder()
{
    BPCommon::log(BPCommon::LogReader, "DataReader::removeEDFFileReader");
    blockSignals(true);
    if (isFileOpened()) {
        closeEdf();
    }
    delete m_rhythmWriter; // now, because its clock is this object's
}

qint64 BlockRecorder::clockMs()
{
    static const SteadyClock clock;
    return clock.ms();
}

qint64 BlockRecorder::now() const
{
    return m_signalClock ? m_signalStartMs + m_signalSamples * kMsPerSecond / m_frequency : clockMs();
}

void BlockRecorder::setPatientInfo(const PatientInfo &patient)
{
    m_patient = patient;
    m_edfWriter->setPatientInfo(patient);
}

void BlockRecorder::setSignalClock(bool on)
{
    if (on != m_signalClock) {
        m_signalStartMs = clockMs();
        m_signalSamples = 0;
        m_signalClock = on;
    }
}

void BlockRecorder::setSignalLabels(const QList<AnnotationStrct> &labels, double passSeconds)
{
    m_passSeconds = passSeconds >= kLeastPassSeconds ? passSeconds : 0.0;
    m_signalLabels.clear();
    std::copy_if(labels.begin(), labels.end(), std::back_inserter(m_signalLabels),
                 [this](const AnnotationStrct &label) {
                     return label.onset >= 0.0 && std::isfinite(label.onset)
                         && (m_passSeconds <= 0.0 || label.onset <= m_passSeconds);
                 });
    m_nextLabel = 0;
    m_passBegin = 0.0;
    while (isLabelBefore(static_cast<double>(m_runSamples))) {
        nextSignalLabel();
    }
}

void BlockRecorder::resume()
{
    const qint64 present = now();
    for (qint64 *start : {&m_startMs, &m_edfStartMs, &m_sheetStartMs}) {
        *start = present - std::max<qint64>(0, m_pausedMs - *start); // started in the pause: begins now
    }
    m_isPaused = false;
    m_runSamples = 0;
    m_nextLabel = 0;
    m_passBegin = 0.0;
}

void BlockRecorder::pause()
{
    m_pausedMs = now();
    m_isPaused = true;
    passSignalLabels(static_cast<double>(m_runSamples + 1)); // at the very end
}

void BlockRecorder::apply(bool edf, bool rhythm, const QString &path, const RecordedStream &stream)
{
    applyEdf(edf, path, stream);
    if (rhythm != m_rhythm || (!rhythm && m_rhythmWriter->isRunning())) {
        m_rhythm = rhythm;
        applyRhythms(rhythm, path, stream.algorithms);
    }
    m_timing = m_edf || m_rhythm;
    m_startMs = now();
}

void BlockRecorder::applyEdf(bool edf, const QString &path, const RecordedStream &stream)
{
    if (!edf) {
        if (m_edf || isFileOpened()) {
            m_edf = false;
            closeEdf();
        }
        return;
    }
    if (m_edf && path == m_edfPath) {
        return;
    }
    if (m_edf && m_edfSamples > 0) {
        emit recordError(QStringLiteral("%1 is not recorded: %2 is still being recorded. Stop that recording first.")
                             .arg(path, m_edfPath));
        return;
    }
    m_edf = openEdf(path, stream);
    if (!m_edf) {
        closeEdf();
    }
}

void BlockRecorder::applyRhythms(bool on, const QString &path, AlgorithmManager *algorithms)
{
    if (!on) {
        m_closingFiles.store(true);
        const bool isSaved = m_rhythmWriter->stopWrite();
        m_closingFiles.store(false);
        if (!isSaved) {
            emit recordError(m_rhythmWriter->lastError());
        }
        return;
    }
    if (!m_rhythmWriter->isRunning()) {
        connectRhythms(*algorithms);
        m_rhythmWriter->setPath(path);
    }
    if (!m_rhythmWriter->hasRows()) {
        m_sheetStartMs = now();
        const QDateTime start = startOfFile();
        m_sheetDateMs = start.isValid() ? start.toMSecsSinceEpoch() : QDateTime::currentMSecsSinceEpoch();
        m_rhythmWriter->startWrite();
    }
}

void BlockRecorder::connectRhythms(AlgorithmManager &algorithms)
{
    std::vector<UnitParams> params;
    for (const char *name : {"SpectrumNorm", "Math"}) {
        for (CustomAlgorithm *algorithm : algorithms.findAlgorithms(QString::fromLatin1(name))) {
            disconnect(algorithm, &CustomAlgorithm::getData, m_rhythmWriter, &XLSWriter::addData);
            connect(algorithm, &CustomAlgorithm::getData, m_rhythmWriter, &XLSWriter::addData);
            algorithm->getAlgorithmParams(params.emplace_back());
        }
    }
    m_rhythmWriter->setParamList(params);
}

void BlockRecorder::forgetWishes()
{
    m_edf = m_rhythm = false;
    m_timing = m_timing && (isFileOpened() || m_rhythmWriter->isRunning());
}

void BlockRecorder::abandonEdf(const QString &reason)
{
    emit recordError(reason);
    closeEdf();
    m_edf = false;
    m_timing = m_rhythm;
}

bool BlockRecorder::reopenEmptyEdf(const RecordedStream &stream)
{
    return m_edf && m_edfSamples == 0 && openEdf(m_edfPath, stream);
}

bool BlockRecorder::isFileOpened() const
{
    return m_edfWriter->isFileOpened();
}

/// A file that is open and has no samples was asked for before the signal: its labels are the new file's.
bool BlockRecorder::openEdf(const QString &path, const RecordedStream &stream)
{
    if (m_edfSamples > 0 && isFileOpened()) {
        closeEdf();
    }
    m_edfWriter->discard();
    m_writeFailed = false;
    m_reportedNotice.clear();
    m_edfPath = path;
    m_edfSamples = 0;
    m_recordSamples = std::max(1, stream.frequency);
    m_edfWriter->setStartDateTime(startOfFile());
    if (!m_edfWriter->prepareWriter(path, stream.montage, stream.frequency)) {
        emit recordError(m_edfWriter->lastError());
        return false;
    }
    reportNotice();
    m_edfWriter->takeStartTime();
    m_edfStartMs = now();
    if (m_patient) {
        m_edfWriter->setPatientInfo(*m_patient);
    }
    for (const Label &label : std::exchange(m_earlyLabels, {})) {
        writeLabel(label);
    }
    return true;
}

/// Invalid for the clock's.
QDateTime BlockRecorder::startOfFile() const
{
    if (m_startTime.isValid() || !m_signalStartTime.isValid()) {
        return m_startTime;
    }
    const double seconds = m_isPaused ? 0.0 : static_cast<double>(m_runSamples) / m_rate; // a run is still to come
    return m_signalStartTime.addMSecs(std::llround(seconds * kMsPerSecond));
}

void BlockRecorder::closeEdf()
{
    const bool isOpen = isFileOpened();
    m_closingFiles.store(isOpen);
    if (isOpen && !m_isPaused) {
        passSignalLabels(static_cast<double>(m_runSamples + 1)); // at the very end
    }
    if (isOpen && m_writeRemainder && m_edfSamples % m_recordSamples != 0) {
        reportFailure(m_edfWriter->writeRemainderToFile());
    }
    m_edfWriter->resetStartTime();
    m_edfWriter->clearShift();
    const bool isComplete = !isOpen || m_edfWriter->close();
    m_closingFiles.store(false);
    if (isOpen) {
        m_paddedSeconds.store(m_edfWriter->paddedSeconds());
        reportNotice();
    }
    m_earlyLabels.clear();
    if (!isComplete && !m_writeFailed) {
        const QString reason = m_edfWriter->lastError();
        emit recordError(reason.isEmpty() ? QStringLiteral("%1 could not be completed: check the disk.").arg(m_edfPath)
                                          : reason);
    }
    emit endWritingAndCloseFile();
}

void BlockRecorder::record(unsigned samples, const float *planar)
{
    m_edfSamples += samples;
    reportFailure(m_edfWriter->writeData(samples, planar));
}

void BlockRecorder::reportFailure(bool isWritten)
{
    if (!isWritten && !m_writeFailed) {
        m_writeFailed = true;
        emit recordError(m_edfWriter->lastError());
    }
}

/// What has come to the file's notices since the last call.
void BlockRecorder::reportNotice()
{
    const QString notice = m_edfWriter->notice();
    const QString news = notice.mid(m_reportedNotice.size()).trimmed();
    m_reportedNotice = notice;
    if (!news.isEmpty()) {
        emit recordNotice(news);
    }
}

/// Of the next label of the signal; sample is counted in the run.
bool BlockRecorder::isLabelBefore(double sample) const
{
    return m_nextLabel < m_signalLabels.size() && (m_passBegin + m_signalLabels[m_nextLabel].onset) * m_rate < sample;
}

/// At its sample of the file, whose records are a second long whatever the rate.
void BlockRecorder::writeSignalLabel()
{
    const AnnotationStrct &label = m_signalLabels[m_nextLabel];
    const double sample = (m_passBegin + label.onset) * m_rate - static_cast<double>(m_runSamples - m_edfSamples);
    const double msPerSample = static_cast<double>(kMsPerSecond) / m_recordSamples;
    annotateAt(label.text, std::llround(sample * msPerSample), std::llround(label.duration * m_rate * msPerSample));
}

/// Those before a sample of the run.
void BlockRecorder::passSignalLabels(double end)
{
    while (isLabelBefore(end)) {
        if (isFileOpened() && m_edfSamples > 0) {
            writeSignalLabel();
        }
        emit signalLabel(m_passBegin + m_signalLabels[m_nextLabel].onset, m_signalLabels[m_nextLabel].text);
        nextSignalLabel();
    }
}

void BlockRecorder::nextSignalLabel()
{
    if (++m_nextLabel == m_signalLabels.size() && m_passSeconds > 0.0) {
        m_nextLabel = 0;
        m_passBegin += m_passSeconds;
    }
}

void BlockRecorder::poll(unsigned samples, double rate)
{
    m_runSamples += samples;
    m_rate = std::max(1.0, rate);
    passSignalLabels(static_cast<double>(m_runSamples));
    const int frequency = static_cast<int>(rate);
    if (frequency != m_frequency) {
        m_signalStartMs = now();
        m_signalSamples = 0;
        m_frequency = std::max(1, frequency);
    }
    m_signalSamples += samples;
    m_rhythmWriter->poll();
}

qint64 BlockRecorder::elapsed() const
{
    return m_timing ? now() - m_startMs : 0;
}

qint64 BlockRecorder::sinceOpening(qint64 atMs) const
{
    const qint64 present = m_signalClock ? now() : atMs;
    return std::max<qint64>(0, (m_isPaused ? std::min(present, m_pausedMs) : present) - m_edfStartMs);
}

void BlockRecorder::annotate(const QString &label, qint64 atMs)
{
    annotateAt(label, sinceOpening(atMs));
}

void BlockRecorder::annotateAt(const QString &label, qint64 elapsedMs, qint64 durationMs)
{
    const auto written = writeLabel({std::max<qint64>(0, elapsedMs), durationMs, label});
    emit annotationLabel(written.first
                             ? TextHelper::TimeToText(static_cast<double>(written.second) / kMsPerSecond, true)
                             : QStringLiteral("-"),
                         label);
}

void BlockRecorder::writeState(unsigned char state, qint64 atMs)
{
    if (m_edf) {
        writeLabel({sinceOpening(atMs), 0, QString::number(state)});
    }
}

std::pair<bool, long long> BlockRecorder::writeLabel(const Label &label)
{
    const auto written = m_edfWriter->addAnnotationAt(label.elapsedMs, label.text, label.durationMs);
    if (written.first && m_edfSamples == 0) {
        m_earlyLabels.push_back(label);
    }
    return written;
}

} // namespace bp
