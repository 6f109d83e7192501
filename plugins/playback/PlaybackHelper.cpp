#include "PlaybackHelper.h"

#include "PlaybackAmplifier.h"

#include <QCoreApplication>

PlaybackHelper::PlaybackHelper()
    : m_device(std::make_unique<PlaybackAmplifier>())
{
    watchApplication();
}

PlaybackHelper::~PlaybackHelper() = default;

/// Plug-ins outlive the application and the statics of the library: a file is closed, and logged, before that. A
/// process may have one application after the other, at the same address too.
void PlaybackHelper::watchApplication()
{
    const QCoreApplication *application = QCoreApplication::instance();
    if (application == nullptr || application == m_watched.load()) {
        return;
    }
    m_watched.store(application);
    const auto close = [this] {
        m_watched.store(nullptr);
        m_device->closeRecording();
    };
    connect(application, &QObject::destroyed, this, close, Qt::DirectConnection);
}

bool PlaybackHelper::isReadyToSearch()
{
    watchApplication();
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
