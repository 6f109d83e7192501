#pragma once

#include "filters/AbstractFilter.h"

#include <memory>
#include <vector>

class IIRFilter;

/// Butterworth filter: bilinear transform of the analogue prototype, run as a cascade of second-order sections.
///
/// The design is computed in doubles at construction and stored as floats. High-pass sections are the low-pass ones
/// re-mapped by an all-pass substitution (A. G. Constantinides, "Spectral transformations for digital filters", 1970).
class BIOPROCESSING_EXPORT ButterworthFilter : public AbstractFilter
{
    Q_OBJECT
public:
    static constexpr int kMaxOrder = 20;

    /// @param order       rounded up to even, at most kMaxOrder; below 1 the output is the input
    /// @param sampleRate  Hz
    /// @param f1,f2       Hz, below half the rate. Low-pass uses f1, high-pass f2. Band-pass is a high-pass at f1
    ///                    followed by a low-pass at f2. Band-stop is a low-pass at f1 followed by a high-pass at f2:
    ///                    with f1 below f2 almost nothing passes. Compatibility: results in the field depend on it.
    ButterworthFilter(FilterTypeEnum type, int order, float sampleRate, float f1, float f2, QObject *parent = nullptr);
    ~ButterworthFilter() override;

    /// Whether the design of a low-pass or high-pass is stable and settles in about the time of the textbook's design.
    ///
    /// A high-pass of order 4 or more is not stable with a cut-off between about 1/6 and 1/3 of the rate, where its
    /// poles leave the unit circle.
    /// @param cutOff  Hz, between 0 and half the rate
    static bool isStable(FilterTypeEnum type, int order, float sampleRate, float cutOff);
    /// Makes a low-pass or high-pass of this design where it is stable. Otherwise the textbook's design: the same
    /// analogue poles through the bilinear transform, −3 dB at the cut-off.
    static std::unique_ptr<ButterworthFilter> makeStable(FilterTypeEnum type, int order, float sampleRate,
                                                         float cutOff);

    /// Designs one cascade.
    /// @param sections  out: one row b0 b1 b2 a0 a1 a2 per section, b0 and a0 being 1
    /// @param gain      out: factor for the whole cascade
    /// @param highPass  0 low-pass, 1 high-pass
    /// @param cutOff    Hz; cutOff2 is not used
    static void Butter(std::vector<std::vector<float>> &sections, float &gain, int highPass, int order, float cutOff,
                       float cutOff2, float sampleRate);

    void Reset() override;

protected:
    float InternalProcess(float sample) override;

public:
    bool appendStages(std::vector<bp::CascadeStage> &stages) override;

protected:
    void processBlock(float *samples, std::size_t count) override;

private:
    ButterworthFilter(FilterTypeEnum type, std::unique_ptr<IIRFilter> stage);

    /// Re-maps second-order low-pass sections in place and scales each to a0 = 1.
    /// @param mode  0 to low-pass, 1 to high-pass, 2 to band-pass, 3 to band-stop
    /// @param wp    cut-off of the given sections, as a fraction of the rate
    /// @param wt,w2 cut-offs of the result, likewise; modes 0 and 1 ignore w2
    /// @return coefficients per row, 3 or 5; −1 for any other mode
    static int FilterTransform(std::vector<std::vector<double>> &b, std::vector<std::vector<double>> &a, int mode,
                               double wp, double wt, double w2);
    static int FilterTransform(double (*b)[5], double (*a)[5], int count, int mode, double wp, double wt, double w2);

    int m_kind;
    std::unique_ptr<IIRFilter> m_highPass; ///< the second slot, null when not built
    std::unique_ptr<IIRFilter> m_lowPass; ///< the first slot, null when not built
};
