#include "acquire/DeviceFinder.h"

#include "devices/DeviceManager.h"

#include <QEventLoop>
#include <QTimer>

#include <algorithm>

namespace {

constexpr int kSearchTimeoutMs = 5000;

QList<AmplifierInfo> s_latest;

void takeList(QList<AmplifierInfo> &devices)
{
    s_latest = devices;
}

} // namespace

DeviceFinder::~DeviceFinder()
{
    DeviceManager::Instance()->stopSearchThread();
    DeviceManager::Instance()->setCallBackFunction(nullptr);
}

QList<AmplifierInfo> DeviceFinder::search()
{
    DeviceManager *manager = DeviceManager::Instance();
    QEventLoop loop;
    QObject::connect(manager, &DeviceManager::searchCompleted, &loop, &QEventLoop::quit);
    QTimer::singleShot(kSearchTimeoutMs, &loop, &QEventLoop::quit);
    manager->setCallBackFunction(takeList);
    manager->setDeviceSearchEnabled(true);
    manager->startSearchThread();
    loop.exec();
    m_found = s_latest;
    return m_found;
}

Amplifier *DeviceFinder::open(const QString &name)
{
    const auto exact =
        std::find_if(m_found.cbegin(), m_found.cend(), [&name](const AmplifierInfo &info) { return info == name; });
    const auto found = exact != m_found.cend()
        ? exact
        : std::find_if(m_found.cbegin(), m_found.cend(), [&name](const AmplifierInfo &info) {
              return info.name().startsWith(name, Qt::CaseInsensitive);
          });
    return found != m_found.cend() ? DeviceManager::Instance()->openDevice(*found) : nullptr;
}
