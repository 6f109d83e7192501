#pragma once

#include "common/detail/Outcome.h"
#include "files/edf/EdfHeader.h"
#include "files/edf/EdfJournal.h"
#include "files/edf/EdfLayout.h"

#include <QList>
#include <QString>
#include <QTemporaryFile>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace bp {

/// A pause in a discontinuous recording, in ticks from the first sample.
struct EdfPause
{
    qint64 record; ///< the first one behind it
    qint64 start;
    qint64 duration;
};

/// The header, the annotations and the gaps of a file, also of one that EDFlib rejects although its data are sound: a
/// recording that was not closed, a discontinuous one, or one with the faults that EdfHeaderRepair mends or with
/// malformed annotations.
///
/// EDFlib gets a small stand-in of such a file to open, the mended header with one empty record; annotations and pauses
/// are read here, and samples come from the file itself. The file is never written.
class EdfFileScan
{
public:
    /// Reads the header.
    /// @param cutsTail take the records that are there, no more than the header announces, instead of refusing a file
    ///                 whose size contradicts its header
    explicit EdfFileScan(const QString &path, bool cutsTail = false);
    /// Reads the annotations and the times of the records. Nothing when the file cannot be read.
    /// @param cancelled asked now and then; true ends the reading, which then failed as "cancelled"
    void readAnnotations(const std::function<bool()> &cancelled = {});

    /// Whether the file can be read.
    const Outcome &outcome() const { return m_outcome; }
    /// One sentence on what a user should know of a file that can be read; empty when all of it is there.
    QString notice() const { return m_notice; }
    /// With the mended header.
    const EdfLayout &layout() const { return m_layout; }
    /// The mended header with the number of whole records, of a discontinuous recording too.
    QByteArray headerBytes() const;
    qint64 records() const { return m_records; }
    qint64 recordTicks() const { return m_recordTicks; }
    /// The time at which the first record begins; those of annotations and pauses are measured from there.
    qint64 firstOnset() const { return m_firstOnset; }
    const std::vector<EdfPause> &pauses() const { return m_pauses; }
    /// Those of the journal that the file lacks come last.
    const QVector<EdfAnnotation> &annotations() const { return m_annotations; }
    /// What the recording's journal holds and the file does not.
    const QVector<EdfAnnotation> &missingAnnotations() const { return m_missingAnnotations; }
    /// Records of a continuous recording in which the time is missing, with the time that they should have, in ticks
    /// from the start of the file.
    const std::vector<std::pair<qint64, qint64>> &recordsWithoutTime() const { return m_recordsWithoutTime; }
    /// EDFlib opens the file, but takes it for something else.
    bool misleadsLibrary() const { return m_layout.isMisnamed && !m_layout.annotationSignals.isEmpty(); }

    /// The notice on a recording with labels in its journal only.
    /// @param hasRoom whether it has annotation signals
    static QString missingNotice(const QString &path, int count, bool hasRoom);
    /// The file for EDFlib, which disappears with the object; null when it cannot be written.
    std::unique_ptr<QTemporaryFile> standIn() const;

private:
    Outcome examine(QFile &file);
    Outcome countRecords(QFile &file);
    Outcome checkSize(QFile &file) const;
    void dropEmptyRecords(QFile &file);
    QByteArray recordBytes(QFile &file, qint64 record) const;
    QString describe() const;
    Outcome readLists(QFile &file, const std::function<bool()> &cancelled);
    Outcome placeRecord(qint64 record, qint64 onset);

    QString m_path;
    Outcome m_outcome = Outcome::good();
    QString m_notice;
    EdfLayout m_layout;
    qint64 m_records = 0;
    qint64 m_recordTicks = 0;
    qint64 m_firstOnset = 0;
    qint64 m_lastOnset = 0;
    int m_malformed = 0; ///< annotations
    int m_ignoredTimes = 0; ///< that contradict a continuous recording
    bool m_cutsTail;
    std::vector<EdfPause> m_pauses;
    std::vector<std::pair<qint64, qint64>> m_recordsWithoutTime;
    QVector<EdfAnnotation> m_annotations;
    QVector<EdfAnnotation> m_missingAnnotations;
};

} // namespace bp
