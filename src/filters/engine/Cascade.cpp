#include "filters/engine/Cascade.h"

#include "filters/engine/LaneSection.h"

#include <algorithm>
#include <utility>

namespace bp {

namespace {

constexpr std::size_t kLanes = LaneSection::kLanes;
constexpr std::size_t kTileRows = 16;
/// Below this many samples filling and draining the lanes costs more than they save.
constexpr std::size_t kShortBlock = 2 * kTileRows;

/// One or two stages with everything in registers.
template <std::size_t Count> void runStages(const CascadeStage *stages, float *samples, std::size_t count)
{
    float b0[Count], b1[Count], b2[Count], a1[Count], a2[Count], gain[Count];
    float x0[Count], x1[Count], y0[Count], y1[Count];
    for (std::size_t k = 0; k < Count; ++k) {
        const CascadeStage &stage = stages[k];
        b0[k] = stage.b[0];
        b1[k] = stage.b[1];
        b2[k] = stage.b[2];
        a1[k] = stage.a[1];
        a2[k] = stage.a[2];
        gain[k] = stage.scaled ? stage.gain : 1.0f;
        x0[k] = stage.x[0];
        x1[k] = stage.x[1];
        y0[k] = stage.y[0];
        y1[k] = stage.y[1];
    }
    for (std::size_t i = 0; i < count; ++i) {
        float sample = samples[i];
        for (std::size_t k = 0; k < Count; ++k) {
            float acc = b0[k] * sample;
            acc += b1[k] * x0[k];
            acc += b2[k] * x1[k];
            acc -= a1[k] * y0[k];
            acc -= a2[k] * y1[k];
            x1[k] = x0[k];
            x0[k] = sample;
            y1[k] = y0[k];
            y0[k] = acc;
            sample = acc * gain[k];
        }
        samples[i] = sample;
    }
    for (std::size_t k = 0; k < Count; ++k) {
        stages[k].x[0] = x0[k];
        stages[k].x[1] = x1[k];
        stages[k].y[0] = y0[k];
        stages[k].y[1] = y1[k];
    }
}

void runByPairs(const CascadeStage *stages, std::size_t stageCount, float *samples, std::size_t count)
{
    for (; stageCount >= 2; stageCount -= 2, stages += 2) {
        runStages<2>(stages, samples, count);
    }
    if (stageCount != 0) {
        runStages<1>(stages, samples, count);
    }
}

/// Up to eight stages as lanes, each one tile of samples behind the stage before it, so that all recursions overlap.
class SkewedLanes
{
public:
    SkewedLanes(const CascadeStage *stages, std::size_t stageCount, float *samples, std::size_t count)
        : m_stages(stages)
        , m_stageCount(stageCount)
        , m_samples(samples)
        , m_count(count)
    {
        for (std::size_t k = 0; k < stageCount; ++k) {
            m_section.setLane(k, stages[k]);
        }
    }

    void run()
    {
        const std::size_t tiles = (m_count + kTileRows - 1) / kTileRows;
        const std::size_t lastRows = m_count - (tiles - 1) * kTileRows;
        float *in = m_rows[0];
        float *out = m_rows[1];
        for (std::size_t step = 0; step < tiles + m_stageCount - 1; ++step) {
            if (step < tiles) {
                feed(in, step * kTileRows, step + 1 == tiles ? lastRows : kTileRows);
            }
            if (step < m_stageCount) {
                enter(step, in);
            }
            if (step + 1 < tiles) {
                m_section.run(in, shifted(out, 0), kTileRows);
            } else {
                // The lane on its last tile leaves after that tile's rows, the lanes behind it go on.
                m_section.run(in, shifted(out, 0), lastRows);
                leave(step + 1 - tiles, in + lastRows * kLanes);
                m_section.run(in + lastRows * kLanes, shifted(out, lastRows), kTileRows - lastRows);
            }
            if (step + 1 >= m_stageCount) {
                const std::size_t tile = step + 1 - m_stageCount;
                collect(out, tile * kTileRows, tile + 1 == tiles ? lastRows : kTileRows);
            }
            std::copy_n(in + kTileRows * kLanes, 2 * kLanes, out);
            std::swap(in, out);
        }
    }

private:
    /// Rows are written one lane further on: what leaves a stage is what enters the next one with the next tile. The
    /// row's last lane falls on lane 0 of the row behind, which feed() overwrites.
    static float *shifted(float *rows, std::size_t row) { return rows + (2 + row) * kLanes + 1; }

    void feed(float *in, std::size_t first, std::size_t rows) const
    {
        for (std::size_t i = 0; i < rows; ++i) {
            in[(2 + i) * kLanes] = m_samples[first + i];
        }
    }

    void collect(const float *out, std::size_t first, std::size_t rows) const
    {
        for (std::size_t i = 0; i < rows; ++i) {
            m_samples[first + i] = out[(2 + i) * kLanes + m_stageCount];
        }
    }

    void enter(std::size_t lane, float *in)
    {
        in[lane] = m_stages[lane].x[1];
        in[kLanes + lane] = m_stages[lane].x[0];
        m_section.loadOutputs(lane, m_stages[lane]);
    }

    /// @param lastRows  the last two rows that the lane took in
    void leave(std::size_t lane, const float *lastRows) const
    {
        m_stages[lane].x[0] = lastRows[kLanes + lane];
        m_stages[lane].x[1] = lastRows[lane];
        m_section.storeOutputs(lane, m_stages[lane]);
    }

    const CascadeStage *m_stages;
    std::size_t m_stageCount;
    float *m_samples;
    std::size_t m_count;
    LaneSection m_section;
    float m_rows[2][(2 + kTileRows) * kLanes + 1] = {};
};

} // namespace

void runCascade(const CascadeStage *stages, std::size_t stageCount, float *samples, std::size_t count)
{
    if (count < kShortBlock) {
        runByPairs(stages, stageCount, samples, count);
        return;
    }
    while (stageCount > 2) {
        const std::size_t lanes = std::min(stageCount, kLanes);
        SkewedLanes(stages, lanes, samples, count).run();
        stages += lanes;
        stageCount -= lanes;
    }
    runByPairs(stages, stageCount, samples, count);
}

} // namespace bp
