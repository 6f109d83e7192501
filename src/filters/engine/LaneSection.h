#pragma once

#include "filters/engine/CascadeStage.h"

#include <array>
#include <cstddef>

namespace bp {

/// Eight second-order sections side by side, each with coefficients and a history of its own.
///
/// A row is one sample of every lane, eight floats. A lane that was not set gives zeros. The inner loops have constant
/// trip counts over plain floats, for the compiler to turn into vector instructions.
struct LaneSection
{
    static constexpr std::size_t kLanes = 8;
    using Lanes = std::array<float, kLanes>;

    /// Takes the coefficients over, not the history.
    void setLane(std::size_t lane, const CascadeStage &stage);
    void loadOutputs(std::size_t lane, const CascadeStage &stage);
    void storeOutputs(std::size_t lane, const CascadeStage &stage) const;

    /// One step per row, in the order of operations of CascadeStage.
    /// @param in   the two rows before the first, then the rows
    /// @param out  the rows that leave; must not overlap in
    void run(const float *in, float *out, std::size_t rows);

    Lanes b0{}, b1{}, b2{}, a1{}, a2{};
    Lanes gain{};
    Lanes x0{}, x1{}; ///< kept for the owner between two runs; run() finds the inputs in its rows
    Lanes y0{}, y1{}; ///< last outputs before the gain, newest first
    bool scaled = false; ///< some lane has a gain

private:
    template <bool Scaled> void runRows(const float *in, float *out, std::size_t rows);
};

} // namespace bp
