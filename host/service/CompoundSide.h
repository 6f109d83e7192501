#pragma once

#include "acquire/PlayedRecording.h"
#include "algorithms/UnitParams.h"
#include "common/MetaTypes.h"
#include "devices/AmplifierInfo.h"
#include "server/Colleague.h"
#include "service/RecordKeeper.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSharedPointer>

#include <memory>
#include <vector>

class Amplifier;
class DataCompound;
class DataServer;
class Montage;
struct server_state;

/// The acquisition side of the service: starts and stops the device, feeds the server with what it delivers, and
/// records. What cannot be done is refused to the asking client in one sentence; what goes wrong on its own is told on
/// standard error.
///
/// Messages: "stopDevice", "startWritingFlag", "stopWritingFlag", "removeRecordFile", "writeLabel", "getRecordFile".
///
/// Rhythms are those of the EEG channels, unless a parameter set names channels itself; a montage without EEG channels
/// has them of all. The values of the others are NaN, so that each value keeps the place of its channel.
class CompoundSide : public QObject, public Colleague
{
    Q_OBJECT
public:
    /// @param state, server  borrowed
    CompoundSide(server_state &state, DataServer &server, const QString &recordFolder, QObject *parent = nullptr);
    /// Ends acquisition.
    ~CompoundSide() override;

    void notify(Colleague *sender, QString message) override;

    /// Streams every acquisition through a Lab Streaming Layer outlet of this name; empty for none.
    void setStreamName(const QString &name) { m_streamName = name; }

    /// What goes along with the signal of the device "Playback" into its recordings.
    void setPlayed(const PlayedRecording &played) { m_played = played; }

    /// The algorithms that run, now and with the next start.
    void setAlgorithms(const std::vector<UnitParams> &algorithms);
    /// Changes or adds one; the others go on undisturbed.
    void updateAlgorithm(const UnitParams &params);

    /// Does nothing while a device is acquiring.
    /// @param montage  null for the one that was chosen meanwhile, or else the device's own
    void start(const AmplifierInfo &info, QSharedPointer<Montage> montage);
    /// At once, or for the next start while no device is acquiring.
    void changeMontage(const QSharedPointer<Montage> &montage);
    /// Closes a recording first.
    /// @return what the recording lost or could not do; empty otherwise
    QString stop();
    /// Writes a mental state into the recording.
    void setState(int state);

    /// Why the acquiring device cannot do with the channels that a set names; empty when it can, or none acquires.
    QString channelRefusal(const UnitParams &params) const;

    RecordKeeper &records() { return m_records; }

signals:
    void acquiringChanged(bool acquiring);
    /// What samplesTaken() brings from now on.
    /// @param rate  Hz
    void streamChanged(const QStringList &channels, double rate);
    /// A planar block with so many valid leading samples.
    void samplesTaken(const vector<float> &data, int count);

public slots:
    void takeAlgorithmData(const QString &in_type_data, const UnitParams &in_params, unsigned int in_channels,
                           const vector<float> &in_data);

private:
    void acquire(Amplifier *device, const QSharedPointer<Montage> &montage);
    void prepareRecordings();
    void useMontage(const QSharedPointer<Montage> &montage);
    void applySettings();
    int spectrumPoints() const;
    UnitParams withChannels(const UnitParams &params) const;
    std::vector<UnitParams> withChannels(const std::vector<UnitParams> &params) const;
    const UnitParams *configured(const UnitParams &params) const;
    void writeLabel(Colleague *sender);
    void tellRecordFile(Colleague *sender);
    void takeData(const std::vector<float> &data, int count);
    void takeSpectrum(unsigned int channels, const std::vector<float> &data);
    void takeRhythm(const UnitParams &known, unsigned int channels, const std::vector<float> &data);
    std::vector<float> byChannel(const UnitParams &known, unsigned int count, const float *values) const;
    void takeDeviceCode(int code);
    void end();

    server_state &m_state;
    DataServer &m_server;
    std::vector<UnitParams> m_algorithms;
    Amplifier *m_device = nullptr; ///< while acquiring
    QSharedPointer<Montage> m_montage;
    QSharedPointer<Montage> m_nextMontage; ///< chosen while no device was acquiring
    std::vector<unsigned> m_rhythmChannels; ///< of the montage; rhythms are shown of these
    QString m_streamName;
    PlayedRecording m_played;
    QElapsedTimer m_sinceOtherChannels; ///< valid after a montage with other channels was taken up
    std::unique_ptr<DataCompound> m_compound;
    RecordKeeper m_records;
};
