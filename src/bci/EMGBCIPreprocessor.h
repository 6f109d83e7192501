#pragma once

#include "bci/Preprocessor.h"
#include "bci/WindowFilter.h"

/// Envelopes of surface EMG: every row is rectified and smoothed by a second-order Butterworth low-pass that starts
/// from zero in each row, so that the first moments of a window rise from 0. Unit of the input. ICA is not applied.
///
/// Allocates only when the shape of the window, the rate or the cut-off changes. A cut-off that the rate does not allow
/// is traced once and gives rectified rows.
class BIOPROCESSING_EXPORT EMGBCIPreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    /// @param cutOff  of the envelope, Hz
    explicit EMGBCIPreprocessor(int cutOff, QObject *parent = nullptr);

    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    static void getRms(const vector<float> &row, vector<float> &rectified);

    int m_cutOff;
    bp::WindowFilter m_filter;
    int m_complainedFs = -1; ///< the rate for which the cut-off was refused last
};
