#pragma once

#include "bci/Preprocessor.h"

/// Features of a window of surface EMG, per channel:
/// - ln of the mean absolute value, of the root mean square and of the waveform length per sample;
/// - zero crossings and slope sign changes per sample;
/// - autoregressive coefficients (J. P. Burg).
/// The time-domain set is that of B. Hudgins, P. Parker and R. Scott, "A new strategy for multifunction myoelectric
/// control", IEEE Trans. Biomed. Eng. 40 (1993). Amplitudes are taken as logarithms because their deviation grows with
/// them, and the classifier assumes one covariance for all classes.
///
/// When the ICA matrix is trained, the window is unmixed first. A matrix that does not fit the window gives one trace
/// line, and the window is used as it is.
class BIOPROCESSING_EXPORT EMGGesturePreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    /// @param order       of the autoregressive model, 0 for none, at most kMaxOrder
    /// @param removeMean  takes every row's mean away before the features; needed when the signal has an offset
    EMGGesturePreprocessor(int order, bool removeMean, QObject *parent = nullptr);
    static constexpr int kMaxOrder = 32;

    /// @param out  one row, the features of all channels (or components) one after the other
    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    void appendFeatures(vector<float> &row, vector<float> &features);

    int m_order;
    bool m_removeMean;
    bool m_complained = false;
    vector<vector<float>> m_window;
    vector<float> m_slopes;
    vector<float> m_coefficients;
};
