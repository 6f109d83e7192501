#pragma once

#include "bci/Processor.h"

/// Distinguishes two classes: Fisher's linear discriminant, with the threshold halfway between the medians of the two
/// classes' projected values.
///
/// postTrain() trains at once, on the thread of the solver model. An example is the first row of its window; an example
/// with an invalid number is ignored, with a trace line. Of more than two labels only the two smallest are learned and
/// validated. Examples that allow no discriminant (one class, rows of different lengths) leave the processor untrained,
/// with a trace line.
///
/// Results: "label", the label of the last window; "ValidationRate1" and "ValidationRate2", 0 … 1, the share of either
/// class's examples on its side of the threshold, from the last validation that succeeded.
class BIOPROCESSING_EXPORT EEGBCIProcessor : public Processor
{
    Q_OBJECT
public:
    /// @param minimumRate  0 … 1, the least value of both validation rates for a valid classifier
    explicit EEGBCIProcessor(float minimumRate, QObject *parent = nullptr);

    using Processor::preTrain;
    void preTrain(vector<vector<float>> &window, int label) override;
    void postTrain() override;
    /// Also false without examples of both classes.
    bool doValidate() override;
    /// A window with an invalid number leaves a trace line, no rows and no "label".
    /// @param out  gets one row of one value, the window's projection
    /// @throws HalvinException "DimReduction::ProcessFLD code: 2000" before training, and for a window without features
    void passThrough(vector<vector<float>> *in, vector<vector<float>> *out) override;
    /// The projected examples are part of it, so that a classifier which was read can be validated.
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    void fitFirstTwo();
    float project(const std::vector<float> &features) const;
    bool isFirst(float value) const { return m_orientation ? value > m_threshold : m_threshold > value; }
    bool isSecond(float value) const { return m_orientation ? value < m_threshold : m_threshold < value; }

    float m_minimumRate;
    std::vector<std::vector<float>> m_projection;
    float m_threshold = 0.0f;
    bool m_orientation = false; ///< the first class projects above the threshold
    std::vector<float> m_firstValues; ///< projected examples
    std::vector<float> m_secondValues;
    std::vector<int> m_uniqueLabels; ///< ascending
};
