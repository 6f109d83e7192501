#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace bp {

/// The values that an algorithm published so far, with their running maximum and running average.
///
/// Holds the newest kCapacity values; memory grows with them, 4 kB at a time. One thread at a time.
///
/// The average is S / count, where S is a 32-bit integer taken through all values from the oldest on, each step being
/// S = (int)((float)S + value) (kept: values below 1 leave S at 0). The sum of a step is a float, so what a value adds
/// depends on the size of S as soon as it is rounded. Appending to a history that is not full continues S. Dropping the
/// oldest value starts S anew, for which every chunk of values keeps what it adds to an S of a given size (see
/// Chunk): a thousand additions and a few chunks value by value instead of a million.
class ValueHistory
{
public:
    static constexpr std::size_t kCapacity = 1048576;

    ValueHistory();
    ~ValueHistory();
    ValueHistory(const ValueHistory &) = delete;
    ValueHistory &operator=(const ValueHistory &) = delete;

    /// Takes a value into maximum and history. One that is negative or not finite is ignored.
    void append(float value);
    /// Largest value since the start or clear(); at least 0.
    float maximum() const { return m_maximum; }
    /// 0 while the history is empty.
    float average() const;
    std::size_t size() const { return m_size; }
    void clear();

private:
    static constexpr std::size_t kChunkValues = 1024;
    /// Sizes of S: 0, then one per power of two up to 2^30, those from 2^23 on divided into an even and an odd one.
    static constexpr std::size_t kSizes = 1 + 31 + 8;

    struct Chunk;

    static std::size_t sizeOf(std::int32_t sum);
    static std::int32_t leastOf(std::size_t size);
    static std::int32_t through(const float *values, std::size_t count, std::int32_t sum);
    static std::int32_t throughChunk(Chunk &chunk, std::int32_t sum);
    void store(float value);
    std::int32_t sumOfFullHistory();

    std::vector<std::unique_ptr<Chunk>> m_chunks;
    std::size_t m_next = 0; ///< where the next value goes; the oldest one when the history is full
    std::size_t m_size = 0;
    std::int32_t m_sum = 0;
    float m_maximum = 0.0f;
};

} // namespace bp
