#include "filters/engine/LaneSection.h"

namespace bp {

namespace {

constexpr std::size_t kLanes = LaneSection::kLanes;

/// Eight floats as a value: the loops of the operators unroll into two or more vector instructions.
struct alignas(16) Row
{
    float v[kLanes];

    static Row load(const float *from)
    {
        Row row;
        for (std::size_t l = 0; l < kLanes; ++l) {
            row.v[l] = from[l];
        }
        return row;
    }
    void store(float *to) const
    {
        for (std::size_t l = 0; l < kLanes; ++l) {
            to[l] = v[l];
        }
    }
};

inline Row operator*(const Row &a, const Row &b)
{
    Row row;
    for (std::size_t l = 0; l < kLanes; ++l) {
        row.v[l] = a.v[l] * b.v[l];
    }
    return row;
}

inline Row operator+(const Row &a, const Row &b)
{
    Row row;
    for (std::size_t l = 0; l < kLanes; ++l) {
        row.v[l] = a.v[l] + b.v[l];
    }
    return row;
}

inline Row operator-(const Row &a, const Row &b)
{
    Row row;
    for (std::size_t l = 0; l < kLanes; ++l) {
        row.v[l] = a.v[l] - b.v[l];
    }
    return row;
}

/// The part of a step that looks at inputs only; x is two rows back.
inline Row forward(const Row &b0, const Row &b1, const Row &b2, const float *x)
{
    Row acc = b0 * Row::load(x + 2 * kLanes);
    acc = acc + b1 * Row::load(x + kLanes);
    return acc + b2 * Row::load(x);
}

template <bool Scaled> inline void leave(const Row &row, const Row &gain, float *to)
{
    if constexpr (Scaled) {
        (row * gain).store(to);
    } else {
        row.store(to);
    }
}

} // namespace

void LaneSection::setLane(std::size_t lane, const CascadeStage &stage)
{
    b0[lane] = stage.b[0];
    b1[lane] = stage.b[1];
    b2[lane] = stage.b[2];
    a1[lane] = stage.a[1];
    a2[lane] = stage.a[2];
    // Times 1 changes no sample, so lanes with and without a gain run together.
    gain[lane] = stage.scaled ? stage.gain : 1.0f;
    scaled = scaled || stage.scaled;
}

void LaneSection::loadOutputs(std::size_t lane, const CascadeStage &stage)
{
    y0[lane] = stage.y[0];
    y1[lane] = stage.y[1];
}

void LaneSection::storeOutputs(std::size_t lane, const CascadeStage &stage) const
{
    stage.y[0] = y0[lane];
    stage.y[1] = y1[lane];
}

void LaneSection::run(const float *in, float *out, std::size_t rows)
{
    if (scaled) {
        runRows<true>(in, out, rows);
    } else {
        runRows<false>(in, out, rows);
    }
}

// Two rows per turn: the outputs swap places as history, which saves moving them.
template <bool Scaled> void LaneSection::runRows(const float *in, float *out, std::size_t rows)
{
    const Row rb0 = Row::load(b0.data());
    const Row rb1 = Row::load(b1.data());
    const Row rb2 = Row::load(b2.data());
    const Row ra1 = Row::load(a1.data());
    const Row ra2 = Row::load(a2.data());
    const Row rgain = Row::load(gain.data());
    Row last = Row::load(y0.data());
    Row beforeLast = Row::load(y1.data());
    for (; rows >= 2; rows -= 2, in += 2 * kLanes, out += 2 * kLanes) {
        Row first = forward(rb0, rb1, rb2, in);
        first = first - ra1 * last;
        first = first - ra2 * beforeLast;
        leave<Scaled>(first, rgain, out);
        Row second = forward(rb0, rb1, rb2, in + kLanes);
        second = second - ra1 * first;
        second = second - ra2 * last;
        leave<Scaled>(second, rgain, out + kLanes);
        beforeLast = first;
        last = second;
    }
    if (rows != 0) {
        Row single = forward(rb0, rb1, rb2, in);
        single = single - ra1 * last;
        single = single - ra2 * beforeLast;
        leave<Scaled>(single, rgain, out);
        beforeLast = last;
        last = single;
    }
    last.store(y0.data());
    beforeLast.store(y1.data());
}

} // namespace bp
