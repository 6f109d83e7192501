#pragma once

#include "files/edf/EdfHeader.h"

#include <QByteArray>
#include <QFile>
#include <QString>

namespace bp {

/// The annotations of a recording that is going on, in a text file beside it: those of "a.edf" in "a.edf.labels".
///
/// EDFlib writes annotations when a file is closed. What a program that is killed has annotated stands here: a first
/// line that tells which recording this is, then per annotation the onset and the duration in 0.1 ms (a negative
/// duration: none) and the text as it goes into the file, with blanks between them. A line is handed to the operating
/// system as it is written. A file of that name which is no journal is never touched.
class EdfJournal
{
public:
    static QString pathFor(const QString &recording);
    /// What a recording's header has in the fields of its date and time; ties the journal to the recording.
    /// @param header of the recording
    static QByteArray identity(const QByteArray &header);
    /// The annotations in a recording's journal; none when there is no journal, or it is another recording's. An
    /// incomplete last line is left out.
    static QVector<EdfAnnotation> read(const QString &recording, const QByteArray &identity);
    /// Those that are not among a file's annotations.
    static QVector<EdfAnnotation> missing(const QVector<EdfAnnotation> &journal, const QVector<EdfAnnotation> &present);

    /// Whether a recording's journal has any labels, whatever recording of that name they are of.
    static bool hasEntries(const QString &recording);

    /// For a recording just created. A journal without labels that an earlier recording of that name left is removed;
    /// one with labels stays, and this recording has none. The file is created with the first entry.
    void begin(const QString &recording, const QByteArray &identity);
    /// @return false when the journal could not take it
    bool append(const EdfAnnotation &annotation);
    /// Whether it took every entry, and is still there.
    bool isComplete() const { return m_isComplete && m_file.exists(); }
    /// Removes the journal: all of it is in the recording.
    void finish();
    /// Leaves the journal in its place.
    void keep();

private:
    bool create();

    QFile m_file;
    QByteArray m_identity;
    bool m_isUsable = false;
    bool m_isComplete = true;
};

} // namespace bp
