#pragma once

#include "filters/AbstractFilter.h"

#include <memory>
#include <vector>

class IIRFilter;

/// Second-order resonator that removes (band-stop) or keeps (band-pass) a narrow band; its filter type is BandStop
/// either way.
///
/// Single-pole-pair design after S. W. Smith, "The Scientist and Engineer's Guide to Digital Signal Processing",
/// ch. 19.
class BIOPROCESSING_EXPORT NotchFilter : public AbstractFilter
{
    Q_OBJECT
public:
    /// @param type       BandStop or BandPass; any other type gives zeros
    /// @param bandwidth  Hz; its sign is ignored
    NotchFilter(FilterTypeEnum type, float sampleRate, float centre, float bandwidth, QObject *parent = nullptr);
    ~NotchFilter() override;

    void Reset() override;

protected:
    float InternalProcess(float sample) override;

public:
    bool appendStages(std::vector<bp::CascadeStage> &stages) override;

protected:
    void processBlock(float *samples, std::size_t count) override;

    /// Writes three coefficients into each vector; another type leaves three zeros.
    static void Calculate(std::vector<float> &numerator, std::vector<float> &denominator, FilterTypeEnum type,
                          float sampleRate, float centre, float bandwidth);

private:
    std::unique_ptr<IIRFilter> m_filter;
};
