#include "bci/numerics/WindowFilter.h"

#include "filters/ButterworthFilter.h"

#include <algorithm>

namespace bp {

bool WindowFilter::prepare(AbstractFilter::FilterTypeEnum type, int order, float fs, float low, float high)
{
    if (type == m_type && order == m_order && fs == m_fs && low == m_low && high == m_high) {
        return m_filter != nullptr;
    }
    m_type = type;
    m_order = order;
    m_fs = fs;
    m_low = low;
    m_high = high;
    m_filter.reset();
    const auto isAllowed = [fs](float frequency) { return frequency > 0.0f && frequency < fs / 2.0f; };
    if ((type != AbstractFilter::HighPass && !isAllowed(low))
        || (type != AbstractFilter::LowPass && !isAllowed(high))) {
        return false;
    }
    m_filter = std::make_unique<ButterworthFilter>(type, order, fs, low, high);
    return true;
}

void WindowFilter::run(std::vector<float> &row)
{
    if (m_filter != nullptr) {
        m_filter->Reset();
        m_filter->Process(row);
    }
}

void WindowFilter::runSettled(std::vector<float> &row, std::size_t settle)
{
    if (m_filter == nullptr || row.empty()) {
        return;
    }
    const auto count = static_cast<std::ptrdiff_t>(std::min(settle, row.size() - 1));
    m_mirrored.resize(static_cast<std::size_t>(count));
    std::reverse_copy(row.begin() + 1, row.begin() + 1 + count, m_mirrored.begin());
    m_filter->Reset();
    m_filter->Process(m_mirrored);
    m_filter->Process(row);
}

} // namespace bp
