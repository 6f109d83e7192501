#include "bci/EMGBCIPreprocessor.h"

#include "bci/ModelJson.h"

#include <algorithm>
#include <cmath>

namespace {

QString kind()
{
    return QStringLiteral("EMGBCIPreprocessor");
}

constexpr int kFilterOrder = 2;

} // namespace

EMGBCIPreprocessor::EMGBCIPreprocessor(int cutOff, QObject *parent)
    : Preprocessor(parent)
    , m_cutOff(cutOff)
{
}

void EMGBCIPreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    const bool isReady = m_filter.prepare(AbstractFilter::LowPass, kFilterOrder, static_cast<float>(m_fs),
                                          static_cast<float>(m_cutOff), 0.0f);
    if (!isReady && m_complainedFs != m_fs) {
        m_complainedFs = m_fs;
        BPCommon::log(m_logLevel, "EMGBCIPreprocessor::doPreprocess no envelope of %i Hz at %i Hz", m_cutOff, m_fs);
    }
    out->resize(in->size());
    for (std::size_t row = 0; row < in->size(); ++row) {
        getRms((*in)[row], (*out)[row]);
        m_filter.run((*out)[row]);
    }
}

void EMGBCIPreprocessor::getRms(const vector<float> &row, vector<float> &rectified)
{
    rectified.resize(row.size());
    std::transform(row.begin(), row.end(), rectified.begin(), [](float sample) { return std::abs(sample); });
}

QJsonObject EMGBCIPreprocessor::model() const
{
    QJsonObject model = bp::header(kind());
    model[QLatin1String("cutOff")] = m_cutOff;
    return model;
}

bool EMGBCIPreprocessor::setModel(const QJsonObject &model, QString &reason)
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
