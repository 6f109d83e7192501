#pragma once

#include "bci/Preprocessor.h"

#include <memory>

namespace bp {
class WindowFilter;
}

/// Base class of the preprocessors of muscle envelopes: a second-order Butterworth low-pass and its cut-off.
///
/// A cut-off that the rate does not allow gives rectified rows and one trace line. A row with an invalid number gives
/// an envelope of NaN. Memory is allocated only when the shape of the window, the rate or the cut-off changes.
class BIOPROCESSING_EXPORT EMGEnvelopePreprocessor : public Preprocessor
{
    Q_OBJECT
public:
    ~EMGEnvelopePreprocessor() override;

    QJsonObject model() const override;
    /// Rejects a cut-off that the rate does not allow, where there is one already.
    bool setModel(const QJsonObject &model, QString &reason) override;

protected:
    /// @param cutOff  Hz
    EMGEnvelopePreprocessor(int cutOff, QObject *parent);

    /// Designs the filter for the present rate. Without a filter, rows don't change.
    /// @return whether there is a filter
    bool prepareFilter();
    /// Sets the envelope to NaN if the raw row has an invalid number: a filter may hide it.
    /// @return whether it has
    static bool spoilEnvelope(const vector<float> &raw, vector<float> &envelope);

    int m_cutOff;
    std::unique_ptr<bp::WindowFilter> m_filter;

private:
    QString kind() const;

    int m_complainedFs = -1; ///< the rate for which the cut-off was rejected last
};
