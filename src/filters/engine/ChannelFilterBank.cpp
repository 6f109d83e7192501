#include "filters/engine/ChannelFilterBank.h"

#include "filters/AbstractFilter.h"
#include "filters/engine/Cascade.h"
#include "filters/engine/FilterFeed.h"
#include "filters/engine/LaneSection.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

namespace bp {

namespace {

constexpr std::size_t kLanes = LaneSection::kLanes;
constexpr std::size_t kTileRows = 128;
/// For fewer channels than this, one by one is faster than a run of all eight lanes.
constexpr std::size_t kLeastLanes = 4;

struct Channel
{
    std::size_t index;
    std::vector<AbstractFilter *> filters;
    std::vector<CascadeStage> stages; ///< empty when the filters have to run one after the other
};

/// A device may give NaN or infinity, which would stay in a recursive filter's history for good.
void dropInvalidHistory(const Channel &channel, const float *planar, std::size_t count)
{
    if (count > 0 && !std::isfinite(planar[channel.index * count + count - 1])) {
        for (AbstractFilter *filter : channel.filters) {
            filter->Reset();
        }
    }
}

/// Up to eight channels with the same number of stages, one per lane.
class LaneGroup
{
public:
    LaneGroup(const Channel *channels, std::size_t count)
        : m_channels(channels, channels + count)
        , m_sections(channels->stages.size())
    {
        for (std::size_t lane = 0; lane < count; ++lane) {
            for (std::size_t k = 0; k < m_sections.size(); ++k) {
                m_sections[k].setLane(lane, m_channels[lane].stages[k]);
            }
        }
    }

    void process(float *planar, std::size_t count)
    {
        loadHistory();
        for (std::size_t first = 0; first < count; first += kTileRows) {
            processTile(planar + first, count, std::min(kTileRows, count - first));
        }
        storeHistory();
        for (const Channel &channel : m_channels) {
            dropInvalidHistory(channel, planar, count);
        }
    }

private:
    void loadHistory()
    {
        for (std::size_t lane = 0; lane < m_channels.size(); ++lane) {
            for (std::size_t k = 0; k < m_sections.size(); ++k) {
                m_sections[k].loadHistory(lane, m_channels[lane].stages[k]);
            }
        }
    }

    void storeHistory() const
    {
        for (std::size_t lane = 0; lane < m_channels.size(); ++lane) {
            for (std::size_t k = 0; k < m_sections.size(); ++k) {
                m_sections[k].storeHistory(lane, m_channels[lane].stages[k]);
            }
        }
    }

    /// Stage by stage over a tile small enough to stay in the nearest cache.
    void processTile(float *planar, std::size_t stride, std::size_t rows)
    {
        // Loops over all eight lanes become vector instructions, so unused lanes run along with zeros.
        float channels[kLanes][kTileRows];
        alignas(32) float tile[kTileRows][kLanes];
        for (std::size_t lane = 0; lane < m_channels.size(); ++lane) {
            std::copy_n(planar + m_channels[lane].index * stride, rows, channels[lane]);
        }
        for (std::size_t lane = m_channels.size(); lane < kLanes; ++lane) {
            std::fill_n(channels[lane], rows, 0.0f);
        }
        for (std::size_t i = 0; i < rows; ++i) {
            for (std::size_t lane = 0; lane < kLanes; ++lane) {
                tile[i][lane] = channels[lane][i];
            }
        }
        for (LaneSection &section : m_sections) {
            section.run(tile[0], rows);
        }
        for (std::size_t i = 0; i < rows; ++i) {
            for (std::size_t lane = 0; lane < kLanes; ++lane) {
                channels[lane][i] = tile[i][lane];
            }
        }
        for (std::size_t lane = 0; lane < m_channels.size(); ++lane) {
            std::copy_n(channels[lane], rows, planar + m_channels[lane].index * stride);
        }
    }

    std::vector<Channel> m_channels;
    std::vector<LaneSection> m_sections;
};

void processAlone(const Channel &channel, float *samples, std::size_t count)
{
    if (!channel.stages.empty()) {
        runCascade(channel.stages.data(), channel.stages.size(), samples, count);
        return;
    }
    for (AbstractFilter *filter : channel.filters) {
        filter->Process(samples, static_cast<int>(count));
    }
}

/// The channels that have filters. Those whose filters are all of second-order sections, and used only once, get
/// stages.
std::vector<Channel> flatten(const std::vector<FilterList::Filters> &lists)
{
    std::map<AbstractFilter *, int> uses;
    std::vector<Channel> channels;
    for (std::size_t i = 0; i < lists.size(); ++i) {
        Channel channel{i, {}, {}};
        for (const auto &filter : lists[i]) {
            if (filter != nullptr) {
                channel.filters.push_back(filter.get());
                ++uses[filter.get()];
            }
        }
        if (!channel.filters.empty()) {
            channels.push_back(std::move(channel));
        }
    }
    for (Channel &channel : channels) {
        const bool plain = std::all_of(channel.filters.begin(), channel.filters.end(), [&](AbstractFilter *filter) {
            return uses[filter] == 1 && filter->appendStages(channel.stages);
        });
        if (!plain) {
            channel.stages.clear();
        }
    }
    return channels;
}

} // namespace

struct ChannelFilterBank::Plan
{
    std::vector<LaneGroup> groups;
    std::vector<Channel> alone; ///< in the order of the channels, which matters where they share a filter
};

ChannelFilterBank::ChannelFilterBank()
    : m_plan(std::make_unique<Plan>())
{
}

ChannelFilterBank::~ChannelFilterBank() = default;

void ChannelFilterBank::setChannels(std::vector<FilterList::Filters> lists)
{
    m_feed.reset();
    *m_plan = Plan(); // before the filters that it borrows go
    m_lists = std::move(lists);
    plan();
}

void ChannelFilterBank::follow(const std::shared_ptr<FilterFeed> &feed)
{
    std::vector<FilterList::Filters> lists(feed->channels());
    feed->take(lists);
    setChannels(std::move(lists));
    m_feed = feed;
}

void ChannelFilterBank::plan()
{
    *m_plan = Plan();
    std::map<std::size_t, std::vector<Channel>> byStageCount;
    for (Channel &channel : flatten(m_lists)) {
        std::vector<Channel> &alike = channel.stages.empty() ? m_plan->alone : byStageCount[channel.stages.size()];
        alike.push_back(std::move(channel));
    }
    for (const auto &[stageCount, alike] : byStageCount) {
        std::size_t first = 0;
        for (; alike.size() - first >= kLeastLanes; first += std::min(kLanes, alike.size() - first)) {
            m_plan->groups.emplace_back(&alike[first], std::min(kLanes, alike.size() - first));
        }
        m_plan->alone.insert(m_plan->alone.end(), alike.begin() + static_cast<std::ptrdiff_t>(first), alike.end());
    }
}

void ChannelFilterBank::process(float *planar, std::size_t samplesPerChannel)
{
    if (m_feed != nullptr && m_feed->hasChanges()) {
        m_feed->take(m_lists);
        plan();
    }
    for (LaneGroup &group : m_plan->groups) {
        group.process(planar, samplesPerChannel);
    }
    for (const Channel &channel : m_plan->alone) {
        processAlone(channel, planar + channel.index * samplesPerChannel, samplesPerChannel);
        dropInvalidHistory(channel, planar, samplesPerChannel);
    }
}

} // namespace bp
