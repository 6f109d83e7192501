#include "filters/FilterList.h"

#include "filters/engine/FilterFeed.h"

namespace bp {

FilterList::const_iterator FilterList::insert(const_iterator position, value_type filter)
{
    const auto inserted = m_filters.insert(position, std::move(filter));
    publish();
    return inserted;
}

FilterList::const_iterator FilterList::erase(const_iterator first, const_iterator last)
{
    const auto next = m_filters.erase(first, last);
    publish();
    return next;
}

void FilterList::clear()
{
    assign({});
}

void FilterList::assign(Filters filters)
{
    m_filters = std::move(filters);
    publish();
}

void FilterList::follow(const std::shared_ptr<FilterFeed> &feed, std::size_t channel)
{
    m_feed = feed;
    m_channel = channel;
    publish();
}

void FilterList::publish() const
{
    if (const std::shared_ptr<FilterFeed> feed = m_feed.lock()) {
        feed->publish(m_channel, m_filters);
    }
}

} // namespace bp
