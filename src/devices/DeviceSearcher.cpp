#include "devices/DeviceSearcher.h"

#include "devices/Amplifier.h"
#include "devices/AmplifierHelper.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QPluginLoader>
#include <QThread>

#include <algorithm>

namespace {

constexpr int kRoundPauseMs = 1000;
constexpr int kPauseSliceMs = 20;

#if defined(Q_OS_MACOS)
const QLatin1String kPlatformSuffix("dylib");
#elif defined(Q_OS_WIN)
const QLatin1String kPlatformSuffix("dll");
#else
const QLatin1String kPlatformSuffix("so");
#endif

} // namespace

DeviceSearcher::DeviceSearcher(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<QList<Amplifier *>>("QList<Amplifier*>&");
    BPCommon::log(m_logLevel, "DeviceSearcher::DeviceSearcher created");
}

DeviceSearcher::~DeviceSearcher() = default;

void DeviceSearcher::setDeviceSearchEnabled(bool enabled)
{
    m_searchEnabled.store(enabled);
}

void DeviceSearcher::runningThread(bool running)
{
    BPCommon::log(m_logLevel, "DeviceSearcher::runningThread %i", running);
    m_running.store(running);
    if (m_helpersReady.load()) {
        setWorkFlags(running);
    }
    emit runningChanged(running);
}

void DeviceSearcher::clearDeviceList()
{
    m_clearRequested.store(true);
}

void DeviceSearcher::threadSearch()
{
    BPCommon::log(m_logLevel, "DeviceSearcher::threadSearch");
    if (!m_pluginsLoaded) {
        m_pluginsLoaded = true;
        takeAllPlugins();
        m_helpersReady.store(true);
    }
    setWorkFlags(m_running.load());
    while (m_running.load()) {
        applyRequests();
        if (m_searchEnabled.load()) {
            searchOnce();
            sleepWhileRunning(kRoundPauseMs);
            // The list is empty again by now, so that this is always 0 (kept: it is the sign of life of the loop).
            BPCommon::log(m_logLevel, "DeviceSearcher::threadSearch %i", m_devices.size());
        } else {
            sleepWhileRunning(kRoundPauseMs);
        }
    }
    emit finishThread();
}

void DeviceSearcher::takeAllPlugins()
{
    loadPluginsFrom(QCoreApplication::applicationDirPath() + QLatin1String("/HalvinDevices"));
}

void DeviceSearcher::loadPluginsFrom(const QString &folder)
{
    const QFileInfoList subFolders = QDir(folder).entryInfoList(QDir::Dirs | QDir::NoDot | QDir::NoDotDot, QDir::Name);
    for (const QFileInfo &subFolder : subFolders) {
        const QFileInfoList files = QDir(subFolder.absoluteFilePath()).entryInfoList(QDir::Files, QDir::Name);
        for (const QFileInfo &file : files) {
            if (isCurrentPluginDLL(file.absoluteFilePath())) {
                m_loaders.push_back(std::make_unique<QPluginLoader>(file.absoluteFilePath()));
            }
        }
    }
    makeHelpres();
}

bool DeviceSearcher::isCurrentPluginDLL(const QString &path) const
{
    const QFileInfo file(path);
    const QString suffix = file.suffix();
    return file.fileName().contains(QLatin1String("Amplifier"))
        && (suffix.compare(QLatin1String("dll"), Qt::CaseInsensitive) == 0 || suffix == kPlatformSuffix);
}

bool DeviceSearcher::addNewHelper(QObject *instance)
{
    auto *helper = qobject_cast<AmplifierHelper *>(instance);
    if (helper == nullptr) {
        return false;
    }
    m_helpers.insert(helper->getHelperName(), helper);
    return true;
}

void DeviceSearcher::makeHelpres()
{
    for (; m_loadersDone < m_loaders.size(); ++m_loadersDone) {
        QPluginLoader &loader = *m_loaders[m_loadersDone];
        QObject *instance = loader.instance();
        if (!addNewHelper(instance)) {
            BPCommon::log(BPCommon::LogPlugin, "DeviceSearcher::makeHelpres %s: %s", loader.fileName(),
                          instance == nullptr ? loader.errorString()
                                              : QStringLiteral("its object is no AmplifierHelper"));
        }
    }
}

void DeviceSearcher::setWorkFlags(bool work) const
{
    for (AmplifierHelper *helper : qAsConst(m_helpers)) {
        helper->setWorkFlag(work);
    }
}

/// Does on this thread what was asked for on another one.
void DeviceSearcher::applyRequests()
{
    const bool enabled = m_searchEnabled.load();
    if (enabled != m_helpersEnabled) {
        m_helpersEnabled = enabled;
        for (AmplifierHelper *helper : qAsConst(m_helpers)) {
            helper->setSearchEnabled(enabled);
        }
    }
    if (m_clearRequested.exchange(false)) {
        for (AmplifierHelper *helper : qAsConst(m_helpers)) {
            helper->clearDeviceList();
        }
    }
}

void DeviceSearcher::searchOnce()
{
    m_devices.clear();
    for (auto it = m_helpers.cbegin(); it != m_helpers.cend(); ++it) {
        if (it.value()->isReadyToSearch()) {
            it.value()->findDevices(m_devices);
            moveToOwner(m_devices);
            emit searchedHelper(it.key());
            emit deviceInfo(m_devices);
            m_devices.clear();
        }
    }
    emit searchCompleted();
}

/// Devices created in a search would belong to the search thread, which ends before they do.
void DeviceSearcher::moveToOwner(const QList<Amplifier *> &devices) const
{
    const QCoreApplication *application = QCoreApplication::instance();
    if (application == nullptr) {
        return; // a helper took so long that the program has ended meanwhile
    }
    QThread *owner = application->thread();
    for (Amplifier *device : devices) {
        if (device != nullptr && device->parent() == nullptr && device->thread() == QThread::currentThread()) {
            device->moveToThread(owner);
        }
    }
}

void DeviceSearcher::sleepWhileRunning(int milliseconds) const
{
    for (int left = milliseconds; left > 0 && m_running.load(); left -= kPauseSliceMs) {
        QThread::msleep(static_cast<unsigned long>(std::min(left, kPauseSliceMs)));
    }
}
