#include "server/http/JsonBody.h"

#include <QJsonArray>

#include <algorithm>
#include <map>

namespace bp {

namespace {

constexpr ushort kByteOrderMark = 0xfeff;
constexpr QChar kFirstInString = QLatin1Char(' '); ///< control characters must be escaped
const QString kHexDigits = QStringLiteral("0123456789abcdefABCDEF");
const QString kEscapes = QStringLiteral("\"\\/bfnrt");
const QString kEscaped = QStringLiteral("\"\\/\b\f\n\r\t");

/// Reads one JSON text from left to right. A function that reads something stands behind it when it returns true.
class JsonReader
{
public:
    explicit JsonReader(const QString &text)
        : m_text(text)
        , m_at(text.startsWith(QChar(kByteOrderMark)) ? 1 : 0)
    {
    }

    bool readText(QJsonValue &value)
    {
        const bool isValue = readValue(value, 0);
        skipBlanks();
        return isValue && m_at == m_text.size();
    }

private:
    QChar current() const { return m_at < m_text.size() ? m_text[m_at] : QChar(); }

    bool skipIf(bool isThere, int count)
    {
        m_at += isThere ? count : 0;
        return isThere;
    }
    bool skip(char expected) { return skipIf(m_at < m_text.size() && m_text[m_at] == QLatin1Char(expected), 1); }
    bool skip(QLatin1String word) { return skipIf(m_text.midRef(m_at, word.size()) == word, word.size()); }

    void skipBlanks()
    {
        while (skip(' ') || skip('\t') || skip('\n') || skip('\r')) { }
    }
    bool skipAfterBlanks(char expected)
    {
        skipBlanks();
        return skip(expected);
    }

    bool readValue(QJsonValue &value, int depth)
    {
        skipBlanks();
        if (m_at == m_text.size() || depth > kMaxJsonDepth) {
            return false;
        }
        switch (current().unicode()) {
        case '{':
            return readObject(value, depth);
        case '[':
            return readArray(value, depth);
        case '"': {
            QString string;
            const bool isString = readString(string);
            value = string;
            return isString;
        }
        case 't':
            value = true;
            return skip(QLatin1String("true"));
        case 'f':
            value = false;
            return skip(QLatin1String("false"));
        case 'n':
            value = QJsonValue::Null;
            return skip(QLatin1String("null"));
        default:
            return readNumber(value);
        }
    }

    /// The bracket, the elements with commas between them, and the bracket at the end.
    template <class ReadElement> bool readList(char begin, char end, ReadElement readElement)
    {
        skip(begin);
        if (skipAfterBlanks(end)) {
            return true;
        }
        do {
            if (!readElement()) {
                return false;
            }
        } while (skipAfterBlanks(','));
        return skip(end);
    }

    bool readObject(QJsonValue &value, int depth)
    {
        std::map<QString, QJsonValue> members; // an object that grows in another order moves its members each time
        const bool isObject = readList('{', '}', [&] {
            QString name;
            skipBlanks();
            return readString(name) && skipAfterBlanks(':') && readValue(members[name], depth + 1);
        });
        QJsonObject object;
        for (const auto &[name, member] : members) {
            object.insert(name, member);
        }
        value = object;
        return isObject;
    }

    bool readArray(QJsonValue &value, int depth)
    {
        QJsonArray array;
        const bool isArray = readList('[', ']', [&] {
            QJsonValue element;
            const bool isValue = readValue(element, depth + 1);
            array.append(element);
            return isValue;
        });
        value = array;
        return isArray;
    }

    bool readString(QString &string)
    {
        if (!skip('"')) {
            return false;
        }
        while (m_at < m_text.size() && current() >= kFirstInString) {
            const int begin = m_at;
            while (current() != QLatin1Char('"') && current() != QLatin1Char('\\') && current() >= kFirstInString) {
                ++m_at;
            }
            string += m_text.midRef(begin, m_at - begin);
            if (skip('"')) {
                return true;
            }
            if (skip('\\') && !readEscape(string)) {
                return false;
            }
        }
        return false;
    }

    /// Behind the backslash. Half a surrogate pair is accepted.
    bool readEscape(QString &string)
    {
        if (!skip('u')) {
            const int escape = kEscapes.indexOf(current());
            string += escape >= 0 ? kEscaped[escape] : QChar();
            return skipIf(escape >= 0, 1);
        }
        const QStringRef digits = m_text.midRef(m_at, 4);
        const bool isHex = digits.size() == 4
            && std::all_of(digits.begin(), digits.end(), [](QChar digit) { return kHexDigits.contains(digit); });
        string += QChar(digits.toUShort(nullptr, 16));
        return skipIf(isHex, 4);
    }

    bool readNumber(QJsonValue &value)
    {
        const int begin = m_at;
        skip('-');
        if (!skip('0') && !skipDigits()) {
            return false;
        }
        if (skip('.') && !skipDigits()) {
            return false;
        }
        if (skip('e') || skip('E')) {
            static_cast<void>(skip('+') || skip('-'));
            if (!skipDigits()) {
                return false;
            }
        }
        bool isInRange = false;
        value = m_text.midRef(begin, m_at - begin).toDouble(&isInRange);
        return isInRange;
    }

    bool skipDigits()
    {
        const int begin = m_at;
        while (current() >= QLatin1Char('0') && current() <= QLatin1Char('9')) {
            ++m_at;
        }
        return m_at > begin;
    }

    const QString &m_text;
    int m_at;
};

} // namespace

QJsonObject jsonObject(const QString &text)
{
    QJsonValue value;
    return JsonReader(text).readText(value) ? value.toObject() : QJsonObject();
}

} // namespace bp
