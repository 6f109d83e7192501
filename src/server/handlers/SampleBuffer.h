#pragma once

#include <cstddef>
#include <vector>

/// The samples that no client has fetched yet, per channel. When it is full, the oldest samples are dropped, which is
/// logged once until the buffer is emptied.
class SampleBuffer
{
public:
    /// Upper bound for all channels together. A JSON answer needs two to three times as many bytes, and exists twice
    /// while it is sent.
    static constexpr std::size_t kMaxBytes = std::size_t{64} * 1024 * 1024;

    /// Removes all samples and sets the size.
    /// @param capacity  samples per channel; reduced where they would need more than kMaxBytes
    void reset(std::size_t channels, std::size_t capacity);
    void clear();

    /// @param planar  block of samples per channel: channel i at i · samples
    void append(std::size_t samples, const float *planar);

    std::size_t channelCount() const { return m_rows.size(); }
    std::size_t sampleCount() const { return m_count; }
    /// sampleCount() values, oldest first; valid until the buffer changes.
    const float *channel(std::size_t index) const { return m_rows[index].data() + m_begin; }

private:
    std::vector<std::vector<float>> m_rows;
    std::size_t m_begin = 0; ///< dropped samples that are still in memory
    std::size_t m_count = 0;
    std::size_t m_capacity = 0;
    bool m_isOverflowLogged = false;
};
