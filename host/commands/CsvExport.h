#pragma once

#include "files/FileConversion.h"

class EDFReader;
class QSaveFile;

/// Writes a recording as comma-separated values: a header line, then a line per sample with the time in seconds from
/// the first sample and a value per channel, with decimal points whatever the locale, UTF-8.
///
/// Values are the physical ones that the file tells every program; nothing is inverted. Times of a recording with gaps
/// are those of its records. Channels that are slower than the fastest have their values in the line nearest to their
/// time, and nothing in the others. Annotations are not written.
class CsvExport : public FileConversion
{
    Q_OBJECT
public:
    explicit CsvExport(QObject *parent = nullptr);

    bool convert(const QString &source, const QString &target);

private:
    QString write(const QString &source, const QString &target);
    QString writeLines(EDFReader &reader, QSaveFile &file);
};
