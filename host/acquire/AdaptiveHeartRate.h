#pragma once

#include "algorithms/ElectroCardiogram.h"

#include <cstdint>
#include <vector>

/// Heart rate whose least amplitude is chosen from the channel: "ampMin" of its parameter set is left unset.
///
/// The first seconds are collected, the size of the beats in them is measured, and then they are searched as if they
/// came only now: results of the beginning come late, and none is lost. When no beat comes for some seconds (an
/// electrode was off, or the amplitude has changed) the size is measured anew. A set that has an "ampMin" is an
/// ElectroCardiogram as it stands.
class AdaptiveHeartRate : public ElectroCardiogram
{
public:
    AdaptiveHeartRate(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info);

    void resetAlgorithm() override;
    void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) override;

    /// The "ampMin" that suits a piece of a channel: a part of what its beats rise and fall, and not below the set's
    /// own default.
    /// @param samples  some seconds, µV, R peaks negative
    /// @param params   of the heart rate, for its filters
    /// @param rate     Hz
    /// @param sizes    searched windows, as the algorithm has them
    static double leastAmplitude(std::vector<float> samples, const UnitParams &params, float rate, const Sizes &sizes);

private:
    void learn();
    void search(const std::vector<float> &samples);
    void startAnew();
    int channel() const;

    bool m_isAdaptive;
    bool m_isLearning = true;
    std::vector<float> m_learned; ///< samples of the channel, while it is learning
    std::vector<float> m_planar; ///< a block of all channels, for the search in what was collected
    std::int64_t m_sinceBeat = 0; ///< samples
};
