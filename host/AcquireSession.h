#pragma once

#include "LiveValues.h"
#include "algorithms/UnitParams.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QObject>
#include <QSharedPointer>
#include <QTimer>

#include <memory>
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
};

/// One acquisition from start to summary: counts what arrives, places the labels, ends for whatever reason comes first.
class AcquireSession : public QObject
{
    Q_OBJECT
public:
    AcquireSession(Amplifier *device, QSharedPointer<Montage> montage, AcquireOptions options,
                   QObject *parent = nullptr);
    ~AcquireSession() override;

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
    void takeData(int count);
    void takeDeviceCode(int code);
    void takeRecordError(const QString &reason);
    void takeLabelAnswer(const QString &time, const QString &label);
    void placeLabels();
    void showLiveValues();
    void finish();
    double seconds() const;

    Amplifier *m_device;
    QSharedPointer<Montage> m_montage;
    AcquireOptions m_options;
    LiveValues m_live; ///< before the compound, whose algorithms send to it
    std::unique_ptr<DataCompound> m_compound;
    QTimer m_liveTimer;
    QElapsedTimer m_clock;
    double m_frequency;
    qint64 m_samples = 0;
    qint64 m_blocks = 0;
    qint64 m_firstBlockMs = -1;
    std::size_t m_nextLabel = 0;
    int m_labelsWritten = 0;
    bool m_stopping = false;
    bool m_finished = false;
    QString m_reason;
    QString m_error;
};
