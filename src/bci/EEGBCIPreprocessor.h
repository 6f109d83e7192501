#pragma once

#include "bci/Preprocessor.h"

#include <QPair>

#include <memory>
#include <utility>

namespace bp {
class BandFeatures;
}

/// Features of one EEG channel: mean amplitudes of frequency bands and the Higuchi fractal dimension.
///
/// In: the first row of the window; the others are ignored. Out: one row, a value per band in the given order
/// (unit of the input) and the fractal dimension (k up to 10). A band covers the bins from the first at or above its
/// low edge through the last below its high edge, and gives 0 when there is none. A window without rows gives no row;
/// a window with an invalid number gives a row of NaN.
/// The second and later windows of one length allocate nothing.
class BIOPROCESSING_EXPORT EEGBCIPreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    /// @param bands  low and high edges, Hz
    explicit EEGBCIPreprocessor(const vector<QPair<float, float>> &bands, QObject *parent = nullptr);
    ~EEGBCIPreprocessor() override;

    void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out) override;
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    std::vector<std::pair<float, float>> m_bands; ///< Hz
    std::unique_ptr<bp::BandFeatures> m_features;
};
