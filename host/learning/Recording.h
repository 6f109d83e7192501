#pragma once

#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class ButterworthFilter;

/// A text at a moment of a recording.
struct Event
{
    double onset; ///< seconds
    QString text;
};

/// A recording in memory: EDF, BDF, or text with one column per channel.
struct Recording
{
    QString path;
    double rate = 0.0; ///< Hz
    QStringList names; ///< of the rows; columns of a text are called "1", "2", …
    std::vector<std::vector<float>> rows; ///< one per channel, all of the same length
    std::vector<Event> events; ///< in the order of their onsets

    std::size_t size() const { return rows.empty() ? 0 : rows.front().size(); }

    /// Reads the channels of these names, in this order; all when there are none, of an EDF those with the rate of its
    /// first. Throws a Refusal.
    /// @param textRate  Hz, of a text; 0 when that was not said
    static Recording read(const QString &path, const QStringList &channels, double textRate);
    /// Brings the rows into this order of their names, of which there are as many. Throws a Refusal when one is
    /// missing.
    void arrange(const QStringList &order);
    /// Takes slow waves and the offset away, as the high-pass of a montage channel does, but beginning at rest.
    /// @param hz  0 leaves the recording as it is. Throws a Refusal when the rate does not allow it.
    void highPass(double hz);
};

/// The filter of Recording::highPass(), at rest.
std::unique_ptr<ButterworthFilter> makeHighPass(double rate, double hz);
