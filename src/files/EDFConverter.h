#pragma once

#include "files/FileConversion.h"

#include <QDateTime>
#include <QStringList>
#include <QVector>

#include <functional>

namespace bp {
class RecordingCopy;
}

/// What becomes of a channel of the source.
struct EDFChannelChange
{
    QString source; ///< its label, or "#3" for the third channel
    QString label; ///< empty: as it was
    double factor = 1.0; ///< physical values are multiplied with it; the stored samples stay
    QString unit; ///< empty: as it was
    double rate = 0.0; ///< Hz; 0: as it was
};

/// How columns of numbers become channels.
struct EDFTextFormat
{
    double rate = 0.0; ///< Hz
    QStringList labels; ///< one per channel; empty: the line of labels, or the names of the files
    QString unit = QStringLiteral("uV");
    bool hasLabelLine = false; ///< the first line that is no comment holds labels
    QVector<int> columns; ///< of each file, counted from 1; empty: all
    QDateTime start; ///< invalid: not known, for which the format has 1985
};

/// Makes EDF and BDF files of others. Memory does not depend on their size.
///
/// Stored samples are copied bit for bit wherever no rate changes; limits, units, filters, patient and start time are
/// kept, and a BDF file gives a BDF file. Values are those that the file tells every program: nothing is inverted.
/// A part without a gap can be cropped from a recording with gaps (EDF+D); anything else is refused with the time of
/// the gap.
class BIOPROCESSING_EXPORT EDFConverter : public FileConversion
{
    Q_OBJECT
public:
    explicit EDFConverter(QObject *parent = nullptr);

    /// Keeps the samples with from ≤ t < to, and the annotations there, moved along; those that straddle are clipped.
    /// A file can begin only where all its channels have a sample: with several rates, and where no record duration
    /// fits, the cut holds a little more than was asked.
    /// @param from,to seconds from the first sample in the time of the file, which goes on in a gap; a negative `to`
    /// means the end
    bool crop(const QString &source, const QString &target, double from, double to);
    /// Writes the channels of the list, in its order; an empty list means all.
    ///
    /// A change of rate is a windowed sinc without delay, low-passed at 0.45 of the lower rate. Where channels of
    /// different rates would end apart, the last sample of the shorter is repeated.
    bool convertChannels(const QString &source, const QString &target, const QVector<EDFChannelChange> &channels);
    /// Makes a file of columns of numbers, those of several files side by side.
    ///
    /// Lines beginning with "#" and empty lines are skipped. Tabs or semicolons separate, then a comma is a decimal
    /// one; else commas or blanks. Values whose range fits 16 bits (24 for a target *.bdf) in whole decimal steps
    /// are stored exactly, others to a 65536th of the channel's range. Where no record duration fits the number of
    /// lines, the last values are repeated.
    bool convertText(const QStringList &sources, const QString &target, const EDFTextFormat &format);

    /// Labels of a file's channels, empty with lastError() unset when it cannot be read.
    static QStringList channelLabels(const QString &path, QString *error = nullptr);

private:
    QString run(bp::RecordingCopy &copy, const QString &source, const QString &target);
    std::function<bool(qint64, qint64)> tick();
};
