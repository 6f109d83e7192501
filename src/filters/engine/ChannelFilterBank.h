#pragma once

#include "filters/FilterList.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace bp {

/// Runs the filters of many channels over a planar block, several channels side by side.
///
/// Channels with the same number of second-order sections share the arithmetic, whatever their coefficients; the others
/// run one by one, and so do channels that share a filter object, in the order of the channels. The history lives in
/// the filters: it is taken from them at the start of a block and given back at its end, so that blocks through the
/// bank and calls of a filter's own Process may alternate. Not synchronised: one thread at a time, apart from what
/// comes through a feed.
class ChannelFilterBank
{
public:
    ChannelFilterBank();
    ~ChannelFilterBank();
    ChannelFilterBank(const ChannelFilterBank &) = delete;
    ChannelFilterBank &operator=(const ChannelFilterBank &) = delete;

    /// @param lists  one list per channel, run in list order; null entries are skipped, an empty list leaves its
    ///               channel as it is. The bank keeps the filters alive.
    void setChannels(std::vector<FilterList::Filters> lists);
    /// As setChannels() with the lists of the feed, and again before every block after which one of them has changed.
    void follow(const std::shared_ptr<FilterFeed> &feed);

    /// Filters in place; channel i occupies [i · samplesPerChannel, (i + 1) · samplesPerChannel). The samples are, bit
    /// for bit, those of every filter's Process in list order. A channel whose last sample comes out as no finite
    /// number starts the next block with its filters reset. Allocates only after a list has changed.
    void process(float *planar, std::size_t samplesPerChannel);

private:
    struct Plan;

    void plan();

    std::vector<FilterList::Filters> m_lists; ///< keeps alive what the plan borrows
    std::unique_ptr<Plan> m_plan;
    std::shared_ptr<FilterFeed> m_feed; ///< null when none is followed
};

} // namespace bp
