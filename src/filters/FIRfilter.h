#pragma once

#include "filters/AbstractFilter.h"

#include <vector>

/// Windowed-sinc filter with order + 1 taps and a symmetric impulse response.
class BIOPROCESSING_EXPORT FIRfilter : public AbstractFilter
{
    Q_OBJECT
public:
    /// Any other value leaves every tap at zero, so the output is zeros.
    enum WindowTypeEnum : int { BlackmanWindow = 0 };
    Q_ENUM(WindowTypeEnum)

    /// @param sampleRate  Hz
    /// @param f1,f2       Hz. Low-pass uses f1, high-pass f2, the others both; another type designs nothing.
    FIRfilter(FilterTypeEnum type, WindowTypeEnum window, int order, float sampleRate, float f1, float f2,
              QObject *parent = nullptr);

    /// Compatibility: only sets the history's length and keeps its samples, unlike Reset() of the recursive filters. A
    /// cleared history would change the samples that follow.
    void Reset() override;

protected:
    float InternalProcess(float sample) override;
    void processBlock(float *samples, std::size_t count) override;

    /// Fills the ideal, unwindowed taps.
    void calcCoefs(FilterTypeEnum type, int order, float f1, float f2, float sampleRate);

private:
    void applyBlackmanWindow();

    std::vector<float> m_windowed;
    std::vector<float> m_ideal;
    std::vector<float> m_history; ///< oldest first
    std::vector<float> m_line; ///< the history followed by one tile of a block, for processBlock
};
