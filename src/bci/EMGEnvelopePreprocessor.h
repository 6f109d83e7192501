#pragma once

#include "bci/Preprocessor.h"

#include <memory>

namespace bp {
class WindowFilter;
}

/// What the preprocessors of muscle envelopes share: a second-order Butterworth low-pass and its cut-off.
///
/// A cut-off that the rate does not allow is traced once and gives rectified rows. A row with an invalid number gives
/// an envelope of NaN. Allocates only when the shape of the window, the rate or the cut-off changes.
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

    /// Whether the filter stands; without, rows stay as they are.
    bool prepareFilter();
    /// An envelope of NaN for a row with an invalid number, which a filter may swallow. True when it was one.
    static bool spoilEnvelope(const vector<float> &raw, vector<float> &envelope);

    int m_cutOff;
    std::unique_ptr<bp::WindowFilter> m_filter;

private:
    QString kind() const;

    int m_complainedFs = -1; ///< the rate for which the cut-off was refused last
};
