#pragma once

#include "common/detail/Outcome.h"
#include "files/EDFGap.h"
#include "files/edf/EdfHeader.h"
#include "files/edf/EdfRecords.h"

#include <QList>
#include <QString>

#include <memory>

class QTemporaryFile;
struct edf_annotation_struct;
struct edf_hdr_struct;

namespace bp {

class EdfFileScan;

/// A file that is open for reading: in EDFlib, or for one that EDFlib refuses although its data are sound, as a
/// stand-in there. What was found stays until the next open().
class EdfSession
{
public:
    EdfSession();
    ~EdfSession();

    /// @param shares also a file that this process has open already, which EDFlib refuses
    Outcome open(const QString &path, bool shares = false);
    void close();
    bool isOpen() const { return m_handle >= 0; }
    /// Its file type is negative when nothing was opened.
    const edf_hdr_struct &header() const { return *m_header; }
    EdfRecords &records() { return m_records; }
    /// Reads them again; with what a program that was killed while it closed the recording has left in its journal.
    /// @return false when EDFlib could not give all of them
    bool readAnnotations();
    QVector<EdfAnnotation> annotations() const;
    /// The same as EDFlib gives them.
    const QList<edf_annotation_struct> &libraryAnnotations() const { return m_annotations; }
    const QList<EDFGap> &gaps() const { return m_gaps; }
    /// One sentence on what a user should know; empty when there is nothing.
    QString notice() const { return m_notice; }

private:
    int openInLibrary(EdfFileScan &scan, bool shares);
    int openStandIn(EdfFileScan &scan, int code);
    void addJournal();
    void forget();

    QString m_path;
    std::unique_ptr<edf_hdr_struct> m_header; ///< 200 kB
    int m_handle = -1;
    QList<edf_annotation_struct> m_annotations;
    QList<EDFGap> m_gaps;
    QString m_notice;
    std::unique_ptr<QTemporaryFile> m_standIn; ///< the file that EDFlib has open instead, of one empty record
    EdfRecords m_records; ///< of the file itself
};

} // namespace bp
