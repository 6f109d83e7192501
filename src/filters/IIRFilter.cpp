#include "filters/IIRFilter.h"

#include "common/BPCommon.h"
#include "filters/engine/Cascade.h"
#include "filters/engine/CascadeStage.h"

#include <algorithm>
#include <typeinfo>
#include <utility>

namespace {

/// A type outside the named kinds: the coefficients alone say what the filter does.
constexpr auto kGeneralType = static_cast<AbstractFilter::FilterTypeEnum>(4);

void pushFront(std::vector<float> &history, float sample)
{
    if (!history.empty()) {
        std::copy_backward(history.begin(), history.end() - 1, history.end());
        history.front() = sample;
    }
}

} // namespace

IIRFilter::IIRFilter(std::vector<float> numerator, std::vector<float> denominator, QObject *parent)
    : AbstractFilter(kGeneralType, RecursiveResponse, QStringLiteral("IIRFilter"), parent)
    , m_b(std::move(numerator))
    , m_a(std::move(denominator))
    , m_x(m_b.size())
    , m_y(m_a.size())
    , m_direct(true)
{
    if (m_a.empty() || m_a.front() == 0.0f) {
        BPCommon::log(BPCommon::LogGeneral,
                      "IIRFilter::IIRFilter the denominator of %i does not begin with a number "
                      "to divide by",
                      m_a.size());
    } else {
        const float a0 = m_a.front();
        std::for_each(m_b.begin(), m_b.end(), [a0](float &b) { b /= a0; });
        std::for_each(m_a.begin(), m_a.end(), [a0](float &a) { a /= a0; });
    }
    if (m_b.size() == 3 && m_a.size() == 3) {
        m_stages.push_back({m_b.data(), m_a.data(), m_x.data(), m_y.data()});
    }
}

IIRFilter::IIRFilter(const std::vector<std::vector<float>> &sections, float gain, QObject *parent)
    : AbstractFilter(kGeneralType, RecursiveResponse, QStringLiteral("IIRFilter"), parent)
    , m_gain(gain)
    , m_direct(false)
{
    for (const std::vector<float> &section : sections) {
        const auto middle = section.begin() + static_cast<std::ptrdiff_t>(section.size() / 2);
        m_sections.push_back(std::make_unique<IIRFilter>(std::vector<float>(section.begin(), middle),
                                                         std::vector<float>(middle, section.end())));
    }
    const bool secondOrder = std::all_of(m_sections.begin(), m_sections.end(),
                                         [this](const auto &section) { return section->appendStages(m_stages); });
    if (!secondOrder) {
        m_stages.clear();
    } else if (!m_stages.empty()) {
        m_stages.back().gain = m_gain;
        m_stages.back().scaled = true;
    }
}

IIRFilter::~IIRFilter() = default;

void IIRFilter::Reset()
{
    std::fill(m_x.begin(), m_x.end(), 0.0f);
    std::fill(m_y.begin(), m_y.end(), 0.0f);
    for (const auto &section : m_sections) {
        section->Reset();
    }
}

float IIRFilter::InternalProcess(float sample)
{
    if (!m_stages.empty()) {
        for (const bp::CascadeStage &stage : m_stages) {
            sample = bp::step(stage, sample);
        }
        return sample;
    }
    if (m_direct) {
        return processDirect(sample);
    }
    for (const auto &section : m_sections) {
        sample = section->InternalProcess(sample);
    }
    return sample * m_gain;
}

float IIRFilter::processDirect(float sample)
{
    pushFront(m_x, sample);
    float acc = m_b.empty() ? 0.0f : m_b[0] * m_x[0];
    for (std::size_t i = 1; i < m_b.size(); ++i) {
        acc += m_b[i] * m_x[i];
    }
    // a[i] meets the outputs before they are shifted, which is where they will stand after it.
    for (std::size_t i = 1; i < m_a.size(); ++i) {
        acc -= m_a[i] * m_y[i - 1];
    }
    pushFront(m_y, acc);
    return acc;
}

bool IIRFilter::appendStages(std::vector<bp::CascadeStage> &stages)
{
    if (typeid(*this) != typeid(IIRFilter)) {
        return false;
    }
    stages.insert(stages.end(), m_stages.begin(), m_stages.end());
    return !m_stages.empty();
}

void IIRFilter::processBlock(float *samples, std::size_t count)
{
    if (typeid(*this) != typeid(IIRFilter)) {
        AbstractFilter::processBlock(samples, count);
        return;
    }
    if (m_stages.empty()) {
        AbstractFilter::processBlock(samples, count);
    } else {
        bp::runCascade(m_stages.data(), m_stages.size(), samples, count);
    }
}
