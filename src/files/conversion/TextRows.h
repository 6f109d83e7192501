#pragma once

#include "common/detail/Outcome.h"
#include "files/edf/OpenFile.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <vector>

namespace bp {

/// The lines of a text file as fields: what is common to all tables of numbers. A byte order mark, empty lines and
/// those that begin with '#' are skipped. Reasons of failures are one sentence with file name and line
/// number.
class TextRows
{
public:
    enum Separators {
        Blanks, ///< tabs and blanks, any number of them
        Any ///< semicolons or single tabs, where a comma is a decimal one; else commas, else blanks
    };

    TextRows(const QString &path, Separators separators);
    Outcome open();
    /// Goes to the next line with fields.
    /// @return false at the end, and when the line cannot be read, which outcome() tells
    bool next();
    /// Whether every line so far could be read.
    const Outcome &outcome() const { return m_outcome; }
    /// Of the line; views that are valid until the next one.
    const std::vector<QByteArray> &fields() const { return m_fields; }
    /// The finite number that a field of the line is.
    Outcome number(int field, double &value) const;
    /// A failure with a sentence about the line.
    Outcome failure(const QString &what) const;
    QString path() const { return m_file.fileName(); }
    bool atEnd() const { return m_file.atEnd(); }
    qint64 position() const { return m_file.pos(); } ///< bytes
    qint64 size() const { return m_file.size(); }

private:
    bool readLine();
    void split();

    QFile m_file;
    OpenFile m_use;
    Separators m_separators;
    QByteArray m_buffer;
    QByteArray m_line;
    std::vector<QByteArray> m_fields;
    qint64 m_lineNumber = 0;
    Outcome m_outcome = Outcome::good();
};

} // namespace bp
