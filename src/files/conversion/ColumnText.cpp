#include "files/conversion/ColumnText.h"

#include "base/FileUtilities.h"
#include "files/edf/EdfLayout.h"

#include <algorithm>

namespace {

constexpr int kMaxDecimals = 6;
constexpr int kTickRows = 4096;
constexpr int kLabelWidth = bp::EdfLayout::kLabelWidth;

int decimalsOf(const QByteArray &text)
{
    const int point = text.indexOf('.');
    return text.contains('e') || text.contains('E') ? -1 : point < 0 ? 0 : text.size() - point - 1;
}

} // namespace

namespace bp {

bool ColumnRange::setLimits(EdfSignalHeader &channel, bool bdf) const
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

int ColumnText::chosenCount(const Input &input) const
{
    return m_columns.isEmpty() ? static_cast<int>(input.columns) : m_columns.size();
}

/// Of each line, counted from 0.
int ColumnText::chosenColumn(int i) const
{
    return m_columns.isEmpty() ? i : m_columns[i] - 1;
}

Outcome ColumnText::rewind()
{
    m_second = m_rows > 0;
    m_inputs.clear();
    m_bytes = 0;
    m_outcome =
        m_paths.isEmpty() ? Outcome::failure(QStringLiteral("There is no text file to convert.")) : Outcome::good();
    for (int i = 0; m_outcome && i < m_paths.size(); ++i) {
        m_outcome = openInput(m_paths[i]);
    }
    return m_outcome;
}

Outcome ColumnText::openInput(const QString &path)
{
    Input input;
    input.rows = std::make_unique<TextRows>(path, TextRows::Any);
    const Outcome opened = input.rows->open();
    if (!opened) {
        return opened;
    }
    m_bytes += input.rows->size();
    if (m_hasLabelLine && input.rows->next()) {
        for (const QByteArray &field : input.rows->fields()) {
            input.labels << QString::fromUtf8(field).remove(QLatin1Char('"')).trimmed();
        }
    }
    m_inputs.push_back(std::move(input));
    return m_inputs.back().rows->outcome();
}

/// Returns false at the end of the file, and when its row cannot be read.
bool ColumnText::readInput(Input &input, std::vector<double> &row)
{
    if (!input.rows->next()) {
        m_outcome = input.rows->outcome();
        return false;
    }
    const std::vector<QByteArray> &fields = input.rows->fields();
    if (input.columns != 0 && fields.size() != input.columns) {
        m_outcome =
            input.rows->failure(QStringLiteral("%1 columns instead of %2").arg(fields.size()).arg(input.columns));
        return false;
    }
    input.columns = fields.size();
    for (int i = 0; i < chosenCount(input); ++i) {
        const int column = chosenColumn(i);
        double value = 0.0;
        m_outcome = column >= 0 && column < static_cast<int>(fields.size())
            ? input.rows->number(column, value)
            : input.rows->failure(QStringLiteral("there is no column %1").arg(column + 1));
        if (!m_outcome) {
            return false;
        }
        row.push_back(value);
        m_decimals.push_back(decimalsOf(fields[static_cast<std::size_t>(column)]));
    }
    return true;
}

bool ColumnText::readRow(std::vector<double> &row)
{
    std::vector<double> read;
    read.reserve(row.size());
    m_decimals.clear();
    const Input *ended = nullptr;
    bool goesOn = false;
    for (Input &input : m_inputs) {
        const bool hasRow = readInput(input, read);
        if (!m_outcome) {
            return false;
        }
        ended = hasRow ? ended : &input;
        goesOn = goesOn || hasRow;
    }
    if (ended != nullptr && goesOn) {
        m_outcome = ended->rows->failure(QStringLiteral("the file ends here, while others go on"));
    }
    if (ended != nullptr) {
        return false;
    }
    row = std::move(read);
    return true;
}

Outcome ColumnText::measure(std::vector<ColumnRange> &ranges, const std::function<bool(qint64, qint64)> &tick)
{
    const Outcome opened = rewind();
    if (!opened) {
        return opened;
    }
    std::vector<double> row;
    while (readRow(row)) {
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
            return Outcome::failure(QStringLiteral("cancelled"));
        }
    }
    return m_outcome && m_rows == 0
        ? Outcome::failure(QStringLiteral("%1 holds no numbers.").arg(m_paths.join(QStringLiteral(", "))))
        : m_outcome;
}

QStringList ColumnText::labels() const
{
    QStringList labels;
    for (const Input &input : m_inputs) {
        const int count = chosenCount(input);
        const QString name = FileUtilities::filename(input.rows->path());
        for (int i = 0; i < count; ++i) {
            const int column = chosenColumn(i);
            const QString label = input.labels.value(column);
            const QString number = count == 1 ? QString() : QLatin1Char(' ') + QString::number(column + 1);
            labels << (!label.isEmpty() ? label : name.left(kLabelWidth - number.size()) + number);
        }
    }
    return labels;
}

qint64 ColumnText::bytesRead() const
{
    qint64 bytes = m_second ? m_bytes : 0;
    for (const Input &input : m_inputs) {
        bytes += input.rows->position();
    }
    return bytes;
}

} // namespace bp
