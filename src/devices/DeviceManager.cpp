#include "devices/DeviceManager.h"

#include "common/BPCommon.h"
#include "devices/Amplifier.h"
#include "devices/DeviceSearcher.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned long kStopTimeoutMs = 5000;

} // namespace

DeviceManager *DeviceManager::st_pDevicemanager = nullptr;

DeviceManager *DeviceManager::Instance()
{
    if (st_pDevicemanager == nullptr) {
        st_pDevicemanager = new DeviceManager(std::make_unique<DeviceSearcher>());
        // An application calls its routines once and forgets them; the next one in the process needs its own.
        qAddPostRoutine(&DeviceManager::freeDeviceManager);
    }
    return st_pDevicemanager;
}

void DeviceManager::freeDeviceManager()
{
    qRemovePostRoutine(&DeviceManager::freeDeviceManager);
    delete std::exchange(st_pDevicemanager, nullptr);
}

DeviceManager::DeviceManager(std::unique_ptr<DeviceSearcher> searcher, QObject *parent)
    : QObject(parent)
    , m_searcher(std::move(searcher))
    , m_thread(std::make_unique<QThread>())
{
    BPCommon::log(BPCommon::LogDevice, "DeviceManager::DeviceManager");
    m_searcher->moveToThread(m_thread.get());
    connect(m_thread.get(), &QThread::started, m_searcher.get(), &DeviceSearcher::threadSearch);
    // Direct: this thread may be waiting for that one, and quit() may be called from any.
    connect(m_searcher.get(), &DeviceSearcher::finishThread, m_thread.get(), &QThread::quit, Qt::DirectConnection);
    // Queued, in the order in which the searcher emits. By name: a reference has no meta-type but by its name.
    connect(m_searcher.get(), SIGNAL(searchedHelper(QString)), SLOT(takeHelperName(QString)));
    connect(m_searcher.get(), SIGNAL(deviceInfo(QList<Amplifier *> &)), SLOT(takeCurrentData(QList<Amplifier *> &)));
    connect(m_searcher.get(), SIGNAL(searchCompleted()), SIGNAL(searchCompleted()));
}

DeviceManager::~DeviceManager()
{
    setThreadRunning(false);
    if (!tryStopThread()) {
        // A helper that never returns still uses both; deleting them would end the program.
        static_cast<void>(m_searcher.release());
        static_cast<void>(m_thread.release());
    }
}

void DeviceManager::startSearchThread()
{
    BPCommon::log(BPCommon::LogDevice, "DeviceManager::startSearchThread");
    if (m_searcher->isThreadRunning()) {
        return;
    }
    if (!tryStopThread()) {
        return;
    }
    setThreadRunning(true);
    m_thread->start();
}

void DeviceManager::stopSearchThread()
{
    BPCommon::log(BPCommon::LogDevice, "DeviceManager::stopSearchThread");
    setThreadRunning(false);
    tryStopThread();
}

void DeviceManager::setDeviceSearchEnabled(bool enabled)
{
    m_searcher->setDeviceSearchEnabled(enabled);
}

int DeviceManager::getDeviceCount() const
{
    return static_cast<int>(m_devices.size());
}

Amplifier *DeviceManager::openDevice(const AmplifierInfo &info)
{
    const auto found = std::find_if(m_devices.begin(), m_devices.end(),
                                    [&info](const Entry &entry) { return entry.device->isEqualInfo(info); });
    if (found == m_devices.end()) {
        BPCommon::log(BPCommon::LogDevice, "DeviceManager::openDevice device not found");
        return nullptr;
    }
    BPCommon::log(BPCommon::LogDevice, "DeviceManager::openDevice device found");
    ++found->uses;
    return found->device;
}

void DeviceManager::releaseDevice(Amplifier *device)
{
    for (Entry &entry : m_devices) {
        if (entry.device == device && entry.uses > 0) {
            --entry.uses;
        }
    }
}

void DeviceManager::clearDeviceList()
{
    const auto unused =
        std::remove_if(m_devices.begin(), m_devices.end(), [](const Entry &entry) { return entry.uses == 0; });
    const bool changed = unused != m_devices.end();
    m_devices.erase(unused, m_devices.end());
    m_searcher->clearDeviceList();
    if (changed) {
        callHost();
    }
}

void DeviceManager::setCallBackFunction(Callback callback)
{
    m_callback = callback;
    m_callbackKnows = m_devices.empty();
}

bool DeviceManager::addDevicesFromList(QList<Amplifier *> &devices)
{
    BPCommon::log(BPCommon::LogDevice, "DeviceManager::addDevicesFromList : %i", devices.size());
    bool added = false;
    for (Amplifier *device : qAsConst(devices)) {
        if (device == nullptr) {
            continue;
        }
        const AmplifierInfo info = device->getAmplifierInfo();
        const bool known = std::any_of(m_devices.cbegin(), m_devices.cend(),
                                       [&info](const Entry &entry) { return entry.device->isEqualInfo(info); });
        if (!known) {
            m_devices.push_back({device, m_searchedHelper, 0});
            added = true;
        }
    }
    m_newestList = devices;
    return added;
}

void DeviceManager::removeDeviceFromList(bool &changed)
{
    const auto isMissing = [this](const Entry &entry) {
        return entry.helper == m_searchedHelper
            && std::none_of(m_newestList.cbegin(), m_newestList.cend(), [&entry](const Amplifier *device) {
                   return device != nullptr && device->isEqualInfo(entry.device->getAmplifierInfo());
               });
    };
    bool removed = false;
    for (auto it = m_devices.begin(); it != m_devices.end();) {
        const bool missing = isMissing(*it);
        if (it->helper == m_searchedHelper) {
            it->device->setPresence(!missing);
        }
        if (missing && it->uses == 0) {
            it = m_devices.erase(it);
            removed = true;
        } else {
            ++it;
        }
    }
    BPCommon::log(BPCommon::LogDevice, "DeviceManager::removeDeviceFromList %i", removed);
    changed = changed || removed;
}

void DeviceManager::takeHelperName(const QString &helperName)
{
    m_searchedHelper = helperName;
}

void DeviceManager::takeCurrentData(QList<Amplifier *> &devices)
{
    bool changed = addDevicesFromList(devices);
    removeDeviceFromList(changed);
    if (changed || !m_callbackKnows) {
        callHost();
    }
}

void DeviceManager::setThreadRunning(bool running)
{
    BPCommon::log(BPCommon::LogDevice, "DeviceManager::setThreadRunning %i", running);
    m_searcher->runningThread(running);
}

bool DeviceManager::tryStopThread()
{
    m_thread->quit();
    if (m_thread->wait(kStopTimeoutMs)) {
        return true;
    }
    BPCommon::log(BPCommon::LogDevice, "DeviceManager::tryStopThread a helper is still searching");
    return false;
}

void DeviceManager::callHost()
{
    m_callbackKnows = true;
    if (m_callback == nullptr) {
        return;
    }
    QList<AmplifierInfo> descriptions;
    for (const Entry &entry : m_devices) {
        descriptions << entry.device->getAmplifierInfo();
    }
    m_callback(descriptions);
}
