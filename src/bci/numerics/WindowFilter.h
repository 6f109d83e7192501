#pragma once

#include "filters/AbstractFilter.h"

#include <memory>
#include <vector>

namespace bp {

/// A Butterworth filter that is run over separate windows: designed once, cleared before every row.
class WindowFilter
{
public:
    /// Makes the filter ready; designs it only when one of the values has changed since the last call.
    /// @param fs        Hz
    /// @param low,high  Hz; low-pass uses low, high-pass high, band-pass both
    /// @return false, and there is no filter, for frequencies that the rate does not allow
    bool prepare(AbstractFilter::FilterTypeEnum type, int order, float fs, float low, float high);
    /// Clears the history and filters the row in place; without a filter the row stays as it is.
    void run(std::vector<float> &row);
    /// The same, but the filter first runs over the row's first samples in reverse order, which avoids the transient at
    /// the start of the row.
    /// @param settle  number of these samples, at most the row's length
    void runSettled(std::vector<float> &row, std::size_t settle);

private:
    AbstractFilter::FilterTypeEnum m_type = AbstractFilter::LowPass;
    int m_order = 0;
    float m_fs = 0.0f;
    float m_low = 0.0f;
    float m_high = 0.0f;
    std::unique_ptr<AbstractFilter> m_filter;
    std::vector<float> m_mirrored;
};

} // namespace bp
