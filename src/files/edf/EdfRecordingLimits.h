#pragma once

#include "common/detail/Outcome.h"

#include <QtGlobal>

namespace bp {

/// What a recording with records of one second may hold so that EDFlib writes it, and reads it again.
class EdfRecordingLimits
{
public:
    static constexpr qint64 kSampleBytes = 2;
    static constexpr qint64 kMostRecordBytes = 10485760;

    /// Signals for annotations that a recording of so many channels gets.
    static int annotationSignals(int channelCount);
    /// Fails when there cannot be such a recording.
    static Outcome check(int channelCount, qint64 samplesPerRecord);
};

} // namespace bp
