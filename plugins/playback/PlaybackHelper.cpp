#include "PlaybackHelper.h"

#include "PlaybackAmplifier.h"

#include <QCoreApplication>

PlaybackHelper::PlaybackHelper()
    : m_device(std::make_unique<PlaybackAmplifier>())
{
    // Plug-ins outlive the application and the statics of the library: a file is closed, and traced, before that.
    if (QCoreApplication *application = QCoreApplication::instance()) {
        connect(
            application, &QObject::destroyed, this, [this] { m_device->closeRecording(); }, Qt::DirectConnection);
    }
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
