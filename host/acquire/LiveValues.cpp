#include "acquire/LiveValues.h"

#include <algorithm>

namespace {

constexpr std::size_t kLeadingValues = 4; ///< of a rhythm record, before the channels
const QString kSpectrum = QStringLiteral("SpectrumOnline");

QString titleOf(const UnitParams &params)
{
    return params.getParamDescriptor().isEmpty() ? params.getName() : params.getParamDescriptor();
}

/// Of the leading value of a result.
QString unitOf(const UnitParams &params)
{
    if (params.getName() == QLatin1String("ElectroCardiogram")) {
        return QStringLiteral("bpm");
    }
    const bool isRelative = params.getParamValue(QStringLiteral("calc_mode")) == QLatin1String("1");
    if (params.getName() == QLatin1String("DependSpectrumNorm")
        || (params.getName() == QLatin1String("SpectrumNorm") && !isRelative)) {
        return QStringLiteral("of 1"); // between the thresholds
    }
    return QStringLiteral("%");
}

} // namespace

LiveValues::LiveValues(const QStringList &channelNames, const std::vector<UnitParams> &algorithms, QObject *parent)
    : QObject(parent)
    , m_channelNames(channelNames)
{
    for (const UnitParams &params : algorithms) {
        if (params.getName() != kSpectrum) {
            m_series[titleOf(params)].unit = unitOf(params);
        }
    }
}

bool LiveValues::isEmpty() const
{
    return std::all_of(m_series.cbegin(), m_series.cend(), [](const Series &series) { return series.count == 0; });
}

void LiveValues::takeAlgorithmData(const QString &, const UnitParams &params, unsigned int, const vector<float> &data)
{
    if (data.empty() || params.getName() == kSpectrum) {
        return;
    }
    const bool isRhythm =
        params.getName() == QLatin1String("SpectrumNorm") || params.getName() == QLatin1String("DependSpectrumNorm");
    if (isRhythm && data[0] < 0.0f) {
        return; // an artefact
    }
    Series &series = m_series[titleOf(params)];
    series.unit = unitOf(params);
    series.latest = static_cast<double>(data[0]);
    series.sum += series.latest;
    ++series.count;
    if (isRhythm) {
        addChannels(series, params, data);
    }
}

QStringList LiveValues::channelsOf(const UnitParams &params) const
{
    const QStringList selected = params[QStringLiteral("channel")].split(QLatin1Char(';'), Qt::SkipEmptyParts);
    QStringList known;
    for (const QString &name : selected) {
        if (m_channelNames.contains(name)) {
            known << name;
        }
    }
    return known.isEmpty() ? m_channelNames : known;
}

void LiveValues::addChannels(Series &series, const UnitParams &params, const std::vector<float> &data) const
{
    if (series.channels.isEmpty()) {
        series.channels = channelsOf(params);
        series.channelSums.resize(static_cast<std::size_t>(series.channels.size()));
    }
    for (std::size_t i = 0; i < series.channelSums.size() && kLeadingValues + i < data.size(); ++i) {
        series.channelSums[i] += static_cast<double>(data[kLeadingValues + i]);
    }
}

QString LiveValues::line() const
{
    QStringList parts;
    for (auto it = m_series.cbegin(); it != m_series.cend(); ++it) {
        if (it->count > 0) {
            parts << QStringLiteral("%1 %2 %3").arg(it.key()).arg(it->latest, 0, 'f', 1).arg(it->unit);
        }
    }
    return parts.join(QStringLiteral("  "));
}

QJsonObject LiveValues::latest() const
{
    QJsonObject values;
    QJsonObject units;
    for (auto it = m_series.cbegin(); it != m_series.cend(); ++it) {
        if (it->count > 0) {
            values.insert(it.key(), it->latest);
            units.insert(it.key(), it->unit);
        }
    }
    values.insert(QStringLiteral("units"), units);
    return values;
}

QJsonObject LiveValues::summary() const
{
    QJsonObject algorithms;
    for (auto it = m_series.cbegin(); it != m_series.cend(); ++it) {
        const double count = static_cast<double>(it->count);
        QJsonObject entry{{QStringLiteral("results"), it->count}, {QStringLiteral("unit"), it->unit}};
        if (it->count > 0) {
            entry.insert(QStringLiteral("mean"), it->sum / count);
        }
        QJsonObject channels;
        for (std::size_t i = 0; i < it->channelSums.size(); ++i) {
            channels.insert(it->channels[static_cast<int>(i)], it->channelSums[i] / count);
        }
        if (!channels.isEmpty()) {
            entry.insert(QStringLiteral("channels"), channels);
        }
        algorithms.insert(it.key(), entry);
    }
    return algorithms;
}
