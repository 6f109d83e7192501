#include "bci/EMGGesturePreprocessor.h"

#include "bci/DimReduction.h"
#include "bci/SignalFeatures.h"
#include "bci/model/ModelJson.h"
#include "bci/utilities.h"

#include <algorithm>
#include <cmath>

namespace {

QString kind()
{
    return QStringLiteral("EMGGesturePreprocessor");
}

/// Amplitudes below count as this one: far under the resolution of any amplifier, in volts too.
constexpr float kSmallestAmplitude = 1e-12f;

float logOf(float amplitude)
{
    return std::log(std::max(amplitude, kSmallestAmplitude));
}

bool isUnmixing(const vector<vector<float>> &matrix, std::size_t channels)
{
    return !matrix.empty() && std::all_of(matrix.begin(), matrix.end(), [channels](const vector<float> &row) {
        return row.size() == channels;
    });
}

} // namespace

EMGGesturePreprocessor::EMGGesturePreprocessor(int order, bool removeMean, QObject *parent)
    : Preprocessor(parent)
    , m_order(std::clamp(order, 0, kMaxOrder))
    , m_removeMean(removeMean)
{
}

void EMGGesturePreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    m_window = *in;
    if (m_isTrainedICA) {
        vector<vector<float>> unmixed;
        if (isUnmixing(m_ica, m_window.size())) {
            unmixed = DimReduction::ProcessICA(m_window, m_ica);
        }
        if (!unmixed.empty()) {
            m_window = std::move(unmixed);
        } else if (!m_complained) {
            m_complained = true;
            BPCommon::log(m_logLevel, "EMGGesturePreprocessor::doPreprocess the ICA matrix does not fit %i channels",
                          in->size());
        }
    }
    out->resize(1);
    out->front().clear();
    for (vector<float> &row : m_window) {
        appendFeatures(row, out->front());
    }
}

void EMGGesturePreprocessor::appendFeatures(vector<float> &row, vector<float> &features)
{
    if (m_removeMean) {
        utilities::Subtract(row, utilities::Mean(row));
    }
    const float perSample = row.empty() ? 0.0f : 1.0f / static_cast<float>(row.size());
    m_slopes.resize(row.empty() ? 0 : row.size() - 1);
    std::transform(row.begin() + (row.empty() ? 0 : 1), row.end(), row.begin(), m_slopes.begin(), std::minus<float>());

    features.push_back(logOf(SignalFeatures::MAV(row)));
    features.push_back(logOf(SignalFeatures::RMS(row)));
    features.push_back(logOf(SignalFeatures::WaveformLength(row) * perSample));
    features.push_back(static_cast<float>(SignalFeatures::ZeroCrossings(row)) * perSample);
    features.push_back(static_cast<float>(SignalFeatures::ZeroCrossings(m_slopes)) * perSample);
    if (m_order > 0) {
        SignalFeatures::calcAR(row, static_cast<unsigned int>(m_order), m_removeMean, m_coefficients);
        features.insert(features.end(), m_coefficients.begin(), m_coefficients.end());
    }
}

QJsonObject EMGGesturePreprocessor::model() const
{
    QJsonObject model = bp::header(kind());
    model[QLatin1String("order")] = m_order;
    model[QLatin1String("removeMean")] = m_removeMean;
    if (m_isTrainedICA) {
        model[QLatin1String("ica")] = bp::fromRows(m_ica);
    }
    return model;
}

bool EMGGesturePreprocessor::setModel(const QJsonObject &model, QString &reason)
{
    if (!bp::checkHeader(model, kind(), reason)) {
        return false;
    }
    int order = 0;
    bool removeMean = false;
    vector<vector<float>> ica;
    if (!bp::toInt(model[QLatin1String("order")], order) || order < 0 || order > kMaxOrder) {
        return bp::damaged(kind(), "order", reason);
    }
    if (!bp::toBool(model[QLatin1String("removeMean")], removeMean)) {
        return bp::damaged(kind(), "removeMean", reason);
    }
    const bool hasIca = model.contains(QLatin1String("ica"));
    if (hasIca
        && (!bp::toRows(model[QLatin1String("ica")], ica) || ica.empty() || !isUnmixing(ica, ica.front().size()))) {
        return bp::damaged(kind(), "ica", reason);
    }
    m_order = order;
    m_removeMean = removeMean;
    m_isTrainedICA = hasIca;
    m_ica = std::move(ica);
    m_complained = false;
    return true;
}
