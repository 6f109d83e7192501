#pragma once

#include "files/edf/EdfHeader.h"

#include <vector>

namespace bp {

/// Brings a signal to another rate: output sample j lies at j · inRate / outRate of the input, without any delay.
///
/// A sinc under a Blackman window, symmetric about each output sample, with its cut-off at 0.45 of the lower of the two
/// rates: flat up to 0.41 of that rate, and 74 dB down from half of it on, so that nothing is folded back. Each output
/// depends on its place alone, so blocks of any length join without a seam.
class Resampler
{
public:
    Resampler(Ratio inRate, Ratio outRate);
    /// First input sample that outputs from `first` on need; negative ones stand before the beginning.
    qint64 firstInput(qint64 first) const { return at(first) - m_half + 1; }
    int inputCount(qint64 first, int count) const;
    /// @param in inputCount() samples from firstInput() on
    void process(const std::vector<qint32> &in, qint64 first, int count, double *out) const;

private:
    qint64 at(qint64 output) const { return output * m_ratio.num / m_ratio.den; }
    std::vector<double> weights(qint64 phase) const;

    Ratio m_ratio; ///< inRate / outRate
    double m_cut; ///< of the input's Nyquist frequency
    int m_half; ///< input samples on either side
    std::vector<std::vector<double>> m_table; ///< by phase; empty where there are too many
};

} // namespace bp
