#include "filters/engine/Cascade.h"

namespace bp {

namespace {

/// One stage, or two whose arithmetic overlaps; their coefficients and histories stay in registers.
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

} // namespace

void runCascade(const CascadeStage *stages, std::size_t stageCount, float *samples, std::size_t count)
{
    for (; stageCount >= 2; stageCount -= 2, stages += 2) {
        runStages<2>(stages, samples, count);
    }
    if (stageCount != 0) {
        runStages<1>(stages, samples, count);
    }
}

} // namespace bp
