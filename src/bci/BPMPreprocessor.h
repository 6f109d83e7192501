#pragma once

#include "bci/Preprocessor.h"

#include <memory>

namespace bp {
class WindowFilter;
}

/// Heart rate of windows of an electrocardiogram or a pulse wave; 5 to 15 s suit. Signals of either sign and any unit.
///
/// ECG: band-pass 5–15 Hz, derivative, squaring and moving integration over 150 ms (J. Pan, W. J. Tompkins, "A
/// real-time QRS detection algorithm", IEEE Trans. Biomed. Eng. 32, 1985); beats are the maxima above a part of the
/// window's typical maximum. The rate comes from the mean of the intervals near their median; the quality is their
/// share. PPG: band-pass 0.5–5 Hz, then the first high maximum of the autocorrelation within the allowed intervals; the
/// quality is its height.
class BIOPROCESSING_EXPORT BPMPreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    enum Source : int { Ecg = 0, Ppg = 1 };
    Q_ENUM(Source)

    static constexpr float kDefaultMinBpm = 40.0f;
    static constexpr float kDefaultMaxBpm = 200.0f;

    /// @param minBpm, maxBpm  the rates to look for, per minute; the defaults stand in for a pair without 0 < min < max
    explicit BPMPreprocessor(Source source = Ecg, float minBpm = kDefaultMinBpm, float maxBpm = kDefaultMaxBpm,
                             QObject *parent = nullptr);
    ~BPMPreprocessor() override;

    /// @param out  per channel one row of two: beats per minute, and the quality 0 … 1; both 0 when no rhythm was found
    ///             or the sampling rate is too low (ECG needs more than 30 Hz, PPG more than 10 Hz; one trace line)
    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    struct Rate
    {
        float bpm = 0.0f;
        float quality = 0.0f;
    };

    Rate rateOfEcg();
    Rate rateOfPpg();
    void integrateSlopes();
    void findBeats();
    float typicalMaximum();

    Source m_source;
    float m_minBpm;
    float m_maxBpm;
    int m_complainedFs = -1;
    std::unique_ptr<bp::WindowFilter> m_filter;
    vector<float> m_signal; ///< of the channel at hand, filtered
    vector<float> m_energy; ///< integrated squares of its slope
    vector<float> m_work;
    std::vector<std::size_t> m_beats; ///< sample indices
};
