#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "common/MetaTypes.h"
#include "devices/AmplifierInfo.h"
#include "devices/AnnotationStrct.h"
#include "files/PatientInfo.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QString>

#include <atomic>
#include <memory>

class AlgorithmManager;
class Amplifier;
class CustomAlgorithm;
class Montage;
class UnitParams;

namespace bp {
class BlockRecorder;
class ChannelFilterBank;
class StreamOutlets;
class TaskQueue;
struct MontageSetup;
struct MontageTable;
struct RawBlock;
} // namespace bp

/// The loop of one acquiring device: read a block, re-reference and filter it, publish it, record it, run the
/// algorithms, sleep.
///
/// Lives on a worker thread (DataCompound owns both); run() is that thread's work. Every public operation may be called
/// from the owner's thread at any time: what touches the loop's state is handed to the loop, which does it before its
/// next block; while no loop runs it is done at once. Blocks are planar: montage channel i occupies [i·n, i·n + n).
///
/// While the loop runs, its thread can be terminated within the calls of the device and nowhere else (see
/// QThread::setTerminationEnabled()), so that a device that hangs leaves everything else whole.
class BIOPROCESSING_EXPORT DataReader : public QObject
{
    Q_OBJECT
public:
    explicit DataReader(QObject *parent = nullptr);
    /// Closes a recording that is still open. The loop must have ended.
    ~DataReader() override;

    /// Attaches a device (borrowed; it must outlive the reader or the next call) and the montage to compute from it.
    ///
    /// The montage's filters are built anew for the device's rate; what the host changes in them later counts from the
    /// next block on. Call it on the thread that the montage belongs to. A recording goes on when channel count and
    /// rate stay as they are; otherwise it is closed and recordError() says so. Input numbers beyond the device's
    /// channels count as none.
    void setNewMontage(Amplifier *device, const QSharedPointer<Montage> &montage);

    /// Whether the loop is wanted to run.
    bool isThreadRunning() const;
    /// Whether an EDF recording is wanted: true from the request on, false again when the file could not be opened.
    bool isRecording() const;
    /// Whether files are being written to their end, which takes seconds after a long recording. Any thread.
    bool isClosingFiles() const;

    /// Path of the next EDF file; the owner's thread only.
    void setRecordPath(const QString &path);
    QString getRecordPath() const;
    /// Written into the recording that is open, and into every one opened later.
    void setPatientInfo(const PatientInfo &patient);
    /// At the end of a recording its incomplete last record is padded with zeros and written. Off unless set: the
    /// record, less than a second, is dropped.
    void setWriteRemainder(bool on);
    /// Seconds of padding at the end of the last recording closed, 0 without; from endWritingAndCloseFile() on.
    double paddedSeconds() const;
    /// Start time in the header of the recordings that follow, and in their spreadsheets; the clock's when invalid.
    void setRecordStartTime(const QDateTime &start);
    /// For a device that plays a recording at any speed: the recording's clock, currentTime(), labels without a given
    /// time, the automatic stop and the rows of the spreadsheet follow the samples received instead of the clock. A
    /// second is as many samples as a record of the file has. Off unless set; before a recording begins.
    void setSignalClock(bool on);
    /// For a device that plays a recording: labels at their place in the signal, in seconds from the first sample of a
    /// run. signalLabel() tells each one as it passes, and a recording that holds its place has it, with its duration.
    /// @param labels      by onset; in a run that goes on, those that lie behind are skipped
    /// @param passSeconds after which the signal, and the labels with it, come again; 0: never
    void setSignalLabels(const QList<AnnotationStrct> &labels, double passSeconds);
    /// When the first sample of a run was acquired: a recording without a setRecordStartTime() starts in its header at
    /// the time of its own first sample. The clock's when invalid.
    void setSignalStartTime(const QDateTime &start);
    /// A recording ends by itself after this time; below 1 it does not. 10 s unless set.
    void setWriteStateTime(int seconds);

    /// Starts and stops recording: the EDF file at the record path, and the rhythms. Any call restarts the clock of a
    /// recording that goes on. A file that cannot be opened is told by recordError() and endWritingAndCloseFile(). A
    /// recording that is running is not exchanged for one at another path; recordError() says so. What is not wanted is
    /// closed, also when it was opened for a run before.
    void setWriteDataFlag(bool edf, bool rhythm);
    /// Starts and stops the rhythm spreadsheet beside the record path, for the rhythm indices and formulas that are
    /// configured at that moment. setWriteDataFlag() does so together with the recording's clock.
    void setWriteRhythmData(bool on);
    /// Streams every block through an outlet of this name, until the loop ends; another call replaces the outlet. With
    /// synchro, and a device that can, samples carry the device's time stamps and triggers go to a second stream.
    void addLSLStreamParams(const QString &streamName, bool synchro, const QString &syncStreamName);
    /// Writes the number of a mental state as an annotation, while recording.
    void setCurrentState(unsigned char state);
    /// As slotSetLabelToEdf(), at a given time.
    /// @param elapsedMs milliseconds from the start of the recording, at least 0
    void setLabelToEdfAt(const QString &label, qint64 elapsedMs);
    /// @param durationMs below 1 the label marks a time
    void setLabelToEdfAt(const QString &label, qint64 elapsedMs, qint64 durationMs);

    /// Adds an algorithm and takes it over. Call it on the thread on which the algorithm lives.
    void setAlgorithmClass(CustomAlgorithm *algorithm);
    /// @param receiver has the slot takeAlgorithmData(QString,UnitParams,uint,vector<float>); borrowed
    void setAlgorithmParams(QObject *receiver, const std::vector<UnitParams> &params);
    void resetAlgorithm(const std::vector<UnitParams> &params);
    void updateAlgorithm(const std::vector<UnitParams> &params);
    void updateAlgorithm(const UnitParams &params);
    /// Looks the algorithm up and always returns null: it belongs to the loop's thread and must not be reached from
    /// here.
    CustomAlgorithm *getAlgorithmClass(const UnitParams &params);

signals:
    void finishThread();
    void endWritingAndCloseFile();
    void runningChanged(bool running);
    /// −1 when there is no device or it refused to start, otherwise the device's own code. The loop has ended.
    void deviceReturnError(int code);
    /// Milliseconds since the recording started.
    void currentTime(qint64 milliseconds);
    /// @param data  filtered block in µV; its size is the buffer's capacity
    /// @param count leading values that are valid: montage channels × samples
    void newData(const vector<float> &data, int count);
    /// @param impedance one value per device channel, in the device's unit
    void newImpedance(const vector<unsigned int> &impedance, int count);
    /// Answers a label: the time from the start of the recording as text, or "-" when it was not written.
    void annotationLabel(const QString &time, const QString &label);
    /// One sentence on why a recording did not start, lost data or could not be completed; before
    /// endWritingAndCloseFile(), and once for each cause.
    void recordError(const QString &reason);
    /// What a user should know of a recording although nothing failed: labels that were cut, an unrepaired recording
    /// that was at the path and has another name now.
    void recordNotice(const QString &sentence);
    /// The receiver took blocks too slowly, and so many samples per channel were not published, right before the next
    /// newData() or at the end. A recording has them, outlets and algorithms, too. Only with a DataCompound.
    void samplesMissed(qint64 samples);
    /// A label of setSignalLabels() has passed, behind the newData() that holds its place.
    /// @param second of signal from the first sample of the run
    void signalLabel(double second, const QString &label);

public slots:
    /// The loop; connected to the worker thread's started().
    void run();
    /// True: the next run() loops. Recordings that were wanted in the run before are not wanted any more, their files
    /// stay open until setWriteDataFlag() or the automatic stop. While a loop runs, nothing changes. False: the loop
    /// ends after its current block.
    void runningThread(bool running);
    /// Writes a label at the present time, while recording; answered by annotationLabel().
    void slotSetLabelToEdf(const QString &label);

private:
    using BlockHandler = void (DataReader::*)();
    using MontageHandler = void (DataReader::*)(const bp::RawBlock &);
    enum class LoopState { Idle, Wanted, Working, InDevice };

    friend class DataCompound;
    /// Whether the loop runs, or will as soon as its thread has started. Any thread.
    bool isLoopActive() const { return m_loopState.load() != LoopState::Idle; }
    /// Whether anything is recorded, the rhythms alone included. Any thread.
    bool isAnyRecordingOpen() const;
    /// Does what the loop would have done at its end, after its thread was terminated within a call of the device. For
    /// whoever waited for the thread.
    void finishForTerminatedThread();
    /// When the device's call returns after all, the loop closes its files and ends without touching the device. Any
    /// thread.
    void giveUpDevice() { m_isDeviceGivenUp.store(true); }
    /// Bounds the memory of blocks that wait for a receiver, who must say which it has taken.
    void setPublishingBounded() { m_isPublishingBounded = true; }
    void blockTaken(std::size_t floats) { m_waitingFloats.fetch_sub(static_cast<qint64>(floats)); }

    void attach(const bp::MontageSetup &setup);
    void endRecordingThatNoLongerFits(const bp::MontageSetup &setup);
    void resizeWorkBuffers();
    void setBufferSizes(std::size_t rawSize);
    void chooseHandlers(bool filterFree);
    const std::vector<float> &unfilteredBlock() const;

    template <class Call> void callDevice(const Call &call);
    bool startDevice();
    int runLoop();
    void endRunWithoutDevice();
    int readBlock();
    void sleepUntilNextPoll(int algorithmMs);
    void keepRecordingTime();

    void acceptReadDataAll();
    void acceptReadDataWFree();
    void acceptMontageAll(const bp::RawBlock &raw);
    void acceptMontageFilterFree(const bp::RawBlock &raw);
    void acceptBPMontageAll(const bp::RawBlock &raw);
    void acceptAvMontageAll(const bp::RawBlock &raw);
    void computeMontage();
    void filterChannels();
    void publishBlock();
    void publish(const std::vector<float> &block, int count);
    void reportMissedSamples();
    void recordBlock();
    void pushDataToLSL();

    void applyWriteFlags(bool edf, bool rhythm, const QString &path);

    // Set from any thread.
    std::atomic<bool> m_running{false};
    std::atomic<LoopState> m_loopState{LoopState::Idle}; ///< Idle is the last thing that run() writes
    std::atomic<bool> m_isDeviceGivenUp{false};
    std::atomic<qint64> m_waitingFloats{0}; ///< published and not yet taken
    std::atomic<bool> m_writeEdf{false};
    std::atomic<qint64> m_writeStateMs;

    // The owner's thread.
    QString m_recordPath;

    // Everything below belongs to whoever holds the floor of m_tasks: the loop, or a task while no loop runs.
    std::unique_ptr<bp::TaskQueue> m_tasks;
    bp::BlockRecorder *m_recorder; ///< owned; a QObject child, so that it follows the reader to its thread
    AlgorithmManager *m_algorithms; ///< as above
    std::unique_ptr<bp::StreamOutlets> m_outlets;

    Amplifier *m_device = nullptr;
    bool m_isDeviceLost = false; ///< it hangs: nothing may be asked of it again
    AmplifierInfo m_info;
    QSharedPointer<Montage> m_montage;
    float m_frequency = 0.0f;
    int m_pollMs = 0;
    int m_halfSecond = 0; ///< samples per channel that the buffers are sized for
    unsigned m_samples = 0; ///< samples per channel in the current block
    unsigned m_leftReferent = 0;
    unsigned m_rightReferent = 0;
    std::unique_ptr<bp::MontageTable> m_table;
    std::unique_ptr<bp::ChannelFilterBank> m_filters;
    BlockHandler m_blockHandler = &DataReader::acceptReadDataWFree;
    MontageHandler m_montageHandler = &DataReader::acceptMontageAll;
    std::vector<float> m_raw;
    std::vector<float> m_unfiltered;
    std::vector<float> m_filtered;
    std::vector<float> m_average;
    std::vector<unsigned int> m_impedance;
    std::vector<float> m_shortBlock;
    bool m_isPublishingBounded = false;
    qint64 m_missedSamples = 0;
};
