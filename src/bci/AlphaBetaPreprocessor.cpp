#include "bci/AlphaBetaPreprocessor.h"

#include "bci/model/ModelJson.h"
#include "bci/numerics/BandFeatures.h"

namespace {

constexpr float kSpectrumFrom = 0.5f; // Hz; slow drift is no rhythm

} // namespace

AlphaBetaPreprocessor::AlphaBetaPreprocessor(const vector<QPair<float, float>> &bands, QObject *parent)
    : Preprocessor(parent)
    , m_bands(bp::plainBands(bands))
    , m_features(std::make_unique<bp::BandFeatures>())
{
}

AlphaBetaPreprocessor::~AlphaBetaPreprocessor() = default;

void AlphaBetaPreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    out->resize(in->size());
    for (std::size_t i = 0; i < in->size(); ++i) {
        (*out)[i].resize(m_bands.size());
        m_features->setRow((*in)[i], m_fs, kSpectrumFrom);
        m_features->means(m_bands, (*out)[i].data());
    }
}

QJsonObject AlphaBetaPreprocessor::model() const
{
    return bp::bandModel(QStringLiteral("AlphaBetaPreprocessor"), m_fs, m_bands);
}

bool AlphaBetaPreprocessor::setModel(const QJsonObject &model, QString &reason)
{
    int fs = 0;
    if (!bp::readBandModel(model, QStringLiteral("AlphaBetaPreprocessor"), fs, m_bands, reason)) {
        return false;
    }
    setFs(fs);
    return true;
}
