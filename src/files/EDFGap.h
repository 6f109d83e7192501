#pragma once

/// A pause in a discontinuous recording (EDF+D, BDF+D). Seconds.
///
/// Samples are read one after the other, as if there were no pauses: the sample at `position` seconds of signal was
/// taken `start + duration` seconds after the beginning of the file.
struct EDFGap
{
    double position; ///< seconds of signal before the gap
    double start; ///< of the gap, in the time of the file and of its annotations
    double duration;
};
