#pragma once

#include <QMap>
#include <QString>

#include <deque>
#include <vector>

/// The newest results, for the commands that read them.
struct LastValues
{
    struct State
    {
        qint64 time; ///< ms since the epoch
        unsigned state;
    };
    static constexpr std::size_t kStates = 20;

    std::deque<State> states; ///< oldest first
    QMap<QString, std::vector<float>> rhythms;
    std::vector<float> spectrum; ///< channel after channel
    unsigned spectrumPoints = 0; ///< per channel
};
