#include "filters/engine/FilterFeed.h"

#include <algorithm>

namespace bp {

FilterFeed::FilterFeed(std::size_t channels)
    : m_waiting(channels)
{
    for (auto &waiting : m_waiting) {
        waiting.store(nullptr, std::memory_order_relaxed); // before C++20 an atomic is not initialised
    }
}

FilterFeed::~FilterFeed()
{
    for (const auto &waiting : m_waiting) {
        delete waiting.load();
    }
}

void FilterFeed::publish(std::size_t channel, const FilterList::Filters &filters)
{
    if (channel < m_waiting.size()) {
        auto copy = std::make_unique<FilterList::Filters>(filters);
        delete m_waiting[channel].exchange(copy.release(), std::memory_order_acq_rel);
        m_changed.store(true, std::memory_order_release);
    }
}

void FilterFeed::take(std::vector<FilterList::Filters> &lists)
{
    m_changed.exchange(false, std::memory_order_acq_rel);
    for (std::size_t i = 0; i < std::min(lists.size(), m_waiting.size()); ++i) {
        const std::unique_ptr<FilterList::Filters> taken(m_waiting[i].exchange(nullptr, std::memory_order_acq_rel));
        if (taken) {
            lists[i] = std::move(*taken);
        }
    }
}

} // namespace bp
