#pragma once

#include "SimulatorSettings.h"

#include "common/BPCommon.h"
#include "devices/Amplifier.h"
#include "pacing/DevicePacer.h"

#include <memory>
#include <optional>

namespace SimulatorLayout {
struct DeviceModel;
}

/// An amplifier without hardware: SignalGenerator's body behind the acquisition contract, with faults on request.
///
/// Samples that do not fit a block, or are not read, are delivered by the next read. A remainder is reported only by
/// the fault "remainder_every", because samples that a reader fetches as a remainder do not reach its signal, and for a
/// block too small for one sample of each channel: it then asks for a larger block and delivers nothing.
class SimulatorAmplifier : public Amplifier
{
    Q_OBJECT
public:
    /// Code of a read while acquisition isn't running.
    static constexpr int kNotRunning = -2;

    explicit SimulatorAmplifier(const SimulatorLayout::DeviceModel &model);
    ~SimulatorAmplifier() override;

    bool startAcquisition() override;
    void stopAcquisition() override;
    int readPeriodMs() override;
    bool isAcquisitionRunning() const override;
    QString getErrorText(int code) const override;
    /// Loses one percent in six minutes of signal.
    int getBatteryLevelPercent() override;
    /// While running the rate of the run, otherwise the one that the parameters choose for the next.
    float getFreqValue() override;
    bool setFreqValue(float hz) override;
    bool isFilterFreeData() override;
    bool isImpedanceSupported() const override;
    bool isBatterySupported() const override;
    void setReadBufferSize(int floats) override;
    int getReadBufferSize() const override;
    bool isMeasureImpedance() const override;
    bool openDevice() override;
    void closeDevice() override;
    /// Stops, and charges the battery.
    void resetDevice() override;
    /// In ohms, renewed after each second of signal; 0 for channels without electrodes.
    bool getImpedance(bool on) override;
    int readData(int capacity, float *block, int &remainder) override;

private:
    std::size_t channelCount() const { return m_channels.size(); }
    void addChannel(const QString &name, BPCommon::ChannelType type);
    int deliver(qint64 samples, float *block);
    int deliverPart(qint64 due, qint64 room, float *block, int &remainder);
    int end();
    qint64 samplesDue() const;
    void renewImpedance();
    void publishImpedance(quint64 seed, qint64 second);

    const SimulatorLayout::DeviceModel &m_model;
    std::atomic<bool> m_running{false};
    std::atomic<float> m_runningRate{0.0f};
    std::atomic<int> m_bufferSize{0};
    std::atomic<int> m_endCode{kNotRunning}; ///< what a read returns at the end of the run and after it
    std::atomic<double> m_batterySeconds{0.0}; ///< of signal since the battery was charged

    // Of the run; only the reader's thread touches them.
    SimulatorSettings m_settings;
    DevicePacer m_pacer;
    std::unique_ptr<SignalGenerator> m_generator;
    qint64 m_delivered = 0; ///< samples per channel
    qint64 m_limit = 0; ///< at which the run ends
    qint64 m_reads = 0;
    /// Samples per channel announced as remainder; 0: a larger block was asked for, nothing is to come with it.
    std::optional<qint64> m_tail;
    qint64 m_impedanceSecond = -1;
};
