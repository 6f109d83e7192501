#include "bci/EMGEnvelopePreprocessor.h"

#include "bci/numerics/WindowFilter.h"

#include "bci/model/ModelJson.h"
#include "bci/numerics/FiniteRow.h"

#include <limits>

namespace {

constexpr int kFilterOrder = 2;
constexpr char kCutOff[] = "cutOff";

} // namespace

EMGEnvelopePreprocessor::EMGEnvelopePreprocessor(int cutOff, QObject *parent)
    : Preprocessor(parent)
    , m_cutOff(cutOff)
    , m_filter(std::make_unique<bp::WindowFilter>())
{
}

EMGEnvelopePreprocessor::~EMGEnvelopePreprocessor() = default;

QString EMGEnvelopePreprocessor::kind() const
{
    return QString::fromLatin1(metaObject()->className());
}

bool EMGEnvelopePreprocessor::prepareFilter()
{
    const bool isReady = m_filter->prepare(AbstractFilter::LowPass, kFilterOrder, static_cast<float>(m_fs),
                                           static_cast<float>(m_cutOff), 0.0f);
    if (!isReady && m_complainedFs != m_fs) {
        m_complainedFs = m_fs;
        BPCommon::log(m_logLevel, "%s::doPreprocess no envelope of %i Hz at %i Hz", kind(), m_cutOff, m_fs);
    }
    return isReady;
}

bool EMGEnvelopePreprocessor::spoilEnvelope(const vector<float> &raw, vector<float> &envelope)
{
    if (bp::isFinite(raw)) {
        return false;
    }
    envelope.assign(raw.size(), std::numeric_limits<float>::quiet_NaN());
    return true;
}

QJsonObject EMGEnvelopePreprocessor::model() const
{
    QJsonObject model = bp::header(kind());
    model[QLatin1String(kCutOff)] = m_cutOff;
    return model;
}

bool EMGEnvelopePreprocessor::setModel(const QJsonObject &model, QString &reason)
{
    int cutOff = 0;
    if (!bp::checkHeader(model, kind(), reason)) {
        return false;
    }
    const bool isNumber = bp::toInt(model[QLatin1String(kCutOff)], cutOff);
    if (!isNumber || cutOff <= 0 || (m_fs > 0 && cutOff >= (m_fs + 1) / 2)) {
        return bp::damaged(kind(), kCutOff, reason);
    }
    m_cutOff = cutOff;
    m_complainedFs = -1;
    return true;
}
