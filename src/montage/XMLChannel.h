#pragma once

#include "common/BPExport.h"

#include <QFile>
#include <QMap>
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
    /// Appends the line of the "Channel" element on which the reader stands. Separators of the text form within a value
    /// become "_".
    void readChannel(QString &lines);
    /// Gives channels that were made of the lines of readFile() their names as the file has them, separators included.
    void restoreNames(const std::vector<AmplifierChannel *> &channels) const;
    /// Where and why the last reading failed; empty when it did not.
    QString errorText() const { return m_error; }

    /// Writes the elements at the file's present position, to stand inside a root element that is already open. False
    /// when that fails, or for more channels than readFile() takes (Montage::kMaxChannels), of which it writes none.
    bool writeFile(QFile &file, const std::vector<AmplifierChannel *> &channels) const;
    void writeChannel(QXmlStreamWriter &writer, const AmplifierChannel &channel) const;

    /// Text as XML can carry it: characters that XML excludes become "_".
    static QString xmlText(QString text);

private:
    void doubleNext();
    static QString plainValue(QString value);

    QStringList m_keys;
    QXmlStreamReader m_reader;
    QMap<int, QString> m_names; ///< by the number of the line: the names that the text form cannot carry
    QString m_error;
};
