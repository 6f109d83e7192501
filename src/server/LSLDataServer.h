#pragma once

#include "common/BPExport.h"
#include "devices/AmplifierInfo.h"

#include <QSharedPointer>
#include <QString>

#include <memory>

class Montage;

namespace bp {
class LslOutlet;
}

/// The Lab Streaming Layer outlet of a device's montage channels: a stream as LSLSyncSream describes, with the names
/// and the rate that the montage has when the outlet is made.
///
/// A value: copies share one outlet, which closes with the last of them. Pushing never waits for consumers. One thread
/// at a time may push into an outlet, whichever copy it uses.
class BIOPROCESSING_EXPORT LSLDataServer
{
public:
    /// @param montage     null or empty gives an outlet that ignores what is pushed
    /// @param streamName  name, serial and stream name make the source identifier, as in LSLSyncSream
    /// @param deviceTime  time stamps come from the device: each sample carries the one it is pushed with, and one
    ///                    pushed without follows the sample before by one period. Otherwise a sample without time stamp
    ///                    (or with 0) gets the current time of the outlet library's clock.
    LSLDataServer(const AmplifierInfo &info, QSharedPointer<Montage> montage, const QString &streamName,
                  bool deviceTime);

    bool isValid() const;
    QString streamName() const { return m_streamName; }

    /// Another name is another stream: this object leaves the outlet that it shares with its copies for one of its own.
    void setStreamName(const QString &streamName);

    /// Pushes every sample of a planar block, channel i occupying [i·samples, (i + 1)·samples). The block has the
    /// channels that the montage had when the outlet was made: another montage needs another outlet. Null, and no
    /// samples, are ignored.
    void appendNewData(int samples, const float *block);
    /// As above, each sample with this same time stamp (s).
    void appendNewData(int samples, const float *block, double timestamp);
    /// Pushes one sample of such a block.
    ///
    /// @param samples  per channel in the block
    /// @param index    of the sample, from 0; one outside the block is ignored
    void push_sample(unsigned samples, unsigned index, const float *block, double timestamp);

private:
    void makeOutlet();

    AmplifierInfo m_info;
    QSharedPointer<Montage> m_montage;
    QString m_streamName;
    bool m_deviceTime;
    std::shared_ptr<bp::LslOutlet> m_outlet;
};
