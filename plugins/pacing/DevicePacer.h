#pragma once

#include <QtGlobal>

#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>

/// Tells a device without hardware how many samples its signal has produced by now.
///
/// The count follows from the time since start() alone, never from the previous read: late, early or irregular reads
/// leave no error behind, so an hour of reads ends on the sample on which an hour of signal ends. What a reader does
/// not fetch stays due. Used by one thread at a time.
class DevicePacer
{
public:
    /// Monotonic time in nanoseconds from any fixed origin.
    using Clock = std::function<std::chrono::nanoseconds()>;

    static std::chrono::nanoseconds steadyNow()
    {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::steady_clock::now().time_since_epoch());
    }

    explicit DevicePacer(Clock clock = steadyNow)
        : m_clock(std::move(clock))
    {
    }

    /// @param rate   samples per second of signal
    /// @param speed  seconds of signal per second; 0 or less: as fast as the reader takes it
    void start(double rate, double speed)
    {
        m_samplesPerSecond = rate * speed;
        m_unpaced = !(speed > 0.0);
        m_taken = 0;
        m_start = m_clock();
    }

    /// Samples per channel due and not yet taken; the largest number there is when unpaced.
    qint64 available() const
    {
        if (m_unpaced) {
            return std::numeric_limits<qint64>::max();
        }
        const double seconds = static_cast<double>((m_clock() - m_start).count()) * 1e-9;
        return static_cast<qint64>(std::floor(seconds * m_samplesPerSecond)) - m_taken;
    }

    void take(qint64 samples) { m_taken += samples; }

private:
    Clock m_clock;
    std::chrono::nanoseconds m_start{0};
    double m_samplesPerSecond = 0.0;
    qint64 m_taken = 0;
    bool m_unpaced = false;
};
