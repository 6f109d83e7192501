#pragma once

#include "files/edf/EdfRecordPlan.h"

#include <QSaveFile>
#include <QString>

#include <memory>
#include <vector>

namespace bp {

/// Writes an EDF(+) or BDF(+) file, record by record, with whatever limits, rates and annotations it is given. Under
/// its name there is nothing new before commit(), and everything afterwards: a file that EDFReader has opened.
class EdfSink
{
public:
    EdfSink() = default;
    ~EdfSink();
    EdfSink(const EdfSink &) = delete;
    EdfSink &operator=(const EdfSink &) = delete;

    /// @param facts samplesPerRecord are those of the records to be written
    /// @param notes sorted by onset; a file with notes becomes EDF+ or BDF+
    bool open(const QString &path, const EdfFacts &facts, const EdfRecordPlan &plan, const QVector<EdfNote> &notes,
              QString &error);
    /// @param samples samplesPerRecord values of each channel, channel after channel
    bool writeRecord(const std::vector<qint32> &samples, QString &error);
    /// Takes the place of what has the name, if the file can be read. Nothing is left behind otherwise.
    bool commit(QString &error);
    int samplesPerRecord() const { return m_samples; }

private:
    QString readBack() const;
    QByteArray header() const;
    static QByteArray signalFields(const QVector<EdfChannelFacts> &channels);
    void sizeNoteBlock();
    qint64 placeNotes(qint64 record, qint64 next, QByteArray *block) const;
    QByteArray timekeeping(qint64 record) const;
    qint64 longestTimekeeping() const;

    QString m_target;
    std::unique_ptr<QSaveFile> m_file; ///< beside the target, until it has been read
    EdfFacts m_facts;
    EdfRecordPlan m_plan;
    QVector<EdfNote> m_notes;
    int m_samples = 0; ///< of all channels in a record
    int m_noteBytes = 0; ///< size of the annotation signal in a record; 0: none
    qint64 m_record = 0;
    qint64 m_nextNote = 0;
    QByteArray m_buffer;
};

} // namespace bp
