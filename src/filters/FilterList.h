#pragma once

#include "common/BPExport.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

class AbstractFilter;

namespace bp {

class FilterFeed;

/// The filters of one channel, in running order, shared with the reader that runs them.
///
/// Reads like a vector of pointers. It changes through its operations only, so that the reader sees every change: it
/// runs the new list from its next block on, and a filter that stays in the list keeps its history. Belongs to one
/// thread, the one that sets the montage up. A filter that leaves the list, or its reader, is deleted by whoever used
/// it last, which may be the reader's thread: give it no QObject parent.
class BIOPROCESSING_EXPORT FilterList
{
public:
    using Filters = std::vector<std::shared_ptr<AbstractFilter>>;
    using value_type = Filters::value_type;
    using size_type = Filters::size_type;
    using const_iterator = Filters::const_iterator;
    using iterator = const_iterator;

    FilterList() = default;
    /// A filter holds the history of one stream, so a copy of the list would mix two.
    FilterList(const FilterList &) = delete;
    FilterList &operator=(const FilterList &) = delete;

    bool empty() const { return m_filters.empty(); }
    size_type size() const { return m_filters.size(); }
    const value_type &operator[](size_type index) const { return m_filters[index]; }
    const value_type &at(size_type index) const { return m_filters.at(index); }
    const value_type &front() const { return m_filters.front(); }
    const value_type &back() const { return m_filters.back(); }
    const_iterator begin() const { return m_filters.begin(); }
    const_iterator end() const { return m_filters.end(); }

    /// Takes shared ownership; what a std::unique_ptr holds can be moved in. Null entries are skipped when running.
    void push_back(value_type filter) { insert(end(), std::move(filter)); }
    /// @param filter  what a std::shared_ptr is made of: a pointer from new, which is taken over, or a std::unique_ptr
    template <class Pointer> void emplace_back(Pointer &&filter)
    {
        push_back(value_type(std::forward<Pointer>(filter)));
    }
    const_iterator insert(const_iterator position, value_type filter);
    const_iterator erase(const_iterator position) { return erase(position, position + 1); }
    const_iterator erase(const_iterator first, const_iterator last);
    void pop_back() { erase(end() - 1); }
    void clear();
    /// Replaces the whole list in one step: no block is filtered by a part of it.
    void assign(Filters filters);

    /// From now on the feed receives the list, at once and after every change, and the feed before it nothing more: two
    /// readers never run the same filter.
    void follow(const std::shared_ptr<FilterFeed> &feed, std::size_t channel);

private:
    void publish() const;

    Filters m_filters;
    std::weak_ptr<FilterFeed> m_feed;
    std::size_t m_channel = 0; ///< in the feed
};

} // namespace bp
