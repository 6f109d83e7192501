#pragma once

#include "common/BPExport.h"

#include <QObject>

#include <memory>
#include <vector>

class AbstractFilter;

/// An ordered chain of filters at one sample rate, and a resampler to that rate.
///
/// A block is one vector of samples per channel. One thread at a time.
class BIOPROCESSING_EXPORT Filtrator : public QObject
{
    Q_OBJECT
public:
    using Block = std::vector<std::vector<float>>;

    /// @param sampleRate  Hz; the chain starts empty
    explicit Filtrator(int sampleRate, QObject *parent = nullptr);
    ~Filtrator() override;

    int getFs() const { return m_sampleRate; }

    /// Replaces the chain: low-pass and high-pass of the given order, then a band-pass 1 Hz wide around bandPass, last
    /// a notch 1 Hz wide around notch. All in Hz; the filter of a value of 0 or less is omitted.
    void setFilters(int order, int lowPass, int highPass, int notch, int bandPass);

    /// Copies the block and filters the copy in place, filter by filter and channel by channel. in and out may be the
    /// same.
    ///
    /// One filter object serves all channels: each channel starts with the history of the channel before it, and
    /// channel 0 of the next block with the history of the last channel. Compatibility: trained models depend on it.
    void doFiltrate(const Block &in, Block &out);

    /// Brings a block from inputRate (Hz) to the chain's rate with a Hann-windowed sinc of 2 · halfWidth input samples.
    ///
    /// A channel of L samples gives floor(L · rate / inputRate). Nothing is padded at the ends, and reducing the rate
    /// applies no extra low-pass. An inputRate below 1 is logged and gives empty channels. in and out may be the same.
    void resample(const Block &in, Block &out, int inputRate, int halfWidth) const;

private:
    std::vector<std::unique_ptr<AbstractFilter>> m_filters; ///< in running order
    int m_sampleRate;
};
