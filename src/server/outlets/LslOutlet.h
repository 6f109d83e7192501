#pragma once

#include <QString>
#include <QStringList>

#include <cstddef>
#include <optional>
#include <vector>

class AmplifierInfo;

namespace bp {

/// What an outlet announces. Every channel is described as an EEG channel in microvolts.
struct LslStream
{
    QString name;
    QStringList channels;
    double rate = 0.0; ///< Hz
    QString sourceId;
    bool deviceTime = false; ///< time stamps are of the device's clock, not of this machine's
};

/// Names the source of a stream by device, serial number and stream, the same at every start, so that a consumer finds
/// the stream again after this program was restarted.
QString lslSourceId(const AmplifierInfo &info, const QString &streamName);

/// One outlet of the streaming library, for float samples.
///
/// A stream without a name is called "BioProcessing" (consumers refuse a blank one). Control characters in texts become
/// blanks: the library sends them as they are, and XML, which consumers parse, cannot hold them; it escapes the others.
/// A rate outside 0 to 1 MHz is announced as irregular. When the outlet cannot be made, one line is traced and pushes
/// are ignored.
///
/// Pushing never waits for a consumer: the library keeps a queue of 360 s of samples for each (less when the consumer
/// asks for less), of which the oldest are dropped when it is full. Versions of the library before 1.14 may send
/// samples twice or out of order while they drop. One thread at a time may push.
class LslOutlet
{
public:
    explicit LslOutlet(const LslStream &stream);
    ~LslOutlet();
    LslOutlet(const LslOutlet &) = delete;
    LslOutlet &operator=(const LslOutlet &) = delete;

    bool isValid() const { return m_outlet != nullptr; }

    /// Pushes sample `index` of a planar block of channels × samples floats. Null, and an index outside, are ignored.
    ///
    /// @param timestamp  seconds; none, or one that is not finite: the current time, or with device time one period
    ///                   after the sample before. 0 also is the current time, unless the clock is the device's.
    void pushSample(const float *block, std::size_t samples, std::size_t index, std::optional<double> timestamp);
    /// Pushes every sample of the block, each with this same time stamp.
    void pushBlock(const float *block, std::size_t samples, std::optional<double> timestamp);
    /// @throws std::runtime_error when the block is not of channels × samples floats
    void pushBlock(const std::vector<float> &block, std::size_t samples, std::optional<double> timestamp);

private:
    double stampOf(std::optional<double> timestamp);

    void *m_outlet = nullptr;
    double m_period; ///< s, 0 for an irregular stream
    bool m_deviceTime;
    bool m_pushFailed = false; ///< and was traced
    double m_lastStamp = 0.0;
    std::vector<float> m_sample; ///< one value of each channel, gathered for the push: no sample allocates
};

} // namespace bp
