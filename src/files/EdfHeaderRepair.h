#pragma once

#include <QTemporaryFile>

#include <memory>

namespace bp {

/// Reading of files that EDFlib refuses although their data are sound.
///
/// Three faults are common. Annotation signals that name a transducer or a prefilter, which the format wants blank
/// (much used collections of motor imagery have them); files that call themselves EDF+ but have no annotation signal;
/// and recordings that were not closed, by a power cut for example, and so do not tell how many records they have.
class EdfHeaderRepair
{
public:
    /// A copy of the file with such faults mended, which disappears with the object; null when there is nothing of
    /// the kind to mend, or no room for a copy. The file itself is never written.
    static std::unique_ptr<QTemporaryFile> mendedCopy(const QString &path);
};

} // namespace bp
