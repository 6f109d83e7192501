#pragma once

#include "filters/FilterList.h"

#include <atomic>
#include <cstddef>
#include <vector>

namespace bp {

/// Hands the filter lists of a montage's channels from the thread that changes them to the bank that runs them.
///
/// One slot per channel holds the newest list that the bank has not read yet, so nothing grows while no block is
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

    /// Whether something was published since the last take(); one atomic load.
    bool hasChanges() const { return m_changed.load(std::memory_order_relaxed); }
    /// Replaces the lists that were published since the last call.
    /// @param lists  one list per channel
    void take(std::vector<FilterList::Filters> &lists);

private:
    std::vector<std::atomic<FilterList::Filters *>> m_waiting; ///< owned; null for an empty slot
    std::atomic<bool> m_changed{false}; ///< set after a slot is filled, cleared before the slots are emptied
};

} // namespace bp
