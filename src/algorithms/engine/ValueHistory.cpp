#include "algorithms/engine/ValueHistory.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace bp {

namespace {

/// The sum stops at the largest float that is a 32-bit integer.
constexpr std::int32_t kLargestSum = 2147483520;
/// Some minutes of values without an allocation.
constexpr std::size_t kFirstCapacity = 1024;

std::int32_t step(std::int32_t sum, float value)
{
    return static_cast<std::int32_t>(std::min(static_cast<float>(sum) + value, static_cast<float>(kLargestSum)));
}

} // namespace

ValueHistory::ValueHistory()
{
    m_values.reserve(kFirstCapacity);
}

void ValueHistory::append(float value)
{
    if (!std::isfinite(value) || value < 0.0f) {
        return;
    }
    m_maximum = std::max(m_maximum, value);
    if (m_values.size() < kCapacity) {
        m_values.push_back(value);
        m_sum = step(m_sum, value);
        return;
    }
    const float dropped = std::exchange(m_values[m_oldest], value);
    m_oldest = (m_oldest + 1) % kCapacity;
    // A value below 1 at the start of the sum added nothing to it.
    m_sum = dropped < 1.0f ? step(m_sum, value) : sumFromOldest();
}

float ValueHistory::average() const
{
    return m_values.empty() ? 0.0f : static_cast<float>(m_sum) / static_cast<float>(m_values.size());
}

void ValueHistory::clear()
{
    m_values.clear();
    m_oldest = 0;
    m_sum = 0;
    m_maximum = 0.0f;
}

std::int32_t ValueHistory::sumFromOldest() const
{
    const auto oldest = m_values.begin() + static_cast<std::ptrdiff_t>(m_oldest);
    return std::accumulate(m_values.begin(), oldest, std::accumulate(oldest, m_values.end(), std::int32_t{0}, step),
                           step);
}

} // namespace bp
