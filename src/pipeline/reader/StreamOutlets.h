#pragma once

#include <QSharedPointer>
#include <QString>

#include <memory>
#include <vector>

class Amplifier;
class AmplifierInfo;
class LSLDataServer;
class LSLSyncSream;
class Montage;

namespace bp {

/// The outlets of one acquisition: the montage's channels, and the triggers of a device that can time-stamp samples.
/// Belongs to whoever runs the reader's loop.
class StreamOutlets
{
public:
    /// What is to be streamed; nothing without a stream name.
    struct Request
    {
        QString streamName;
        bool synchro = false; ///< time stamps and triggers of the device, when it has them
        QString syncStreamName;
    };

    StreamOutlets();
    ~StreamOutlets();

    /// Opens anew what is requested, for this device (borrowed until close()) and this montage's channels.
    void open(const Request &request, Amplifier *device, const AmplifierInfo &info,
              const QSharedPointer<Montage> &montage);
    /// Opens the last request anew, while something is streamed: an outlet announces one montage's channels.
    void changeMontage(const AmplifierInfo &info, const QSharedPointer<Montage> &montage);
    void close();
    /// Pushes every sample of a planar block, channels × samples; nothing while nothing is streamed.
    void push(const float *block, unsigned channels, unsigned samples);

private:
    void pushSynchronised(const float *block, unsigned channels, unsigned samples);

    Request m_request;
    Amplifier *m_device = nullptr;
    std::unique_ptr<LSLDataServer> m_outlet;
    std::unique_ptr<LSLSyncSream> m_syncStream; ///< null unless samples carry the device's time
    std::vector<float> m_trigger; ///< one value per channel of the synchronisation stream
};

} // namespace bp
