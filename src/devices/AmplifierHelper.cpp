#include "devices/AmplifierHelper.h"

#include "common/BPCommon.h"
#include "devices/Amplifier.h"

AmplifierHelper::AmplifierHelper(QObject *parent)
    : QObject(parent)
{
}

AmplifierHelper::~AmplifierHelper() = default;

void AmplifierHelper::getAllDevices(QList<Amplifier *> &devices)
{
    Q_UNUSED(devices)
}

QString AmplifierHelper::getHelperName()
{
    return QStringLiteral("CustomHelper");
}

void AmplifierHelper::clearDeviceList()
{
    BPCommon::log(BPCommon::LogDevice, "clearDeviceList() not implemented");
}

void AmplifierHelper::setSearchEnabled(bool enabled)
{
    Q_UNUSED(enabled)
}

QList<AmplifierInfo> AmplifierHelper::getAmplifiers()
{
    QList<Amplifier *> devices;
    getAllDevices(devices);
    QList<AmplifierInfo> descriptions;
    for (const Amplifier *device : qAsConst(devices)) {
        if (device != nullptr) {
            descriptions << device->getAmplifierInfo();
        }
    }
    return descriptions;
}

bool AmplifierHelper::initializeCurrentDevice(Amplifier *device)
{
    if (device == nullptr) {
        return false;
    }
    device->setPresence(true);
    device->returnDefaultValue();
    return true;
}

void AmplifierHelper::setWorkFlag(bool work)
{
    BPCommon::log(BPCommon::LogDevice, "AmplifierHelper::setSearchFlag %i", work);
    m_work.store(work);
}
