#pragma once

#include <QByteArray>
#include <QList>

class QFile;

namespace bp {

/// Positions and sizes of the parts of an EDF or BDF file, read from its header. In bytes.
struct EdfLayout
{
    // The fixed part of the header. Numbers are ASCII, left-justified and padded with blanks.
    static constexpr int kPatientAt = 8;
    static constexpr int kRecordingAt = 88;
    static constexpr int kTextWidth = 80;
    static constexpr int kStartAt = 168; ///< date, then time
    static constexpr int kStartWidth = 16;
    static constexpr int kHeaderBytesAt = 184;
    static constexpr int kReservedAt = 192;
    static constexpr int kReservedWidth = 44;
    static constexpr int kRecordCountAt = 236;
    static constexpr int kDurationAt = 244;
    static constexpr int kSignalCountAt = 252;
    static constexpr int kSignalCountWidth = 4;
    static constexpr int kNumberWidth = 8;
    static constexpr int kFixedBytes = 256;
    // The fields of the signals, one field after the other, each for all signals: the bytes per signal before a field,
    // and its width.
    static constexpr int kLabelWidth = 16;
    static constexpr int kTransducerBefore = 16;
    static constexpr int kTransducerWidth = 80;
    static constexpr int kDimensionBefore = 96;
    static constexpr int kPhysicalMinimumBefore = 104;
    static constexpr int kPhysicalMaximumBefore = 112;
    static constexpr int kDigitalMinimumBefore = 120;
    static constexpr int kDigitalMaximumBefore = 128;
    static constexpr int kPrefilterBefore = 136;
    static constexpr int kPrefilterWidth = 80;
    static constexpr int kSampleCountBefore = 216;
    static constexpr int kSignalReservedBefore = 224;
    static constexpr int kSignalReservedWidth = 32;

    static constexpr qint64 kUnknownRecords = -1; ///< in the header while a recording goes on
    static constexpr qint64 kMostRecords = 99999999; ///< that the header's field can tell
    static constexpr qint64 kMostRecordBytes = 15 * 1024 * 1024; ///< that EDFlib reads

    struct Block
    {
        qint64 at = 0; ///< in a record
        qint64 samples = 0;
    };

    QByteArray headerBytes; ///< the whole header; empty: this is no EDF or BDF file
    bool isBdf = false;
    bool isPlus = false; ///< EDF+ or BDF+
    /// A BDF file that calls itself EDF+, or the other way round. EDFlib takes it for a plain one, and its annotations
    /// for a signal.
    bool isMisnamed = false;
    bool isDiscontinuous = false;
    int signalCount = 0;
    int sampleBytes = 2;
    qint64 recordBytes = 0; ///< 0: the numbers of samples are none that a file can have
    qint64 records = 0; ///< as the header says
    QList<Block> blocks; ///< one per signal
    QList<int> annotationSignals; ///< their numbers; none in a file that is not an EDF+ or BDF+ one
    QList<qint64> annotationBlocks; ///< where they stand in a record
    qint64 annotationBytes = 0; ///< size of the last such block

    /// @param file at its beginning; is left behind the header
    static EdfLayout read(QFile &file);
    int fieldAt(int signal, int before, int width) const;
    /// Without the blanks around it.
    QByteArray field(int position, int width) const { return headerBytes.mid(position, width).trimmed(); }
    QByteArray signalField(int signal, int before, int width) const
    {
        return field(fieldAt(signal, before, width), width);
    }
    QByteArray kind() const { return isBdf ? QByteArrayLiteral("BDF") : QByteArrayLiteral("EDF"); }
    /// Of either format: some programs take the label of the other one.
    static bool isAnnotationLabel(const QByteArray &label);
    bool isUnclosed() const { return records == kUnknownRecords; }
    qint64 blockBytes(int signal) const { return blocks[signal].samples * sampleBytes; }
    /// Of a file of that size.
    qint64 wholeRecords(qint64 fileBytes) const;
};

} // namespace bp
