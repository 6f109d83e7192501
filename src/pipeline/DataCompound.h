#pragma once

#include "algorithms/UnitParams.h"
#include "common/BPExport.h"
#include "common/MetaTypes.h"
#include "devices/AmplifierInfo.h"
#include "devices/AnnotationStrct.h"
#include "files/PatientInfo.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QString>

#include <functional>
#include <map>
#include <memory>
#include <vector>

class Amplifier;
class CustomAlgorithm;
class DataReader;
class Montage;
class QThread;

/// What a host holds for one acquiring device: the worker thread, the reader that lives on it, and the signals that
/// bring its data home.
///
/// Lives on the host's thread, which needs an event loop; all signals are emitted there. A recording is started and
/// stopped at any time while acquiring. What is set before there is a device counts when it comes.
class BIOPROCESSING_EXPORT DataCompound : public QObject
{
    Q_OBJECT
public:
    /// @param device borrowed; it must outlive this object or the next setNewAmplifier()
    DataCompound(Amplifier *device, QSharedPointer<Montage> montage, QObject *parent = nullptr);
    /// Stops the thread and closes a recording. A thread that does not end within five seconds is terminated; the time
    /// that files take to be closed does not count.
    ///
    /// The same goes for a start and for another device while the one before does not end. Recordings are then closed,
    /// recordError() says so, and acquisition begins on a new thread; what was set is set again, algorithms that were
    /// added by setAlgorithmClass() are lost. When termination has no effect because the device never waits, its thread
    /// is left alone with the recording, which is closed if the device's call ever returns.
    ~DataCompound() override;

    /// Takes a device and a montage. Another montage of the same device is taken up while acquiring; with another
    /// device acquisition stops first.
    /// @return false, and nothing is ready, when the device is null or the montage null or empty
    bool setNewAmplifier(Amplifier *device, QSharedPointer<Montage> montage);

    /// Both return true always; they do nothing while not ready. A start while acquiring changes nothing; after the
    /// device has failed it begins again.
    bool startReadData();
    bool stopReadData();
    void setThreadRunning(bool running);

    bool isRecording() const;
    bool isDataCompoundReady() const;
    Amplifier *getAmplifier() const;

    /// Asked for before startReadData(), the recording begins with the first block; labels set until then stand at its
    /// start.
    ///
    /// @param path    of the EDF+ file
    /// @param edf     record the signals
    /// @param rhythm  record the rhythms
    /// @param seconds the recording ends by itself after this time; 0 records until stopRecord()
    void startRecord(const QString &path, bool edf, bool rhythm, int seconds);
    void stopRecord();
    void setStartWriteDataFlag(bool edf, bool rhythm);
    void setPatientInfo(const PatientInfo &patient);
    /// As the reader's operations of the same names; they last for all recordings that follow.
    void setWriteRemainder(bool on);
    double paddedSeconds() const;
    void setRecordStartTime(const QDateTime &start);
    void setSignalClock(bool on);
    void setSignalLabels(const QList<AnnotationStrct> &labels, double passSeconds);
    void setSignalStartTime(const QDateTime &start);
    /// Writes a label at a given time of the recording, for devices whose time is not the clock's (a recording that is
    /// played faster). Answered by currentLabel().
    /// @param seconds from the start of the recording
    void setLabelToEDFAt(const QString &label, double seconds);
    /// @param durationMs below 1 the label marks a time
    void setLabelToEDFAt(const QString &label, double seconds, qint64 durationMs);

    /// Streams through a Lab Streaming Layer outlet while acquiring; see DataReader::addLSLStreamParams().
    void setLSLStreamParametrs(const QString &streamName, bool synchro, const QString &syncStreamName);

    /// As the reader's operations of the same names.
    void setAlgorithmClass(CustomAlgorithm *algorithm);
    void setAlgorithmParams(QObject *receiver, const std::vector<UnitParams> &params);
    void resetAlgorithm(const std::vector<UnitParams> &params);
    void updateAlgorithm(const std::vector<UnitParams> &params);
    void updateAlgorithm(const UnitParams &params);

signals:
    /// For the host's own use.
    void removeAlgorhythm(const QString &name);
    void setTextToEdf(const QString &text);
    void endWritingAndCloseFile();
    /// Milliseconds since the recording started.
    void recordDurationChanged(qint64 milliseconds);
    /// Planar block in µV; count leading values are valid, montage channel i at [i·n, i·n + n).
    void newSampleData(const vector<float> &data, int count);
    void newSampleImpedance(const vector<unsigned int> &impedance, int count);
    void recordStarted(const QString &path);
    void recordStopped(const QString &path);
    /// −1 when the device refused to start, otherwise its own code. Acquisition has ended; stopReadData() is still due.
    void currentDeviceReturnError(int code);
    void currentLabel(const QString &time, const QString &label);
    /// One sentence on why a recording did not start, lost data or could not be completed.
    void recordError(const QString &reason);
    /// As DataReader::recordNotice().
    void recordNotice(const QString &sentence);
    /// The host took blocks too slowly, and so many samples per channel are missing before the next newSampleData().
    /// Blocks wait for a host in 128 MiB at most. A recording has them all.
    void samplesMissed(qint64 samples);
    /// As DataReader::signalLabel().
    void signalLabel(double second, const QString &label);

public slots:
    void slotErrorCurrentDevice(int code);
    void slotSetLabelToEDF(const QString &label);
    void slotTakeCurrentState(unsigned char state);
    void takeCurrentData(const vector<float> &data, int count);
    void takeCurrentImpedance(const vector<unsigned int> &impedance, int count);

private:
    enum class Setting { RecordPath, Patient, WriteRemainder, StartTime, SignalClock, SignalLabels, SignalStartTime };
    using Apply = std::function<void(DataReader &)>;

    void set(Setting setting, Apply apply);
    void rememberAlgorithm(const UnitParams &params);
    void prepeareThread();
    void createComponents();
    void connectComponents();
    void startThread();
    void askThreadToStop();
    void stopThread();
    void endThread();
    bool waitForThread();
    void terminateThread();
    void removeComponents();

    bool m_running = false;
    bool m_ready = false;
    bool m_recordFromStart = false; ///< a recording was asked for while nothing ran
    bool m_recordEdf = false;
    bool m_recordRhythm = false;
    std::unique_ptr<QThread> m_thread;
    std::unique_ptr<DataReader> m_reader;
    Amplifier *m_device = nullptr;
    QSharedPointer<Montage> m_montage;
    AmplifierInfo m_info;
    // For every reader that is made.
    std::map<Setting, Apply> m_settings;
    QPointer<QObject> m_receiver; ///< of the algorithms
    std::vector<UnitParams> m_algorithms;
    bool m_algorithmsDue = false; ///< the reader does not have them yet
};
