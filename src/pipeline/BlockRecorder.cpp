#include "pipeline/BlockRecorder.h"

#include "algorithms/AlgorithmManager.h"
#include "algorithms/CustomAlgorithm.h"
#include "base/TextHelper.h"
#include "common/BPCommon.h"
#include "files/EDFWriter.h"
#include "files/XLSWriter.h"

#include <QDateTime>

#include <algorithm>

namespace bp {

namespace {

qint64 nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

} // namespace

BlockRecorder::BlockRecorder(QObject *parent)
    : QObject(parent)
    , m_edfWriter(std::make_unique<EDFWriter>())
    , m_rhythmWriter(new XLSWriter(this))
{
    m_rhythmWriter->setTimerEnabled(false); // the thread's event loop goes on when the reader's loop has ended
}

BlockRecorder::~BlockRecorder()
{
    BPCommon::log(BPCommon::LogReader, "DataReader::removeEDFFileReader");
}

void BlockRecorder::setPatientInfo(const PatientInfo &patient)
{
    m_patient = patient;
    m_edfWriter->setPatientInfo(patient);
}

void BlockRecorder::apply(bool edf, bool rhythm, const QString &path, const RecordedStream &stream)
{
    if (edf != m_edf) {
        m_edf = edf && openEdf(path, stream);
        if (!m_edf) {
            closeEdf();
        }
    }
    if (rhythm != m_rhythm) {
        m_rhythm = rhythm;
        applyRhythms(rhythm, path, stream.algorithms);
    }
    m_timing = m_edf || m_rhythm;
    m_startMs = nowMs();
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
    if (m_rhythmWriter->isRunning()) {
        return;
    }
    connectRhythms(*algorithms);
    m_rhythmWriter->setPath(path);
    m_rhythmWriter->startWrite();
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
    m_edf = m_rhythm = m_timing = false;
}

void BlockRecorder::abandonEdf(const QString &reason)
{
    closeEdf();
    m_edf = false;
    m_timing = m_rhythm;
    emit recordError(reason);
}

bool BlockRecorder::isFileOpened() const
{
    return m_edfWriter->isFileOpened();
}

bool BlockRecorder::openEdf(const QString &path, const RecordedStream &stream)
{
    m_writeFailed = false;
    if (!m_edfWriter->prepareWriter(path, stream.montage, stream.frequency)) {
        emit recordError(m_edfWriter->lastError());
        return false;
    }
    m_edfWriter->takeStartTime();
    m_edfStartMs = nowMs();
    if (m_patient) {
        m_edfWriter->setPatientInfo(*m_patient);
    }
    return true;
}

void BlockRecorder::closeEdf()
{
    m_edfWriter->resetStartTime();
    m_edfWriter->clearShift();
    if (m_edfWriter->isFileOpened()) {
        m_closingFiles.store(true);
        m_edfWriter->close();
        m_closingFiles.store(false);
    }
    emit endWritingAndCloseFile();
}

void BlockRecorder::record(unsigned samples, const float *planar)
{
    if (!m_edfWriter->writeData(samples, planar) && !m_writeFailed) {
        m_writeFailed = true;
        emit recordError(m_edfWriter->lastError());
    }
}

void BlockRecorder::poll()
{
    m_rhythmWriter->poll();
}

qint64 BlockRecorder::elapsed() const
{
    return m_timing ? nowMs() - m_startMs : 0;
}

qint64 BlockRecorder::sinceOpening(qint64 atMs) const
{
    return std::max<qint64>(0, atMs - m_edfStartMs);
}

void BlockRecorder::annotate(const QString &label, qint64 atMs)
{
    annotateAt(label, sinceOpening(atMs));
}

void BlockRecorder::annotateAt(const QString &label, qint64 elapsedMs)
{
    const auto written = m_edfWriter->addAnnotationAt(std::max<qint64>(0, elapsedMs), label);
    emit annotationLabel(written.first ? TextHelper::TimeToText(static_cast<double>(written.second) / 1000.0, true)
                                       : QStringLiteral("-"),
                         label);
}

void BlockRecorder::writeState(unsigned char state, qint64 atMs)
{
    if (m_edf) {
        m_edfWriter->addAnnotationAt(sinceOpening(atMs), QString::number(state));
    }
}

} // namespace bp
