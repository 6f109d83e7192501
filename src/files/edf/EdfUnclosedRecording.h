#pragma once

#include "common/detail/Outcome.h"

namespace bp {

/// What a recording that could not be completed has left at a path: a file that was not closed, the journal of its
/// labels, or both. EDFRescue makes a sound recording of it, so that it is never overwritten.
class EdfUnclosedRecording
{
public:
    /// Whether the file at that path is such a recording.
    static bool isAt(const QString &path);
    /// Renames what there is: "a.edf" to "a_unclosed.edf", or to the first such name with a number that is free, and
    /// its journal accordingly.
    /// @param movedTo the new name of the recording, whether there is only its journal; empty when nothing was there
    /// Fails when it cannot be renamed; good when nothing is in the way any more.
    static Outcome setAside(const QString &path, QString &movedTo);
};

} // namespace bp
