#include "pipeline/reader/MontageMix.h"

#include <algorithm>

namespace bp {

namespace {

/// out[k] = value(k) · scale; the four shapes of a montage channel differ in the value only.
template <class Value> void fill(float *out, unsigned samples, float scale, Value value)
{
    for (unsigned k = 0; k < samples; ++k) {
        out[k] = value(k) * scale;
    }
}

void mixDifference(const RawBlock &raw, unsigned active, unsigned reference, float scale, float *out)
{
    const float *a = active != 0 ? raw.channel(active) : nullptr;
    const float *r = reference != 0 ? raw.channel(reference) : nullptr;
    if (a != nullptr && r != nullptr) {
        fill(out, raw.samples, scale, [a, r](unsigned k) { return a[k] - r[k]; });
    } else if (a != nullptr) {
        fill(out, raw.samples, scale, [a](unsigned k) { return a[k]; });
    } else if (r != nullptr) {
        fill(out, raw.samples, scale, [r](unsigned k) { return -r[k]; });
    } else {
        fill(out, raw.samples, scale, [](unsigned) { return 0.0f; });
    }
}

const float *activeOrFirst(const RawBlock &raw, unsigned active)
{
    return raw.channel(active != 0 ? active : 1);
}

} // namespace

void mixUsual(const RawBlock &raw, const MontageTable &table, float *out)
{
    for (unsigned i = 0; i < table.size(); ++i, out += raw.samples) {
        mixDifference(raw, table.group1[i], table.group2[i], table.scale[i], out);
    }
}

void mixBipolar(const RawBlock &raw, const MontageTable &table, unsigned left, unsigned right, float *out)
{
    const float *l = raw.channel(left != 0 ? left : 1);
    const float *r = raw.channel(left != 0 && right != 0 ? right : 1);
    for (unsigned i = 0; i < table.size(); ++i, out += raw.samples) {
        const float *a = activeOrFirst(raw, table.group1[i]);
        const float scale = table.scale[i];
        const unsigned referent = table.group2[i];
        if (referent == 0) {
            fill(out, raw.samples, scale, [a](unsigned k) { return a[k]; });
        } else if (referent == 1 && left != 0) {
            fill(out, raw.samples, scale, [a, l](unsigned k) { return a[k] - l[k]; });
        } else if (referent == 2 && right != 0) {
            fill(out, raw.samples, scale, [a, r](unsigned k) { return a[k] - r[k]; });
        } else if (referent == 3 && right != 0) {
            fill(out, raw.samples, scale, [a, l, r](unsigned k) { return a[k] - (r[k] + l[k]) * 0.5f; });
        }
    }
}

void averageReference(const RawBlock &raw, const MontageTable &table, float *average)
{
    std::fill_n(average, raw.samples, 0.0f);
    for (const unsigned number : table.averaged) {
        const float *a = raw.channel(number);
        for (unsigned k = 0; k < raw.samples; ++k) {
            average[k] += a[k];
        }
    }
    const float divisor = static_cast<float>(table.averaged.size());
    for (unsigned k = 0; k < raw.samples; ++k) {
        average[k] /= divisor;
    }
}

void mixAverage(const RawBlock &raw, const MontageTable &table, const float *average, float *out)
{
    for (unsigned i = 0; i < table.size(); ++i, out += raw.samples) {
        const unsigned reference = table.group2[i];
        if (reference == 0) {
            const float *a = activeOrFirst(raw, table.group1[i]);
            fill(out, raw.samples, table.scale[i], [a, average](unsigned k) { return a[k] - average[k]; });
        } else {
            mixDifference(raw, table.group1[i], reference > 2 ? reference - 2 : 0, table.scale[i], out);
        }
    }
}

} // namespace bp
