#include "filters/engine/LaneSection.h"

namespace bp {

void LaneSection::setLane(std::size_t lane, const CascadeStage &stage)
{
    const auto i = static_cast<Eigen::Index>(lane);
    m_b0[i] = stage.b[0];
    m_b1[i] = stage.b[1];
    m_b2[i] = stage.b[2];
    m_a1[i] = stage.a[1];
    m_a2[i] = stage.a[2];
    // Times 1 changes no sample, so lanes with and without a gain run together.
    m_gain[i] = stage.scaled ? stage.gain : 1.0f;
    m_scaled = m_scaled || stage.scaled;
}

void LaneSection::loadHistory(std::size_t lane, const CascadeStage &stage)
{
    const auto i = static_cast<Eigen::Index>(lane);
    m_x0[i] = stage.x[0];
    m_x1[i] = stage.x[1];
    m_y0[i] = stage.y[0];
    m_y1[i] = stage.y[1];
}

void LaneSection::storeHistory(std::size_t lane, const CascadeStage &stage) const
{
    const auto i = static_cast<Eigen::Index>(lane);
    stage.x[0] = m_x0[i];
    stage.x[1] = m_x1[i];
    stage.y[0] = m_y0[i];
    stage.y[1] = m_y1[i];
}

void LaneSection::run(float *rows, std::size_t count)
{
    if (m_scaled) {
        runRows<true>(rows, count);
    } else {
        runRows<false>(rows, count);
    }
}

template <bool Scaled> void LaneSection::runRows(float *rows, std::size_t count)
{
    LaneSection s = *this; // a local copy, which compilers keep in registers
    for (std::size_t i = 0; i < count; ++i, rows += kLanes) {
        Eigen::Map<Lanes> row(rows);
        const Lanes in = row;
        Lanes acc = s.m_b0 * in;
        acc += s.m_b1 * s.m_x0;
        acc += s.m_b2 * s.m_x1;
        acc -= s.m_a1 * s.m_y0;
        acc -= s.m_a2 * s.m_y1;
        s.m_x1 = s.m_x0;
        s.m_x0 = in;
        s.m_y1 = s.m_y0;
        s.m_y0 = acc;
        if constexpr (Scaled) {
            row = acc * s.m_gain;
        } else {
            row = acc;
        }
    }
    *this = s;
}

} // namespace bp
