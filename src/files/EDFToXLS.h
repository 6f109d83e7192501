#pragma once

#include "files/FileConversion.h"

/// Writes a recording into a spreadsheet, an Office Open XML workbook whatever its suffix.
///
/// Sheet "Information" has the header of the file, "Annotations" the onsets and durations in seconds and the texts. The
/// samples stand on one sheet per sampling rate, "Data" or, where there are several rates, "Data 250 Hz": a column with
/// the time in seconds from the first sample, then one per channel with its unit. A full sheet is continued on
/// "Data (2)". Values are the physical ones that the file tells every program; nothing is inverted. Times of a
/// recording with gaps are those of its records.
///
/// The workbook is built in memory, with about 340 bytes per cell (1.4 GB at the limit), and refused above kMaxCells:
/// crop the recording, or choose channels.
class BIOPROCESSING_EXPORT EDFToXLS : public FileConversion
{
    Q_OBJECT
public:
    static constexpr qint64 kMaxCells = 4'000'000;
    static constexpr int kMaxRows = 1'048'576; ///< of the file format

    explicit EDFToXLS(QObject *parent = nullptr);

    /// Samples and header line of a sheet; fewer than kMaxRows for programs that take no more.
    void setRowsPerSheet(int rows) { m_rowsPerSheet = qBound(2, rows, kMaxRows); }
    bool convert(const QString &source, const QString &target);

private:
    struct Job;

    QString write(const QString &source, const QString &target);
    QString writeSamples(Job &job);
    QString writeRate(Job &job, const QVector<int> &channels, const QString &name);

    int m_rowsPerSheet = kMaxRows;
};
