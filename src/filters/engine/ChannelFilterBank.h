#pragma once

#include "filters/FilterList.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace bp {

/// Runs the filters of many channels over a planar block, several channels side by side.
///
/// Up to eight channels with the same number of second-order sections are filtered together, whatever their
/// coefficients. All other channels, and those that share a filter object, are filtered one by one in their order. The
/// history is read from the filters at the start of a block and written back at its end, so the bank and the filters'
/// own Process() may alternate. Not synchronised: one thread at a time; only a feed may be written by another.
class ChannelFilterBank
{
public:
    ChannelFilterBank();
    ~ChannelFilterBank();
    ChannelFilterBank(const ChannelFilterBank &) = delete;
    ChannelFilterBank &operator=(const ChannelFilterBank &) = delete;

    /// @param lists  one list per channel, run in list order; null entries are skipped, a channel with an empty list is
    ///               not changed. The bank shares ownership of the filters.
    void setChannels(std::vector<FilterList::Filters> lists);
    /// Uses the lists of the feed, and reads them again before a block when one of them has changed.
    void follow(const std::shared_ptr<FilterFeed> &feed);

    /// Filters in place; channel i occupies [i · samplesPerChannel, (i + 1) · samplesPerChannel). The samples are, bit
    /// for bit, those of every filter's Process in list order. The filters of a channel whose last sample comes out as
    /// NaN or infinite are reset before the next block. Allocates only after a list has changed.
    void process(float *planar, std::size_t samplesPerChannel);

private:
    struct Plan;

    void plan();

    std::vector<FilterList::Filters> m_lists; ///< owners of the filters that the plan points to
    std::unique_ptr<Plan> m_plan;
    std::shared_ptr<FilterFeed> m_feed; ///< null when none is followed
};

} // namespace bp
