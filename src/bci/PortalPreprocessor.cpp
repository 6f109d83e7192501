#include "bci/PortalPreprocessor.h"

#include "bci/model/ModelJson.h"
#include "bci/numerics/BandFeatures.h"

namespace {

constexpr float kSpectrumFrom = 0.0f; // Hz
constexpr std::size_t kExpectedFeatures = 16384;

} // namespace

PortalPreprocessor::PortalPreprocessor(float low, float high, PortalMode mode, QObject *parent)
    : Preprocessor(parent)
    , m_low(low)
    , m_high(high)
    , m_mode(mode)
    , m_features(std::make_unique<bp::BandFeatures>())
{
    qRegisterMetaType<PortalMode>("PortalMode");
    BPCommon::log(m_logLevel, "PortalPreprocessor::PortalPreprocessor create %d, %d", low, high);
}

PortalPreprocessor::~PortalPreprocessor() = default;

void PortalPreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    BPCommon::log(m_logLevel, "PortalPreprocessor::doPreprocess %i", in->size());
    out->resize(1);
    std::vector<float> &features = out->front();
    features.reserve(kExpectedFeatures);
    features.clear();
    for (const std::vector<float> &row : *in) {
        m_features->setRow(row, m_fs, kSpectrumFrom); // takes the row's mean off
        m_features->append(m_low, m_high, features);
    }
}

QJsonObject PortalPreprocessor::model() const
{
    QJsonObject model = bp::bandModel(QStringLiteral("PortalPreprocessor"), m_fs, {{m_low, m_high}});
    model.insert(QStringLiteral("mode"), m_mode);
    return model;
}

bool PortalPreprocessor::setModel(const QJsonObject &model, QString &reason)
{
    const QString kind = QStringLiteral("PortalPreprocessor");
    int fs = 0;
    int mode = 0;
    std::vector<bp::Band> bands;
    if (!bp::readBandModel(model, kind, fs, bands, reason)) {
        return false;
    }
    if (bands.size() != 1) {
        return bp::damaged(kind, "bands", reason);
    }
    if (!bp::toInt(model.value(QStringLiteral("mode")), mode) || (mode != Spectral && mode != Components)) {
        return bp::damaged(kind, "mode", reason);
    }
    setFs(fs);
    m_low = bands[0].first;
    m_high = bands[0].second;
    m_mode = static_cast<PortalMode>(mode);
    return true;
}
