#pragma once

#include "SeededNoise.h"

#include <array>

/// sin(2π·turns)
double sine(double turns);

/// 1/f noise whose one-sided density is 1/f µV²/Hz (f in Hz) at every sampling rate.
///
/// P. Kellet's filter for pink noise (refined version, music-dsp archive, 1999) over gaussian white noise: a power
/// density that falls with f has no scale of its own, so no coefficient depends on the rate. Flat below 1/4000 of the
/// sampling rate, within 0.1 dB of 1/f above.
class PinkNoise
{
public:
    explicit PinkNoise(SeededNoise noise)
        : m_noise(noise)
    {
    }
    double next();

private:
    SeededNoise m_noise;
    std::array<double, 6> m_poles{};
    double m_delayed = 0.0;
};

/// Eyes that open and close in turns, starting open, and blink while open.
class EyeModel
{
public:
    struct Sample
    {
        double alpha; ///< strength of the posterior rhythm, 0 to 1
        double blink; ///< 0 to 1
    };

    /// @param period  seconds of each state; 0: the eyes stay open
    EyeModel(double period, SeededNoise noise);
    Sample next(double seconds);

private:
    bool areOpen(double seconds) const;
    double alphaStrength(double seconds) const;

    double m_period;
    SeededNoise m_noise;
    double m_nextBlink;
    double m_blinkStart = -1.0;
};

/// A heart: the ECG template of P. McSharry et al. ("A dynamical model for generating synthetic electrocardiogram
/// signals", IEEE Trans. Biomed. Eng. 50(3), 2003), five gaussians over the cycle's angle, evaluated in closed form;
/// beat lengths vary by 2 % at random and 3 % with respiration around 60/rate. The pulse wave follows each R peak.
class HeartModel
{
public:
    struct Sample
    {
        double ecg; ///< µV
        double pulse; ///< arbitrary units, about 100 at the systolic peak
    };

    HeartModel(double beatsPerMinute, SeededNoise noise);
    /// @param breath  respiration, -1 to 1
    Sample next(double seconds, double breath);

private:
    double m_meanInterval; ///< s
    SeededNoise m_noise;
    std::array<double, 3> m_peaks{}; ///< times of the latest R peaks, newest first, s
    double m_interval; ///< from m_peaks[0] to the next, s
};

/// A muscle that rests for three seconds and contracts for two, repeatedly (40 %): noise between about 20 and 150 Hz.
class MuscleModel
{
public:
    MuscleModel(double rate, SeededNoise noise);
    double next(double seconds); ///< µV

private:
    SeededNoise m_noise;
    double m_whiteAmplitude;
    double m_smooth; ///< share of a new sample in the low-pass
    double m_drift; ///< the same for the slow part that is taken away
    double m_fast = 0.0;
    double m_slow = 0.0;
};

/// Skin conductance: a drifting level with responses every 8 to 20 seconds that rise in about a second and fade in
/// five.
class SkinModel
{
public:
    SkinModel(double rate, SeededNoise noise);
    double next(double seconds); ///< µS

private:
    SeededNoise m_noise;
    double m_fadeFactor;
    double m_riseFactor;
    double m_fade = 0.0;
    double m_rise = 0.0;
    double m_nextResponse;
};
