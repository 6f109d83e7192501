#pragma once

#include "common/BPExport.h"

#include <QString>

/// Makes sound recordings of damaged ones: of a recording that was not closed, because its program was killed or the
/// power failed; of a file whose size contradicts its header; of one with faults in the header that say nothing about
/// the data. Any thread.
class BIOPROCESSING_EXPORT EDFRescue
{
public:
    struct Result
    {
        bool done; ///< false: text says why, and there is no new file
        QString text; ///< one sentence for the user
        QString path; ///< of the new file; empty when there is nothing to repair
    };

    /// Where a repaired recording goes unless said: that of "a.edf" to "a_repaired.edf".
    static QString repairedPath(const QString &path);
    /// Copies the whole records of a recording, with a mended header, and with the annotations of its journal. The
    /// recording and its journal are not touched, and no existing file is overwritten.
    static Result repair(const QString &path, const QString &target);
};
