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

bool appendRow(const bp::TextRows &rows, std::vector<std::vector<double>> &columns, QString &error)
{
    const std::size_t count = rows.fields().size();
    if (columns.empty()) {
        columns.resize(count);
    }
    if (count != columns.size()) {
        error = rows.fault(QStringLiteral("%1 columns instead of %2").arg(count).arg(columns.size()));
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        double value = 0.0;
        if (!rows.number(static_cast<int>(i), value, error)) {
            return false;
        }
        columns[i].push_back(value);
    }
    return true;
}

} // namespace

namespace bp {

bool readTextTable(const QString &path, std::vector<std::vector<double>> &columns, QString &error)
{
    TextRows rows(path, TextRows::Blanks);
    std::vector<std::vector<double>> read;
    QString fault;
    bool hasRow = rows.open(fault) && rows.next(fault);
    if (hasRow && isTitleLine(rows.fields())) {
        hasRow = rows.next(fault);
    }
    while (hasRow) {
        hasRow = appendRow(rows, read, fault) && rows.next(fault);
    }
    if (fault.isEmpty() && read.empty()) {
        fault = QStringLiteral("%1 contains no numbers.").arg(path);
    }
    if (!fault.isEmpty()) {
        error = fault;
        return false;
    }
    columns = std::move(read);
    return true;
}

} // namespace bp
