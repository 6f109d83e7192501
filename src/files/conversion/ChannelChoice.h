#pragma once

#include "common/detail/Outcome.h"
#include "files/EDFConverter.h"
#include "files/edf/EdfHeader.h"

namespace bp {

/// Which channels of a source a target has, and what becomes of them. Reasons of failures are one
/// sentence.
class ChannelChoice
{
public:
    static constexpr double kLeastRate = 1e-3; ///< Hz
    static constexpr double kMostRate = 1e6;

    /// @param changes empty: all channels as they are
    Outcome choose(const EdfHeader &source, const QVector<EDFChannelChange> &changes);
    /// Of the target; rates that were changed are so already, and samplesPerRecord are still the source's.
    const QVector<EdfSignalHeader> &channels() const { return m_channels; }
    /// Their numbers in the source.
    const QVector<int> &numbers() const { return m_numbers; }

    static bool isRate(double hz);
    static Ratio rateOf(double hz);
    static QStringList labelsOf(const EdfHeader &header);
    /// Sets texts of the header; empty ones are left as they are.
    static Outcome name(EdfSignalHeader &channel, const QString &label, const QString &unit);

private:
    QVector<EdfSignalHeader> m_channels;
    QVector<int> m_numbers;
};

} // namespace bp
