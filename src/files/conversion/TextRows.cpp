#include "files/conversion/TextRows.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kMaxLine = 1 << 20; ///< bytes; nothing that is a table has longer lines
constexpr int kShownBytes = 40;
const char kByteOrderMark[] = "\xEF\xBB\xBF";

bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

QByteArray view(const char *from, const char *to)
{
    return QByteArray::fromRawData(from, static_cast<int>(to - from));
}

QByteArray trimmedView(const char *from, const char *to)
{
    from = std::find_if_not(from, to, isBlank);
    while (to != from && isBlank(to[-1])) {
        --to;
    }
    return view(from, to);
}

} // namespace

namespace bp {

TextRows::TextRows(const QString &path, Separators separators)
    : m_file(path)
    , m_separators(separators)
    , m_buffer(kMaxLine, Qt::Uninitialized)
{
}

Outcome TextRows::open()
{
    const bool opened = m_file.open(QIODevice::ReadOnly);
    if (opened && !m_file.isSequential()) {
        m_use.hold(m_file);
        return Outcome::good();
    }
    return Outcome::failure(QStringLiteral("%1 cannot be read: %2.")
                                .arg(path(), opened ? QStringLiteral("it is not a file") : m_file.errorString()));
}

bool TextRows::next()
{
    while (readLine()) {
        split();
        if (!m_fields.empty()) {
            return true;
        }
    }
    m_fields.clear();
    return false;
}

bool TextRows::readLine()
{
    const qint64 length = m_file.readLine(m_buffer.data(), m_buffer.size());
    if (length <= 0) {
        return false;
    }
    ++m_lineNumber;
    if (length == m_buffer.size() - 1 && m_buffer.at(static_cast<int>(length) - 1) != '\n') {
        m_outcome = failure(QStringLiteral("not a table of numbers"));
        return false;
    }
    m_line = QByteArray(m_buffer.constData(), static_cast<int>(length));
    if (m_lineNumber == 1 && m_line.startsWith(kByteOrderMark)) {
        m_line.remove(0, 3);
    }
    return true;
}

void TextRows::split()
{
    m_fields.clear();
    const char *const begin = m_line.constData();
    const char *const end = begin + m_line.size();
    const char *const first = std::find_if_not(begin, end, isBlank);
    if (first == end || *first == '#') {
        return;
    }
    const bool isAny = m_separators == Any;
    const char separator = isAny && m_line.contains(';') ? ';'
        : isAny && m_line.contains('\t')                 ? '\t'
        : isAny && m_line.contains(',')                  ? ','
                                                         : ' ';
    if (separator == ';' || separator == '\t') {
        std::replace(m_line.begin(), m_line.end(), ',', '.');
    }
    const auto ends = [separator](char c) { return separator == ' ' ? isBlank(c) : c == separator; };
    for (const char *at = m_line.constData(), *const lineEnd = at + m_line.size(); at != lineEnd;) {
        at = separator == ' ' ? std::find_if_not(at, lineEnd, isBlank) : at;
        const char *const fieldEnd = std::find_if(at, lineEnd, ends);
        const QByteArray field = trimmedView(at, fieldEnd);
        // Nothing behind the last separator is no field: some programs end their lines with one.
        if (!field.isEmpty() || (separator != ' ' && fieldEnd != lineEnd)) {
            m_fields.push_back(field);
        }
        at = fieldEnd == lineEnd ? lineEnd : fieldEnd + 1;
    }
}

Outcome TextRows::number(int field, double &value) const
{
    const QByteArray &text = m_fields.at(static_cast<std::size_t>(field));
    bool isNumber = false;
    value = text.toDouble(&isNumber);
    if (isNumber && std::isfinite(value)) {
        return Outcome::good();
    }
    return failure(QStringLiteral("\"%1\" is not a finite number").arg(QString::fromUtf8(text.left(kShownBytes))));
}

Outcome TextRows::failure(const QString &what) const
{
    return Outcome::failure(QStringLiteral("%1, line %2: %3.").arg(path()).arg(m_lineNumber).arg(what));
}

} // namespace bp
