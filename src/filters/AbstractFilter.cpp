#include "filters/AbstractFilter.h"

#include "filters/engine/CascadeStage.h"

#include <algorithm>

AbstractFilter::AbstractFilter(FilterTypeEnum type, ImpulseResponseEnum response, const QString &name, QObject *parent)
    : QObject(parent)
    , m_type(type)
    , m_response(response)
    , m_name(name)
{
}

void AbstractFilter::Process(const float *in, float *out, int count)
{
    if (count > 0 && in != out) {
        std::copy_n(in, count, out);
    }
    Process(out, count);
}

void AbstractFilter::Process(float *data, int count)
{
    if (count > 0) {
        processBlock(data, static_cast<std::size_t>(count));
    }
}

void AbstractFilter::Process(float *data, int first, int count)
{
    Process(data + first, count);
}

void AbstractFilter::Process(const std::vector<float> &in, std::vector<float> &out, int count)
{
    const std::size_t length = count < 0 ? in.size() : static_cast<std::size_t>(count);
    if (&in != &out) {
        out.assign(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(std::min(length, in.size())));
    }
    out.resize(length);
    processBlock(out.data(), length);
}

void AbstractFilter::Process(std::vector<float> &data, int count)
{
    const std::size_t length = count < 0 ? data.size() : std::min(static_cast<std::size_t>(count), data.size());
    processBlock(data.data(), length);
}

bool AbstractFilter::appendStages(std::vector<bp::CascadeStage> &stages)
{
    Q_UNUSED(stages)
    return false;
}

void AbstractFilter::processBlock(float *samples, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        samples[i] = InternalProcess(samples[i]);
    }
}
