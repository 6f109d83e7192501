#include "bci/EEGBCIPreprocessor.h"

#include "bci/SignalFeatures.h"
#include "bci/model/ModelJson.h"
#include "bci/numerics/BandFeatures.h"
#include "bci/numerics/FiniteRow.h"

#include <algorithm>
#include <limits>

namespace {

constexpr unsigned int kHiguchiMax = 10;
constexpr float kSpectrumFrom = 0.0f; // Hz

} // namespace

EEGBCIPreprocessor::EEGBCIPreprocessor(const vector<QPair<float, float>> &bands, QObject *parent)
    : Preprocessor(parent)
    , m_bands(bp::plainBands(bands))
    , m_features(std::make_unique<bp::BandFeatures>())
{
}

EEGBCIPreprocessor::~EEGBCIPreprocessor() = default;

void EEGBCIPreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    if (in->empty()) {
        out->clear();
        return;
    }
    out->resize(1);
    std::vector<float> &features = out->front();
    features.resize(m_bands.size() + 1);
    if (!bp::isFinite(in->front())) { // the dimension and an empty band would hide it
        std::fill(features.begin(), features.end(), std::numeric_limits<float>::quiet_NaN());
        return;
    }
    SignalFeatures::HiguchiFD(in->front(), kHiguchiMax, &features.back());
    m_features->setRow(in->front(), m_fs, kSpectrumFrom);
    m_features->means(m_bands, features.data());
}

QJsonObject EEGBCIPreprocessor::model() const
{
    return bp::bandModel(QStringLiteral("EEGBCIPreprocessor"), m_fs, m_bands);
}

bool EEGBCIPreprocessor::setModel(const QJsonObject &model, QString &reason)
{
    int fs = 0;
    if (!bp::readBandModel(model, QStringLiteral("EEGBCIPreprocessor"), fs, m_bands, reason)) {
        return false;
    }
    setFs(fs);
    return true;
}
