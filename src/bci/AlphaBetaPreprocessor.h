#pragma once

#include "bci/Preprocessor.h"

#include <QPair>

#include <memory>
#include <utility>

namespace bp {
class BandFeatures;
}

/// Mean amplitudes of frequency bands, for every channel.
///
/// Out: a row per input row, a value per band in the given order (unit of the input). The spectrum is read from 0.5 Hz
/// on, otherwise a band covers the bins that it covers in EEGBCIPreprocessor.
class BIOPROCESSING_EXPORT AlphaBetaPreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    /// @param bands  low and high edges, Hz
    explicit AlphaBetaPreprocessor(const vector<QPair<float, float>> &bands, QObject *parent = nullptr);
    ~AlphaBetaPreprocessor() override;

    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    std::vector<std::pair<float, float>> m_bands; ///< Hz
    std::unique_ptr<bp::BandFeatures> m_features;
};
