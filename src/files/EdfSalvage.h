#pragma once

#include "files/EDFGap.h"
#include "files/EdfJournal.h"
#include "files/EdfLayout.h"

#include <QList>
#include <QString>
#include <QTemporaryFile>

#include <memory>

struct edf_annotation_struct;

namespace bp {

/// What a file holds that EDFlib refuses although its data are sound: a recording that was not closed, a discontinuous
/// one, or one with the faults that EdfHeaderRepair mends or with malformed annotations.
///
/// EDFlib gets a small stand-in to open, the mended header with one empty record; annotations and pauses are read here,
/// and samples come from the file itself. The file is never written.
class EdfSalvage
{
public:
    /// @param cutsTail count the records that are there, whatever the header says, instead of refusing the file
    explicit EdfSalvage(const QString &path, bool cutsTail = false);
    ~EdfSalvage();

    /// Why the file cannot be read, as part of a sentence; empty when it can.
    QString reason() const { return m_reason; }
    /// One sentence on what a user should know of a file that can be read; empty when all of it is there.
    QString notice() const { return m_notice; }
    const EdfLayout &layout() const { return m_layout; }
    /// The mended header with the number of whole records, of a discontinuous recording too.
    QByteArray header() const;
    qint64 records() const { return m_records; }
    /// In 100 ns: the time at which the first record begins; those of annotations and gaps are measured from there.
    long long firstOnset() const { return m_firstOnset; }
    const QList<EDFGap> &gaps() const { return m_gaps; }
    const QList<edf_annotation_struct> &annotations() const { return m_annotations; }
    /// What the recording's journal holds, for a recording that was not closed.
    const QList<EdfJournal::Entry> &journal() const { return m_journal; }

    /// The file for EDFlib, which disappears with the object; null when it cannot be written.
    std::unique_ptr<QTemporaryFile> standIn() const;

    /// The entries of a journal that are not among a file's annotations, as EDFlib gives annotations.
    static QList<edf_annotation_struct> missingAnnotations(const QList<EdfJournal::Entry> &journal,
                                                           const QList<edf_annotation_struct> &present);

private:
    void examine(bool cutsTail);
    QString countFault(qint64 fileBytes, bool cutsTail);
    void dropEmptyRecords(QFile &file);
    QString readAnnotations(QFile &file);
    QString placeRecord(qint64 record, long long onset);

    QString m_path;
    QString m_reason;
    QString m_notice;
    EdfLayout m_layout;
    QByteArray m_header;
    qint64 m_records = 0;
    long long m_recordDuration = 0; ///< 100 ns
    long long m_firstOnset = 0;
    long long m_lastOnset = 0;
    int m_malformed = 0; ///< annotations and record times
    bool m_ignoresTimes = false;
    QList<EDFGap> m_gaps;
    QList<edf_annotation_struct> m_annotations;
    QList<EdfJournal::Entry> m_journal;
};

} // namespace bp
