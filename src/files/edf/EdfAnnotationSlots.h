#pragma once

#include <QByteArray>
#include <QList>

class QFile;

namespace bp {

struct EdfAnnotation;
struct EdfLayout;

/// The room for annotations in the records of a file of ours: one slot per record and annotation signal.
class EdfAnnotationSlots
{
public:
    /// An annotation as EDFlib writes it, in whole 0.1 ms.
    static QByteArray list(const EdfAnnotation &annotation);
    /// Whether a file has these annotations where EDFlib puts them, one in each slot.
    static bool hold(QFile &file, const EdfLayout &layout, qint64 records, const QList<QByteArray> &lists);
    /// Writes annotations over those of a file, in the order in which EDFlib fills its slots: one each, or several when
    /// there are more annotations than slots. The file does not grow, so that this works on a full disk.
    /// @return how many found room; −1 when the file cannot be written
    static int write(QFile &file, const EdfLayout &layout, qint64 records, const QList<QByteArray> &lists);
    /// As write(), but what stands in the file stays: into empty slots, one each, or wherever there is room when there
    /// are more annotations than empty slots.
    static int add(QFile &file, const EdfLayout &layout, qint64 records, const QList<QByteArray> &lists);
    /// Puts the time of a record, in 100 ns from the start of the file, before what its first slot holds.
    /// @return false when there is no room, or the file cannot be written
    static bool writeTime(QFile &file, const EdfLayout &layout, qint64 record, qint64 ticks);
};

} // namespace bp
