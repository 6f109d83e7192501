#pragma once

#include "files/edf/EdfHeader.h"

namespace bp {

/// How the samples of a file fall into records.
///
/// A step is the shortest time in which every channel has a whole number of samples. A record is a whole number of
/// steps, and its duration a decimal number that the header can hold exactly.
struct EdfRecordPlan
{
    qint64 stepsPerRecord = 0; ///< 0: there is no plan
    qint64 records = 0;
    qint64 durationTicks = 0;

    /// The step of channels with these rates; {0, 1} when there is none of reasonable length.
    static Ratio commonStep(const QVector<Ratio> &rates);
    /// Records for a number of steps, or for as few more as it takes where it has no suitable divisor.
    /// @param bytesPerStep   of all channels
    /// @param preferredTicks record duration to take when it fits
    static EdfRecordPlan make(Ratio step, qint64 steps, qint64 bytesPerStep, qint64 preferredTicks);
};

} // namespace bp
