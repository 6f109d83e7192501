#include "pipeline/TextTable.h"

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <cmath>

namespace bp {

namespace {

constexpr int kMaxLine = 1 << 20; ///< bytes; nothing that is a table has longer lines
const char kByteOrderMark[] = "\xEF\xBB\xBF";

bool isSeparator(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// The fields of a line, as \t+|\s+ splits it; views of the line.
void splitFields(const QByteArray &line, std::vector<QByteArray> &fields)
{
    fields.clear();
    const char *at = line.constData();
    const char *const end = at + line.size();
    while (at != end) {
        at = std::find_if_not(at, end, isSeparator);
        const char *const fieldEnd = std::find_if(at, end, isSeparator);
        if (fieldEnd != at) {
            fields.push_back(QByteArray::fromRawData(at, static_cast<int>(fieldEnd - at)));
        }
        at = fieldEnd;
    }
}

bool isNumber(const QByteArray &field)
{
    bool ok = false;
    field.toDouble(&ok);
    return ok;
}

/// Gathers the rows of one file.
class TableReader
{
public:
    /// False when the line is refused; error() tells why.
    bool addLine(QByteArray line)
    {
        ++m_lineNumber;
        if (m_lineNumber == 1 && line.startsWith(kByteOrderMark)) {
            line.remove(0, 3);
        }
        if (line.startsWith('#')) {
            return true;
        }
        splitFields(line, m_fields);
        return m_fields.empty() || isTitleLine() || addRow();
    }

    bool isEmpty() const { return m_columns.empty(); }
    int lineNumber() const { return m_lineNumber; }
    const QString &error() const { return m_error; }
    std::vector<std::vector<double>> takeColumns() { return std::move(m_columns); }

private:
    bool isTitleLine()
    {
        if (m_titlesSeen || !isEmpty() || std::any_of(m_fields.begin(), m_fields.end(), isNumber)) {
            return false;
        }
        m_titlesSeen = true;
        return true;
    }

    bool addRow()
    {
        if (isEmpty()) {
            m_columns.resize(m_fields.size());
        }
        if (m_fields.size() != m_columns.size()) {
            m_error = QStringLiteral("%1 columns instead of %2").arg(m_fields.size()).arg(m_columns.size());
            return false;
        }
        for (std::size_t i = 0; i < m_fields.size(); ++i) {
            bool ok = false;
            const double value = m_fields[i].toDouble(&ok);
            if (!ok || !std::isfinite(value)) {
                m_error = QStringLiteral("\"%1\" is not a finite number").arg(QString::fromUtf8(m_fields[i].left(40)));
                return false;
            }
            m_columns[i].push_back(value);
        }
        return true;
    }

    std::vector<std::vector<double>> m_columns;
    std::vector<QByteArray> m_fields;
    QString m_error;
    int m_lineNumber = 0;
    bool m_titlesSeen = false;
};

} // namespace

bool readTextTable(const QString &path, std::vector<std::vector<double>> &columns, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("%1 cannot be read: %2.").arg(path, file.errorString());
        return false;
    }
    TableReader reader;
    QByteArray buffer(kMaxLine, Qt::Uninitialized);
    for (;;) {
        const qint64 length = file.readLine(buffer.data(), buffer.size());
        if (length <= 0) {
            break;
        }
        const bool isTooLong = length == buffer.size() - 1 && buffer.at(static_cast<int>(length) - 1) != '\n';
        if (isTooLong || !reader.addLine(QByteArray::fromRawData(buffer.constData(), static_cast<int>(length)))) {
            error = isTooLong
                ? QStringLiteral("%1, line %2: not a table of numbers.").arg(path).arg(reader.lineNumber() + 1)
                : QStringLiteral("%1, line %2: %3.").arg(path).arg(reader.lineNumber()).arg(reader.error());
            return false;
        }
    }
    if (reader.isEmpty()) {
        error = QStringLiteral("%1 contains no numbers.").arg(path);
        return false;
    }
    columns = reader.takeColumns();
    return true;
}

} // namespace bp
