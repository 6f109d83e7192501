#pragma once

#include "bci/EMGEnvelopePreprocessor.h"

/// Linear envelopes of the muscles of a gait recording (D. A. Winter, "Biomechanics and Motor Control of Human
/// Movement"): the mean of the row is taken away, the rest rectified and smoothed by a second-order Butterworth
/// low-pass that has settled on the row's beginning. Unit of the input. ICA is not applied.
class BIOPROCESSING_EXPORT EMGGaitPreprocessor : public EMGEnvelopePreprocessor
{
    Q_OBJECT
public:
    /// @param cutOff  of the envelope, Hz; 4 to 10 are usual
    explicit EMGGaitPreprocessor(int cutOff, QObject *parent = nullptr);

    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;
};
