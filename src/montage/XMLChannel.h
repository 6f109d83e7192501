#pragma once

#include "common/BPExport.h"

#include <QFile>
#include <QString>
#include <QStringList>
#include <QXmlStreamReader>

#include <vector>

class AmplifierChannel;
class QXmlStreamWriter;

/// Reads and writes the "Channel" elements of a montage file.
class BIOPROCESSING_EXPORT XMLChannel
{
public:
    XMLChannel();

    /// All channels of a file from its beginning, each as one line in the text form of AmplifierChannel. Children are
    /// taken in the order of the format; one that is not the expected one is skipped.
    /// @param file  opened when it is not open yet, and left open
    /// @return empty after an error
    QString readFile(QFile &file);
    /// Appends the line of the "Channel" element on which the reader stands.
    void readChannel(QString &lines);
    /// Where and why the last reading failed; empty when it did not.
    QString errorText() const { return m_error; }

    /// Writes the elements at the file's present position, to stand inside a root element that is already open.
    bool writeFile(QFile &file, const std::vector<AmplifierChannel *> &channels) const;
    void writeChannel(QXmlStreamWriter &writer, const AmplifierChannel &channel) const;

    /// Text as XML can carry it: characters that XML excludes become "_".
    static QString xmlText(QString text);

private:
    void doubleNext();
    QString plainValue(const QString &value) const;

    QStringList m_keys;
    QXmlStreamReader m_reader;
    QString m_error;
};
