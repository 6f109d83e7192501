#include "filters/Filtrator.h"

#include "common/BPCommon.h"
#include "filters/ButterworthFilter.h"
#include "filters/NotchFilter.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr float kNarrowBandHz = 1.0f;

/// The input at position t (in samples), seen through a sinc under a Hann window of 2 · halfWidth samples.
float interpolate(const std::vector<float> &in, double t, int halfWidth)
{
    double acc = 0.0;
    for (int j = -halfWidth; j < halfWidth; ++j) {
        const double at = std::round(j + t);
        if (at < 0.0 || at >= static_cast<double>(in.size())) {
            continue;
        }
        const double distance = at - t;
        const double window = 0.5 - 0.5 * std::cos(2.0 * kPi * (distance / (2.0 * halfWidth) + 0.5));
        const double x = kPi * distance;
        const double sinc = std::fabs(x) < 1e-14 ? 1.0 : std::sin(x) / x;
        acc += window * sinc * static_cast<double>(in[static_cast<std::size_t>(at)]);
    }
    return static_cast<float>(acc);
}

std::vector<float> resampled(const std::vector<float> &in, int rate, int inputRate, int halfWidth)
{
    const qint64 length = static_cast<qint64>(in.size()) * rate / inputRate;
    std::vector<float> out;
    if (length < 1) {
        return out;
    }
    out.reserve(static_cast<std::size_t>(length));
    const double step = static_cast<double>(in.size()) / static_cast<double>(length);
    double t = 0.0;
    for (qint64 i = 0; i < length; ++i) {
        out.push_back(interpolate(in, t, halfWidth));
        t += step;
    }
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
