#include "algorithms/engine/ValueHistory.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

/// Where S ends: the largest float that is a 32-bit integer.
constexpr std::int32_t kLargestSum = 2147483520;
constexpr float kBeyondSums = 2147483648.0f;

constexpr std::int32_t kUnknown = -1;
constexpr std::int32_t kGrowsBeyond = -2;

/// From this power of two on the sum of a step is rounded to whole numbers, a half to the even one.
constexpr int kRoundedFrom = 23;

std::int32_t step(std::int32_t sum, float value)
{
    const float total = static_cast<float>(sum) + value;
    return total >= kBeyondSums ? kLargestSum : static_cast<std::int32_t>(total);
}

/// Of a sum above 0. Every sum is exactly a float: it was one before it was truncated.
int powerOfTwo(std::int32_t sum)
{
    return std::ilogb(static_cast<float>(sum));
}

} // namespace

namespace bp {

/// A run of values, and what each adds to an S of a given size.
///
/// A step rounds S + value to a multiple of the spacing of floats there, which is the same for every S between two
/// powers of two; where that spacing is 1 or more, a tie is also decided by whether S is an even multiple of it. So for
/// all S of one size the values add the same, as long as S, which never falls, stays below the next power of two.
struct ValueHistory::Chunk
{
    std::array<float, kChunkValues> values;
    std::array<std::int32_t, kSizes> growth;
};

ValueHistory::ValueHistory() = default;
ValueHistory::~ValueHistory() = default;

void ValueHistory::append(float value)
{
    if (!std::isfinite(value) || value < 0.0f) {
        return;
    }
    m_maximum = std::max(m_maximum, value);
    store(value);
}

float ValueHistory::average() const
{
    return m_size == 0 ? 0.0f : static_cast<float>(m_sum) / static_cast<float>(m_size);
}

void ValueHistory::clear()
{
    m_chunks.clear();
    m_next = 0;
    m_size = 0;
    m_sum = 0;
    m_maximum = 0.0f;
}

void ValueHistory::store(float value)
{
    const std::size_t place = m_next % kChunkValues;
    if (m_next / kChunkValues == m_chunks.size()) {
        m_chunks.push_back(std::make_unique<Chunk>());
    }
    Chunk &chunk = *m_chunks[m_next / kChunkValues];
    if (place == 0) {
        chunk.growth.fill(kUnknown);
    }
    const float dropped = std::exchange(chunk.values[place], value);
    m_next = (m_next + 1) % kCapacity;
    if (m_size < kCapacity) {
        ++m_size;
        m_sum = step(m_sum, value);
    } else if (dropped < 1.0f) {
        m_sum = step(m_sum, value); // S was still 0 behind it, so it is the same without it
    } else {
        m_sum = sumOfFullHistory();
    }
    if (place == kChunkValues - 1) {
        throughChunk(chunk, m_sum); // spreads over the time of filling what the first drop would need at once
    }
}

/// In the order of the values' arrival. The chunk that holds the newest holds the oldest too.
std::int32_t ValueHistory::sumOfFullHistory()
{
    const std::size_t current = m_next / kChunkValues;
    const std::size_t oldest = m_next % kChunkValues;
    Chunk &divided = *m_chunks[current];
    std::int32_t sum = through(divided.values.data() + oldest, kChunkValues - oldest, 0);
    for (std::size_t i = 1; i < m_chunks.size() && sum < kLargestSum; ++i) {
        sum = throughChunk(*m_chunks[(current + i) % m_chunks.size()], sum);
    }
    return through(divided.values.data(), oldest, sum);
}

std::int32_t ValueHistory::through(const float *values, std::size_t count, std::int32_t sum)
{
    for (std::size_t i = 0; i < count; ++i) {
        sum = step(sum, values[i]);
    }
    return sum;
}

std::int32_t ValueHistory::throughChunk(Chunk &chunk, std::int32_t sum)
{
    const std::size_t size = sizeOf(sum);
    std::int32_t &growth = chunk.growth[size];
    if (growth == kUnknown) {
        const std::int32_t least = leastOf(size);
        const std::int32_t end = through(chunk.values.data(), kChunkValues, least);
        growth = least == 0 || powerOfTwo(end) == powerOfTwo(least) ? end - least : kGrowsBeyond;
    }
    if (growth >= 0 && (sum == 0 || (std::int64_t{sum} + growth) >> (powerOfTwo(sum) + 1) == 0)) {
        return sum + growth;
    }
    return through(chunk.values.data(), kChunkValues, sum);
}

std::size_t ValueHistory::sizeOf(std::int32_t sum)
{
    if (sum == 0) {
        return 0;
    }
    const int power = powerOfTwo(sum);
    if (power < kRoundedFrom) {
        return static_cast<std::size_t>(power) + 1;
    }
    const int excess = power - kRoundedFrom;
    const int size = kRoundedFrom + 1 + 2 * excess + ((sum >> excess) & 1);
    return static_cast<std::size_t>(size);
}

/// The smallest sum of that size.
std::int32_t ValueHistory::leastOf(std::size_t size)
{
    const int index = static_cast<int>(size) - 1;
    if (index <= kRoundedFrom) {
        return index < 0 ? 0 : std::int32_t{1} << index;
    }
    const int excess = (index - kRoundedFrom) / 2;
    const int odd = (index - kRoundedFrom) % 2;
    return (std::int32_t{1} << (kRoundedFrom + excess)) + (odd << excess);
}

} // namespace bp
