#include "bci/EMGGaitPreprocessor.h"

#include "bci/numerics/WindowFilter.h"

#include "bci/utilities.h"

#include <algorithm>
#include <cmath>

namespace {

/// Periods of the cut-off that the filter settles on.
constexpr int kSettlePeriods = 2;

} // namespace

EMGGaitPreprocessor::EMGGaitPreprocessor(int cutOff, QObject *parent)
    : EMGEnvelopePreprocessor(cutOff, parent)
{
}

void EMGGaitPreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    const bool isReady = prepareFilter();
    const std::size_t settle = isReady ? static_cast<std::size_t>(qint64{kSettlePeriods} * m_fs / m_cutOff) : 0;
    out->resize(in->size());
    for (std::size_t row = 0; row < in->size(); ++row) {
        const vector<float> &raw = (*in)[row];
        vector<float> &envelope = (*out)[row];
        if (spoilEnvelope(raw, envelope)) {
            continue;
        }
        const float mean = utilities::Mean(raw);
        envelope.resize(raw.size());
        std::transform(raw.begin(), raw.end(), envelope.begin(),
                       [mean](float sample) { return std::abs(sample - mean); });
        m_filter->runSettled(envelope, settle);
    }
}
