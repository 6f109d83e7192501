#include "files/ColumnText.h"

#include "base/FileUtilities.h"

#include <algorithm>

namespace {

constexpr qint64 kMaxLine = 1024 * 1024;
constexpr int kMaxDecimals = 6;
constexpr int kTickRows = 4096;

QList<QByteArray> split(QByteArray line)
{
    const bool semicolons = line.contains(';');
    if (semicolons || line.contains('\t')) {
        line.replace(',', '.');
    }
    const char separator = semicolons ? ';' : line.contains('\t') ? '\t' : line.contains(',') ? ',' : ' ';
    QList<QByteArray> fields = (separator == ' ' ? line.simplified() : line).split(separator);
    if (fields.constLast().trimmed().isEmpty()) { // some programs end their lines with a separator
        fields.removeLast();
    }
    return fields;
}

int decimalsOf(const QByteArray &text)
{
    const int point = text.indexOf('.');
    return text.contains('e') || text.contains('E') ? -1 : point < 0 ? 0 : text.size() - point - 1;
}

} // namespace

namespace bp {

bool ColumnRange::setLimits(EdfChannelFacts &channel, bool bdf) const
{
    channel.digitalMinimum = bdf ? -8388608 : -32768;
    channel.digitalMaximum = bdf ? 8388607 : 32767;
    const double scale = std::pow(10.0, decimals);
    const double steps = double{1} * channel.digitalMaximum - channel.digitalMinimum;
    const double lowest = std::round(least * scale);
    const bool fits = lowest >= channel.digitalMinimum && most * scale <= channel.digitalMaximum;
    if (decimals >= 0 && decimals <= kMaxDecimals && (fits || most * scale - lowest <= steps)) {
        const double first = fits ? channel.digitalMinimum : lowest;
        channel.physicalMinimum = edfNumber(first / scale);
        channel.physicalMaximum = edfNumber((first + steps) / scale);
        if (!channel.physicalMinimum.isEmpty() && !channel.physicalMaximum.isEmpty()
            && channel.physicalMinimum.toDouble() == first / scale
            && channel.physicalMaximum.toDouble() == (first + steps) / scale) {
            return true;
        }
    }
    // Rounding the limits must not leave a value outside.
    const double width = std::max({most - least, 1e-6 * std::max(std::fabs(least), std::fabs(most)), 1e-3});
    for (const double margin : {0.0, 1e-6, 1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1.0}) {
        channel.physicalMinimum = edfNumber(least - margin * width);
        channel.physicalMaximum = edfNumber(most + margin * width);
        if (!channel.physicalMinimum.isEmpty() && !channel.physicalMaximum.isEmpty()
            && channel.physicalMinimum.toDouble() <= least && channel.physicalMaximum.toDouble() >= most
            && channel.physicalMinimum.toDouble() < channel.physicalMaximum.toDouble()) {
            return true;
        }
    }
    return false;
}

ColumnText::ColumnText(const QStringList &paths, const QVector<int> &columns, bool hasLabelLine)
    : m_paths(paths)
    , m_columns(columns)
    , m_hasLabelLine(hasLabelLine)
{
}

QString ColumnText::at(const Input &input, const QString &what) const
{
    return QStringLiteral("%1, line %2: %3.").arg(input.file->fileName()).arg(input.line).arg(what);
}

bool ColumnText::rewind(QString &error)
{
    m_second = m_rows > 0;
    m_inputs.clear();
    m_bytes = 0;
    for (const QString &path : qAsConst(m_paths)) {
        Input input;
        input.file = std::make_unique<QFile>(path);
        if (!input.file->open(QIODevice::ReadOnly) || input.file->isSequential()) {
            error =
                QStringLiteral("Cannot read %1: %2.")
                    .arg(path, input.file->isOpen() ? QStringLiteral("it is not a file") : input.file->errorString());
            return false;
        }
        m_bytes += input.file->size();
        QList<QByteArray> fields;
        if (m_hasLabelLine && readFields(input, fields, error)) {
            for (const QByteArray &field : qAsConst(fields)) {
                input.labels << QString::fromUtf8(field).remove(QLatin1Char('"')).trimmed();
            }
        }
        m_inputs.push_back(std::move(input));
    }
    if (m_inputs.empty()) {
        error = QStringLiteral("There is no text file to convert.");
    }
    return error.isEmpty();
}

bool ColumnText::readFields(Input &input, QList<QByteArray> &fields, QString &error) const
{
    while (!input.file->atEnd()) {
        QByteArray line = input.file->readLine(kMaxLine);
        ++input.line;
        if (input.line == 1 && line.startsWith("\xef\xbb\xbf")) {
            line.remove(0, 3);
        }
        if (line.size() >= kMaxLine - 1) {
            error = at(input, QStringLiteral("it is too long for a line of numbers"));
            return false;
        }
        while (line.endsWith('\n') || line.endsWith('\r')) {
            line.chop(1);
        }
        if (!line.trimmed().isEmpty() && !line.trimmed().startsWith('#')) {
            fields = split(line);
            return true;
        }
    }
    return false;
}

bool ColumnText::readInput(Input &input, std::vector<double> &row, QString &error)
{
    QList<QByteArray> fields;
    if (!readFields(input, fields, error)) {
        return false;
    }
    if (input.columns != 0 && fields.size() != input.columns) {
        error = at(input,
                   QStringLiteral("it has %1 columns, the lines before have %2").arg(fields.size()).arg(input.columns));
        return false;
    }
    input.columns = fields.size();
    const int count = m_columns.isEmpty() ? fields.size() : m_columns.size();
    for (int i = 0; i < count; ++i) {
        const int column = m_columns.isEmpty() ? i : m_columns[i] - 1;
        const QByteArray text = fields.value(column).trimmed();
        bool isNumber = false;
        const double value = text.toDouble(&isNumber);
        if (column < 0 || column >= fields.size()) {
            error = at(input, QStringLiteral("there is no column %1").arg(column + 1));
        } else if (!isNumber || !std::isfinite(value)) {
            error = at(input, QStringLiteral("\"%1\" is no number").arg(QString::fromUtf8(text.left(40))));
        }
        if (!error.isEmpty()) {
            return false;
        }
        row.push_back(value);
        m_decimals.push_back(decimalsOf(text));
    }
    return true;
}

bool ColumnText::readRow(std::vector<double> &row, QString &error)
{
    std::vector<double> read;
    read.reserve(row.size());
    m_decimals.clear();
    std::size_t ended = 0;
    for (Input &input : m_inputs) {
        ended += readInput(input, read, error) ? 0 : 1;
        if (!error.isEmpty()) {
            return false;
        }
    }
    if (ended > 0 && ended < m_inputs.size()) {
        for (const Input &input : m_inputs) {
            if (input.file->atEnd() && error.isEmpty()) {
                error = at(input, QStringLiteral("the file ends here, while others go on"));
            }
        }
    }
    if (ended > 0) {
        return false;
    }
    row = std::move(read);
    return true;
}

bool ColumnText::measure(std::vector<ColumnRange> &ranges, const std::function<bool(qint64, qint64)> &tick,
                         QString &error)
{
    if (!rewind(error)) {
        return false;
    }
    std::vector<double> row;
    while (readRow(row, error)) {
        if (m_rows == 0) {
            for (const double value : row) {
                ranges.push_back({value, value, 0});
            }
        }
        for (std::size_t i = 0; i < row.size(); ++i) {
            ColumnRange &range = ranges[i];
            range.least = std::min(range.least, row[i]);
            range.most = std::max(range.most, row[i]);
            range.decimals = m_decimals[i] < 0 || range.decimals < 0 ? -1 : std::max(range.decimals, m_decimals[i]);
        }
        if (++m_rows % kTickRows == 0 && !tick(bytesRead(), totalBytes())) {
            error = QStringLiteral("cancelled");
        }
        if (!error.isEmpty()) {
            return false;
        }
    }
    if (error.isEmpty() && m_rows == 0) {
        error = QStringLiteral("%1 holds no numbers.").arg(m_paths.join(QStringLiteral(", ")));
    }
    return error.isEmpty();
}

QStringList ColumnText::labels() const
{
    QStringList labels;
    for (const Input &input : m_inputs) {
        const int count = m_columns.isEmpty() ? input.columns : m_columns.size();
        const QString name = FileUtilities::filename(input.file->fileName());
        for (int i = 0; i < count; ++i) {
            const int column = m_columns.isEmpty() ? i : m_columns[i] - 1;
            const QString label = input.labels.value(column);
            const QString number = count == 1 ? QString() : QLatin1Char(' ') + QString::number(column + 1);
            labels << (!label.isEmpty() ? label : name.left(16 - number.size()) + number);
        }
    }
    return labels;
}

qint64 ColumnText::bytesRead() const
{
    qint64 bytes = m_second ? m_bytes : 0;
    for (const Input &input : m_inputs) {
        bytes += input.file->pos();
    }
    return bytes;
}

} // namespace bp
