#pragma once

#include "SignalModels.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// What one EEG electrode sees at full strength.
struct SimulatedElectrode
{
    const char *name;
    float alpha; ///< amplitude of the 10 Hz rhythm with eyes closed, µV
    float blink; ///< height of a blink, µV
};

/// Electrodes in channel order; not owned.
struct ElectrodeList
{
    const SimulatedElectrode *first = nullptr;
    std::size_t count = 0;

    const SimulatedElectrode *begin() const { return first; }
    const SimulatedElectrode *end() const { return first + count; }
};

struct SignalSettings
{
    double rate = 250.0; ///< Hz
    std::uint64_t seed = 1;
    double heartRate = 72.0; ///< beats per minute
    double mainsFrequency = 50.0; ///< Hz
    double mainsAmplitude = 2.0; ///< µV
    double eyesPeriod = 10.0; ///< s with eyes open, then as many closed; 0: always open
};

/// The synthetic body behind the simulator: one channel per electrode, then ECG, EMG, EOG, Resp, GSR, PPG and Temp.
///
/// Units: µV for EEG, ECG, EMG and EOG; Resp the µV of a chest belt (breathing in is positive); GSR µS; PPG arbitrary
/// units, about 100 at the systolic peak; Temp °C. Mains hum is on the EEG, ECG, EMG and EOG channels alike.
///
/// The samples depend on settings and electrodes alone: they are bit for bit the same on every run, however they are
/// divided into reads. Between platforms the last bit may differ, as std::sin and std::exp do. One thread at a time; no
/// allocation after construction.
class SignalGenerator
{
public:
    static constexpr std::size_t kBodyChannelCount = 7;

    SignalGenerator(const SignalSettings &settings, ElectrodeList electrodes);

    std::size_t channelCount() const { return m_electrodes.count + kBodyChannelCount; }

    /// Continues the signal: channel c, sample k goes to planar[c · count + k].
    void generate(float *planar, std::size_t count);

private:
    /// What all channels share at one moment.
    struct Moment
    {
        double seconds;
        double hum; ///< µV
        double alpha; ///< -1 to 1 and a little beyond: the rhythm waxes and wanes
        double blink; ///< 0 to 1
        double common; ///< pink noise that reaches every electrode
        double breath; ///< -1 to 1
    };

    Moment nextMoment();
    void writeElectrodes(float *out, std::size_t stride, const Moment &moment);
    void writeBody(float *out, std::size_t stride, const Moment &moment);

    SignalSettings m_settings;
    ElectrodeList m_electrodes;
    std::uint64_t m_position = 0; ///< samples since the start
    std::vector<PinkNoise> m_background;
    PinkNoise m_commonBackground;
    PinkNoise m_heartNoise;
    PinkNoise m_eyeNoise;
    EyeModel m_eyes;
    HeartModel m_heart;
    MuscleModel m_muscle;
    SkinModel m_skin;
    SeededNoise m_thermometerNoise;
    double m_alphaPhase; ///< turns
    double m_breathPhase;
};
