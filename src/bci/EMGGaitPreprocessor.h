#pragma once

#include "bci/Preprocessor.h"
#include "bci/WindowFilter.h"

/// Linear envelopes of the muscles of a gait recording (D. A. Winter, "Biomechanics and Motor Control of Human
/// Movement"): the mean of the row is taken away, the rest rectified and smoothed by a second-order Butterworth
/// low-pass that has settled on the row's beginning. Unit of the input. ICA is not applied.
class BIOPROCESSING_EXPORT EMGGaitPreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    /// @param cutOff  of the envelope, Hz; 4 to 10 are usual. One that the rate does not allow is traced once and gives
    ///                rectified rows.
    explicit EMGGaitPreprocessor(int cutOff, QObject *parent = nullptr);

    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    int m_cutOff;
    bp::WindowFilter m_filter;
    int m_complainedFs = -1; ///< the rate for which the cut-off was refused last
};
