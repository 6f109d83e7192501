#pragma once

#include "files/PatientInfo.h"

#include <QObject>
#include <QSharedPointer>
#include <QString>

#include <atomic>
#include <memory>
#include <optional>

class AlgorithmManager;
class EDFWriter;
class Montage;
class XLSWriter;

namespace bp {

/// What a recording is made of.
struct RecordedStream
{
    QSharedPointer<Montage> montage;
    int frequency = 0; ///< Hz
    AlgorithmManager *algorithms = nullptr; ///< borrowed
};

/// The recordings of a reader's loop: the EDF file, the spreadsheet of the rhythms, and their clock.
///
/// Belongs to whoever holds the reader's floor (see TaskQueue); its signals are the reader's of the same names.
class BlockRecorder : public QObject
{
    Q_OBJECT
public:
    explicit BlockRecorder(QObject *parent);
    ~BlockRecorder() override;

    /// Written into the recording that is open, and into every one opened later.
    void setPatientInfo(const PatientInfo &patient);
    /// Makes the recordings those that are wanted, and starts their clock anew.
    void apply(bool edf, bool rhythm, const QString &path, const RecordedStream &stream);
    /// The spreadsheet alone; the clock goes on.
    void applyRhythms(bool on, const QString &path, AlgorithmManager *algorithms);
    /// What was wanted in the run before is not wanted any more. A file that is open stays open.
    void forgetWishes();
    /// Closes the file, which stays without one until the next apply().
    void abandonEdf(const QString &reason);

    bool isEdfWanted() const { return m_edf; }
    bool isFileOpened() const;
    /// Whether files are being written to their end. Any thread.
    bool isClosingFiles() const { return m_closingFiles.load(); }
    bool isTiming() const { return m_timing; }

    /// @param planar  filtered block, samples per montage channel
    void record(unsigned samples, const float *planar);
    /// Writes the rows of the spreadsheet that have become due.
    void poll();
    /// Milliseconds since the clock was started; 0 while nothing is recorded.
    qint64 elapsed() const;
    /// Writes a label; answered by annotationLabel().
    /// @param atMs  since the epoch
    void annotate(const QString &label, qint64 atMs);
    /// @param elapsedMs  from the start of the file
    void annotateAt(const QString &label, qint64 elapsedMs);
    /// A state is written without an answer, and only while an EDF file is wanted.
    void writeState(unsigned char state, qint64 atMs);

signals:
    void endWritingAndCloseFile();
    void annotationLabel(const QString &time, const QString &label);
    void recordError(const QString &reason);

private:
    bool openEdf(const QString &path, const RecordedStream &stream);
    void closeEdf();
    void connectRhythms(AlgorithmManager &algorithms);
    qint64 sinceOpening(qint64 atMs) const;

    std::unique_ptr<EDFWriter> m_edfWriter;
    XLSWriter *m_rhythmWriter; ///< owned; a QObject child, so that it follows to the loop's thread
    std::optional<PatientInfo> m_patient;
    bool m_edf = false;
    bool m_rhythm = false;
    bool m_timing = false;
    bool m_writeFailed = false; ///< told once per file
    qint64 m_startMs = 0; ///< of the clock, ms since the epoch
    qint64 m_edfStartMs = 0; ///< of the EDF file, from which labels count
    std::atomic<bool> m_closingFiles{false};
};

} // namespace bp
