#pragma once

#include "files/EDFConverter.h"
#include "files/edf/EdfFacts.h"

namespace bp {

/// Which channels of a source a target has, and what becomes of them. Faults are one sentence.
class ChannelChoice
{
public:
    static constexpr double kLeastRate = 1e-3; ///< Hz
    static constexpr double kMostRate = 1e6;

    /// @param changes empty: all channels as they are
    /// @return why not, empty when that is possible
    QString choose(const EdfFacts &source, const QVector<EDFChannelChange> &changes);
    /// Of the target; rates that were changed are so already, and samplesPerRecord are still the source's.
    const QVector<EdfChannelFacts> &channels() const { return m_channels; }
    /// Their numbers in the source.
    const QVector<int> &numbers() const { return m_numbers; }

    static bool isRate(double hz);
    static Ratio rateOf(double hz);
    static QStringList labelsOf(const EdfFacts &facts);
    /// Sets texts of the header; empty ones are left as they are.
    static QString name(EdfChannelFacts &channel, const QString &label, const QString &unit);

private:
    QVector<EdfChannelFacts> m_channels;
    QVector<int> m_numbers;
};

} // namespace bp
