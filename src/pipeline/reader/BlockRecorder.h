#pragma once

#include "devices/AnnotationStrct.h"
#include "files/PatientInfo.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QString>

#include <atomic>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

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
/// The clock is the system's, as it was when the program started and steady from then on, or follows the samples. It
/// stands still between pause() and resume(), while no loop runs: what is written meanwhile belongs to the moment at
/// which the signal stopped, or will begin.
///
/// Belongs to whoever holds the reader's floor (see TaskQueue); its signals are the reader's of the same names.
class BlockRecorder : public QObject
{
    Q_OBJECT
public:
    explicit BlockRecorder(QObject *parent);
    /// Closes what is open, without a signal.
    ~BlockRecorder() override;

    /// Milliseconds since the epoch by the clock of the labels; steps of the system's clock are not followed. Any
    /// thread.
    static qint64 clockMs();

    /// Written into the recording that is open, and into every one opened later.
    void setPatientInfo(const PatientInfo &patient);
    /// At the end the incomplete last record is padded and written, instead of being dropped.
    void setWriteRemainder(bool on) { m_writeRemainder = on; }
    /// Start of the recordings opened from now on; the clock's time when invalid.
    void setStartTime(const QDateTime &start) { m_startTime = start; }
    /// Time is counted in samples, those of poll(); before a recording begins.
    void setSignalClock(bool on);
    /// As the reader's operations of these names.
    void setSignalLabels(const QList<AnnotationStrct> &labels, double passSeconds);
    void setSignalStartTime(const QDateTime &start) { m_signalStartTime = start; }

    /// The loop begins, or has ended.
    void resume();
    void pause();

    /// Makes the recordings those that are wanted, and starts their clock anew. What is not wanted is closed, also when
    /// it was opened for a run before.
    void apply(bool edf, bool rhythm, const QString &path, const RecordedStream &stream);
    /// The spreadsheet alone; the clock goes on.
    void applyRhythms(bool on, const QString &path, AlgorithmManager *algorithms);
    /// What was wanted in the run before is not wanted any more. What is open stays open until the next apply().
    void forgetWishes();
    /// Closes the file, which stays without one until the next apply().
    void abandonEdf(const QString &reason);
    /// Another montage or rate for a file that is wanted and has no samples yet.
    /// @return false, and nothing has changed, when there is no such file
    bool reopenEmptyEdf(const RecordedStream &stream);

    bool isEdfWanted() const { return m_edf; }
    bool isFileOpened() const;
    /// Whether files are being written to their end. Any thread.
    bool isClosingFiles() const { return m_closingFiles.load(); }
    /// Seconds of padding at the end of the last file closed. Any thread.
    double paddedSeconds() const { return m_paddedSeconds.load(); }
    /// Whether a recording's clock runs. Any thread.
    bool isTiming() const { return m_timing.load(); }

    /// @param planar  filtered block, samples per montage channel
    void record(unsigned samples, const float *planar);
    /// A block has passed, which is in the recording: writes the labels of the signal in it, moves the clock of the
    /// samples, and writes the rows of the spreadsheet that have become due.
    /// @param rate  Hz
    void poll(unsigned samples, double rate);
    /// Milliseconds since the clock was started; 0 while nothing is recorded.
    qint64 elapsed() const;
    /// Writes a label; answered by annotationLabel().
    /// @param atMs  as clockMs(); the clock of the samples takes its present time instead
    void annotate(const QString &label, qint64 atMs);
    /// @param elapsedMs  from the start of the file
    /// @param durationMs  below 1 the label marks a time
    void annotateAt(const QString &label, qint64 elapsedMs, qint64 durationMs = 0);
    /// A state is written without an answer, and only while an EDF file is wanted.
    void writeState(unsigned char state, qint64 atMs);

signals:
    void endWritingAndCloseFile();
    void annotationLabel(const QString &time, const QString &label);
    void recordError(const QString &reason);
    void recordNotice(const QString &sentence);
    void signalLabel(double second, const QString &label);

private:
    struct Label
    {
        qint64 elapsedMs;
        qint64 durationMs;
        QString text;
    };

    void applyEdf(bool edf, const QString &path, const RecordedStream &stream);
    bool openEdf(const QString &path, const RecordedStream &stream);
    void closeEdf();
    void reportFailure(bool isWritten);
    void reportNotice();
    std::pair<bool, long long> writeLabel(const Label &label);
    bool isLabelBefore(double sample) const;
    void nextSignalLabel();
    void writeSignalLabel();
    void passSignalLabels(double end);
    QDateTime startOfFile() const;
    void connectRhythms(AlgorithmManager &algorithms);
    qint64 now() const;
    qint64 sinceOpening(qint64 atMs) const;

    std::unique_ptr<EDFWriter> m_edfWriter;
    XLSWriter *m_rhythmWriter; ///< owned; a QObject child, so that it follows to the loop's thread
    std::optional<PatientInfo> m_patient;
    QDateTime m_startTime;
    QString m_edfPath; ///< of the file opened last
    QString m_reportedNotice;
    std::vector<Label> m_earlyLabels; ///< written before the file's first sample; move along when it is opened anew
    int m_recordSamples = 1; ///< samples per channel of a complete record of the file
    qint64 m_edfSamples = 0; ///< per channel, in the file
    bool m_edf = false;
    bool m_rhythm = false;
    bool m_writeRemainder = false;
    bool m_writeFailed = false; ///< reported once per file

    bool m_signalClock = false;
    qint64 m_signalStartMs = 0; ///< of the samples counted
    qint64 m_signalSamples = 0;
    int m_frequency = 1; ///< of the samples counted, Hz

    QDateTime m_signalStartTime; ///< of the run's first sample
    QList<AnnotationStrct> m_signalLabels;
    int m_nextLabel = 0;
    double m_passSeconds = 0.0;
    double m_passBegin = 0.0; ///< s of signal
    qint64 m_runSamples = 0; ///< per channel, since the run began
    double m_rate = 1.0; ///< of the signal, Hz

    bool m_isPaused = true;
    qint64 m_pausedMs = 0;
    qint64 m_startMs = 0; ///< of the clock; by now(), as the two that follow
    qint64 m_edfStartMs = 0; ///< of the EDF file, from which labels count
    qint64 m_sheetStartMs = 0; ///< of the spreadsheet
    qint64 m_sheetDateMs = 0; ///< date and time of its start, since the epoch

    std::atomic<bool> m_timing{false};
    std::atomic<bool> m_closingFiles{false};
    std::atomic<double> m_paddedSeconds{0.0};
};

} // namespace bp
