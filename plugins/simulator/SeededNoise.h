#pragma once

#include <cstdint>
#include <random>

/// Random numbers that are the same on every platform for the same seed and stream.
///
/// The C++ standard fixes every number of its engines and of seed_seq, but leaves the distributions to each library, so
/// these are written out.
class SeededNoise
{
public:
    /// @param stream  numbers an independent sequence under the same seed
    explicit SeededNoise(std::uint64_t seed = 0, std::uint64_t stream = 0)
    {
        std::seed_seq words{seed & 0xFFFFFFFF, seed >> 32, stream & 0xFFFFFFFF, stream >> 32};
        m_engine.seed(words);
    }

    /// In [low, high).
    double uniform(double low, double high)
    {
        return low + (high - low) * (static_cast<double>(m_engine() >> 11) * 0x1p-53);
    }

    /// Mean 0, variance 1, within ±6: the sum of twelve uniform 16-bit numbers (Irwin–Hall distribution), four of which
    /// come from each draw.
    double gaussian()
    {
        std::int64_t sum = 0;
        for (int draw = 0; draw < 3; ++draw) {
            const std::uint64_t bits = m_engine();
            sum += static_cast<std::int64_t>((bits & 0xFFFF) + ((bits >> 16) & 0xFFFF) + ((bits >> 32) & 0xFFFF)
                                             + (bits >> 48));
        }
        return static_cast<double>(sum - 6 * std::int64_t{0xFFFF}) * 0x1p-16;
    }

private:
    std::mt19937_64 m_engine;
};
