#pragma once

#include <QList>

struct edf_annotation_struct;

namespace bp {

/// Takes apart what an annotation signal holds in one record: lists "+onset[\x15duration]\x14text\x14…\0".
///
/// EDFlib refuses a file for one malformed list; this leaves the list out. Times are EDFlib's, in 100 ns.
class EdfTal
{
public:
    static constexpr long long kNoTime = -1;

    /// The time at which a record begins, from the list that its first annotation signal begins with. kNoTime when
    /// there is none, or it lies before the start of the file.
    static long long recordOnset(const char *block, qint64 bytes);
    /// Appends the annotations of a block.
    /// @param keepsTime the block begins with the record's onset, whose first text is none
    /// @return how many lists are malformed
    static int appendAnnotations(const char *block, qint64 bytes, bool keepsTime,
                                 QList<edf_annotation_struct> &annotations);
};

} // namespace bp
