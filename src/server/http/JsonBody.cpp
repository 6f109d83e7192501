#include "server/http/JsonBody.h"

#include <QJsonArray>

#include <algorithm>
#include <utility>
#include <vector>

namespace bp {

namespace {

constexpr ushort kByteOrderMark = 0xfeff;
const QString kEscapes = QStringLiteral("\"\\/bfnrt");
const QString kEscaped = QStringLiteral("\"\\/\b\f\n\r\t");

bool isBetween(QChar character, char first, char last)
{
    return character >= QLatin1Char(first) && character <= QLatin1Char(last);
}

class JsonReader
{
public:
    explicit JsonReader(const QString &text)
        : m_text(text)
        , m_at(text.startsWith(QChar(kByteOrderMark)) ? 1 : 0)
    {
    }

    bool read(QJsonValue &value)
    {
        const bool isValue = takeValue(value, 0);
        skipBlanks();
        return isValue && m_at == m_text.size();
    }

private:
    QChar current() const { return m_at < m_text.size() ? m_text[m_at] : QChar(); }

    bool takeIf(bool isThere, int count = 1)
    {
        m_at += isThere ? count : 0;
        return isThere;
    }
    bool take(char expected) { return takeIf(m_at < m_text.size() && m_text[m_at] == QLatin1Char(expected)); }
    bool takeWord(const char *word)
    {
        const QLatin1String text(word);
        return takeIf(m_text.midRef(m_at, text.size()) == text, text.size());
    }

    void skipBlanks()
    {
        while (take(' ') || take('\t') || take('\n') || take('\r')) { }
    }
    bool takeAfterBlanks(char expected)
    {
        skipBlanks();
        return take(expected);
    }

    bool takeValue(QJsonValue &value, int depth)
    {
        skipBlanks();
        if (m_at == m_text.size() || depth > kMaxJsonDepth) {
            return false;
        }
        switch (current().unicode()) {
        case '{':
            return takeObject(value, depth);
        case '[':
            return takeArray(value, depth);
        case '"':
            return takeStringValue(value);
        case 't':
            value = true;
            return takeWord("true");
        case 'f':
            value = false;
            return takeWord("false");
        case 'n':
            value = QJsonValue::Null;
            return takeWord("null");
        default:
            return takeNumber(value);
        }
    }

    bool takeObject(QJsonValue &value, int depth)
    {
        std::vector<Member> members;
        take('{');
        if (!takeAfterBlanks('}')) {
            do {
                Member &member = members.emplace_back();
                skipBlanks();
                if (!takeString(member.first) || !takeAfterBlanks(':') || !takeValue(member.second, depth + 1)) {
                    return false;
                }
            } while (takeAfterBlanks(','));
            if (!take('}')) {
                return false;
            }
        }
        value = toObject(members);
        return true;
    }

    bool takeArray(QJsonValue &value, int depth)
    {
        QJsonArray array;
        take('[');
        if (!takeAfterBlanks(']')) {
            do {
                QJsonValue element;
                if (!takeValue(element, depth + 1)) {
                    return false;
                }
                array.append(element);
            } while (takeAfterBlanks(','));
            if (!take(']')) {
                return false;
            }
        }
        value = array;
        return true;
    }

    using Member = std::pair<QString, QJsonValue>;

    /// Of members with the same name the last one counts. They are inserted in their order, which takes no moving.
    static QJsonObject toObject(std::vector<Member> &members)
    {
        std::stable_sort(members.begin(), members.end(),
                         [](const Member &left, const Member &right) { return left.first < right.first; });
        QJsonObject object;
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (i + 1 == members.size() || members[i].first != members[i + 1].first) {
                object.insert(members[i].first, members[i].second);
            }
        }
        return object;
    }

    bool takeStringValue(QJsonValue &value)
    {
        QString string;
        const bool isString = takeString(string);
        value = string;
        return isString;
    }

    bool takeString(QString &string)
    {
        if (!take('"')) {
            return false;
        }
        while (m_at < m_text.size() && !isBetween(current(), '\0', '\x1f')) {
            const int begin = m_at;
            while (m_at < m_text.size() && current() != QLatin1Char('"') && current() != QLatin1Char('\\')
                   && !isBetween(current(), '\0', '\x1f')) {
                ++m_at;
            }
            string += m_text.midRef(begin, m_at - begin);
            if (take('"')) {
                return true;
            }
            if (take('\\') && !takeEscape(string)) {
                return false;
            }
        }
        return false;
    }

    /// Half a surrogate pair is taken as it is.
    bool takeEscape(QString &string)
    {
        if (!take('u')) {
            const int escape = kEscapes.indexOf(current());
            string += escape >= 0 ? kEscaped[escape] : QChar();
            return takeIf(escape >= 0);
        }
        const QStringRef digits = m_text.midRef(m_at, 4);
        const bool isHex =
            digits.size() == 4 && std::all_of(digits.begin(), digits.end(), [](QChar digit) {
                return isBetween(digit, '0', '9') || isBetween(digit, 'a', 'f') || isBetween(digit, 'A', 'F');
            });
        string += QChar(digits.toUShort(nullptr, 16));
        return takeIf(isHex, 4);
    }

    bool takeNumber(QJsonValue &value)
    {
        const int begin = m_at;
        take('-');
        if (!take('0') && !takeDigits()) {
            return false;
        }
        if (take('.') && !takeDigits()) {
            return false;
        }
        if (take('e') || take('E')) {
            if (!take('+')) {
                take('-');
            }
            if (!takeDigits()) {
                return false;
            }
        }
        bool isInRange = false;
        value = m_text.midRef(begin, m_at - begin).toDouble(&isInRange);
        return isInRange;
    }

    bool takeDigits()
    {
        const int begin = m_at;
        while (isBetween(current(), '0', '9')) {
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
    return JsonReader(text).read(value) ? value.toObject() : QJsonObject();
}

} // namespace bp
