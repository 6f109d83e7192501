#pragma once

#include "algorithms/UnitParams.h"
#include "common/MetaTypes.h"

#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QStringList>

#include <vector>

/// Receives what the algorithms publish: the latest values for the console, their means for the summary.
class LiveValues : public QObject
{
    Q_OBJECT
public:
    /// @param channelNames of the montage, which label the values per channel
    /// @param algorithms   whose results will come
    LiveValues(const QStringList &channelNames, const std::vector<UnitParams> &algorithms, QObject *parent = nullptr);

    /// Whether nothing came yet.
    bool isEmpty() const;
    /// "alpha 31.4 %  heart_rate 75.2 bpm"
    QString line() const;
    /// Latest value per algorithm that gave one, and "units" with the unit of each.
    QJsonObject latest() const;
    /// Per algorithm: number of results, unit, mean of the value and, where it is given, of every channel. One that
    /// gave nothing has 0 results and no mean.
    QJsonObject summary() const;

public slots:
    void takeAlgorithmData(const QString &in_type_data, const UnitParams &in_params, unsigned int in_channels,
                           const vector<float> &in_data);

private:
    struct Series
    {
        QString unit;
        double latest = 0.0;
        double sum = 0.0;
        qint64 count = 0;
        QStringList channels;
        std::vector<double> channelSums;
    };

    QStringList channelsOf(const UnitParams &params) const;
    void addChannels(Series &series, const UnitParams &params, const std::vector<float> &data) const;

    QStringList m_channelNames;
    QMap<QString, Series> m_series; ///< by the algorithm's descriptor, or its name when it has none
};
