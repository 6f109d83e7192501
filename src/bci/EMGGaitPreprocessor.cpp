#include "bci/EMGGaitPreprocessor.h"

#include "bci/ModelJson.h"
#include "bci/utilities.h"

#include <algorithm>
#include <cmath>

namespace {

QString kind()
{
    return QStringLiteral("EMGGaitPreprocessor");
}

constexpr int kFilterOrder = 2;
/// Periods of the cut-off that the filter settles on.
constexpr int kSettlePeriods = 2;

} // namespace

EMGGaitPreprocessor::EMGGaitPreprocessor(int cutOff, QObject *parent)
    : Preprocessor(parent)
    , m_cutOff(cutOff)
{
}

void EMGGaitPreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    const bool isReady = m_filter.prepare(AbstractFilter::LowPass, kFilterOrder, static_cast<float>(m_fs),
                                          static_cast<float>(m_cutOff), 0.0f);
    if (!isReady && m_complainedFs != m_fs) {
        m_complainedFs = m_fs;
        BPCommon::log(m_logLevel, "EMGGaitPreprocessor::doPreprocess no envelope of %i Hz at %i Hz", m_cutOff, m_fs);
    }
    const std::size_t settle = isReady ? static_cast<std::size_t>(kSettlePeriods * m_fs / m_cutOff) : 0;
    out->resize(in->size());
    for (std::size_t row = 0; row < in->size(); ++row) {
        const vector<float> &raw = (*in)[row];
        vector<float> &envelope = (*out)[row];
        const float mean = utilities::Mean(raw);
        envelope.resize(raw.size());
        std::transform(raw.begin(), raw.end(), envelope.begin(),
                       [mean](float sample) { return std::abs(sample - mean); });
        m_filter.runSettled(envelope, settle);
    }
}

QJsonObject EMGGaitPreprocessor::model() const
{
    QJsonObject model = bp::header(kind());
    model[QLatin1String("cutOff")] = m_cutOff;
    return model;
}

bool EMGGaitPreprocessor::setModel(const QJsonObject &model, QString &reason)
{
    int cutOff = 0;
    if (!bp::checkHeader(model, kind(), reason)) {
        return false;
    }
    if (!bp::toInt(model[QLatin1String("cutOff")], cutOff)) {
        return bp::damaged(kind(), "cutOff", reason);
    }
    m_cutOff = cutOff;
    m_complainedFs = -1;
    return true;
}
