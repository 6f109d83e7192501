#pragma once

#include "files/edf/EdfFileScan.h"
#include "files/edf/EdfHeader.h"
#include "files/edf/EdfRecords.h"

#include <QString>

#include <functional>
#include <memory>

namespace bp {

/// An EDF or BDF file that is converted: gives the digital samples, unscaled, of any channel from any position.
/// Reads what EDFReader reads, without EDFlib. One thread at a time.
class EdfInput
{
public:
    Outcome open(const QString &path);
    const EdfHeader &header() const { return m_header; }
    qint64 records() const { return m_scan->records(); }
    qint64 recordTicks() const { return m_scan->recordTicks(); }
    /// Of signal, without the pauses.
    double seconds() const { return static_cast<double>(records()) * edfTime(recordTicks()); }
    qint64 sampleCount(int channel) const { return records() * m_header.channels[channel].samplesPerRecord; }

    /// Reads all annotations, sorted by onset, and finds where the records are apart. The start moves to the first
    /// sample.
    /// @param cancelled asked now and then; true ends the reading
    Outcome scan(const std::function<bool()> &cancelled);
    const QVector<EdfAnnotation> &annotations() const { return m_annotations; }
    /// One sentence on what a user should know of the file; empty when there is nothing. After scan().
    QString notice() const { return m_scan->notice(); }
    const std::vector<EdfPause> &pauses() const { return m_scan->pauses(); }
    /// Ticks from the first sample of the file to that of a record, pauses included. After scan().
    qint64 recordOnset(qint64 record) const;

    /// Makes read() take these records for the whole file.
    void confine(qint64 firstRecord, qint64 records);
    /// Says which records the next calls of read() are about.
    void hold(qint64 firstRecord, qint64 lastRecord);
    /// Positions before the beginning and behind the end give the first and the last sample of the channel.
    Outcome read(int channel, qint64 first, int count, qint32 *out);

private:
    Outcome readHeader();
    void readSignals(const EdfLayout &layout);

    EdfHeader m_header;
    std::unique_ptr<EdfFileScan> m_scan;
    EdfRecords m_records;
    QVector<EdfAnnotation> m_annotations;
    qint64 m_firstRecord = 0; ///< that can be read
    qint64 m_endRecord = 0;
};

} // namespace bp
