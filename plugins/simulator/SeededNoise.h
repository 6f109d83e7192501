#pragma once

#include <array>
#include <cstdint>

/// Random numbers that are the same on every platform for the same seed and stream.
///
/// xoshiro256++ (D. Blackman, S. Vigna, "Scrambled Linear Pseudorandom Number Generators", ACM TOMS 47(4), 2021), its
/// state filled by SplitMix64 (G. Steele, D. Lea, C. Flood, OOPSLA 2014), as its authors advise. The distributions of
/// the standard library are not used: each library draws them in its own way.
class SeededNoise
{
public:
    /// @param stream  numbers an independent sequence under the same seed
    explicit SeededNoise(std::uint64_t seed = 0, std::uint64_t stream = 0)
    {
        std::uint64_t splitMix = seed ^ (0x9E3779B97F4A7C15u * (2 * stream + 1));
        for (std::uint64_t &word : m_state) {
            splitMix += 0x9E3779B97F4A7C15u;
            std::uint64_t mixed = splitMix;
            mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
            mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
            word = mixed ^ (mixed >> 31);
        }
    }

    std::uint64_t next()
    {
        const std::uint64_t result = rotateLeft(m_state[0] + m_state[3], 23) + m_state[0];
        const std::uint64_t shifted = m_state[1] << 17;
        m_state[2] ^= m_state[0];
        m_state[3] ^= m_state[1];
        m_state[1] ^= m_state[2];
        m_state[0] ^= m_state[3];
        m_state[2] ^= shifted;
        m_state[3] = rotateLeft(m_state[3], 45);
        return result;
    }

    /// In [low, high).
    double uniform(double low, double high)
    {
        return low + (high - low) * (static_cast<double>(next() >> 11) * 0x1p-53);
    }

    /// Mean 0, variance 1, within ±6: the sum of twelve uniform 16-bit numbers out of three draws (Irwin–Hall). Integer
    /// arithmetic up to the last multiplication, so no logarithm or cosine of a particular library enters.
    double gaussian()
    {
        std::int64_t sum = 0;
        for (int draw = 0; draw < 3; ++draw) {
            const std::uint64_t bits = next();
            sum += static_cast<std::int64_t>((bits & 0xFFFF) + ((bits >> 16) & 0xFFFF) + ((bits >> 32) & 0xFFFF)
                                             + (bits >> 48));
        }
        return static_cast<double>(sum - 6 * std::int64_t{0xFFFF}) * 0x1p-16;
    }

private:
    static std::uint64_t rotateLeft(std::uint64_t word, int bits) { return (word << bits) | (word >> (64 - bits)); }

    std::array<std::uint64_t, 4> m_state{};
};
