#pragma once

#include "files/EDFConverter.h"
#include "files/conversion/ColumnText.h"
#include "files/edf/EdfRecordPlan.h"

#include <functional>

namespace bp {

class EdfOutput;

/// Makes an EDF or BDF file of columns of numbers, which are read twice: for their ranges, and to be written.
class TextImport
{
public:
    /// Is told how much is done, in bytes of twice the files; false ends the work, which then failed as "cancelled".
    using Tick = std::function<bool(qint64 done, qint64 total)>;

    TextImport(const QStringList &sources, const EDFTextFormat &format);
    /// Reasons of failures are one sentence.
    Outcome write(const QString &target, const Tick &tick);

private:
    Outcome plan(const QString &target);
    Outcome addChannels(const QStringList &labels);
    Outcome fill(EdfOutput &output, const QString &target, const Tick &tick);
    void store(const std::vector<double> &row, std::size_t at);

    EDFTextFormat m_format;
    ColumnText m_text;
    std::vector<ColumnRange> m_ranges; ///< one per channel
    EdfHeader m_header;
    EdfRecordPlan m_plan;
    std::vector<qint32> m_samples; ///< of the record, channel after channel
};

} // namespace bp
