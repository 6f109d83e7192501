#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <limits>

class QFile;

namespace bp {

struct EdfAnnotation;
struct EdfLayout;

/// Sees to it that a recording can be read wherever a record was complete, also when writing failed in between.
///
/// After a failed write (a full disk, a lost share) EDFlib goes on at whatever place the file has come to, may lose the
/// annotations, which it writes at the end, and closes a file whose size contradicts its header, which readers refuse.
/// The guard remembers what was in place at the first failure, and cuts the closed file to it, with the right number of
/// records in its header and with the annotations, as far as there is room.
class EdfRecordGuard
{
public:
    /// For a file just created.
    void begin(const QString &path);
    /// After each record.
    void noteRecord(bool written);
    /// After each annotation.
    /// @param annotation with the text as EdfText::annotation() gives it
    void noteAnnotation(const EdfAnnotation &annotation);
    bool hasFailed() const { return m_soundBytes != kUnlimited; }
    /// Records written before the first failure.
    qint64 soundRecords() const { return m_soundRecords; }
    qint64 annotationCount() const { return m_annotations.size(); }
    /// Before the file is closed. EDFlib then writes the annotations, so that a file that has been cut by others would
    /// get its length back, but not its records.
    void beginClose();
    /// Mends the closed file; a sound one is not touched. Where there are more annotations than slots, several share
    /// one.
    /// @return whether every record noted is in the file; soundRecords() tells how many are
    bool mend();
    /// Annotations that are not in the file after mend().
    qint64 lostAnnotations() const { return m_lostAnnotations; }

private:
    static constexpr qint64 kUnlimited = std::numeric_limits<qint64>::max();

    qint64 cutToSoundRecords();
    qint64 placeAnnotations(QFile &file, const EdfLayout &layout, qint64 records) const;

    QString m_path;
    qint64 m_soundRecords = 0;
    qint64 m_soundBytes = kUnlimited; ///< of the file on disk at the first failure
    qint64 m_lostAnnotations = 0;
    QList<QByteArray> m_annotations; ///< as they stand in the file
};

} // namespace bp
