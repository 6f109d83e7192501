#pragma once

#include <cstddef>
#include <vector>

/// The samples that no client has fetched yet, per channel. Holds so many at most, and so many bytes; the oldest are
/// dropped, which is traced once until the buffer is emptied.
class SampleBuffer
{
public:
    /// Of all channels together. An answer in JSON takes two to three times as much, and exists twice while it is sent.
    static constexpr std::size_t kMaxBytes = std::size_t{64} * 1024 * 1024;

    /// Forgets everything.
    /// @param capacity  samples per channel; fewer are kept where they would take more than kMaxBytes
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
    std::size_t m_begin = 0; ///< dropped samples that still lie in front
    std::size_t m_count = 0;
    std::size_t m_capacity = 0;
    bool m_overflowTold = false;
};
