#pragma once

#include "algorithms/CustomAlgorithm.h"

#include <cstdint>
#include <memory>
#include <vector>

class ButterworthFilter;
class NotchFilter;

/// Finds the R peaks in one channel of an electrocardiogram and publishes the heart rate at every accepted beat.
///
/// A beat is published with an empty type, the channel's index as the channel count and three values: beats per minute,
/// milliseconds since the beat before, and the peak's index among the samples of that channel since the start or
/// resetAlgorithm(), counted from 0 (as a float: exact up to 2^24 samples). It comes once the signal has gone on for
/// 25 ms and the delay of the filters. The first beat only starts the measurement.
///
/// The samples are inverted before the search, so that R peaks must be negative in the blocks, as they are in a played
/// recording whose file has them positive. Where they come positive, S waves are found instead, less surely; a montage
/// that inverts the channel helps.
///
/// The least rise and fall of a beat, 20 ms before and 25 ms after its peak, is "ampMin" · 70.7 µV. With the standard
/// 0.25 that is 18 µV, which P and T waves reach too; 2.5 suits R peaks of about 1 mV.
///
/// An interval that is too short or too long for the limits is not published, ends the search in its block and leaves
/// the peak before in place, to which the next one is compared. Once beats were missed for longer than the minimum
/// rate allows, every later interval is too long as well. Compatibility: nothing is published after such a gap; this is
/// logged, and resetAlgorithm() starts again.
class BIOPROCESSING_EXPORT ElectroCardiogram : public CustomAlgorithm
{
    Q_OBJECT
public:
    /// The sizes in samples that follow from the configuration.
    struct Sizes
    {
        int buffer = 0; ///< two intervals at the minimum rate, and one sample
        int before = 0; ///< searched window before a peak, 20 ms
        int after = 0; ///< and after it, 25 ms
        int search = 0; ///< where the peak is looked for in the unfiltered signal, 150 ms
    };
    /// Sliding buffers are not made longer than this.
    static constexpr int kMaxBufferSize = 1 << 22;

    ElectroCardiogram(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info);
    ~ElectroCardiogram() override;

    /// The algorithm has filters of its own, which the channel's must not precede. Only a bipolar montage gives it the
    /// filtered block, because the reader computes no other there.
    bool isNeedRawData() const override;
    /// Counts samples and beats from the start again.
    void resetAlgorithm() override;
    /// Compatibility: a block at least as long as the buffer fills it with its first samples, and a block that leaves
    /// fewer older samples than the searched window is not searched. Blocks of a reader are far shorter.
    void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) override;

    /// Takes effect at the present sample rate of the device. What is in the buffers is forgotten, and so is the last
    /// peak; samples are counted on.
    /// @param highPass,lowPass  Hz; 0 leaves the filter out, and so does a value from half the rate on, which is logged
    /// @param minBpm,maxBpm     limits of what is published; a value that is not above 0 is logged and stops the
    ///                          algorithm until the next configuration
    /// @param minAmplitude      of the parameter's value, 1/1000
    /// @param maxAmplitude      likewise; nothing uses it yet
    void setConfig(float highPass, float lowPass, float minBpm, float maxBpm, float minAmplitude, float maxAmplitude);
    const Sizes &sizes() const { return m_sizes; }

protected:
    /// Parameters that are as they were leave the measurement running.
    void updateAlgorithm() override;
    void fillPropertyList() override;

private:
    struct Config
    {
        float highPass = 0.0f;
        float lowPass = 0.0f;
        float minBpm = 0.0f;
        float maxBpm = 0.0f;
        float minAmplitude = 0.0f;
        float maxAmplitude = 0.0f;
        float rate = 0.0f; ///< Hz

        bool operator==(const Config &other) const;
    };
    /// False, and logged, when the configuration can't be used.
    bool calcParametrs();
    void createFilters();
    void removeFilters();
    bool isBelowHalfRate(const char *name, float frequency) const;
    bool takeChannel(unsigned int count, const std::vector<float> &data);
    void filterBlock();
    void clearBuffers();
    void makeElectroCardiogram(int count);
    bool isBeat(int position) const;
    float calcFrontAmpl(int position) const;
    float calcRearAmpl(int position) const;
    std::int64_t searchPeak(int position) const;
    bool acceptPeak(std::int64_t peak);

    Config m_config;
    int m_channel = 0; ///< from 0
    Sizes m_sizes;
    float m_threshold = 0.0f; ///< least rise and fall of a beat, in scaled units
    std::unique_ptr<ButterworthFilter> m_highPass;
    std::unique_ptr<ButterworthFilter> m_lowPass;
    std::unique_ptr<NotchFilter> m_notch;
    std::vector<float> m_block; ///< the channel's samples of the present block
    std::vector<float> m_unfiltered; ///< newest last
    std::vector<float> m_filtered; ///< newest last
    int m_filled = 0; ///< samples in the buffers
    std::int64_t m_total = 0; ///< samples received
    std::int64_t m_lastPeak = 0; ///< 0 while there is none
    std::vector<float> m_output;
    bool m_usable = false;
    bool m_lost = false; ///< an interval was too long, which was logged
    bool m_missingReported = false;
};
