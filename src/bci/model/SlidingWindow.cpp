#include "bci/model/SlidingWindow.h"

#include <algorithm>
#include <exception>

namespace {

constexpr int kMaxChannels = 1 << 20;

/// Truncated towards zero; maxSamples + 1 stands for all larger numbers.
int samplesIn(float seconds, int fs, int maxSamples)
{
    const float samples = static_cast<float>(fs) * seconds;
    return samples <= static_cast<float>(maxSamples) ? static_cast<int>(samples) : maxSamples + 1;
}

} // namespace

bool bp::SlidingWindow::allocate(float seconds, float stepSeconds, int fs, int channels, int maxSamples)
{
    *this = SlidingWindow();
    m_seconds = seconds;
    m_fs = fs;
    const int samples = samplesIn(seconds, fs, maxSamples);
    if (static_cast<qint64>(samples) * std::max(channels, 1) > maxSamples || channels > kMaxChannels) {
        return false;
    }
    try {
        m_rows.resize(static_cast<std::size_t>(std::max(channels, 0)));
        for (vector<float> &row : m_rows) {
            row.resize(static_cast<std::size_t>(samples));
        }
    } catch (const std::exception &) { // memory
        m_rows = vector<vector<float>>();
        return false;
    }
    m_samples = samples;
    m_stepSamples = std::min(samplesIn(stepSeconds, fs, maxSamples), samples);
    return true;
}

void bp::SlidingWindow::clear()
{
    m_fill = 0;
    for (vector<float> &row : m_rows) {
        std::fill(row.begin(), row.end(), 0.0f);
    }
}

int bp::SlidingWindow::blocks(unsigned int blockSamples) const
{
    if (blockSamples == 0 || m_fs == 0) {
        return 1;
    }
    const float blockSeconds = static_cast<float>(blockSamples) / static_cast<float>(m_fs);
    return std::max(1, static_cast<int>(std::min(m_seconds / blockSeconds, static_cast<float>(m_samples))));
}

void bp::SlidingWindow::makeRoom()
{
    if (m_fill < m_samples) {
        return;
    }
    m_fill -= m_stepSamples;
    for (vector<float> &row : m_rows) {
        std::rotate(row.begin(), row.begin() + m_stepSamples, row.end());
    }
}

bool bp::SlidingWindow::append(const vector<vector<float>> &block)
{
    const auto count = static_cast<int>(std::min(block.front().size(), static_cast<std::size_t>(m_samples)));
    const bool isFull = count >= m_samples - m_fill;
    // A block that replaces the whole window needs no room.
    const int overflow = isFull && count < m_samples ? count - (m_samples - m_fill) : 0;
    const int target = isFull ? m_samples - count : m_fill;
    for (std::size_t i = 0; i < std::min(block.size(), m_rows.size()); ++i) {
        vector<float> &row = m_rows[i];
        std::rotate(row.begin(), row.begin() + overflow, row.end());
        const auto given = static_cast<int>(std::min(block[i].size(), static_cast<std::size_t>(count)));
        const auto end = std::copy_n(block[i].begin(), given, row.begin() + target);
        std::fill_n(end, count - given, 0.0f);
    }
    m_fill = target + count;
    return isFull;
}
