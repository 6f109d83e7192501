#pragma once

#include "SignalGenerator.h"

#include "common/BPCommon.h"

#include <array>

/// Electrodes and names of the simulated devices.
namespace SimulatorLayout {

constexpr std::array<SimulatedElectrode, 8> kElectrodes8{{
    {"Fp1", 3.0f, 120.0f},
    {"Fp2", 3.0f, 125.0f},
    {"C3", 8.0f, 10.0f},
    {"C4", 8.0f, 10.0f},
    {"P3", 18.0f, 4.0f},
    {"P4", 19.0f, 4.0f},
    {"O1", 28.0f, 2.0f},
    {"O2", 30.0f, 2.0f},
}};

constexpr std::array<SimulatedElectrode, 19> kElectrodes19{{
    {"Fp1", 3.0f, 120.0f}, {"Fp2", 3.0f, 125.0f}, {"F7", 4.0f, 45.0f}, {"F3", 4.0f, 40.0f}, {"Fz", 4.0f, 40.0f},
    {"F4", 4.0f, 40.0f},   {"F8", 4.0f, 45.0f},   {"T3", 7.0f, 8.0f},  {"C3", 8.0f, 10.0f}, {"Cz", 8.0f, 10.0f},
    {"C4", 8.0f, 10.0f},   {"T4", 7.0f, 8.0f},    {"T5", 16.0f, 3.0f}, {"P3", 18.0f, 4.0f}, {"Pz", 20.0f, 4.0f},
    {"P4", 19.0f, 4.0f},   {"T6", 16.0f, 3.0f},   {"O1", 28.0f, 2.0f}, {"O2", 30.0f, 2.0f},
}};

constexpr std::array<SimulatedElectrode, 32> kElectrodes32{{
    {"Fp1", 3.0f, 120.0f}, {"Fpz", 3.0f, 120.0f}, {"Fp2", 3.0f, 125.0f}, {"F7", 4.0f, 45.0f},  {"F3", 4.0f, 40.0f},
    {"Fz", 4.0f, 40.0f},   {"F4", 4.0f, 40.0f},   {"F8", 4.0f, 45.0f},   {"FC5", 6.0f, 18.0f}, {"FC1", 6.0f, 18.0f},
    {"FC2", 6.0f, 18.0f},  {"FC6", 6.0f, 18.0f},  {"A1", 5.0f, 6.0f},    {"T7", 7.0f, 8.0f},   {"C3", 8.0f, 10.0f},
    {"Cz", 8.0f, 10.0f},   {"C4", 8.0f, 10.0f},   {"T8", 7.0f, 8.0f},    {"A2", 5.0f, 6.0f},   {"CP5", 12.0f, 6.0f},
    {"CP1", 13.0f, 6.0f},  {"CP2", 13.0f, 6.0f},  {"CP6", 12.0f, 6.0f},  {"P7", 16.0f, 3.0f},  {"P3", 18.0f, 4.0f},
    {"Pz", 20.0f, 4.0f},   {"P4", 19.0f, 4.0f},   {"P8", 16.0f, 3.0f},   {"POz", 25.0f, 3.0f}, {"O1", 28.0f, 2.0f},
    {"Oz", 27.0f, 2.0f},   {"O2", 30.0f, 2.0f},
}};

struct DeviceModel
{
    const char *name;
    const char *serial;
    ElectrodeList electrodes;
};

constexpr std::array<DeviceModel, 3> kDevices{{
    {"Simulator 8", "SIM-8", {kElectrodes8.data(), kElectrodes8.size()}},
    {"Simulator 19", "SIM-19", {kElectrodes19.data(), kElectrodes19.size()}},
    {"Simulator 32", "SIM-32", {kElectrodes32.data(), kElectrodes32.size()}},
}};

struct BodyChannel
{
    const char *name;
    BPCommon::ChannelType type;
};

/// Follow the electrodes on every device, in the order in which SignalGenerator writes them.
constexpr std::array<BodyChannel, 7> kBodyChannels{{
    {"ECG", BPCommon::ECG},
    {"EMG", BPCommon::EMG},
    {"EOG", BPCommon::EOG},
    {"Resp", BPCommon::Resp},
    {"GSR", BPCommon::GSR},
    {"PPG", BPCommon::PPG},
    {"Temp", BPCommon::Temp},
}};

constexpr std::array<float, 4> kRates{250.0f, 500.0f, 1000.0f, 2000.0f};

} // namespace SimulatorLayout
