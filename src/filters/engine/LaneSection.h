#pragma once

#include "filters/engine/CascadeStage.h"

#include <Eigen/Core>

#include <cstddef>

namespace bp {

/// Eight second-order sections side by side, each with its own coefficients and history.
///
/// A row is one sample of every lane, eight floats. A lane that was not set gives zeros.
class LaneSection
{
public:
    static constexpr std::size_t kLanes = 8;

    /// Copies the coefficients, not the history.
    void setLane(std::size_t lane, const CascadeStage &stage);
    void loadHistory(std::size_t lane, const CascadeStage &stage);
    void storeHistory(std::size_t lane, const CascadeStage &stage) const;

    /// Filters the rows in place, each with one step in the order of operations of CascadeStage.
    void run(float *rows, std::size_t count);

private:
    using Lanes = Eigen::Array<float, kLanes, 1>;

    template <bool Scaled> void runRows(float *rows, std::size_t count);

    static Lanes zeros() { return Lanes::Zero(); }

    Lanes m_b0 = zeros(), m_b1 = zeros(), m_b2 = zeros(), m_a1 = zeros(), m_a2 = zeros();
    Lanes m_gain = zeros();
    Lanes m_x0 = zeros(), m_x1 = zeros(); ///< last inputs, newest first
    Lanes m_y0 = zeros(), m_y1 = zeros(); ///< last outputs before the gain, newest first
    bool m_scaled = false; ///< at least one lane has a gain
};

} // namespace bp
