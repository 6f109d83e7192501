#pragma once

#include "common/BPExport.h"

#include <cstddef>
#include <memory>
#include <vector>

class AbstractFilter;

namespace bp {

/// Runs the filters of many channels over a planar block, several channels side by side.
///
/// Channels with the same number of second-order sections share the arithmetic, whatever their coefficients; the others
/// run one by one, and so do channels that share a filter object, in the order of the channels. The history lives in
/// the filters: it is taken from them at the start of a block and given back at its end, so that blocks through the
/// bank and calls of a filter's own Process may alternate. Not synchronised: one thread at a time.
class BIOPROCESSING_EXPORT ChannelFilterBank
{
public:
    ChannelFilterBank();
    ~ChannelFilterBank();
    ChannelFilterBank(const ChannelFilterBank &) = delete;
    ChannelFilterBank &operator=(const ChannelFilterBank &) = delete;

    /// @param lists  one list per channel, run in list order. The filters are borrowed and must live until the next
    ///               setChannels or clear; null entries are skipped, an empty list leaves its channel as it is.
    void setChannels(const std::vector<std::vector<AbstractFilter *>> &lists);
    void clear();

    /// Filters in place; channel i occupies [i · samplesPerChannel, (i + 1) · samplesPerChannel). The samples are, bit
    /// for bit, those of every filter's Process in list order. Allocates nothing.
    void process(float *planar, std::size_t samplesPerChannel);

private:
    struct Plan;
    std::unique_ptr<Plan> m_plan;
};

} // namespace bp
