#include "server/JsonBody.h"

#include <QByteArray>
#include <QJsonDocument>

#include <cstring>

namespace bp {

namespace {

/// A recogniser of JSON texts: says yes or no, keeps nothing.
class JsonSyntax
{
public:
    explicit JsonSyntax(const QByteArray &text)
        : m_at(text.constData())
        , m_end(m_at + text.size())
    {
    }

    bool isValid() { return value(0) && (skipBlanks(), m_at == m_end); }

private:
    void skipBlanks()
    {
        while (m_at < m_end && (*m_at == ' ' || *m_at == '\t' || *m_at == '\n' || *m_at == '\r')) {
            ++m_at;
        }
    }

    bool take(char expected)
    {
        skipBlanks();
        const bool isThere = m_at < m_end && *m_at == expected;
        m_at += isThere ? 1 : 0;
        return isThere;
    }

    bool word(const char *text)
    {
        const auto size = static_cast<std::ptrdiff_t>(std::strlen(text));
        const bool isThere = m_end - m_at >= size && std::memcmp(m_at, text, static_cast<std::size_t>(size)) == 0;
        m_at += isThere ? size : 0;
        return isThere;
    }

    bool value(int depth)
    {
        skipBlanks();
        if (m_at == m_end || depth > kMaxJsonDepth) {
            return false;
        }
        switch (*m_at) {
        case '{':
            return members(depth);
        case '[':
            return elements(depth);
        case '"':
            return string();
        case 't':
            return word("true");
        case 'f':
            return word("false");
        case 'n':
            return word("null");
        default:
            return number();
        }
    }

    bool members(int depth)
    {
        ++m_at;
        if (take('}')) {
            return true;
        }
        do {
            skipBlanks();
            if (!string() || !take(':') || !value(depth + 1)) {
                return false;
            }
        } while (take(','));
        return take('}');
    }

    bool elements(int depth)
    {
        ++m_at;
        if (take(']')) {
            return true;
        }
        do {
            if (!value(depth + 1)) {
                return false;
            }
        } while (take(','));
        return take(']');
    }

    bool string()
    {
        if (m_at == m_end || *m_at != '"') {
            return false;
        }
        for (++m_at; m_at < m_end && *m_at != '"'; ++m_at) {
            if (static_cast<unsigned char>(*m_at) < 0x20 || (*m_at == '\\' && !escape())) {
                return false;
            }
        }
        return m_at++ < m_end;
    }

    /// Ends on the last character of the escape.
    bool escape()
    {
        if (++m_at == m_end) {
            return false;
        }
        if (*m_at != 'u') {
            return std::memchr("\"\\/bfnrt", *m_at, 8) != nullptr;
        }
        for (int digit = 0; digit < 4; ++digit) {
            if (++m_at == m_end || !isHex(*m_at)) {
                return false;
            }
        }
        return true;
    }

    bool number()
    {
        const char *begin = m_at;
        word("-");
        if (!word("0") && !digits()) {
            return false;
        }
        if (word(".") && !digits()) {
            return false;
        }
        if (word("e") || word("E")) {
            if (!word("+")) {
                word("-");
            }
            if (!digits()) {
                return false;
            }
        }
        bool isInRange = false;
        QByteArray(begin, static_cast<int>(m_at - begin)).toDouble(&isInRange);
        return isInRange;
    }

    bool digits()
    {
        const char *begin = m_at;
        while (m_at < m_end && *m_at >= '0' && *m_at <= '9') {
            ++m_at;
        }
        return m_at > begin;
    }

    static bool isHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

    const char *m_at;
    const char *m_end;
};

} // namespace

QJsonObject jsonObject(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    const bool isObject = utf8.trimmed().startsWith('{') && JsonSyntax(utf8).isValid();
    return isObject ? QJsonDocument::fromJson(utf8).object() : QJsonObject();
}

} // namespace bp
