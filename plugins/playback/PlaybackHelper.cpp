#include "PlaybackHelper.h"

#include "PlaybackAmplifier.h"

PlaybackHelper::PlaybackHelper()
    : m_device(std::make_unique<PlaybackAmplifier>())
{
}

PlaybackHelper::~PlaybackHelper() = default;

bool PlaybackHelper::isReadyToSearch()
{
    return true;
}

void PlaybackHelper::findDevices(QList<Amplifier *> &devices)
{
    getAllDevices(devices);
}

void PlaybackHelper::getAllDevices(QList<Amplifier *> &devices)
{
    devices << m_device.get();
}

QString PlaybackHelper::getHelperName()
{
    return QStringLiteral("Playback");
}

void PlaybackHelper::clearDeviceList()
{
}
