#pragma once

#include "common/BPExport.h"
#include "common/MetaTypes.h"
#include "devices/AmplifierInfo.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

namespace bp {
class LslOutlet;
}

/// A Lab Streaming Layer outlet with one float channel for each channel name.
///
/// The stream is of type "EEG"; every channel is described with its label, unit "microvolts" and type "eeg". An empty
/// name becomes "BioProcessing". An outlet that could not be made (without channels, for example) is traced once, and
/// what is pushed into it is ignored.
///
/// Pushing never waits for consumers, which may come and go: each has a queue of 360 s, of which the oldest samples are
/// dropped when it is full. One thread at a time may use an object.
class BIOPROCESSING_EXPORT LSLSyncSream : public QObject
{
    Q_OBJECT
public:
    /// @param sampleRate  Hz; 0, and what is not a rate, announces an irregular stream
    /// @param source      the device; its name and serial make, with the stream's name, the source identifier by which
    ///                    consumers find the stream again after a restart
    LSLSyncSream(const QString &name, const QStringList &channelNames, float sampleRate,
                 const AmplifierInfo &source = AmplifierInfo());
    ~LSLSyncSream() override;

    bool isValid() const;
    QString streamName() const { return m_name; }
    QStringList channelNames() const { return m_channelNames; }

    /// Another list is another stream: the outlet is made anew, and consumers have to find it again.
    void setChannelNameList(const QStringList &channelNames);

    /// Pushes every sample of a block.
    ///
    /// @param samples    per channel
    /// @param data       planar, channel names × samples floats: channel i occupies [i·samples, (i + 1)·samples). Null
    ///                   is ignored.
    /// @param timestamp  seconds of the outlet library's clock, the same for every sample of the block; 0 is the
    ///                   current time
    void appendData(int samples, float *data, double timestamp);

public slots:
    /// As appendData(), with the current time.
    ///
    /// @param in_data     exactly channel names × in_samples floats
    /// @param in_samples  per channel. (DataReader::newData() counts floats: it does not fit.)
    /// @throws std::runtime_error when the vector has another size. Called by a signal, where nobody could catch it,
    ///         the refusal is traced instead.
    void slotAppendData(const vector<float> &in_data, int in_samples);

private:
    void makeOutlet();

    QString m_name;
    QStringList m_channelNames;
    float m_sampleRate;
    AmplifierInfo m_source;
    std::unique_ptr<bp::LslOutlet> m_outlet;
};
