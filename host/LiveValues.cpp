#include "LiveValues.h"

#include <cmath>

namespace {

constexpr std::size_t kLeadingValues = 4; ///< of a rhythm record, before the channels

} // namespace

LiveValues::LiveValues(const QStringList &channelNames, QObject *parent)
    : QObject(parent)
    , m_channelNames(channelNames)
{
}

void LiveValues::takeAlgorithmData(const QString &, const UnitParams &params, unsigned int, const vector<float> &data)
{
    if (data.empty() || params.getName() == QLatin1String("SpectrumOnline")) {
        return;
    }
    const bool isRhythm =
        params.getName() == QLatin1String("SpectrumNorm") || params.getName() == QLatin1String("DependSpectrumNorm");
    if (isRhythm && data[0] < 0.0f) {
        return; // an artefact
    }
    Series &series = m_series[params.getParamDescriptor().isEmpty() ? params.getName() : params.getParamDescriptor()];
    series.unit = params.getName() == QLatin1String("ElectroCardiogram") ? QStringLiteral(" bpm") : QString();
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
        parts << QStringLiteral("%1 %2%3").arg(it.key()).arg(it->latest, 0, 'f', 1).arg(it->unit);
    }
    return parts.join(QStringLiteral("  "));
}

QJsonObject LiveValues::latest() const
{
    QJsonObject values;
    for (auto it = m_series.cbegin(); it != m_series.cend(); ++it) {
        values.insert(it.key(), it->latest);
    }
    return values;
}

QJsonObject LiveValues::summary() const
{
    QJsonObject algorithms;
    for (auto it = m_series.cbegin(); it != m_series.cend(); ++it) {
        const double count = static_cast<double>(it->count);
        QJsonObject entry{{QStringLiteral("results"), it->count}, {QStringLiteral("mean"), it->sum / count}};
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
