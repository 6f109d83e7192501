#pragma once

#include "bci/Preprocessor.h"

#include <memory>

namespace bp {
class BandFeatures;
}

/// Amplitude spectra of all channels between two edges, side by side: the features of PortalProcessor.
///
/// Out: one row, channels × bins values in the unit of the input; the bins are those from the first at or above the low
/// edge through the last below the high one. The offset of a channel does not count.
class BIOPROCESSING_EXPORT PortalPreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    /// In what space PortalProcessor compares windows. The features are the same.
    enum PortalMode {
        Spectral = 0, ///< normalised amplitudes
        Components = 1 ///< the normalised amplitudes' principal components
    };
    Q_ENUM(PortalMode)

    /// @param low, high  edges of the band, Hz
    PortalPreprocessor(float low, float high, PortalMode mode, QObject *parent = nullptr);
    ~PortalPreprocessor() override;

    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    float m_low; ///< Hz
    float m_high;
    PortalMode m_mode;
    std::unique_ptr<bp::BandFeatures> m_features;
};
