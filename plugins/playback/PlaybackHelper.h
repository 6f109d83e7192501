#pragma once

#include "devices/AmplifierHelper.h"

#include <atomic>
#include <memory>

class PlaybackAmplifier;

/// Offers the one playback device; it is always there, with or without a recording.
class PlaybackHelper : public AmplifierHelper
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID AmplifierHelper_iid)
public:
    PlaybackHelper();
    ~PlaybackHelper() override;

    bool isReadyToSearch() override;
    void findDevices(QList<Amplifier *> &devices) override;
    void getAllDevices(QList<Amplifier *> &devices) override;
    QString getHelperName() override;
    /// Keeps the device: whoever found it may still use it.
    void clearDeviceList() override;

private:
    void watchApplication();

    std::unique_ptr<PlaybackAmplifier> m_device;
    std::atomic<const QObject *> m_watched{nullptr}; ///< the application whose end closes the file; only compared
};
