#pragma once

#include "common/MetaTypes.h"

namespace bp {

/// The newest samples of every channel, in one row per channel.
///
/// The first samples() of a row are zeros until blocks fill them. A full window drops its oldest step before the next
/// block. allocate() takes all the memory; blocks allocate nothing.
class SlidingWindow
{
public:
    /// Replaces the window by an empty one. Lengths are truncated to whole samples; a step is at most the window.
    /// @param seconds, stepSeconds  at least 0
    /// @param fs                    Hz, at least 0
    /// @param maxSamples            over all channels
    /// @return false when the window would be longer than maxSamples or than the memory; it has no samples then
    bool allocate(float seconds, float stepSeconds, int fs, int channels, int maxSamples);
    /// All zeros, and no valid samples.
    void clear();

    /// Hz.
    int fs() const { return m_fs; }
    /// Samples per row of a full window.
    int samples() const { return m_samples; }
    /// Valid samples per row.
    int fill() const { return m_fill; }
    /// Blocks of that many samples in a window, at least 1.
    int blocks(unsigned int blockSamples) const;
    /// One row per channel; not const because Preprocessor::doPreprocess() takes them so.
    vector<vector<float>> &rows() { return m_rows; }

    /// Drops the oldest step if the window is full.
    void makeRoom();
    /// Appends a block, one row per channel, as long as its first row says. Shorter rows are filled up with zeros, rows
    /// without a channel are ignored, and of a block longer than the window only the first samples are used. What then
    /// exceeds the window leaves it at the old end.
    /// @return whether the window is full
    bool append(const vector<vector<float>> &block);

private:
    vector<vector<float>> m_rows;
    float m_seconds = 0.0f;
    int m_samples = 0;
    int m_stepSamples = 0;
    int m_fill = 0;
    int m_fs = 0;
};

} // namespace bp
