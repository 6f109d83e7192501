#include "filters/NotchFilter.h"

#include "filters/IIRFilter.h"
#include "filters/engine/CascadeStage.h"

#include <cmath>
#include <typeinfo>

namespace {
constexpr double kPi = 3.141592653589793;
}

NotchFilter::NotchFilter(FilterTypeEnum type, float sampleRate, float centre, float bandwidth, QObject *parent)
    : AbstractFilter(BandStop, RecursiveResponse, QStringLiteral("NotchFilter"), parent)
{
    std::vector<float> numerator;
    std::vector<float> denominator;
    Calculate(numerator, denominator, type, sampleRate, centre, bandwidth);
    m_filter = std::make_unique<IIRFilter>(std::move(numerator), std::move(denominator));
}

NotchFilter::~NotchFilter() = default;

void NotchFilter::Calculate(std::vector<float> &numerator, std::vector<float> &denominator, FilterTypeEnum type,
                            float sampleRate, float centre, float bandwidth)
{
    numerator.assign(3, 0.0f);
    denominator.assign(3, 0.0f);
    if (type != BandStop && type != BandPass) {
        return;
    }
    const double rate = static_cast<double>(sampleRate);
    const double r = 1.0 - 3.0 * std::fabs(static_cast<double>(bandwidth)) / rate;
    const double cosine = std::cos(2.0 * kPi * static_cast<double>(centre) / rate);
    const double k = (1.0 - 2.0 * r * cosine + r * r) / (2.0 - 2.0 * cosine);
    const auto row = [](double c0, double c1, double c2) {
        return std::vector<float>{static_cast<float>(c0), static_cast<float>(c1), static_cast<float>(c2)};
    };
    numerator = type == BandStop ? row(k, -2.0 * k * cosine, k) : row(1.0 - k, 2.0 * (k - r) * cosine, r * r - k);
    denominator = row(1.0, -2.0 * r * cosine, r * r);
}

void NotchFilter::Reset()
{
    m_filter->Reset();
}

float NotchFilter::InternalProcess(float sample)
{
    return m_filter->InternalProcess(sample);
}

bool NotchFilter::appendStages(std::vector<bp::CascadeStage> &stages)
{
    if (typeid(*this) != typeid(NotchFilter)) {
        return false;
    }
    return m_filter->appendStages(stages);
}

void NotchFilter::processBlock(float *samples, std::size_t count)
{
    if (typeid(*this) != typeid(NotchFilter)) {
        AbstractFilter::processBlock(samples, count);
        return;
    }
    m_filter->processBlock(samples, count);
}
