#pragma once

#include "files/EdfFacts.h"

#include <QFile>
#include <QString>

#include <functional>
#include <vector>

namespace bp {

/// An EDF or BDF file as conversion reads it: the digital samples as they stand, of any channel from any position, with
/// a megabyte of the file in memory. One thread at a time.
///
/// Header faults that say nothing about the data are overlooked: filled-in fields of annotation signals, a missing
/// annotation signal, a number of records that was never written.
class EdfSource
{
public:
    /// @param error what is wrong, as part of a sentence
    bool open(const QString &path, QString &error);
    const EdfFacts &facts() const { return m_facts; }
    qint64 records() const { return m_records; }
    qint64 recordTicks() const { return m_recordTicks; }
    double seconds() const { return static_cast<double>(m_records) * static_cast<double>(m_recordTicks) / kEdfTicks; }
    qint64 sampleCount(int channel) const { return m_records * m_facts.channels[channel].samplesPerRecord; }
    qint64 fileSize() const { return m_file.size(); }

    /// Reads all annotations, sorted by onset, and finds where the records are apart.
    /// @param cancelled asked now and then; true ends the reading
    bool scan(const std::function<bool()> &cancelled, QString &error);
    const QVector<EdfNote> &notes() const { return m_notes; }
    bool hasGaps() const { return m_hasGaps; }
    /// Ticks from the first sample of the file to that of a record. After scan().
    qint64 recordOnset(qint64 record) const;

    /// Says which records the next calls of read() are about.
    void hold(qint64 firstRecord, qint64 lastRecord);
    /// Positions before the beginning and behind the end give the first and the last sample of the channel.
    bool read(int channel, qint64 first, int count, qint32 *out, QString &error);

private:
    struct NoteSignal
    {
        qint64 position;
        qint64 bytes;
    };

    bool readHeader(QString &error);
    bool readFixed(const QByteArray &fixed, QString &error);
    bool readSignals(QString &error);
    bool countRecords(const QByteArray &text, QString &error);
    void takeNotes(const QByteArray &block, qint64 record, bool timekeeping);
    void settleOnsets();
    bool load(qint64 firstRecord, QString &error);

    QFile m_file;
    EdfFacts m_facts;
    QVector<NoteSignal> m_noteSignals;
    QVector<EdfNote> m_notes;
    std::vector<qint64> m_onsets; ///< only while there are gaps
    int m_signalCount = 0;
    qint64 m_headerBytes = 0;
    qint64 m_recordBytes = 0;
    qint64 m_recordTicks = 0;
    qint64 m_records = 0;
    bool m_hasGaps = false;

    QByteArray m_window;
    qint64 m_windowFirst = 0;
    qint64 m_windowCount = 0;
    qint64 m_holdFirst = 0;
    qint64 m_holdLast = 0;
};

} // namespace bp
