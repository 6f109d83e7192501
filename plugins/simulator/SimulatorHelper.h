#pragma once

#include "devices/AmplifierHelper.h"

#include <memory>
#include <vector>

class SimulatorAmplifier;

/// Offers the simulated devices; they are always there.
class SimulatorHelper : public AmplifierHelper
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID AmplifierHelper_iid)
public:
    SimulatorHelper();
    ~SimulatorHelper() override;

    bool isReadyToSearch() override;
    void findDevices(QList<Amplifier *> &devices) override;
    void getAllDevices(QList<Amplifier *> &devices) override;
    QString getHelperName() override;
    /// Does nothing: hosts may still use the devices, and simulated ones do not disappear.
    void clearDeviceList() override;

private:
    std::vector<std::unique_ptr<SimulatorAmplifier>> m_devices;
};
