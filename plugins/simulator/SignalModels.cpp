#include "SignalModels.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kTwoPi = 6.283185307179586476925;

struct PinkPole
{
    double pole;
    double gain;
};
constexpr std::array<PinkPole, 6> kPinkPoles{{
    {0.99886, 0.0555179},
    {0.99332, 0.0750759},
    {0.96900, 0.1538520},
    {0.86650, 0.3104856},
    {0.55000, 0.5329522},
    {-0.7616, -0.0168980},
}};

constexpr double kAlphaEyesOpen = 0.2;
constexpr double kAlphaRampSeconds = 0.5;
constexpr double kBlinkSeconds = 0.3;

/// One gaussian of a wave: height, centre and width in the unit of its axis.
struct Bell
{
    double height;
    double centre;
    double width;
};
/// P, Q, R, S, T: µV over the cycle's angle in turns from the R peak (the source's angles and widths, in turns).
constexpr std::array<Bell, 5> kHeartWaves{{
    {120.0, -1.0 / 6.0, 0.25 / kTwoPi},
    {-120.0, -1.0 / 24.0, 0.1 / kTwoPi},
    {1200.0, 0.0, 0.1 / kTwoPi},
    {-200.0, 1.0 / 24.0, 0.1 / kTwoPi},
    {280.0, 0.25, 0.4 / kTwoPi},
}};
/// Systolic wave and the wave reflected after it, over seconds since the R peak.
constexpr std::array<Bell, 2> kPulseWaves{{{100.0, 0.35, 0.055}, {35.0, 0.60, 0.09}}};

constexpr double kMuscleRestSeconds = 3.0;
constexpr double kMuscleCycleSeconds = 5.0;
constexpr double kMuscleRampSeconds = 0.1;
constexpr double kMuscleRest = 0.02; ///< of the strength when contracted
/// µV of white noise at 1000 Hz before the band is cut out; its density is the same at other rates.
constexpr double kMuscleWhite = 250.0;

double heightAt(const Bell &bell, double x)
{
    const double deviation = (x - bell.centre) / bell.width;
    return bell.height * std::exp(-0.5 * deviation * deviation);
}

/// Share of a new sample in a one-pole low-pass.
double onePole(double cutoffHz, double rate)
{
    return 1.0 - std::exp(-kTwoPi * cutoffHz / rate);
}

/// 0 at 0, 1 from the length on, straight between.
double ramp(double x, double length)
{
    return std::clamp(x / length, 0.0, 1.0);
}

} // namespace

double sine(double turns)
{
    return std::sin(kTwoPi * turns);
}

double PinkNoise::next()
{
    const double white = m_noise.gaussian();
    double sum = m_delayed + 0.5362 * white;
    for (std::size_t i = 0; i < kPinkPoles.size(); ++i) {
        m_poles[i] = kPinkPoles[i].pole * m_poles[i] + kPinkPoles[i].gain * white;
        sum += m_poles[i];
    }
    m_delayed = 0.115926 * white;
    return sum;
}

EyeModel::EyeModel(double period, SeededNoise noise)
    : m_period(period)
    , m_noise(noise)
    , m_nextBlink(m_noise.uniform(1.0, 4.0))
{
}

bool EyeModel::areOpen(double seconds) const
{
    if (!(m_period > 0.0)) {
        return true;
    }
    const double cycles = seconds / (2.0 * m_period);
    return cycles - std::floor(cycles) < 0.5;
}

double EyeModel::alphaStrength(double seconds) const
{
    const bool open = areOpen(seconds);
    const double target = open ? kAlphaEyesOpen : 1.0;
    if (seconds < m_period || !(m_period > 0.0)) {
        return target;
    }
    const double before = open ? 1.0 : kAlphaEyesOpen;
    const double sinceChange = seconds - m_period * std::floor(seconds / m_period);
    return before + (target - before) * ramp(sinceChange, kAlphaRampSeconds);
}

EyeModel::Sample EyeModel::next(double seconds)
{
    if (seconds >= m_nextBlink) {
        const bool open = areOpen(seconds) && areOpen(seconds + kBlinkSeconds);
        m_blinkStart = open ? m_nextBlink : m_blinkStart;
        m_nextBlink += m_noise.uniform(2.0, 6.0);
    }
    const double blink = m_blinkStart < 0.0 ? 1.0 : ramp(seconds - m_blinkStart, kBlinkSeconds);
    const double lid = sine(0.5 * blink);
    return {alphaStrength(seconds), blink < 1.0 ? lid * lid : 0.0};
}

HeartModel::HeartModel(double beatsPerMinute, SeededNoise noise)
    : m_meanInterval(60.0 / beatsPerMinute)
    , m_noise(noise)
    , m_interval(m_meanInterval)
{
    // The first R peak of the signal stands half a beat after its start.
    for (std::size_t i = 0; i < m_peaks.size(); ++i) {
        m_peaks[i] = -m_meanInterval * (0.5 + static_cast<double>(i));
    }
}

HeartModel::Sample HeartModel::next(double seconds, double breath)
{
    if (seconds >= m_peaks[0] + m_interval) {
        m_peaks = {m_peaks[0] + m_interval, m_peaks[0], m_peaks[1]};
        const double variation = 0.02 * m_noise.gaussian() + 0.03 * breath;
        m_interval = m_meanInterval * (1.0 + std::clamp(variation, -0.15, 0.15));
    }
    double angle = (seconds - m_peaks[0]) / m_interval;
    angle -= angle > 0.5 ? 1.0 : 0.0;

    Sample sample{0.0, 0.0};
    for (const Bell &wave : kHeartWaves) {
        sample.ecg += heightAt(wave, angle);
    }
    for (const double peak : m_peaks) {
        for (const Bell &wave : kPulseWaves) {
            sample.pulse += heightAt(wave, seconds - peak);
        }
    }
    return sample;
}

MuscleModel::MuscleModel(double rate, SeededNoise noise)
    : m_noise(noise)
    , m_whiteAmplitude(kMuscleWhite * std::sqrt(rate / 1000.0))
    , m_smooth(onePole(150.0, rate))
    , m_drift(onePole(20.0, rate))
{
}

double MuscleModel::next(double seconds)
{
    m_fast += m_smooth * (m_whiteAmplitude * m_noise.gaussian() - m_fast);
    m_slow += m_drift * (m_fast - m_slow);
    const double inCycle = seconds - kMuscleCycleSeconds * std::floor(seconds / kMuscleCycleSeconds);
    const double strength = ramp(inCycle - kMuscleRestSeconds, kMuscleRampSeconds)
        * ramp(kMuscleCycleSeconds - inCycle, kMuscleRampSeconds);
    return (m_fast - m_slow) * (kMuscleRest + (1.0 - kMuscleRest) * strength);
}

SkinModel::SkinModel(double rate, SeededNoise noise)
    : m_noise(noise)
    , m_fadeFactor(std::exp(-1.0 / (3.0 * rate)))
    , m_riseFactor(std::exp(-1.0 / (0.75 * rate)))
    , m_nextResponse(m_noise.uniform(3.0, 10.0))
{
}

double SkinModel::next(double seconds)
{
    if (seconds >= m_nextResponse) {
        const double strength = m_noise.uniform(0.4, 1.2);
        m_fade += strength;
        m_rise += strength;
        m_nextResponse += m_noise.uniform(8.0, 20.0);
    }
    m_fade *= m_fadeFactor;
    m_rise *= m_riseFactor;
    return 5.0 + 0.5 * sine(0.004 * seconds) + m_fade - m_rise;
}
