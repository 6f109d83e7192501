#pragma once

#include "files/conversion/TextRows.h"
#include "files/edf/EdfHeader.h"

#include <QStringList>
#include <QVector>

#include <functional>
#include <memory>
#include <vector>

namespace bp {

/// What the values of a column are like.
struct ColumnRange
{
    double least = 0.0;
    double most = 0.0;
    int decimals = 0; ///< most that any value has; negative: with exponents

    /// Limits that hold every value, exactly where the decimals allow it.
    bool setLimits(EdfSignalHeader &channel, bool bdf) const;
};

/// Columns of numbers of one or several text files, row by row. Reasons of failures are one sentence, with file and
/// line where there is one.
class ColumnText
{
public:
    /// @param columns of each file, counted from 1; empty: all
    ColumnText(const QStringList &paths, const QVector<int> &columns, bool hasLabelLine);
    /// Reads everything once.
    /// @param tick is told how much of twice the files is done, and ends the reading with false
    Outcome measure(std::vector<ColumnRange> &ranges, const std::function<bool(qint64, qint64)> &tick);
    Outcome rewind();
    /// @return false at the end, and when a row cannot be read, which outcome() tells
    bool readRow(std::vector<double> &row);
    /// Whether every row since rewind() could be read.
    const Outcome &outcome() const { return m_outcome; }
    QStringList labels() const;
    qint64 rows() const { return m_rows; }
    qint64 bytesRead() const;
    qint64 totalBytes() const { return 2 * m_bytes; }

private:
    struct Input
    {
        std::unique_ptr<TextRows> rows;
        std::size_t columns = 0; ///< in each line; 0: not known yet
        QStringList labels;
    };

    int chosenCount(const Input &input) const;
    int chosenColumn(int i) const;
    Outcome openInput(const QString &path);
    bool readInput(Input &input, std::vector<double> &row);

    QStringList m_paths;
    QVector<int> m_columns;
    bool m_hasLabelLine;
    std::vector<Input> m_inputs;
    std::vector<int> m_decimals; ///< of the row just read
    qint64 m_rows = 0;
    qint64 m_bytes = 0;
    bool m_second = false;
    Outcome m_outcome = Outcome::good();
};

} // namespace bp
