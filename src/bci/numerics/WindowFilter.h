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
    /// @return false for frequencies that the rate does not allow: there is no filter then
    bool prepare(AbstractFilter::FilterTypeEnum type, int order, float fs, float low, float high);
    /// Clears the history and filters the row in place; a row is left alone when there is no filter.
    void run(std::vector<float> &row);
    /// The same, after the filter has settled on the first samples of the row, mirrored: no step at the row's start.
    /// @param settle  in samples; cut to the row's length
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
