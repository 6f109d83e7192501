#include "server/handlers/SampleBuffer.h"

#include "common/BPCommon.h"

#include <algorithm>

void SampleBuffer::reset(std::size_t channels, std::size_t capacity)
{
    m_rows.assign(channels, {});
    const std::size_t most = kMaxBytes / sizeof(float) / std::max<std::size_t>(1, channels);
    m_capacity = std::min(capacity, std::max<std::size_t>(1, most));
    clear();
}

void SampleBuffer::clear()
{
    for (std::vector<float> &row : m_rows) {
        row.clear();
    }
    m_begin = 0;
    m_count = 0;
    m_isOverflowLogged = false;
}

void SampleBuffer::append(std::size_t samples, const float *planar)
{
    const std::size_t added = std::min(samples, m_capacity);
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        const float *end = planar + (i + 1) * samples;
        m_rows[i].insert(m_rows[i].end(), end - added, end);
    }
    m_count += added;
    if (m_count > m_capacity) {
        m_begin += m_count - m_capacity;
        m_count = m_capacity;
        if (!m_isOverflowLogged) {
            m_isOverflowLogged = true;
            BPCommon::log(BPCommon::LogServer, "SampleBuffer::append nobody fetches the samples, dropping the oldest");
        }
    }
    // Dropped samples are erased once they are as many as those that stay, so each sample is moved at most once.
    if (m_begin >= m_capacity && m_begin > 0) {
        for (std::vector<float> &row : m_rows) {
            row.erase(row.begin(), row.begin() + static_cast<std::ptrdiff_t>(m_begin));
        }
        m_begin = 0;
    }
}
