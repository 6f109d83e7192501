#include "SignalGenerator.h"

namespace {

/// Streams of the seed below this one belong to the electrodes, by channel.
enum Stream : std::uint64_t {
    CommonStream = 1000,
    HeartNoiseStream,
    EyeNoiseStream,
    EyeStream,
    HeartStream,
    MuscleStream,
    SkinStream,
    ThermometerStream,
    PhaseStream
};

constexpr double kAlphaHz = 10.0;
constexpr double kBreathHz = 0.25;

/// µV²/Hz at 1 Hz is the square: own and shared part of an electrode's background, 25 together.
constexpr double kOwnBackground = 4.0;
constexpr double kSharedBackground = 3.0;
constexpr double kHeartBackground = 3.0;
constexpr double kEyeBackground = 5.0;

constexpr double kBlinkAtEye = 180.0; ///< µV
constexpr double kBreathAmplitude = 500.0; ///< µV
constexpr double kBreathDrift = 100.0; ///< µV
constexpr double kBreathOnHeart = 40.0; ///< µV, baseline of the ECG
constexpr double kBodyTemperature = 36.6; ///< °C
constexpr double kTemperatureDrift = 0.1; ///< °C
constexpr double kThermometerNoise = 0.002; ///< °C

} // namespace

SignalGenerator::SignalGenerator(const SignalSettings &settings, ElectrodeList electrodes)
    : m_settings(settings)
    , m_electrodes(electrodes)
    , m_commonBackground(SeededNoise(settings.seed, CommonStream))
    , m_heartNoise(SeededNoise(settings.seed, HeartNoiseStream))
    , m_eyeNoise(SeededNoise(settings.seed, EyeNoiseStream))
    , m_eyes(settings.eyesPeriod, SeededNoise(settings.seed, EyeStream))
    , m_heart(settings.heartRate, SeededNoise(settings.seed, HeartStream))
    , m_muscle(settings.rate, SeededNoise(settings.seed, MuscleStream))
    , m_skin(settings.rate, SeededNoise(settings.seed, SkinStream))
    , m_thermometerNoise(settings.seed, ThermometerStream)
{
    m_background.reserve(electrodes.count);
    for (std::size_t i = 0; i < electrodes.count; ++i) {
        m_background.emplace_back(SeededNoise(settings.seed, i));
    }
    SeededNoise phases(settings.seed, PhaseStream);
    m_alphaPhase = phases.uniform(0.0, 1.0);
    m_breathPhase = phases.uniform(0.0, 1.0);
}

void SignalGenerator::generate(float *planar, std::size_t count)
{
    for (std::size_t k = 0; k < count; ++k) {
        const Moment moment = nextMoment();
        writeElectrodes(planar + k, count, moment);
        writeBody(planar + m_electrodes.count * count + k, count, moment);
    }
}

SignalGenerator::Moment SignalGenerator::nextMoment()
{
    const double t = static_cast<double>(m_position) / m_settings.rate;
    ++m_position;
    const EyeModel::Sample eyes = m_eyes.next(t);

    Moment moment;
    moment.seconds = t;
    moment.hum = m_settings.mainsAmplitude * sine(m_settings.mainsFrequency * t);
    // The rhythm's frequency sways by ±0.1 Hz, its amplitude by a third, both slowly.
    const double phase = m_alphaPhase + kAlphaHz * t + 0.7 * sine(0.021 * t);
    const double waxing = 1.0 + 0.2 * sine(0.31 * t + m_alphaPhase) + 0.13 * sine(0.13 * t);
    moment.alpha = eyes.alpha * waxing * sine(phase);
    moment.blink = eyes.blink;
    moment.common = kSharedBackground * m_commonBackground.next();
    moment.breath = sine(kBreathHz * t + m_breathPhase);
    return moment;
}

void SignalGenerator::writeElectrodes(float *out, std::size_t stride, const Moment &moment)
{
    const double shared = moment.common + moment.hum;
    std::size_t channel = 0;
    for (const SimulatedElectrode &electrode : m_electrodes) {
        const double events = double(electrode.alpha) * moment.alpha + double(electrode.blink) * moment.blink;
        out[channel * stride] = static_cast<float>(kOwnBackground * m_background[channel].next() + shared + events);
        ++channel;
    }
}

void SignalGenerator::writeBody(float *out, std::size_t stride, const Moment &moment)
{
    const double t = moment.seconds;
    const HeartModel::Sample heart = m_heart.next(t, moment.breath);
    const double ecg = heart.ecg + kBreathOnHeart * moment.breath + kHeartBackground * m_heartNoise.next();
    const double eog = kBlinkAtEye * moment.blink + kEyeBackground * m_eyeNoise.next();
    const double temperature =
        kBodyTemperature + kTemperatureDrift * sine(t / 1800.0) + kThermometerNoise * m_thermometerNoise.gaussian();
    const double values[kBodyChannelCount] = {
        ecg + moment.hum, m_muscle.next(t) + moment.hum,
        eog + moment.hum, kBreathAmplitude * moment.breath + kBreathDrift * sine(0.008 * t),
        m_skin.next(t),   heart.pulse,
        temperature};
    for (std::size_t i = 0; i < kBodyChannelCount; ++i) {
        out[i * stride] = static_cast<float>(values[i]);
    }
}
