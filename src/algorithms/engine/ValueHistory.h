#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bp {

/// The values that an algorithm has published so far, with their running maximum and running average.
///
/// Holds the newest kCapacity values; memory starts at 4 kB and doubles up to 4 MB. One thread at a time.
///
/// The average is S / count, where S is a 32-bit integer summed over all values from the oldest on, each step being
/// S = (int)((float)S + value). Compatibility: values below 1 leave an S of 0 unchanged and a large S is rounded in
/// every step, so any better sum would publish other averages. Appending to a history that is not full costs one step.
/// Dropping the oldest value of a full one, which is after days, starts the sum again: a million steps, some 5 ms.
class ValueHistory
{
public:
    static constexpr std::size_t kCapacity = 1048576;

    ValueHistory();

    /// Adds a value to maximum and history; a negative, infinite or NaN value is ignored.
    void append(float value);
    /// Largest value since the start or clear(); at least 0.
    float maximum() const { return m_maximum; }
    /// 0 while the history is empty.
    float average() const;
    std::size_t size() const { return m_values.size(); }
    void clear();

private:
    std::int32_t sumFromOldest() const;

    std::vector<float> m_values; ///< a ring buffer once it is full
    std::size_t m_oldest = 0;
    std::int32_t m_sum = 0;
    float m_maximum = 0.0f;
};

} // namespace bp
