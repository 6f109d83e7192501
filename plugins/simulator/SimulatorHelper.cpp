#include "SimulatorHelper.h"

#include "SimulatorAmplifier.h"
#include "SimulatorLayout.h"

SimulatorHelper::SimulatorHelper()
{
    for (const SimulatorLayout::DeviceModel &model : SimulatorLayout::kDevices) {
        m_devices.push_back(std::make_unique<SimulatorAmplifier>(model));
    }
}

SimulatorHelper::~SimulatorHelper() = default;

bool SimulatorHelper::isReadyToSearch()
{
    return true;
}

void SimulatorHelper::findDevices(QList<Amplifier *> &devices)
{
    getAllDevices(devices);
}

void SimulatorHelper::getAllDevices(QList<Amplifier *> &devices)
{
    for (const auto &device : m_devices) {
        devices << device.get();
    }
}

QString SimulatorHelper::getHelperName()
{
    return QStringLiteral("Simulator");
}

void SimulatorHelper::clearDeviceList()
{
}
