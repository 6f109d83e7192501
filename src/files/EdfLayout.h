#pragma once

#include <QByteArray>
#include <QList>

class QFile;

namespace bp {

/// Where things stand in an EDF or BDF file, read from its header. Positions and sizes are bytes.
struct EdfLayout
{
    // The fixed part of the header. Numbers are ASCII, left-justified and padded with blanks.
    static constexpr int kReservedAt = 192;
    static constexpr int kReservedWidth = 44;
    static constexpr int kRecordCountAt = 236;
    static constexpr int kNumberWidth = 8;
    // The fields of the signals, one field after the other, each for all signals: the bytes per signal before a field,
    // and its width.
    static constexpr int kTransducerBefore = 16;
    static constexpr int kTransducerWidth = 80;
    static constexpr int kPrefilterBefore = 136;
    static constexpr int kPrefilterWidth = 80;

    QByteArray header; ///< all of it; empty: this is no EDF or BDF file
    int signalCount = 0;
    qint64 recordBytes = 0;
    qint64 records = 0; ///< as the header says
    QList<int> annotationSignals; ///< their numbers
    QList<qint64> annotationBlocks; ///< where they stand in a record
    qint64 annotationBytes = 0; ///< size of the last such block

    /// @param file at its beginning; is left behind the header
    static EdfLayout read(QFile &file);
    int fieldAt(int signal, int before, int width) const;
};

} // namespace bp
