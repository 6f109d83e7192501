#include "filters/Filtrator.h"

#include "common/BPCommon.h"
#include "filters/ButterworthFilter.h"
#include "filters/NotchFilter.h"
#include "filters/engine/SincResampler.h"

#include <algorithm>

namespace {

constexpr float kNarrowBandHz = 1.0f;

std::vector<float> resampled(const std::vector<float> &in, int rate, int inputRate, int halfWidth)
{
    const qint64 length = static_cast<qint64>(in.size()) * rate / inputRate;
    std::vector<float> out(static_cast<std::size_t>(std::max<qint64>(0, length)));
    bp::resampleToLength(in.data(), in.size(), out.data(), out.size(), halfWidth);
    return out;
}

} // namespace

Filtrator::Filtrator(int sampleRate, QObject *parent)
    : QObject(parent)
    , m_sampleRate(sampleRate)
{
}

Filtrator::~Filtrator() = default;

void Filtrator::setFilters(int order, int lowPass, int highPass, int notch, int bandPass)
{
    m_filters.clear();
    const float rate = static_cast<float>(m_sampleRate);
    const auto appendButterworth = [&](AbstractFilter::FilterTypeEnum type, int hertz) {
        if (hertz > 0) {
            const float edge = static_cast<float>(hertz);
            m_filters.push_back(std::make_unique<ButterworthFilter>(type, order, rate, edge, edge));
        }
    };
    const auto appendNarrow = [&](AbstractFilter::FilterTypeEnum type, int hertz) {
        if (hertz > 0) {
            const float centre = static_cast<float>(hertz);
            m_filters.push_back(std::make_unique<NotchFilter>(type, rate, centre, kNarrowBandHz));
        }
    };
    appendButterworth(AbstractFilter::LowPass, lowPass);
    appendButterworth(AbstractFilter::HighPass, highPass);
    appendNarrow(AbstractFilter::BandPass, bandPass);
    appendNarrow(AbstractFilter::BandStop, notch);
}

void Filtrator::doFiltrate(const Block &in, Block &out)
{
    if (&in != &out) {
        out = in;
    }
    for (const auto &filter : m_filters) {
        for (std::vector<float> &channel : out) {
            filter->Process(channel);
        }
    }
}

void Filtrator::resample(const Block &in, Block &out, int inputRate, int halfWidth) const
{
    if (inputRate < 1) {
        BPCommon::log(BPCommon::LogGeneral, "Filtrator::resample from %i Hz", inputRate);
    }
    out.resize(in.size());
    for (std::size_t c = 0; c < in.size(); ++c) {
        out[c] = inputRate < 1 ? std::vector<float>() : resampled(in[c], m_sampleRate, inputRate, halfWidth);
    }
}
