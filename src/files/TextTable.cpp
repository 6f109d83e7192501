#include "files/TextTable.h"

#include "files/conversion/TextRows.h"

#include <algorithm>

namespace {

bool isTitleLine(const std::vector<QByteArray> &fields)
{
    return std::none_of(fields.begin(), fields.end(), [](const QByteArray &field) {
        bool isNumber = false;
        field.toDouble(&isNumber);
        return isNumber;
    });
}

bp::Outcome appendRow(const bp::TextRows &rows, std::vector<std::vector<double>> &columns)
{
    const std::size_t count = rows.fields().size();
    if (columns.empty()) {
        columns.resize(count);
    }
    if (count != columns.size()) {
        return rows.failure(QStringLiteral("%1 columns instead of %2").arg(count).arg(columns.size()));
    }
    for (std::size_t i = 0; i < count; ++i) {
        double value = 0.0;
        const bp::Outcome isNumber = rows.number(static_cast<int>(i), value);
        if (!isNumber) {
            return isNumber;
        }
        columns[i].push_back(value);
    }
    return bp::Outcome::good();
}

/// Fails with a sentence.
bp::Outcome readColumns(const QString &path, std::vector<std::vector<double>> &columns)
{
    bp::TextRows rows(path, bp::TextRows::Blanks);
    bp::Outcome outcome = rows.open();
    bool hasRow = outcome && rows.next();
    if (hasRow && isTitleLine(rows.fields())) {
        hasRow = rows.next();
    }
    while (hasRow) {
        outcome = appendRow(rows, columns);
        hasRow = outcome && rows.next();
    }
    if (!outcome || !rows.outcome()) {
        return outcome ? rows.outcome() : outcome;
    }
    return columns.empty() ? bp::Outcome::failure(QStringLiteral("%1 contains no numbers.").arg(path)) : outcome;
}

} // namespace

namespace bp {

bool readTextTable(const QString &path, std::vector<std::vector<double>> &columns, QString &error)
{
    std::vector<std::vector<double>> read;
    const Outcome outcome = readColumns(path, read);
    if (!outcome) {
        error = outcome.reason();
        return false;
    }
    columns = std::move(read);
    return true;
}

} // namespace bp
