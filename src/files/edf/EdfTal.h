#pragma once

#include "files/edf/EdfHeader.h"

namespace bp {

/// The time-stamped annotation lists (TAL) of EDF+, which an annotation signal holds in one record:
/// "+onset[\x15duration]\x14text\x14…\0". Times in ticks.
///
/// EDFlib rejects a file for one malformed list; this skips the list.
class EdfTal
{
public:
    static constexpr qint64 kNoTime = -1;

    /// The time at which a record begins, from the list that its first annotation signal begins with, and whose first
    /// text is empty. kNoTime when there is none, or it lies before the start of the file.
    static qint64 recordOnset(const QByteArray &block);
    /// Appends the annotations of a block.
    /// @param keepsTime the block begins with the record's onset, whose first text, if empty, is none
    /// @return how many lists are malformed
    static int appendAnnotations(const QByteArray &block, bool keepsTime, QVector<EdfAnnotation> &annotations);
    /// The list of one annotation, without the zero behind it.
    /// @param onset    seconds without a sign
    /// @param duration seconds; empty: none
    static QByteArray list(bool isNegative, const QByteArray &onset, const QByteArray &duration,
                           const QByteArray &text);
};

} // namespace bp
