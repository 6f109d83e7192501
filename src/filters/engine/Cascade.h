#pragma once

#include "filters/engine/CascadeStage.h"

#include <cstddef>

namespace bp {

/// One sample through one stage.
inline float step(const CascadeStage &stage, float sample)
{
    float acc = stage.b[0] * sample;
    acc += stage.b[1] * stage.x[0];
    acc += stage.b[2] * stage.x[1];
    acc -= stage.a[1] * stage.y[0];
    acc -= stage.a[2] * stage.y[1];
    stage.x[1] = stage.x[0];
    stage.x[0] = sample;
    stage.y[1] = stage.y[0];
    stage.y[0] = acc;
    return stage.scaled ? acc * stage.gain : acc;
}

/// Runs count samples of one channel through the stages, in place. The samples are, bit for bit, those of step()
/// through all stages, sample by sample. No two stages share a history. Allocates nothing.
void runCascade(const CascadeStage *stages, std::size_t stageCount, float *samples, std::size_t count);

} // namespace bp
