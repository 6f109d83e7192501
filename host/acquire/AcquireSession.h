#pragma once

#include "acquire/LiveValues.h"
#include "acquire/PlayedRecording.h"
#include "acquire/SampleWatch.h"
#include "algorithms/UnitParams.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QObject>
#include <QSharedPointer>
#include <QTimer>

#include <memory>
#include <optional>
#include <vector>

class Amplifier;
class DataCompound;
class Montage;

/// A label and the second of the recording at which it belongs.
struct TimedLabel
{
    double seconds;
    QString text;
};

struct AcquireOptions
{
    double seconds = 0.0; ///< of signal; 0 until the device ends or the user does
    QString recordPath; ///< empty: nothing is recorded
    std::vector<TimedLabel> labels;
    std::vector<UnitParams> algorithms;
    QString lslName; ///< empty: nothing is streamed
    bool json = false; ///< live values as JSON lines
    bool isPaced = false; ///< the device's time is not the clock's: a played recording, a simulator at another speed
    PlayedRecording played; ///< what goes along with the signal; nothing unless a recording is played
    QDateTime recordStart; ///< for the recording's header; invalid: the played recording's, or the clock's
    std::optional<PatientInfo> patient;
};

/// One acquisition from start to summary: counts what arrives, places the labels, ends for whatever reason comes first.
class AcquireSession : public QObject
{
    Q_OBJECT
public:
    AcquireSession(Amplifier *device, QSharedPointer<Montage> montage, AcquireOptions options,
                   QObject *parent = nullptr);
    ~AcquireSession() override;

    /// Where the rhythms of a recording go.
    static QString rhythmPath(const QString &record);

    void start();
    /// Ends acquisition and closes the recording; finished() follows. Further calls do nothing.
    void stop(const QString &reason);

    /// After finished(): what was acquired, with an "error" entry when something went wrong.
    QJsonObject summary() const;
    /// The error as one sentence; empty when there was none.
    QString errorText() const;

signals:
    void finished();

private:
    void prepareRecord();
    bool recordsRhythms() const;
    void takeData(const std::vector<float> &data, int count);
    void countClipped(const std::vector<float> &data, std::size_t samples);
    void takeDeviceCode(int code);
    void takeRecordError(const QString &reason);
    void takeLabelAnswer(const QString &time, const QString &label);
    void placeLabels();
    void showLabel(double seconds, const QString &text) const;
    void showLiveValues();
    void giveUpClosing();
    void finish();
    void checkRecording();
    double seconds() const;
    QJsonObject recordSummary() const;

    Amplifier *m_device;
    QSharedPointer<Montage> m_montage;
    AcquireOptions m_options;
    LiveValues m_live; ///< before the compound, whose algorithms send to it
    std::unique_ptr<DataCompound> m_compound;
    SampleWatch m_watch;
    QTimer m_liveTimer;
    QElapsedTimer m_clock;
    double m_frequency;
    qint64 m_samples = 0;
    qint64 m_blocks = 0;
    qint64 m_firstBlockMs = -1;
    std::size_t m_nextLabel = 0;
    std::vector<qint64> m_clipped; ///< samples per montage channel that a recording cannot hold
    int m_labelsWritten = 0;
    bool m_stopping = false;
    bool m_finished = false;
    bool m_rhythmsFailed = false; ///< their spreadsheet could not be saved
    bool m_recordFailed = false; ///< m_error tells why the recording is not complete
    QString m_reason;
    QString m_error;
};
