#pragma once

#include "filters/AbstractFilter.h"

#include <memory>
#include <vector>

/// Recursive filter in direct form I, or a cascade of such filters followed by a gain.
class BIOPROCESSING_EXPORT IIRFilter : public AbstractFilter
{
    Q_OBJECT
public:
    /// Direct filter. Every coefficient is divided by the first one of the denominator. An empty numerator gives zeros;
    /// an empty denominator, or one that begins with 0 (logged), is used without the division.
    IIRFilter(std::vector<float> numerator, std::vector<float> denominator, QObject *parent = nullptr);
    /// Cascade: one direct filter per section, in order; the last one's output is multiplied by the gain.
    /// @param sections  each holds its numerator in the first half and its denominator in the second
    IIRFilter(const std::vector<std::vector<float>> &sections, float gain, QObject *parent = nullptr);
    ~IIRFilter() override;

    void Reset() override;

protected:
    float InternalProcess(float sample) override;

public:
    bool appendStages(std::vector<bp::CascadeStage> &stages) override;

protected:
    void processBlock(float *samples, std::size_t count) override;

private:
    // They run the filters they hold.
    friend class ButterworthFilter;
    friend class NotchFilter;

    float processDirect(float sample);

    float m_gain = 1.0f;
    std::vector<float> m_b;
    std::vector<float> m_a;
    std::vector<float> m_x; ///< newest first
    std::vector<float> m_y; ///< newest first
    std::vector<std::unique_ptr<IIRFilter>> m_sections;
    std::vector<bp::CascadeStage> m_stages; ///< empty when not every section is of second order
    bool m_direct;
};
