#pragma once

#include "files/edf/EdfContents.h"
#include "files/edf/EdfFacts.h"
#include "files/edf/EdfRecords.h"

#include <QString>

#include <functional>
#include <memory>

namespace bp {

/// An EDF or BDF file as conversion reads it: the digital samples as they stand, of any channel from any position.
/// Reads what EDFReader reads, without EDFlib. One thread at a time.
class EdfSource
{
public:
    /// @param error what is wrong, as part of a sentence
    bool open(const QString &path, QString &error);
    const EdfFacts &facts() const { return m_facts; }
    qint64 records() const { return m_contents->records(); }
    qint64 recordTicks() const { return m_contents->recordTicks(); }
    /// Of signal, without the pauses.
    double seconds() const { return static_cast<double>(records()) * edfTime(recordTicks()); }
    qint64 sampleCount(int channel) const { return records() * m_facts.channels[channel].samplesPerRecord; }

    /// Reads all annotations, sorted by onset, and finds where the records are apart. The start moves to the first
    /// sample.
    /// @param cancelled asked now and then; true ends the reading
    bool scan(const std::function<bool()> &cancelled, QString &error);
    const QVector<EdfNote> &notes() const { return m_notes; }
    /// One sentence on what a user should know of the file; empty when there is nothing. After scan().
    QString notice() const { return m_contents->notice(); }
    const std::vector<EdfPause> &pauses() const { return m_contents->pauses(); }
    /// Ticks from the first sample of the file to that of a record, pauses included. After scan().
    qint64 recordOnset(qint64 record) const;

    /// Makes read() take these records for the whole file.
    void confine(qint64 firstRecord, qint64 records);
    /// Says which records the next calls of read() are about.
    void hold(qint64 firstRecord, qint64 lastRecord);
    /// Positions before the beginning and behind the end give the first and the last sample of the channel.
    bool read(int channel, qint64 first, int count, qint32 *out, QString &error);

private:
    bool takeFacts(QString &error);
    void takeChannels(const EdfLayout &layout);

    EdfFacts m_facts;
    std::unique_ptr<EdfContents> m_contents;
    EdfRecords m_records;
    QVector<EdfNote> m_notes;
    qint64 m_firstRecord = 0; ///< that can be read
    qint64 m_endRecord = 0;
};

} // namespace bp
