#pragma once

#include "bci/EMGEnvelopePreprocessor.h"

/// Envelopes of surface EMG: every row is rectified and smoothed by a second-order Butterworth low-pass that starts
/// from zero in each row, so that the first moments of a window rise from 0. Unit of the input. ICA is not applied.
class BIOPROCESSING_EXPORT EMGBCIPreprocessor : public EMGEnvelopePreprocessor
{
    Q_OBJECT
public:
    /// @param cutOff  of the envelope, Hz
    explicit EMGBCIPreprocessor(int cutOff, QObject *parent = nullptr);

    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;

private:
    static void getRms(const vector<float> &row, vector<float> &rectified);
};
