#pragma once

#include "bci/Processor.h"

/// Detects which muscle moves: channel k − 1 has the class k, rest the class 0.
///
/// The examples are envelopes: first of rest (label 0), which give the resting level and deviation of every channel,
/// and then of one movement per channel (label k ≥ 1), whose strength above rest gives the threshold of that channel.
/// The training writes messages to the debug stream; a failed step does not change what the other channels have
/// learned.
///
/// Results of passThrough: "score_" + channel for every channel (1: a movement of 70 % of the trained strength) and
/// "Class". A channel without rest statistics, without a movement, or whose rest never varied scores 0.
class BIOPROCESSING_EXPORT EMGBCIProcessor : public Processor
{
    Q_OBJECT
public:
    explicit EMGBCIProcessor(QObject *parent = nullptr);

    /// @param window  envelopes, one row per channel; a movement needs a window longer than it, at least a third of a
    ///                second above rest and at most ten
    void preTrain(vector<vector<float>> &window, int label) override;
    using Processor::preTrain;
    void postTrain() override;
    /// Stores "thresh_" + channel, 0 for a channel without a movement. Always true.
    bool doValidate() override;
    /// An invalid number in the envelope of a trained channel leaves a trace line, no rows, no scores and no "Class".
    /// @param out  one row of scores
    void passThrough(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

    /// Deletes the statistics of rest and movements; labels and results stay.
    void ResetEmgBci();

private:
    void trainRest(const vector<vector<float>> &window);
    void trainMovement(const vector<vector<float>> &window, std::size_t channel);
    float scoreOf(const vector<float> &envelope, std::size_t channel) const;
    bool isTrained(std::size_t channel) const;
    bool isJudgeable(const vector<vector<float>> &window) const;

    std::vector<int> m_distinctLabels;
    int m_movementZ = 5;
    int m_minRun = 0; ///< samples
    int m_maxRun = 0; ///< samples
    float m_thresholdScale = 0.7f;
    int m_trainedMovements = 0;
    std::vector<float> m_restMean;
    std::vector<float> m_restDeviation;
    std::vector<float> m_threshold; ///< in rest deviations above the rest mean; 0: no movement seen
    bool m_complained = false; ///< about a trained channel that the window doesn't have
};
