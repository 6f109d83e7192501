#pragma once

#include "filters/FilterList.h"

#include <atomic>
#include <cstddef>
#include <vector>

namespace bp {

/// Brings the filter lists of a montage's channels from the thread that changes them to the bank that runs them.
///
/// One place per channel, which holds the newest list that the bank has not taken yet: nothing grows while no block is
/// processed. One thread publishes, another one takes; neither waits.
class FilterFeed
{
public:
    explicit FilterFeed(std::size_t channels);
    ~FilterFeed();
    FilterFeed(const FilterFeed &) = delete;
    FilterFeed &operator=(const FilterFeed &) = delete;

    std::size_t channels() const { return m_waiting.size(); }

    /// @param channel  below channels(), otherwise ignored
    void publish(std::size_t channel, const FilterList::Filters &filters);

    /// One atomic load. True once something was published since the last take().
    bool hasChanges() const { return m_changed.load(std::memory_order_relaxed); }
    /// Replaces what has changed.
    /// @param lists  one list per channel
    void take(std::vector<FilterList::Filters> &lists);

private:
    std::vector<std::atomic<FilterList::Filters *>> m_waiting; ///< owned; null where nothing waits
    std::atomic<bool> m_changed{false}; ///< set after a list was put in place, cleared before the places are emptied
};

} // namespace bp
