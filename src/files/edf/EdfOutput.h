#pragma once

#include "common/detail/Outcome.h"
#include "files/edf/EdfRecordPlan.h"

#include <QSaveFile>
#include <QString>

#include <memory>
#include <vector>

namespace bp {

/// Writes an EDF(+) or BDF(+) file, record by record, with whatever limits, rates and annotations it is given. Under
/// its name there is nothing new before commit(), and everything afterwards: a file that EDFReader has opened.
class EdfOutput
{
public:
    EdfOutput() = default;
    ~EdfOutput();
    EdfOutput(const EdfOutput &) = delete;
    EdfOutput &operator=(const EdfOutput &) = delete;

    /// @param header samplesPerRecord are those of the records to be written
    /// @param annotations sorted by onset; a file with annotations becomes EDF+ or BDF+
    Outcome open(const QString &path, const EdfHeader &header, const EdfRecordPlan &plan,
                 const QVector<EdfAnnotation> &annotations);
    /// @param samples samplesPerRecord values of each channel, channel after channel
    Outcome writeRecord(const std::vector<qint32> &samples);
    /// Takes the place of what has the name, if the file can be read. Nothing is left behind otherwise.
    Outcome commit();
    int samplesPerRecord() const { return m_samples; }

private:
    Outcome readBack() const;
    QByteArray headerBytes() const;
    static QByteArray signalFields(const QVector<EdfSignalHeader> &channels);
    void sizeAnnotationBlock();
    qint64 placeAnnotations(qint64 record, qint64 next, QByteArray *block) const;
    QByteArray timekeeping(qint64 record) const;
    qint64 longestTimekeeping() const;

    QString m_target;
    std::unique_ptr<QSaveFile> m_file; ///< beside the target, until it has been read
    EdfHeader m_header;
    EdfRecordPlan m_plan;
    QVector<EdfAnnotation> m_annotations;
    int m_samples = 0; ///< of all channels in a record
    int m_annotationBytes = 0; ///< size of the annotation signal in a record; 0: none
    qint64 m_record = 0;
    qint64 m_nextAnnotation = 0;
    QByteArray m_buffer;
};

} // namespace bp
